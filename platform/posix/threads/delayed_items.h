#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "platform/work_queue.h"

namespace veltrano::internal {

/// A delayed item in the form in which it is submitted when it is due: that allocates nothing.
struct DelayedBlock final : Block {
  explicit DelayedBlock(std::shared_ptr<WorkItem> work) : item(std::move(work)) {}
  void run() override { item->run(); }

  const std::shared_ptr<WorkItem> item;
};

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

  std::size_t size() const { return heap_.size(); }

 private:
  struct Entry {
    Clock::time_point due;
    std::uint64_t order;
    Item item;
  };
  static bool isLater(const Entry& a, const Entry& b);
  Item takeFirst();

  std::vector<Entry> heap_;  // the earliest is in front
  std::uint64_t nextOrder_ = 0;
  std::size_t clearAt_ = 16;
};

}  // namespace veltrano::internal
