#include "tracker/library.h"

#include <exception>
#include <memory>

#include "veltrano/veltrano.h"

namespace veltrano::internal {

constinit std::atomic<Library*> Library::processLibrary{nullptr};

Library::Library(const Platform& platform, CallObserver* observer)
    : platform_(platform),
      observer_(observer),
      log_(*platform.wallClock, *platform.standardOutput, Veltrano::isLoggerEnabled),
      defaultProperties_(*platform.bundles, *platform.device),
      tracker_(
          client_, [this](const std::string& uid) { heartbeatManager().initialize(uid); },
          observer) {}

bool Library::install(const Platform& platform) {
  auto library = std::make_unique<Library>(platform);
  Library* none = nullptr;
  if (!processLibrary.compare_exchange_strong(none, library.get(), std::memory_order_acq_rel))
    return false;
  static_cast<void>(library.release());
  return true;
}

Library& Library::makeCurrent() {
  static_cast<void>(install(Platform()));  // fails if another thread was faster
  return *installed();
}

Library& Library::replaceCurrent(Library& inert) noexcept {
  Library& old = *installed();
  inert.predecessor_ = &old;
  exchangeCurrent(&inert);
  return old;
}

void Library::end() {
  tracker_.releaseCallbacks();
  accounting_.end();
}

void Library::start() {
  try {
    {
      const Lock lock(startMutex_);
      tracker_.registerForNotifications();
      if (isStarted_.exchange(true)) return;
    }
    // Without the lock, as the log may call the host.
    tracker_.startFlushCycle(true);
  } catch (const std::exception&) {
    isStarted_ = false;
  }
}

HeartbeatManager& Library::heartbeatManager() {
  const Lock lock(heartbeatMutex_);
  if (!heartbeatManager_)
    heartbeatManager_.emplace(
        platform_,
        std::make_unique<RemoteHeartbeatRepository>(client_,
                                                    [this] { return tracker_.heartbeatFacts(); }),
        std::chrono::seconds(1), [this] { tracker_.track("Heartbeat Failed", {}, nullptr); },
        tracker_.isCollecting());
  return *heartbeatManager_;
}

void Library::setCollecting(bool isOn) {
  tracker().setCollecting(isOn);
  const Lock lock(heartbeatMutex_);
  if (isOn && heartbeatManager_) heartbeatManager_->resume();
}

}  // namespace veltrano::internal
