#pragma once

#include <string>
#include <string_view>

namespace veltrano {

/// The interface that holds the default route, given the system's route tables as text (in the
/// form of /proc/net/route and /proc/net/ipv6_route); empty when none does. IPv4 comes first, and
/// of several routes the one with the least metric.
std::string defaultRouteInterface(std::string_view ipv4Routes, std::string_view ipv6Routes);

/// Whether `interface` is a wireless one, as the tree at `sysfs` (such as "/sys") describes it.
bool isWireless(const std::string& interface, const std::string& sysfs);

}  // namespace veltrano
