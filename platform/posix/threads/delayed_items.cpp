#include "platform/posix/threads/delayed_items.h"

#include <algorithm>

namespace veltrano::internal {

DelayedItems::Items DelayedItems::add(Clock::time_point due, Item item) {
  Items cancelled;
  const bool isFull = items_.size() >= clearAt_;
  if (isFull) cancelled.reserve(items_.size() + 1);  // so that moving the items cannot throw
  items_.emplace(due, std::move(item));              // may throw: before any is removed
  if (isFull) {
    for (auto next = items_.begin(); next != items_.end();) {
      const auto entry = next++;
      if (entry->second->item->isCancelled())
        cancelled.push_back(std::move(items_.extract(entry).mapped()));
    }
    clearAt_ = std::max<std::size_t>(16, 2 * items_.size());
  }
  return cancelled;
}

DelayedItems::Item DelayedItems::takeCancelled() {
  return !items_.empty() && items_.begin()->second->item->isCancelled() ? takeFirst() : nullptr;
}

std::optional<DelayedItems::Clock::time_point> DelayedItems::nextDue() const {
  if (items_.empty()) return std::nullopt;
  return items_.begin()->first;
}

DelayedItems::Item DelayedItems::takeDue(Clock::time_point now) {
  return !items_.empty() && items_.begin()->first <= now ? takeFirst() : nullptr;
}

}  // namespace veltrano::internal
