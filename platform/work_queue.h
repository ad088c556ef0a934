#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <utility>

#include "encoding/time.h"
#include "platform/mutex.h"

namespace veltrano::internal {

/// One block of work. Intrusively linked, so that submitting it allocates nothing.
class Block {
 public:
  virtual ~Block() = default;
  virtual void run() = 0;

  /// Called instead of `run` by a work queue that has been stopped.
  virtual void drop() {}

  std::atomic<Block*> next{nullptr};  // guarded by the block's owner
  bool isDeferred = false;            // set by a queue that was asleep when this was deferred
};

/// A block that calls `work`.
template <class Work>
std::unique_ptr<Block> makeBlock(Work work) {
  struct WorkBlock final : Block {
    explicit WorkBlock(Work&& its) : work(std::move(its)) {}
    void run() override { work(); }
    Work work;
  };
  return std::make_unique<WorkBlock>(std::move(work));
}

/// Work that can be cancelled until it starts. Shared by its scheduler and the queue.
class WorkItem {
 public:
  explicit WorkItem(std::function<void()> work) : work_(std::move(work)) {}

  /// Keeps the item from starting; no-op once it has started. Thread-safe.
  void cancel() { cancelled_.store(true, std::memory_order_relaxed); }
  bool isCancelled() const { return cancelled_.load(std::memory_order_relaxed); }

  /// Called by the queue, once.
  void run() {
    if (!isCancelled()) work_();
  }

 private:
  const std::function<void()> work_;
  std::atomic<bool> cancelled_{false};
};

/// A delayed item as a block. Made in advance, so that nothing is allocated when it is due.
struct DelayedBlock final : Block {
  explicit DelayedBlock(std::shared_ptr<WorkItem> work) : item(std::move(work)) {}
  void run() override { item->run(); }

  const std::shared_ptr<WorkItem> item;
};

/// Counts pending work, so that a thread can wait until all of it is done. Thread-safe.
class DispatchGroup {
 public:
  void enter() {
    const Lock lock(mutex_);
    ++entered_;
  }

  /// Balances one `enter`.
  void leave() {
    std::function<void()> then;
    {
      const Lock lock(mutex_);
      if (--entered_ > 0) return;
      then = std::exchange(then_, nullptr);
    }
    if (then) then();
  }

  bool isEmpty() const {
    const Lock lock(mutex_);
    return entered_ == 0;
  }

  /// Calls `then` without a lock: now if the group is empty, else from the `leave` that empties it.
  /// Replaces an earlier `then`.
  void notify(std::function<void()> then) {
    {
      const Lock lock(mutex_);
      if (entered_ > 0) {
        then_ = std::move(then);
        return;
      }
    }
    then();
  }

 private:
  mutable Mutex mutex_;
  int entered_ GUARDED_BY(mutex_) = 0;
  std::function<void()> then_ GUARDED_BY(mutex_);
};

/// A serial queue: blocks run one at a time, in submission order, never on the submitter's stack.
/// Submission is thread-safe, never waits for a running block, and is cheap enough for a host's
/// busiest thread. Blocks still pending when the queue ends never run.
class WorkQueue {
 public:
  virtual ~WorkQueue() = default;

  virtual void async(std::unique_ptr<Block> /*block*/) {}

  template <class Work>
  void async(Work work) {
    async(makeBlock(std::move(work)));
  }

  /// The same for a block that need not run soon. A queue that sleeps may go on sleeping until it
  /// is woken by something else: `async`, an item that falls due, `wakeUp`, or deferred blocks
  /// beyond the number that `setDeferrable` allows.
  virtual void asyncDeferred(std::unique_ptr<Block> block) { async(std::move(block)); }

  /// Has deferred blocks run now. Thread-safe, allocates nothing.
  virtual void wakeUp() {}

  /// The queue calls `deferrable` before it falls asleep: the block that makes as many deferred
  /// ones wakes it. Until then each one does. Call it before the first submission.
  // NOLINTNEXTLINE(performance-unnecessary-value-param): for implementations to keep
  virtual void setDeferrable(std::function<std::size_t()> /*deferrable*/) {}

  /// Submits `item` after `delay`; without a delay at once, in order with `async`. Items due at the
  /// same time keep their order. One that falls due during a wait takes its place then; one that
  /// falls due while blocks run takes it when those that were waiting have run.
  // NOLINTNEXTLINE(performance-unnecessary-value-param): for implementations to keep
  virtual void asyncAfter(Duration /*delay*/, std::shared_ptr<WorkItem> /*item*/) {}

  /// Whether nothing was submitted after `block`, which must not have started.
  virtual bool isNewest(const Block& /*block*/) const { return false; }

  /// Called last by the running block: blocks the queue until `group` is empty, then runs `then`
  /// before any other block. Runs `then` at once if the group is empty already. The group must
  /// outlive the wait.
  // NOLINTNEXTLINE(performance-unnecessary-value-param): for implementations to keep
  virtual void wait(DispatchGroup& /*group*/, std::function<void()> /*then*/) {}
};

}  // namespace veltrano::internal
