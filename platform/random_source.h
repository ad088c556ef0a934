#pragma once

#include <array>

namespace veltrano::internal {

using RandomBytes = std::array<unsigned char, 16>;

/// A source of random bytes that nobody else can foresee. Safe to call from any thread.
class RandomSource {
 public:
  virtual ~RandomSource() = default;

  virtual RandomBytes bytes() { return {}; }
};

}  // namespace veltrano::internal
