// A strong type for wall-clock instants, so that they cannot be mixed up with monotonic ones. Whole
// microseconds keep arithmetic exact.
#pragma once

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>

namespace veltrano::internal {

using Duration = std::chrono::microseconds;

/// An instant of the wall clock, which the user may set.
struct WallTime {
  Duration sinceEpoch{0};  // since 1970-01-01 00:00:00 UTC
};

/// Negative when the clock was set back in between.
constexpr Duration operator-(WallTime later, WallTime earlier) {
  return later.sinceEpoch - earlier.sinceEpoch;
}

/// Whole milliseconds as an event has them: rounded, halves away from zero.
constexpr std::int64_t roundedMilliseconds(Duration duration) {
  return (duration.count() + (duration.count() < 0 ? -500 : 500)) / 1000;
}

/// Whole milliseconds as everything else has them: without the fraction.
constexpr std::int64_t wholeMilliseconds(Duration duration) {
  return duration.count() / 1000;
}

/// `seconds` rounded to the nearest microsecond and limited to some 100,000 years; zero for NaN.
inline Duration durationFromSeconds(double seconds) {
  // Small enough that the sum of two such durations fits.
  constexpr double kLimitInSeconds = 4e12;
  if (std::isnan(seconds)) return Duration::zero();
  return Duration(std::llround(std::clamp(seconds, -kLimitInSeconds, kLimitInSeconds) * 1e6));
}

}  // namespace veltrano::internal
