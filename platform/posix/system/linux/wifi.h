// The two steps of isOnWiFi.
#pragma once

#include <string>
#include <string_view>

namespace veltrano::internal {

/// The interface of the default route, given the contents of /proc/net/route and
/// /proc/net/ipv6_route; empty if there is none. Prefers IPv4, then the lowest metric.
std::string defaultRouteInterface(std::string_view ipv4Routes, std::string_view ipv6Routes);

/// Whether the tree at `sysfs` (such as "/sys") describes `interface` as wireless with its link up.
/// Checks the link because a route may outlive it by minutes.
bool isWirelessLinkUp(const std::string& interface, const std::string& sysfs);

}  // namespace veltrano::internal
