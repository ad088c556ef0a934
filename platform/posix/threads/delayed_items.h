#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "platform/work_queue.h"

namespace veltrano::internal {

/// Delayed work, ordered by due time. Not thread-safe. Returned items may own the host's objects:
/// destroy them only while no lock is held.
class DelayedItems {
 public:
  using Clock = std::chrono::steady_clock;
  using Item = std::unique_ptr<DelayedBlock>;
  using Items = std::vector<Item>;

  /// Adds `item` and returns cancelled items that it removed. That happens each time the collection
  /// has doubled, so that cancelled items cannot pile up.
  [[nodiscard]] Items add(Clock::time_point due, Item item);

  /// Removes the first item if it is cancelled, which saves a wake-up. Null if it is not.
  [[nodiscard]] Item takeCancelled();

  /// When the first item is due, cancelled or not.
  std::optional<Clock::time_point> nextDue() const;

  /// Removes the first item that is due at `now`, or null. Items due at the same time keep their
  /// order.
  [[nodiscard]] Item takeDue(Clock::time_point now);

  std::size_t size() const { return items_.size(); }

 private:
  Item takeFirst() { return std::move(items_.extract(items_.begin()).mapped()); }

  std::multimap<Clock::time_point, Item> items_;  // keeps the order of those due at the same time
  std::size_t clearAt_ = 16;
};

}  // namespace veltrano::internal
