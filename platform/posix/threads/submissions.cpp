#include "platform/posix/threads/submissions.h"

#include <utility>

namespace veltrano::internal {

Block* Submissions::takeOldest() {
  const auto afterOldest = [this] { return oldest_->next.load(std::memory_order_acquire); };
  Block* next = afterOldest();
  if (oldest_ == &placeholder_) {
    if (next == nullptr) return nullptr;
    oldest_ = next;
    next = afterOldest();
  }
  if (next == nullptr) {
    // A block can be taken only when it has a successor: append the placeholder.
    if (newest() != oldest_) return nullptr;
    push(&placeholder_);
    next = afterOldest();
    if (next == nullptr) return nullptr;
  }
  return std::exchange(oldest_, next);
}

}  // namespace veltrano::internal
