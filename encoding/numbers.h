#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

namespace veltrano::internal {

/// `number` truncated toward zero and limited to 64 bits; 0 for NaN.
inline std::int64_t truncatedInteger(double number) {
  if (std::isnan(number)) return 0;
  if (number >= 0x1p63) return std::numeric_limits<std::int64_t>::max();
  if (number < -0x1p63) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(number);
}

}  // namespace veltrano::internal
