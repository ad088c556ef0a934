#include "platform/posix/threads/delayed_items.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace veltrano::internal {

bool DelayedItems::isLater(const Entry& a, const Entry& b) {
  return std::tie(a.due, a.order) > std::tie(b.due, b.order);
}

DelayedItems::Items DelayedItems::add(Clock::time_point due, Item item) {
  Items cancelled;
  if (heap_.size() >= clearAt_) {
    cancelled.reserve(heap_.size());  // so that moving the items cannot throw
    const auto end = std::partition(heap_.begin(), heap_.end(), [](const Entry& entry) {
      return !entry.item->item->isCancelled();
    });
    for (auto entry = end; entry != heap_.end(); ++entry)
      cancelled.push_back(std::move(entry->item));
    heap_.erase(end, heap_.end());
    std::make_heap(heap_.begin(), heap_.end(), isLater);
    clearAt_ = std::max<std::size_t>(16, 2 * heap_.size());
  }
  heap_.push_back({due, nextOrder_++, std::move(item)});
  std::push_heap(heap_.begin(), heap_.end(), isLater);
  return cancelled;
}

DelayedItems::Item DelayedItems::takeCancelled() {
  if (heap_.empty() || !heap_.front().item->item->isCancelled()) return nullptr;
  return takeFirst();
}

std::optional<DelayedItems::Clock::time_point> DelayedItems::nextDue() const {
  if (heap_.empty()) return std::nullopt;
  return heap_.front().due;
}

DelayedItems::Item DelayedItems::takeDue(Clock::time_point now) {
  if (heap_.empty() || heap_.front().due > now) return nullptr;
  return takeFirst();
}

DelayedItems::Item DelayedItems::takeFirst() {
  std::pop_heap(heap_.begin(), heap_.end(), isLater);
  auto item = std::move(heap_.back().item);
  heap_.pop_back();
  return item;
}

}  // namespace veltrano::internal
