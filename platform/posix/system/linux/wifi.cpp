#include "platform/posix/system/linux/wifi.h"

#include <unistd.h>

#include <cstdint>
#include <optional>
#include <vector>

#include "encoding/numbers.h"
#include "platform/posix/storage/files.h"
#include "platform/posix/system/system.h"

namespace veltrano::internal {
namespace {

using Fields = std::vector<std::string_view>;

// Removes the first line from `text` and returns its fields.
Fields takeLine(std::string_view& text) {
  const auto end = text.find('\n');
  std::string_view line = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  Fields fields;
  for (;;) {
    const auto start = line.find_first_not_of(" \t");
    if (start == std::string_view::npos) return fields;
    line.remove_prefix(start);
    const auto length = line.find_first_of(" \t");
    fields.push_back(line.substr(0, length));
    line.remove_prefix(fields.back().size());
  }
}

bool isZero(std::string_view digits) {
  return !digits.empty() && digits.find_first_not_of('0') == std::string_view::npos;
}

// The columns of a route table.
struct Layout {
  std::size_t destination;
  std::size_t prefix;  // the mask (IPv4) or the prefix length (IPv6)
  std::size_t flags;
  std::size_t metric;
  int metricBase;
  std::size_t interface;
  std::size_t fieldCount;
};
constexpr Layout kIPv4{1, 7, 3, 6, 10, 0, 8};
constexpr Layout kIPv6{0, 1, 8, 5, 16, 9, 10};

std::string defaultRouteInterface(std::string_view routes, const Layout& layout) {
  constexpr std::uint32_t kUp = 0x0001;
  constexpr std::uint32_t kReject = 0x0200;
  std::string best;
  std::optional<std::uint32_t> bestMetric;
  while (!routes.empty()) {
    const Fields fields = takeLine(routes);
    if (fields.size() < layout.fieldCount || !isZero(fields[layout.destination]) ||
        !isZero(fields[layout.prefix])) {
      continue;
    }
    const auto flags = wholeNumber<std::uint32_t>(fields[layout.flags], 16);
    const auto metric = wholeNumber<std::uint32_t>(fields[layout.metric], layout.metricBase);
    if (!flags || !metric || (*flags & (kUp | kReject)) != kUp) continue;
    if (bestMetric && *metric >= *bestMetric) continue;
    bestMetric = metric;
    best = fields[layout.interface];
  }
  return best;
}

std::string contentsOf(const char* path) {
  return readFile(path).contents.value_or("");
}

}  // namespace

std::string defaultRouteInterface() {
  return defaultRouteInterface(contentsOf("/proc/net/route"), contentsOf("/proc/net/ipv6_route"));
}

bool isOnWiFi() {
  return isWirelessLinkUp(defaultRouteInterface(), "/sys");
}

std::string defaultRouteInterface(std::string_view ipv4Routes, std::string_view ipv6Routes) {
  const std::string interface = defaultRouteInterface(ipv4Routes, kIPv4);
  return !interface.empty() ? interface : defaultRouteInterface(ipv6Routes, kIPv6);
}

bool isWirelessLinkUp(const std::string& interface, const std::string& sysfs) {
  if (interface.empty()) return false;
  const std::string description = sysfs + "/class/net/" + interface;
  const bool isWireless = access((description + "/wireless").c_str(), F_OK) == 0 ||
                          access((description + "/phy80211").c_str(), F_OK) == 0;
  if (!isWireless) return false;
  // Some drivers do not report the state.
  const std::string state = readFile(description + "/operstate").contents.value_or("unknown");
  return state.starts_with("up") || state.starts_with("unknown");
}

}  // namespace veltrano::internal
