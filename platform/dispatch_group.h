#pragma once

#include <condition_variable>
#include <mutex>

namespace veltrano {

/// Counts work under way, so that somebody can wait until all of it has ended.
/// Safe to use from any thread.
class DispatchGroup {
 public:
  void enter();

  /// Ends what one `enter` began.
  void leave();

  bool isEmpty() const;

  /// Blocks the calling thread until the group is empty.
  void wait();

 private:
  mutable std::mutex mutex_;
  std::condition_variable emptied_;
  int entered_ = 0;  // guarded by mutex_
};

}  // namespace veltrano
