#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <span>
#include <utility>
#include <vector>

#include "upload/corvane_endpoint_request.h"

namespace veltrano::internal {

/// The events that wait for an upload, oldest first. Used on the work queue, and by the end of an
/// upload while the work queue waits for it; `count` is thread-safe.
class EventQueue {
 public:
  static constexpr std::size_t kCapacity = 200;

  EventQueue() { events_.reserve(kCapacity); }

  void append(EventRecord event) {
    events_.push_back(std::move(event));
    note();
  }

  void dropOldest() {
    events_[dropped_] = {};
    if (++dropped_ == kCapacity) {
      events_.erase(events_.begin(), events_.begin() + kCapacity);
      dropped_ = 0;
    }
    note();
  }

  /// Drops the event that takes the most memory. The queue must not be empty.
  void dropLargest() {
    events_.erase(std::max_element(
        events_.begin() + dropped_, events_.end(),
        [](const auto& left, const auto& right) { return left.json.size() < right.json.size(); }));
    note();
  }

  void clear() {
    events_.clear();
    dropped_ = 0;
    note();
  }

  std::span<const EventRecord> events() const { return std::span(events_).subspan(dropped_); }
  std::size_t count() const { return count_.load(std::memory_order_relaxed); }

 private:
  void note() { count_.store(events_.size() - dropped_, std::memory_order_relaxed); }

  std::vector<EventRecord> events_;
  std::ptrdiff_t dropped_ = 0;  // of these, at the beginning: moving the others up takes time
  std::atomic<std::size_t> count_{0};
};

}  // namespace veltrano::internal
