#include "platform/posix/device/connectivity.h"

#include <memory>
#include <new>

#include "platform/posix/system/background_thread.h"
#include "platform/posix/system/system.h"

namespace veltrano::internal {

void PosixConnectivity::startWatching() {
  // Opened first so that no change is missed.
  const auto changes = std::make_shared<NetworkChanges>();
  look();
  if (!changes->isOpen()) return;
  startBackgroundThread("veltrano-net", [this, changes] {
    while (changes->wait()) look();
  });
}

void PosixConnectivity::look() {
  try {
    isOnWiFi_.store(isOnWiFi(), std::memory_order_relaxed);
  } catch (const std::bad_alloc&) {
    // Keeps the last result until the next change.
  }
}

}  // namespace veltrano::internal
