#pragma once

#include <algorithm>
#include <chrono>

#include "encoding/time.h"

namespace veltrano::internal {

/// The instant `delay` after `now`, limited to between `now` and a century later, so that clocks
/// and system calls cannot overflow.
inline std::chrono::steady_clock::time_point dueTime(std::chrono::steady_clock::time_point now,
                                                     Duration delay) {
  constexpr Duration kMaxDelay = std::chrono::hours(24 * 365 * 100);
  return now + std::clamp(delay, Duration::zero(), kMaxDelay);
}

/// The instant in `seconds`, with the same limits; now for NaN.
inline std::chrono::steady_clock::time_point dueTimeFromNow(double seconds) {
  return dueTime(std::chrono::steady_clock::now(), durationFromSeconds(seconds));
}

}  // namespace veltrano::internal
