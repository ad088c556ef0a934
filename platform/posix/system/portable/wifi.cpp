#include "platform/posix/system/system.h"

namespace veltrano::internal {

std::string defaultRouteInterface() {
  return {};
}

// Even getifaddrs, which most systems add to POSIX, does not tell which interfaces are wireless.
bool isOnWiFi() {
  return false;
}

}  // namespace veltrano::internal
