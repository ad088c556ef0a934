#include "platform/posix/threads/run_loop.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>

#include "platform/host_callback.h"
#include "platform/posix/threads/due_time.h"

namespace veltrano::internal {
namespace {

// A plain pointer, so that it can still be asked while the thread's other objects are destroyed.
// Owns its share of the loop.
thread_local std::shared_ptr<PosixRunLoop>* ownLoop = nullptr;

struct EndOfThread {
  // What is destroyed with a loop may ask for one again.
  ~EndOfThread() {
    while (ownLoop != nullptr) delete std::exchange(ownLoop, nullptr);
  }
};

void arm(int descriptor, std::optional<std::chrono::steady_clock::time_point> time) {
  itimerspec setting = {};  // all zeros: never
  if (time) {
    const auto instant = std::max(time->time_since_epoch(), std::chrono::nanoseconds(1));
    const auto seconds = std::chrono::floor<std::chrono::seconds>(instant);
    setting.it_value.tv_sec = seconds.count();
    setting.it_value.tv_nsec = (instant - seconds).count();
  }
  timerfd_settime(descriptor, TFD_TIMER_ABSTIME, &setting, nullptr);
}

}  // namespace

class PosixRunLoop::LoopTimer final : public Timer {
 public:
  LoopTimer(std::weak_ptr<PosixRunLoop> loop, Key key) : loop_(std::move(loop)), key_(key) {}

  void invalidate() override {
    if (const auto loop = loop_.lock()) loop->cancel(key_);
  }

 private:
  const std::weak_ptr<PosixRunLoop> loop_;
  const Key key_;
};

RunLoop& RunLoop::current() {
  return *PosixRunLoop::ofThisThread();
}

std::shared_ptr<PosixRunLoop> PosixRunLoop::ofThisThread() {
  if (ownLoop == nullptr) {
    ownLoop = new std::shared_ptr<PosixRunLoop>(std::make_shared<PosixRunLoop>());
    thread_local const EndOfThread end;
    static_cast<void>(end);
  }
  return *ownLoop;
}

PosixRunLoop::~PosixRunLoop() {
  if (descriptor_ >= 0) close(descriptor_);
}

void PosixRunLoop::run() {
  runUntilOptional(std::nullopt);
}

bool PosixRunLoop::runUntil(std::chrono::steady_clock::time_point deadline) {
  return runUntilOptional(deadline);
}

bool PosixRunLoop::runUntilOptional(std::optional<Clock::time_point> deadline) {
  while (isOwnThread() && !isForkedChild()) {
    runPass(true);
    if (isForkedChild()) break;
    std::unique_lock lock(mutex_);
    if (stopped_) {
      stopped_ = false;
      return true;
    }
    const auto now = Clock::now();
    if (deadline && now >= *deadline) break;
    auto wake = wakeTime();
    if (wake && *wake <= now) continue;
    if (deadline && (!wake || *deadline < *wake)) wake = deadline;
    if (wake) {
      changes_.wait_until(lock, *wake);
    } else {
      changes_.wait(lock);
    }
  }
  return false;
}

void PosixRunLoop::runDue() {
  if (isOwnThread()) runPass(false);
}

void PosixRunLoop::stop() {
  if (isForkedChild()) return;
  const std::lock_guard lock(mutex_);
  stopped_ = true;
  changes_.notify_all();
}

void PosixRunLoop::perform(std::function<void()> function) {
  if (!function || isForkedChild()) return;
  const std::lock_guard lock(mutex_);
  functions_.push_back(std::move(function));
  changed();
}

int PosixRunLoop::fileDescriptor() {
  if (isForkedChild()) return -1;
  const std::lock_guard lock(mutex_);
  if (descriptor_ < 0) {
    descriptor_ = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
    if (descriptor_ >= 0) arm(descriptor_, wakeTime());
  }
  return descriptor_;
}

std::shared_ptr<Timer> PosixRunLoop::schedule(Duration delay, Duration tolerance,
                                              std::function<void()> action) {
  const auto due = dueTime(Clock::now(), delay);
  const std::lock_guard lock(mutex_);
  const Key key(due, nextOrder_++);
  timers_.emplace(key, Pending{dueTime(due, tolerance), std::move(action)});
  changed();
  return std::make_shared<LoopTimer>(weak_from_this(), key);
}

void PosixRunLoop::cancel(const Key& key) {
  decltype(timers_)::node_type cancelled;  // destroyed after the lock has been released
  const std::lock_guard lock(mutex_);
  cancelled = timers_.extract(key);
}

// Runs what is there to run at the beginning of the pass, and nothing that comes up meanwhile.
void PosixRunLoop::runPass(bool endsWhenStopped) {
  if (isForkedChild()) return;
  const auto now = Clock::now();
  std::size_t functionsLeft = 0;
  {
    const std::lock_guard lock(mutex_);
    functionsLeft = functions_.size();
  }
  while (auto next = takeNext(now, functionsLeft, endsWhenStopped))
    if (!callHost(next)) return;
  const std::lock_guard lock(mutex_);
  changed();
}

std::function<void()> PosixRunLoop::takeNext(Clock::time_point now, std::size_t& functionsLeft,
                                             bool endsWhenStopped) {
  const std::lock_guard lock(mutex_);
  std::function<void()> next;
  if (endsWhenStopped && stopped_) return next;
  if (functionsLeft > 0 && !functions_.empty()) {
    --functionsLeft;
    next = std::move(functions_.front());
    functions_.pop_front();
  } else if (!timers_.empty() && timers_.begin()->first.first <= now) {
    next = std::move(timers_.begin()->second.action);
    timers_.erase(timers_.begin());
  }
  return next;
}

// When the loop has to wake next. Timers wait for each other as far as they tolerate it. Called
// with mutex_ held.
std::optional<PosixRunLoop::Clock::time_point> PosixRunLoop::wakeTime() const {
  if (!functions_.empty()) return Clock::time_point();
  std::optional<Clock::time_point> wake;
  auto latest = Clock::time_point::max();
  for (const auto& [key, timer] : timers_) {
    if (key.first > latest) break;
    wake = key.first;
    latest = std::min(latest, timer.latest);
  }
  return wake;
}

// Lets whoever waits for the loop look again. Called with mutex_ held.
void PosixRunLoop::changed() {
  changes_.notify_all();
  if (descriptor_ >= 0) arm(descriptor_, wakeTime());
}

std::shared_ptr<Timer> PosixTimers::schedule(Duration delay, Duration tolerance,
                                             std::function<void()> action) {
  return PosixRunLoop::ofThisThread()->schedule(delay, tolerance, std::move(action));
}

}  // namespace veltrano::internal
