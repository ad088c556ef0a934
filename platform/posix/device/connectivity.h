#pragma once

#include <atomic>
#include <string>
#include <string_view>

#include "platform/connectivity.h"

namespace veltrano::internal {

/// Reports Wi-Fi when the default route uses a wireless interface whose link is up.
class PosixConnectivity final : public ZKConnectivityManager {
 public:
  /// Looks at the network now and, on a thread of its own, after each change that the system
  /// reports; where it reports none, the first answer stays. Call once; never destroy it after.
  void startWatching();

  bool isReachableOnWiFi() const override { return isOnWiFi_.load(std::memory_order_relaxed); }

 private:
  void look();
  void watch(int changes);

  std::atomic<bool> isOnWiFi_{false};
};

/// The interface of the default route, given the route tables in the form of /proc/net/route and
/// /proc/net/ipv6_route; empty when there is none. IPv4 comes first, and of several routes the one
/// with the least metric.
std::string defaultRouteInterface(std::string_view ipv4Routes, std::string_view ipv6Routes);

/// Whether the tree at `sysfs` (such as "/sys") describes `interface` as wireless and its link as
/// up. A route may outlive the link by minutes.
bool isWirelessLinkUp(const std::string& interface, const std::string& sysfs);

}  // namespace veltrano::internal
