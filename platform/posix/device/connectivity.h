#pragma once

#include <atomic>
#include <string>
#include <string_view>

#include "platform/device.h"

namespace veltrano::internal {

/// Reports Wi-Fi when the default route uses a wireless interface whose link is up.
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

/// The interface of the default route, given the contents of /proc/net/route and
/// /proc/net/ipv6_route; empty if there is none. Prefers IPv4, then the lowest metric.
std::string defaultRouteInterface(std::string_view ipv4Routes, std::string_view ipv6Routes);

/// Whether the tree at `sysfs` (such as "/sys") describes `interface` as wireless with its link up.
/// Checks the link because a route may outlive it by minutes.
bool isWirelessLinkUp(const std::string& interface, const std::string& sysfs);

}  // namespace veltrano::internal
