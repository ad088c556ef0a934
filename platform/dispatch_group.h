#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <utility>

namespace veltrano::internal {

/// Counts pending work, so that a thread can wait until all of it is done. Thread-safe.
class DispatchGroup {
 public:
  void enter() {
    const std::lock_guard lock(mutex_);
    ++entered_;
  }

  /// Balances one `enter`.
  void leave() {
    std::function<void()> then;
    {
      // Notifies under the lock: a waiter that sees the group empty may destroy it at once.
      const std::lock_guard lock(mutex_);
      if (--entered_ > 0) return;
      emptied_.notify_all();
      then = std::exchange(then_, nullptr);
    }
    if (then) then();
  }

  bool isEmpty() const {
    const std::lock_guard lock(mutex_);
    return entered_ == 0;
  }

  /// Calls `then` without a lock from the next `leave` that empties the group. Replaces an earlier
  /// `then`.
  void notify(std::function<void()> then) {
    const std::lock_guard lock(mutex_);
    then_ = std::move(then);
  }

  /// Blocks the calling thread until the group is empty.
  void wait() {
    std::unique_lock lock(mutex_);
    emptied_.wait(lock, [this] { return entered_ == 0; });
  }

 private:
  mutable std::mutex mutex_;
  std::condition_variable emptied_;
  int entered_ = 0;             // guarded by mutex_
  std::function<void()> then_;  // guarded by mutex_
};

}  // namespace veltrano::internal
