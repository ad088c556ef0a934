#include <iterator>

#include "platform/host_callback.h"
#include "tracker/tracker.h"

namespace veltrano::internal {

void Tracker::handleDidChangeStatusBarOrientation() {
  log_("App orientation changed!");
  setScreenOrientation();
}

void Tracker::setScreenOrientation() {
  recordOrientation("Screen Orientation Changed", "Setting screen orientation to ",
                    "screen_orientation", getScreenOrientation());
}

void Tracker::handleDidChangeDeviceOrientation() {
  recordOrientation("Device Orientation Changed", "Device screen orientation to ",
                    "device_orientation", getDeviceOrientation());
}

// Tracks before it sets: the event still carries the previous orientation.
void Tracker::recordOrientation(std::string_view event, std::string_view message,
                                std::string_view key, const std::string& orientation) {
  track(event, {{"extra", orientation}}, nullptr);
  if (isForkedChild()) return;  // the host's refresh handler may have forked
  log_(message, orientation);
  setSuperProperties({{key, orientation}});
}

std::string Tracker::getScreenOrientation() const {
  const int orientation = platform_.application->interfaceOrientation();
  if (orientation == 1 || orientation == 2) return "portrait";
  return orientation == 3 || orientation == 4 ? "landscape" : "unknown";
}

std::string Tracker::getDeviceOrientation() const {
  constexpr const char* kTexts[] = {"unknown",       "portrait",       "portraitUpsideDown",
                                    "landscapeLeft", "landscapeRight", "faceUp",
                                    "faceDown"};
  const int orientation = platform_.device->orientation();
  const bool isKnown = orientation > 0 && orientation < int{std::size(kTexts)};
  return kTexts[isKnown ? orientation : 0];
}

}  // namespace veltrano::internal
