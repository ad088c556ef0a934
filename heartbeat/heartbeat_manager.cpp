#include "heartbeat/heartbeat_manager.h"

#include <utility>

#include "heartbeat/heartbeat_interval.h"
#include "heartbeat/remote_heartbeat_repository.h"
#include "platform/platform.h"
#include "platform/uuid.h"

namespace veltrano {
namespace {

constexpr Duration kTimerTolerance = std::chrono::milliseconds(100);

}  // namespace

HeartbeatManager& HeartbeatManager::shared() {
  static HeartbeatManager& instance =
      *new HeartbeatManager([]() -> NotificationCenter& { return platform().notificationCenter; },
                            std::make_unique<RemoteHeartbeatRepository>(), std::chrono::seconds(1));
  return instance;
}

HeartbeatManager::HeartbeatManager(const NotificationCenterSupplier& notificationCenter,
                                   std::unique_ptr<HeartbeatRepository> repository,
                                   Duration fireNowDelay)
    : repository_(std::move(repository)), fireNowDelay_(fireNowDelay) {
  notificationCenter().addObserver(kApplicationDidEnterBackground,
                                   [this] { applicationDidEnterBackground(); });
  notificationCenter().addObserver(kApplicationDidBecomeActive,
                                   [this] { applicationDidBecomeActive(); });
}

void HeartbeatManager::initialize(const std::string& uid) {
  const std::lock_guard lock(mutex_);
  if (std::exchange(initialized_, true)) return;
  uid_ = uid;
  if (!timer_) setTimer(true);
}

void HeartbeatManager::applicationDidEnterBackground() {
  const std::lock_guard lock(mutex_);
  freeTimerIfNeeded();
}

void HeartbeatManager::applicationDidBecomeActive() {
  const std::lock_guard lock(mutex_);
  if (!timer_) setTimer(true);
}

void HeartbeatManager::setTimer(bool shouldFireNow) {
  freeTimerIfNeeded();
  const Duration delay = shouldFireNow
                             ? fireNowDelay_
                             : durationFromSeconds(heartbeatInterval(platform().userDefaults));
  timer_ = platform().timers.schedule(delay, kTimerTolerance, [this] { sendHeartbeat(); });
}

void HeartbeatManager::freeTimerIfNeeded() {
  if (timer_) timer_->invalidate();
  timer_.reset();
}

void HeartbeatManager::sendHeartbeat() {
  std::unique_lock lock(mutex_);
  if (platform().application.state() != ApplicationState::active) return freeTimerIfNeeded();
  setTimer(false);
  const WallTime now = platform().wallClock.now();
  session_.use(now, uuidText(platform().randomSource.bytes()));
  const std::string uid = uid_;
  const std::string sessionID = session_.id();
  const double duration = std::chrono::duration<double>(session_.durationAt(now)).count();
  lock.unlock();
  repository_->send(uid, sessionID, duration, [](bool) {});
}

}  // namespace veltrano
