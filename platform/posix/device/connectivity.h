#pragma once

#include <atomic>

#include "platform/device.h"

namespace veltrano::internal {

/// Remembers whether the process is on Wi-Fi, so that asking costs nothing.
class PosixConnectivity final : public ZKConnectivityManager {
 public:
  /// Checks the network now and, on a thread of its own, after each change that the system reports.
  /// Call once, and never destroy the object afterwards.
  void startWatching();

  bool isReachableOnWiFi() const override { return isOnWiFi_.load(std::memory_order_relaxed); }

 private:
  void look();

  std::atomic<bool> isOnWiFi_{false};
};

}  // namespace veltrano::internal
