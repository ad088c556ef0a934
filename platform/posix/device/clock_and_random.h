#pragma once

#include "platform/clock.h"
#include "platform/random_source.h"

namespace veltrano::internal {

class PosixClock final : public WallClock {
 public:
  WallTime now() const override;
  Duration elapsed() const override;
  std::chrono::seconds localTimeOffset(WallTime instant) const override;
};

class PosixRandomSource final : public RandomSource {
 public:
  RandomBytes bytes() override;
};

}  // namespace veltrano::internal
