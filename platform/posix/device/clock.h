#pragma once

#include "platform/clock.h"

namespace veltrano {

class PosixClock final : public WallClock {
 public:
  WallTime now() const override;
  std::chrono::seconds localTimeOffset(WallTime instant) const override;
};

}  // namespace veltrano
