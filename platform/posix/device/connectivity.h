#pragma once

#include <atomic>

#include "platform/connectivity.h"

namespace veltrano {

/// Over Wi-Fi is who reaches the world through a wireless interface.
class PosixConnectivity final : public ZKConnectivityManager {
 public:
  /// Looks at the network now and, on a thread of its own, after each change that the system
  /// reports; where it reports none, what was found stays. Call once, and destroy it no more.
  void startWatching();

  bool isReachableOnWiFi() const override { return isOnWiFi_.load(std::memory_order_relaxed); }

 private:
  void look();
  void watch(int changes);

  std::atomic<bool> isOnWiFi_{false};
};

}  // namespace veltrano
