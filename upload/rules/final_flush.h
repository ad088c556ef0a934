#pragma once

#include <algorithm>
#include <chrono>
#include <optional>

#include "encoding/time.h"

namespace veltrano::internal {

/// How a flush ended.
struct FlushResult {
  bool hasFailed = false;     // its events were kept
  bool leavesEvents = false;  // these or later ones
};

/// Flushes for a shutdown. While an upload fails, flushes again after a pause that grows to a
/// second. Events that callbacks track meanwhile are flushed at once, at most three times, so that
/// a busy application cannot prolong the shutdown.
///
/// `flush` flushes once; its result is none if time ran out. `pause` waits for a duration; false if
/// there is no time left.
template <class Flush, class Pause>
void flushWithRetries(Flush flush, Pause pause) {
  constexpr Duration kFirstPause = std::chrono::milliseconds(200);
  constexpr Duration kMaxPause = std::chrono::seconds(1);
  int roundsForLateEvents = 3;
  Duration time = kFirstPause;
  for (;;) {
    const std::optional<FlushResult> result = flush();
    if (!result || !result->leavesEvents) return;
    if (result->hasFailed) {
      if (!pause(time)) return;
      time = std::min(2 * time, kMaxPause);
    } else if (roundsForLateEvents-- == 0) {
      return;
    }
  }
}

}  // namespace veltrano::internal
