#pragma once

#include <new>

#include "platform/device.h"
#include "platform/posix/system/system.h"

namespace veltrano::internal {

/// Remembers whether the process is on Wi-Fi, so that asking costs nothing.
class PosixConnectivity final : public ZKConnectivityManager {
 public:
  /// Keeps the answer in `facts`.
  explicit PosixConnectivity(MomentaryFacts& facts) : facts_(facts) { look(); }

  /// Call after each change of the network.
  void look() noexcept {
    try {
      facts_.isReachableOnWiFi = isOnWiFi();
    } catch (const std::bad_alloc&) {
      // Keeps the last result until the next change.
    }
  }

  bool isReachableOnWiFi() const override { return facts_.isReachableOnWiFi; }

 private:
  MomentaryFacts& facts_;
};

}  // namespace veltrano::internal
