#pragma once

#include <chrono>

#include "encoding/time.h"

namespace veltrano::internal {

/// The device's wall clock and time zone. Safe to call from any thread.
class WallClock {
 public:
  virtual ~WallClock() = default;

  virtual WallTime now() const { return {}; }

  /// What has to be added to UTC at `instant` to get the device's local time.
  virtual std::chrono::seconds localTimeOffset(WallTime /*instant*/) const { return {}; }
};

}  // namespace veltrano::internal
