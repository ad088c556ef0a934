#pragma once

#include <cmath>
#include <cstdint>

#include "encoding/time.h"

namespace tools {

/// A small source of random numbers: the same for a seed on every machine.
class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed) {}

  std::uint64_t next() {
    std::uint64_t z = state_ += 0x9E3779B97F4A7C15;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EB;
    return z ^ (z >> 31);
  }
  /// At least 0, less than 1.
  double uniform() { return static_cast<double>(next() >> 11) * 0x1p-53; }
  std::uint64_t below(std::uint64_t limit) { return next() % limit; }
  /// Draws nothing if the share is 0.
  bool isAmong(double share) { return share > 0 && uniform() < share; }
  veltrano::internal::Duration exponential(double meanSeconds) {
    return veltrano::internal::durationFromSeconds(-std::log1p(-uniform()) * meanSeconds);
  }

 private:
  std::uint64_t state_;
};

}  // namespace tools
