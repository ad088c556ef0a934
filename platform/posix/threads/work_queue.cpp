#include "platform/posix/threads/work_queue.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>
#include <utility>

#include "platform/host_callback.h"
#include "platform/posix/system/background_thread.h"
#include "platform/posix/threads/due_time.h"

namespace veltrano::internal {
namespace {

constexpr Duration kPollInterval = std::chrono::microseconds(400);
constexpr int kPolls = 5;  // without a new submission

}  // namespace

void PosixWorkQueue::async(std::unique_ptr<Block> block) {
  if (!submitted_.submit(block.release())) startOrDestroy();
}

[[gnu::hot]] void PosixWorkQueue::asyncDeferred(std::unique_ptr<Block> block) {
  if (!submitted_.submitDeferred(block.release())) startOrDestroy();
}

void PosixWorkQueue::asyncAfter(Duration delay, std::shared_ptr<WorkItem> item) {
  auto block = std::make_unique<DelayedBlock>(std::move(item));
  if (delay <= Duration::zero()) return async(std::unique_ptr<Block>(std::move(block)));
  const auto due = dueTime(Clock::now(), delay);
  DelayedItems::Items cancelled;
  {
    const Lock lock(mutex_);
    if (isStopped_) return;
    const auto firstDue = delayed_.nextDue();
    cancelled = delayed_.add(due, std::move(block));
    if (!isStarted_) start();
    if (!firstDue || due < *firstDue) submitted_.ring();
  }
  // Destroys them on the queue's thread; if memory runs out, on this one.
  if (!cancelled.empty()) dropExceptions([&] { async([cancelled = std::move(cancelled)] {}); });
}

void PosixWorkQueue::wait(DispatchGroup& group, std::function<void()> then) {
  std::atomic<bool> isEmpty{false};
  group.notify([&] {
    isEmpty = true;  // `wait` may return now
    submitted_.ring();
  });
  while (!isEmpty) {
    submitDue();
    submitted_.waitForRing(nextDue());
  }
  then();
}

void PosixWorkQueue::stop() {
  const Lock lock(mutex_);
  isStopped_ = true;
  submitted_.ring();
  if (!isStarted_) hasEnded_ = true;
}

bool PosixWorkQueue::waitForEnd(Clock::time_point deadline) {
  {
    Lock lock(mutex_);
    while (!hasEnded_) {
      if (endOfThread_.wait_until(lock.standard(), deadline) == std::cv_status::timeout &&
          !hasEnded_)
        return false;
    }
  }
  destroyPending();
  return true;
}

void PosixWorkQueue::startOrDestroy() {
  {
    const Lock lock(mutex_);
    if (!isStarted_ && !isStopped_) start();
    if (!hasEnded_) return;
  }
  destroyPending();
}

// If no thread can be started, the next submission retries.
void PosixWorkQueue::start() {
  bool isStarted = false;
  dropExceptions([&] { isStarted = startBackgroundThread(label_, [this] { work(); }); });
  isStarted_ = isStarted;
}

// Replaces a thread that the host's code ended with pthread_exit.
void PosixWorkQueue::endThread() {
  if (isForkedChild()) return;
  if (isStopped_) destroyPending();
  const Lock lock(mutex_);
  submitted_.setReader(Queue::Reader::none);
  isStarted_ = false;
  hasEnded_ = isStopped_;
  if (!isStopped_) start();
  endOfThread_.notify_all();
}

// Called when no block runs any more. Drops each one after releasing the lock.
void PosixWorkQueue::destroyPending() {
  for (;;) {
    std::unique_ptr<Block> block;
    DelayedItems::Item item;
    {
      const Lock lock(mutex_);
      block.reset(submitted_.takeOldest());
      item = delayed_.takeDue(Clock::time_point::max());
    }
    if (block != nullptr) block->drop();
    if (block == nullptr && item == nullptr) return;
  }
}

// False once stopped, and in a child that a block forked.
bool PosixWorkQueue::shouldContinue() const {
  return !isStopped_ && !isForkedChild();
}

void PosixWorkQueue::work() {
  const AtScopeEnd end{[this] { endThread(); }};
  submitted_.setReader(Queue::Reader::awake);
  while (shouldContinue()) {
    if (!runWhatIsReady()) {
      dropCancelled();
      sleep();
      continue;
    }
    // Most wake-ups are followed by nothing.
    for (int polls = 1; polls > 0; --polls) {
      nap(kPollInterval);
      if (runWhatIsReady()) polls = kPolls;
    }
  }
}

// Returns whether anything had been submitted: more may follow soon, so polling is worthwhile.
// Delayed items do not count.
bool PosixWorkQueue::runWhatIsReady() {
  bool hadSubmissions = false;
  while (shouldContinue()) {
    const bool hasSubmissions = !submitted_.isEmpty();
    hadSubmissions |= hasSubmissions;
    submitDue();
    runSubmitted();
    if (!hasSubmissions) break;
  }
  return hadSubmissions;
}

// Gives the delayed items that are due their places, after everything submitted so far.
void PosixWorkQueue::submitDue() {
  const Lock lock(mutex_);
  const auto now = Clock::now();
  while (auto item = delayed_.takeDue(now)) static_cast<void>(submitted_.submit(item.release()));
}

// Runs everything submitted before the call.
void PosixWorkQueue::runSubmitted() {
  const Block* const last = submitted_.newest();
  for (bool isDone = submitted_.hasReached(last); !isDone && shouldContinue();) {
    const std::unique_ptr<Block> block(submitted_.takeOldest());
    if (block != nullptr) {
      isDone = block.get() == last || submitted_.hasReached(last);
      dropExceptions([&] { block->run(); });
    } else {
      nap(kPollInterval);  // a submitter has not linked its block yet
    }
  }
}

void PosixWorkQueue::nap(Duration duration) {
  const auto end = Clock::now() + duration;
  std::this_thread::sleep_until(std::min(end, nextDue().value_or(end)));
}

void PosixWorkQueue::dropCancelled() {
  for (;;) {
    DelayedItems::Item cancelled;  // destroyed after the lock is released
    const Lock lock(mutex_);
    cancelled = delayed_.takeCancelled();
    if (cancelled == nullptr) return;
  }
}

void PosixWorkQueue::sleep() {
  submitted_.sleep(
      deferrable_(), [this] { return nextDue(); }, [this] { return !shouldContinue(); });
}

std::optional<PosixWorkQueue::Clock::time_point> PosixWorkQueue::nextDue() {
  const Lock lock(mutex_);
  return delayed_.nextDue();
}

}  // namespace veltrano::internal
