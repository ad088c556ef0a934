#pragma once

#include <chrono>

#include "encoding/time.h"

namespace veltrano::internal {

/// The device's clocks and time zone. Thread-safe.
class WallClock {
 public:
  virtual ~WallClock() = default;

  virtual WallTime now() const { return {}; }

  /// Time since a fixed moment. Setting the wall clock does not change it.
  virtual Duration elapsed() const { return {}; }

  /// The offset of local time from UTC at `instant`.
  virtual std::chrono::seconds localTimeOffset(WallTime /*instant*/) const { return {}; }
};

}  // namespace veltrano::internal
