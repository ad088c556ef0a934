#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>

#include "encoding/time.h"
#include "veltrano/statistics.h"

namespace veltrano::internal {

/// Flushes for a shutdown. While an upload fails, flushes again after a pause that grows to a
/// second. Events that callbacks track meanwhile are flushed at once, at most three times, so that
/// a busy application cannot prolong the shutdown.
///
/// `statistics` returns the library's. `flush` flushes once and returns whether that ended in time.
/// `pause` waits for a duration; false if there is no time left. Returns whether the last flush
/// ended in time, whatever its outcome.
template <class GetStatistics, class Flush, class Pause>
bool flushWithRetries(GetStatistics statistics, Flush flush, Pause pause) {
  constexpr Duration kFirstPause = std::chrono::milliseconds(200);
  constexpr Duration kMaxPause = std::chrono::seconds(1);
  const auto failures = [](const Statistics& counts) {
    return counts.uploadsFailedByStatus + counts.uploadsFailedInTransport +
           counts.uploadsFailedForMemory;
  };
  int roundsForLateEvents = 3;
  Duration time = kFirstPause;
  for (;;) {
    const std::uint64_t failuresBefore = failures(statistics());
    if (!flush()) return false;
    const Statistics now = statistics();
    if (now.waiting == 0) return true;
    if (failures(now) == failuresBefore) {
      if (roundsForLateEvents-- == 0) return true;
    } else {
      if (!pause(time)) return true;
      time = std::min(2 * time, kMaxPause);
    }
  }
}

}  // namespace veltrano::internal
