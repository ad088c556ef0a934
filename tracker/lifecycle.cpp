#include "tracker/tracker.h"

namespace veltrano::internal {

// In the order of registration.
constinit const std::array<Tracker::Handler, 5> Tracker::kHandlers = {{
    {"handleWillEnterForeground", &Tracker::handleWillEnterForeground,
     kApplicationWillEnterForeground},
    {"handleDidEnterBackground", &Tracker::handleDidEnterBackground,
     kApplicationDidEnterBackground},
    {"handleDidChangeStatusBarOrientation", &Tracker::handleDidChangeStatusBarOrientation,
     kApplicationDidChangeStatusBarOrientation},
    {"handleDidChangeDeviceOrientation", &Tracker::handleDidChangeDeviceOrientation,
     kDeviceOrientationDidChange},
    {"setScreenOrientation", &Tracker::setScreenOrientation, {}},
}};

void Tracker::registerForNotifications() {
  NotificationCenter& center = *platform_.notificationCenter;
  for (; nextToRegister_ < kHandlers.size(); ++nextToRegister_) {
    const Handler& handler = kHandlers[nextToRegister_];
    if (handler.notification.empty()) continue;
    center.addObserver(handler.notification, [this, &handler] { (this->*handler.handle)(); });
  }
}

void Tracker::handleWillEnterForeground() {
  isRunning_ = true;
  scheduleFlush(kQueueFlushInterval, nullptr,
                {"App becoming active!", "Scheduling the next flush with default interval"});
  readCalls();
}

void Tracker::handleDidEnterBackground() {
  isRunning_ = false;
  scheduleFlush(std::chrono::seconds(0), nullptr,
                {"App entered background!", "Forcing a flush right now"});
  readCalls();
}

HeartbeatFacts Tracker::heartbeatFacts() const {
  return {superProperties_.snapshot(), getScreenOrientation(), getDeviceOrientation()};
}

}  // namespace veltrano::internal
