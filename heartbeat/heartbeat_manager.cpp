#include "heartbeat/heartbeat_manager.h"

#include <exception>
#include <utility>

#include "encoding/uuid.h"
#include "heartbeat/heartbeat_interval.h"

namespace veltrano::internal {
namespace {

// Also the least time between two heartbeats, whatever the stored interval says.
constexpr Duration kTimerTolerance = std::chrono::milliseconds(100);

}  // namespace

HeartbeatManager::HeartbeatManager(const Platform& platform,
                                   std::unique_ptr<HeartbeatRepository> repository,
                                   Duration fireNowDelay, std::function<void()> recordFailure,
                                   const std::atomic<bool>& isCollecting)
    : platform_(platform),
      repository_(std::move(repository)),
      fireNowDelay_(fireNowDelay),
      recordFailure_(std::move(recordFailure)),
      isCollecting_(isCollecting) {
  platform_.notificationCenter->addObserver(kApplicationDidEnterBackground,
                                            [this] { applicationDidEnterBackground(); });
  platform_.notificationCenter->addObserver(kApplicationDidBecomeActive,
                                            [this] { applicationDidBecomeActive(); });
}

void HeartbeatManager::initialize(const std::string& uid) {
  const Lock lock(mutex_);
  if (initialized_) return;
  uid_ = uid;
  if (!timer_) setTimer(fireNowDelay_);
  initialized_ = true;
}

void HeartbeatManager::resume() {
  platform_.timers->performOnMainThread([this] { applicationDidBecomeActive(); });
}

void HeartbeatManager::applicationDidEnterBackground() {
  const Lock lock(mutex_);
  freeTimerIfNeeded();
}

void HeartbeatManager::applicationDidBecomeActive() {
  const Lock lock(mutex_);
  if (!timer_) setTimer(fireNowDelay_);
}

void HeartbeatManager::setTimer(Duration delay) {
  auto timer = platform_.timers->schedule(delay, kTimerTolerance, [this] { sendHeartbeat(); });
  freeTimerIfNeeded();
  timer_ = std::move(timer);
}

void HeartbeatManager::freeTimerIfNeeded() {
  if (timer_) timer_->invalidate();
  timer_.reset();
}

void HeartbeatManager::sendHeartbeat() {
  // Read before taking the lock: the platform may have to read a file.
  const Duration interval = durationFromSeconds(heartbeatInterval(*platform_.userDefaults));
  std::string newSessionID = uuidText(platform_.randomSource->bytes());
  Lock lock(mutex_);
  if (!isCollecting_ || platform_.application->state() != ApplicationState::active)
    return freeTimerIfNeeded();
  const WallTime now = platform_.wallClock->now();
  session_.use(now, std::move(newSessionID));
  const std::string uid = uid_;
  const std::string sessionID = session_.id();
  const double duration = std::chrono::duration<double>(session_.durationAt(now)).count();
  setTimer(interval);
  lock.unlock();
  // An exception up to here makes the old timer fire again; now the next one is scheduled.
  try {
    repository_->send(uid, sessionID, duration, [this](bool wasAccepted) {
      if (!wasAccepted) recordFailure_();
    });
  } catch (const std::exception&) {
    recordFailure_();
  }
}

}  // namespace veltrano::internal
