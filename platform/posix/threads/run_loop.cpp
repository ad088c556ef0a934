#include "platform/posix/threads/run_loop.h"

#include <algorithm>
#include <exception>
#include <new>

#include "platform/host_callback.h"
#include "platform/posix/system/thread_key.h"
#include "platform/posix/threads/due_time.h"

namespace veltrano::internal {
namespace {

using OwnLoop = std::shared_ptr<PosixRunLoop>;

// Each thread's own reference to its loop.
const ThreadKey& ownLoops() {
  static const ThreadKey only([](void* own) { delete static_cast<OwnLoop*>(own); });
  return only;
}

constexpr std::chrono::seconds kRetryDelay{1};

// A no-op, for a thread whose run loop could not be allocated.
class NoRunLoop final : public RunLoop {
  void run() override {}
  bool runUntil(std::chrono::steady_clock::time_point) override { return false; }
  void stop() override {}
  void perform(std::function<void()>) override {}
  int fileDescriptor() override { return -1; }
  void runDue() override {}
};

}  // namespace

class PosixRunLoop::LoopTimer final : public Timer {
 public:
  LoopTimer(std::weak_ptr<PosixRunLoop> loop, std::uint64_t order)
      : loop_(std::move(loop)), order_(order) {}

  void invalidate() override {
    if (const auto loop = loop_.lock()) loop->cancel(order_);
  }

 private:
  const std::weak_ptr<PosixRunLoop> loop_;
  const std::uint64_t order_;
};

std::shared_ptr<PosixRunLoop> PosixRunLoop::ofThisThread() {
  if (const void* const own = ownLoops().get()) return *static_cast<const OwnLoop*>(own);
  auto own = std::make_unique<OwnLoop>(std::make_shared<PosixRunLoop>());
  if (!ownLoops().set(own.get())) throw std::bad_alloc();
  return *own.release();
}

bool PosixRunLoop::runUntilOptional(std::optional<Clock::time_point> deadline) {
  while (isOwnThread() && runPass(true)) {
    Lock lock(mutex_);
    if (stopped_) {
      stopped_ = false;
      return true;
    }
    const auto now = Clock::now();
    if (deadline && now >= *deadline) break;
    auto wake = wakeTime();
    if (wake && *wake <= now) continue;
    if (deadline && (!wake || *deadline < *wake)) wake = deadline;
    if (wake)
      changes_.wait_until(lock.standard(), *wake);
    else
      changes_.wait(lock.standard());
  }
  return false;
}

void PosixRunLoop::stop() {
  if (isForkedChild()) return;
  const Lock lock(mutex_);
  stopped_ = true;
  changes_.notify_all();
}

void PosixRunLoop::perform(std::function<void()> function) {
  if (!function || isForkedChild()) return;
  dropExceptions([&] {
    Pending pending{kAtOnce,
                    std::move(function)};  // if memory runs out, destroyed without the lock
    const Lock lock(mutex_);
    schedule_.emplace(Key(kAtOnce, nextOrder_++), std::move(pending));
    changed();
  });
}

int PosixRunLoop::fileDescriptor() {
  if (isForkedChild()) return -1;
  const Lock lock(mutex_);
  try {
    const int descriptor = wakeUp_.descriptor();
    wakeUp_.set(wakeTime());
    return descriptor;
  } catch (const std::exception&) {
    return -1;
  }
}

std::shared_ptr<Timer> PosixRunLoop::schedule(Duration delay, Duration tolerance,
                                              std::function<void()> action) {
  // A timer that reschedules itself fires at most once per tolerance, even with a shorter delay.
  const auto now = Clock::now();
  const auto due = dueTime(now, std::max(delay, tolerance));
  const auto latest = dueTime(dueTime(now, delay), tolerance);
  const Lock lock(mutex_);
  const std::uint64_t order = nextOrder_++;
  auto timer = std::make_shared<LoopTimer>(weak_from_this(), order);
  schedule_.emplace(Key(due, order), Pending{latest, std::move(action)});
  changed();
  return timer;
}

void PosixRunLoop::cancel(std::uint64_t order) {
  Schedule::node_type cancelled;  // destroyed after the lock is released
  const Lock lock(mutex_);
  const auto timer = std::find_if(schedule_.begin(), schedule_.end(),
                                  [&](const auto& entry) { return entry.first.second == order; });
  if (timer != schedule_.end()) cancelled = schedule_.extract(timer);
}

// Runs what is due when the pass starts, and nothing that is added during it. False in a forked
// child.
bool PosixRunLoop::runPass(bool endsWhenStopped) {
  if (isForkedChild()) return false;
  const auto now = Clock::now();
  const std::uint64_t end = nextOrder_;
  {
    const HostCode::OnLoop code;
    while (run(takeNext(now, end, endsWhenStopped))) {
    }
  }
  if (isForkedChild()) return false;
  const Lock lock(mutex_);
  changed();
  return true;
}

PosixRunLoop::Schedule::node_type PosixRunLoop::takeNext(Clock::time_point now, std::uint64_t end,
                                                         bool endsWhenStopped) {
  const Lock lock(mutex_);
  if ((endsWhenStopped && stopped_) || !HostCode::OnLoop::mayStart()) return {};
  const auto next = std::find_if(schedule_.begin(), schedule_.end(),
                                 [&](const auto& entry) { return entry.first.second < end; });
  if (next == schedule_.end() || next->first.first > now) return {};
  return schedule_.extract(next);
}

// False when there was nothing to run, and in a child that the callback forked.
bool PosixRunLoop::run(Schedule::node_type next) {
  if (next.empty()) return false;
  bool wasOutOfMemory = false;
  dropExceptions([&] {
    try {
      next.mapped().action();
    } catch (const std::bad_alloc&) {
      wasOutOfMemory = next.key().first != kAtOnce;  // only timers are retried
    }
  });
  if (isForkedChild() || !wasOutOfMemory) return !isForkedChild();
  const Lock lock(mutex_);
  next.key().first = Clock::now() + kRetryDelay;
  schedule_.insert(std::move(next));
  return true;
}

// When the loop must wake next. Timers are coalesced within their tolerances.
std::optional<PosixRunLoop::Clock::time_point> PosixRunLoop::wakeTime() const {
  if (!HostCode::OnLoop::mayStart()) return std::nullopt;
  std::optional<Clock::time_point> wake;
  auto latest = Clock::time_point::max();
  for (const auto& [key, entry] : schedule_) {
    if (key.first > latest) break;
    wake = key.first;
    latest = std::min(latest, entry.latest);
  }
  return wake;
}

// Wakes the waiting thread and rearms the descriptor.
void PosixRunLoop::changed() {
  changes_.notify_all();
  wakeUp_.set(wakeTime());
}

std::shared_ptr<Timer> PosixTimers::schedule(Duration delay, Duration tolerance,
                                             std::function<void()> action) {
  if (isStopped_) return std::make_shared<Timer>();
  return PosixRunLoop::ofThisThread()->schedule(delay, tolerance, std::move(action));
}

void PosixTimers::performOnMainThread(std::function<void()> function) {
  if (mainRunLoop_->isOwnThread())
    function();
  else
    mainRunLoop_->perform(std::move(function));
}

RunLoop& currentSystemRunLoop() {
  try {
    return *PosixRunLoop::ofThisThread();
  } catch (const std::exception&) {
    static NoRunLoop none;
    return none;
  }
}

}  // namespace veltrano::internal
