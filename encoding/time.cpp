#include "encoding/time.h"

#include <algorithm>
#include <cmath>

namespace veltrano::internal {

Duration durationFromSeconds(double seconds) {
  // Small enough that the sum of two such durations fits.
  constexpr double kLimitInSeconds = 4e12;
  if (std::isnan(seconds)) return Duration::zero();
  return Duration(std::llround(std::clamp(seconds, -kLimitInSeconds, kLimitInSeconds) * 1e6));
}

}  // namespace veltrano::internal
