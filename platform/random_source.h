#pragma once

#include <array>

namespace veltrano::internal {

using RandomBytes = std::array<unsigned char, 16>;

/// A source of unpredictable random bytes. Thread-safe.
class RandomSource {
 public:
  virtual ~RandomSource() = default;

  virtual RandomBytes bytes() { return {}; }
};

}  // namespace veltrano::internal
