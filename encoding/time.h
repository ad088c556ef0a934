// Strong types for instants. Wall-clock and monotonic instants cannot be mixed up; both count whole
// microseconds, so arithmetic on them is exact.
#pragma once

#include <chrono>

namespace veltrano::internal {

using Duration = std::chrono::microseconds;

/// An instant of the wall clock, counted from 1970-01-01 00:00:00 UTC. The user may set this clock.
struct WallTime {
  Duration sinceEpoch{0};
};

/// The distance from `earlier` to `later`; negative when the clock was set back in between.
constexpr Duration operator-(WallTime later, WallTime earlier) {
  return later.sinceEpoch - earlier.sinceEpoch;
}

/// `seconds` as a duration, rounded to the nearest microsecond and limited to what a timer can
/// hold (more than 100,000 years); NaN gives zero.
Duration durationFromSeconds(double seconds);

}  // namespace veltrano::internal
