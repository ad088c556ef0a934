// The laws of every trace, whatever the host does.
#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <string_view>

#include "veltrano/statistics.h"

/// Takes the lines of traces with decoded bodies, one trace after another of the same library. Its
/// log has to be on from the start. Returns what a line breaks, empty if nothing:
/// - Counts add up: what was recorded waits, was dropped as too much, or was in a batch that ended.
/// - No event is sent twice unless its upload failed in between, and events keep their order.
/// - No event happens after its post, where the clock does not jump.
/// - While collecting is switched off, no post begins; what was on its way by then is never sent.
/// - A path has one post in flight at most, and each outcome schedules a flush, in the foreground.
class TraceLaws {
 public:
  std::string take(std::string_view line);

  bool mayJump = false;  // the clock; or events have times of their own

  /// What the library must have counted.
  veltrano::Statistics counts;
  std::size_t waiting() const { return waiting_.size(); }  // also in flight

 private:
  std::string takeLog(std::string_view message);

  std::deque<std::string> submitted_;  // names of the events that are not recorded yet
  std::deque<std::string> waiting_;    // names of those that are
  std::string status_;                 // of the upload that ends
  bool isInFlight_ = false;
  bool isDropped_ = false;  // what is in flight, unless it arrives
  bool isCollecting_ = true;
  bool isRunning_ = true;
  bool hasScheduled_ = false;  // since the last outcome
};
