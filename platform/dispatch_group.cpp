#include "platform/dispatch_group.h"

namespace veltrano {

void DispatchGroup::enter() {
  const std::lock_guard lock(mutex_);
  ++entered_;
}

void DispatchGroup::leave() {
  // Notified under the lock: a waiter that has seen the group empty may destroy it at once.
  const std::lock_guard lock(mutex_);
  if (--entered_ == 0) emptied_.notify_all();
}

bool DispatchGroup::isEmpty() const {
  const std::lock_guard lock(mutex_);
  return entered_ == 0;
}

void DispatchGroup::wait() {
  std::unique_lock lock(mutex_);
  emptied_.wait(lock, [this] { return entered_ == 0; });
}

}  // namespace veltrano
