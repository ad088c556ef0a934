#include "tracker/log.h"
#include "tracker/orientation.h"
#include "tracker/tracker.h"

namespace veltrano {

void Tracker::registerForNotifications() {
  NotificationCenter& center = platform().notificationCenter;
  center.addObserver(kApplicationWillEnterForeground, [this] { handleWillEnterForeground(); });
  center.addObserver(kApplicationDidEnterBackground, [this] { handleDidEnterBackground(); });
  center.addObserver(kApplicationDidChangeStatusBarOrientation,
                     [this] { handleDidChangeStatusBarOrientation(); });
  center.addObserver(kDeviceOrientationDidChange, [this] { handleDidChangeDeviceOrientation(); });
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
  return std::string(screenOrientationText(platform().application.interfaceOrientation()));
}

std::string Tracker::getDeviceOrientation() const {
  return std::string(deviceOrientationText(platform().device.orientation()));
}

}  // namespace veltrano
