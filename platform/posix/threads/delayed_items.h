#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "platform/work_item.h"

namespace veltrano::internal {

/// Work that waits for its time. The owner keeps concurrent calls apart. Items that are given back
/// may hold the host's objects: let go of them only when no lock is held.
class DelayedItems {
 public:
  using Clock = std::chrono::steady_clock;
  using Items = std::vector<std::shared_ptr<WorkItem>>;

  /// Gives back cancelled items that are no longer kept. They are cleared out each time the
  /// collection has doubled, so that they cannot pile up.
  [[nodiscard]] Items add(Clock::time_point due, std::shared_ptr<WorkItem> item);

  /// Takes the item that is first in turn if it has been cancelled, as there is no need to wake up
  /// for it; null if not.
  [[nodiscard]] std::shared_ptr<WorkItem> takeCancelled();

  /// When the first item is due, cancelled or not.
  std::optional<Clock::time_point> nextDue() const;

  /// Takes one item that is due at `now`, by due time, then in the order of scheduling; null when
  /// there is none.
  [[nodiscard]] std::shared_ptr<WorkItem> takeDue(Clock::time_point now);

  std::size_t size() const { return heap_.size(); }

 private:
  struct Entry {
    Clock::time_point due;
    std::uint64_t order;
    std::shared_ptr<WorkItem> item;
  };
  static bool isLater(const Entry& a, const Entry& b);
  std::shared_ptr<WorkItem> takeFirst();

  std::vector<Entry> heap_;  // the first to be due is in front
  std::uint64_t nextOrder_ = 0;
  std::size_t clearAt_ = 16;
};

}  // namespace veltrano::internal
