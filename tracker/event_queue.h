#pragma once

#include <atomic>
#include <cstddef>
#include <deque>
#include <utility>

#include "upload/event_record.h"

namespace veltrano::internal {

/// The events that wait for their upload, oldest first. For the work queue, and for the end of an
/// upload while the work queue waits for it; `count` is for any thread.
class EventQueue {
 public:
  void append(EventRecord event) {
    events_.push_back(std::move(event));
    note();
  }

  void dropOldest() {
    events_.pop_front();
    note();
  }

  void clear() {
    events_.clear();
    note();
  }

  const std::deque<EventRecord>& events() const { return events_; }
  std::size_t count() const { return count_.load(std::memory_order_relaxed); }

 private:
  void note() { count_.store(events_.size(), std::memory_order_relaxed); }

  std::deque<EventRecord> events_;
  std::atomic<std::size_t> count_{0};
};

}  // namespace veltrano::internal
