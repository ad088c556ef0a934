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

constexpr std::chrono::microseconds kPollInterval{400};
constexpr std::chrono::milliseconds kPollDuration{20};

}  // namespace

PosixWorkQueue::PosixWorkQueue(std::string_view label) : label_(label) {}

void PosixWorkQueue::async(std::unique_ptr<Block> block) {
  submitted_.push(block.release());
  if (state_.load(std::memory_order_seq_cst) != State::awake) wake();
}

void PosixWorkQueue::asyncAfter(Duration delay, std::shared_ptr<WorkItem> item) {
  auto block = std::make_unique<DelayedBlock>(std::move(item));
  if (delay <= Duration::zero()) return async(std::unique_ptr<Block>(std::move(block)));
  const auto due = dueTime(Clock::now(), delay);
  DelayedItems::Items cancelled;
  {
    const std::lock_guard lock(mutex_);
    if (isStopped_) return;
    const auto firstDue = delayed_.nextDue();
    cancelled = delayed_.add(due, std::move(block));
    if (state_.load() == State::unstarted) start();
    if (!firstDue || due < *firstDue) wakeUp_.notify_one();
  }
  // Destroys them on the queue's thread; if memory runs out, on this one.
  if (!cancelled.empty()) dropExceptions([&] { async([cancelled = std::move(cancelled)] {}); });
}

void PosixWorkQueue::wait(DispatchGroup& group, std::function<void()> then) {
  bool isEmpty = false;  // guarded by mutex_
  group.notify([&] {
    const std::lock_guard lock(mutex_);
    isEmpty = true;
    wakeUp_.notify_one();
  });
  std::unique_lock lock(mutex_);
  while (!isEmpty) {
    submitDue();
    sleepUntilNextDue(lock);
  }
  lock.unlock();
  then();
}

void PosixWorkQueue::stop() {
  const std::lock_guard lock(mutex_);
  isStopped_ = true;
  wakeUp_.notify_one();
  if (state_.load() == State::unstarted) state_.store(State::ended);
}

bool PosixWorkQueue::waitForEnd(Clock::time_point deadline) {
  {
    std::unique_lock lock(mutex_);
    const auto hasEnded = [this] { return state_.load() == State::ended; };
    if (!hasEnded_.wait_until(lock, deadline, hasEnded)) return false;
  }
  destroyPending();
  return true;
}

void PosixWorkQueue::wake() {
  {
    const std::lock_guard lock(mutex_);
    const State state = state_.load();
    if (state == State::unstarted) start();
    if (state == State::asleep) {
      state_.store(State::awake);
      wakeUp_.notify_one();
    }
    if (state != State::ended) return;
  }
  destroyPending();
}

// Called with mutex_ held. If no thread can be started, the next submission retries.
void PosixWorkQueue::start() {
  dropExceptions([this] {
    if (startBackgroundThread(label_, [this] { work(); })) state_.store(State::awake);
  });
}

// Replaces a thread that the host's code ended with pthread_exit.
void PosixWorkQueue::endThread() {
  if (isForkedChild()) return;
  if (isStopped_) destroyPending();
  const std::lock_guard lock(mutex_);
  state_.store(isStopped_ ? State::ended : State::unstarted);
  if (!isStopped_) start();
  hasEnded_.notify_all();
}

// Called when no block runs any more. Drops each one after releasing the lock.
void PosixWorkQueue::destroyPending() {
  for (;;) {
    std::unique_ptr<Block> block;
    DelayedItems::Item item;
    {
      const std::lock_guard lock(mutex_);
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
  struct End {
    ~End() { queue.endThread(); }
    PosixWorkQueue& queue;
  };
  const End end{*this};
  auto idleSince = Clock::now();
  while (shouldContinue()) {
    if (runWhatIsReady()) {
      idleSince = Clock::now();
    } else if (Clock::now() - idleSince < kPollDuration) {
      nap();
    } else {
      dropCancelled();
      sleep();
    }
  }
}

// Returns whether anything had been submitted: more may follow soon, so polling is worthwhile.
// Delayed items do not count.
bool PosixWorkQueue::runWhatIsReady() {
  const bool hadSubmissions = !submitted_.isEmpty();
  {
    const std::lock_guard lock(mutex_);
    submitDue();
  }
  runSubmitted();
  return hadSubmissions;
}

// Gives the delayed items that are due their places, after everything submitted so far. Called with
// mutex_ held.
void PosixWorkQueue::submitDue() {
  const auto now = Clock::now();
  while (auto item = delayed_.takeDue(now)) submitted_.push(item.release());
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
      std::this_thread::sleep_for(kPollInterval);  // a submitter has not linked its block yet
    }
  }
}

void PosixWorkQueue::nap() {
  auto end = Clock::now() + kPollInterval;
  {
    const std::lock_guard lock(mutex_);
    end = std::min(end, delayed_.nextDue().value_or(end));
  }
  std::this_thread::sleep_until(end);
}

void PosixWorkQueue::dropCancelled() {
  for (;;) {
    DelayedItems::Item cancelled;  // destroyed after the lock is released
    const std::lock_guard lock(mutex_);
    cancelled = delayed_.takeCancelled();
    if (cancelled == nullptr) return;
  }
}

void PosixWorkQueue::sleep() {
  std::unique_lock lock(mutex_);
  state_.store(State::asleep, std::memory_order_seq_cst);
  while (state_.load() == State::asleep && submitted_.isEmpty() && !isStopped_) {
    if (delayed_.nextDue().value_or(Clock::time_point::max()) <= Clock::now()) break;
    sleepUntilNextDue(lock);
  }
  state_.store(State::awake);
}

void PosixWorkQueue::sleepUntilNextDue(std::unique_lock<std::mutex>& lock) {
  if (const auto due = delayed_.nextDue()) {
    wakeUp_.wait_until(lock, *due);
  } else {
    wakeUp_.wait(lock);
  }
}

}  // namespace veltrano::internal
