#include "tracker/log.h"
#include "tracker/orientation.h"
#include "tracker/tracker.h"

namespace veltrano {

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
  NotificationCenter& center = *platform().notificationCenter;
  for (const Handler& handler : kHandlers) {
    if (handler.notification.empty()) continue;
    center.addObserver(handler.notification, [this, &handler] { (this->*handler.handle)(); });
  }
}

void Tracker::handleWillEnterForeground() {
  isRunning_ = true;
  log("App becoming active!");
  startFlushCycle();
}

void Tracker::handleDidEnterBackground() {
  isRunning_ = false;
  log("App entered background!");
  log("Forcing a flush right now");
  scheduleFlush(std::chrono::seconds(0), nullptr);
}

void Tracker::handleDidChangeStatusBarOrientation() {
  log("App orientation changed!");
  setScreenOrientation();
}

// In both orientation paths the event goes first: it carries the orientation from before.

void Tracker::setScreenOrientation() {
  const std::string orientation = getScreenOrientation();
  track("Screen Orientation Changed", {{"extra", orientation}}, nullptr);
  log("Setting screen orientation to ", orientation);
  setSuperProperties({{"screen_orientation", orientation}});
}

void Tracker::handleDidChangeDeviceOrientation() {
  const std::string orientation = getDeviceOrientation();
  track("Device Orientation Changed", {{"extra", orientation}}, nullptr);
  log("Device screen orientation to ", orientation);
  setSuperProperties({{"device_orientation", orientation}});
}

std::string Tracker::getScreenOrientation() const {
  return std::string(screenOrientationText(platform().application->interfaceOrientation()));
}

std::string Tracker::getDeviceOrientation() const {
  return std::string(deviceOrientationText(platform().device->orientation()));
}

}  // namespace veltrano
