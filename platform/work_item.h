#pragma once

#include <atomic>
#include <functional>
#include <utility>

namespace veltrano::internal {

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

}  // namespace veltrano::internal
