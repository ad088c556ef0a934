#include "platform/posix/device/connectivity.h"

#include <new>

#include "platform/posix/system/system.h"

namespace veltrano::internal {

void PosixConnectivity::look() noexcept {
  try {
    facts_.isReachableOnWiFi = isOnWiFi();
  } catch (const std::bad_alloc&) {
    // Keeps the last result until the next change.
  }
}

}  // namespace veltrano::internal
