#include "tracker/library.h"

#include <memory>

#include "veltrano/veltrano.h"

namespace veltrano::internal {

constinit std::atomic<Library*> Library::current_{nullptr};

Library::Library(const Platform& platform)
    : platform_(platform),
      log_(*platform.wallClock, *platform.standardOutput, Veltrano::isLoggerEnabled),
      defaultProperties_(*platform.bundles, *platform.device),
      tracker_(endpoints_, [this](const std::string& uid) { heartbeatManager().initialize(uid); }) {
}

bool Library::install(const Platform& platform) {
  auto library = std::make_unique<Library>(platform);
  Library* none = nullptr;
  if (!current_.compare_exchange_strong(none, library.get(), std::memory_order_acq_rel))
    return false;
  static_cast<void>(library.release());
  return true;
}

Library& Library::makeCurrent() {
  static_cast<void>(install(Platform()));  // refused when another thread was faster
  return *current_.load(std::memory_order_acquire);
}

HeartbeatManager& Library::heartbeatManager() {
  const std::lock_guard lock(heartbeatMutex_);
  if (!heartbeatManager_)
    heartbeatManager_.emplace(platform_,
                              std::make_unique<RemoteHeartbeatRepository>(
                                  endpoints_, [this] { return tracker_.heartbeatFacts(); }),
                              std::chrono::seconds(1),
                              [this] { tracker_.track("Heartbeat Failed", {}, nullptr); });
  return *heartbeatManager_;
}

}  // namespace veltrano::internal
