#pragma once

#include <algorithm>
#include <chrono>

#include "encoding/time.h"

namespace veltrano::internal {

/// The instant `delay` after `now`, limited to between `now` and a century later, so that clocks
/// and system calls cannot overflow.
inline std::chrono::steady_clock::time_point dueTime(std::chrono::steady_clock::time_point now,
                                                     Duration delay) {
  constexpr Duration kLongest = std::chrono::hours(24 * 365 * 100);
  return now + std::clamp(delay, Duration::zero(), kLongest);
}

}  // namespace veltrano::internal
