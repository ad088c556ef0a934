#pragma once

#include <atomic>

#include "platform/device.h"

namespace veltrano::internal {

/// Remembers whether the process is on Wi-Fi, so that asking costs nothing.
class PosixConnectivity final : public ZKConnectivityManager {
 public:
  PosixConnectivity() { look(); }

  /// Call after each change of the network.
  void look() noexcept;

  bool isReachableOnWiFi() const override { return isOnWiFi_.load(std::memory_order_relaxed); }

 private:
  std::atomic<bool> isOnWiFi_{false};
};

}  // namespace veltrano::internal
