#include "tracker/orientation.h"

namespace veltrano {

std::string_view screenOrientationText(int interfaceOrientation) {
  switch (interfaceOrientation) {
    case 1:
    case 2:
      return "portrait";
    case 3:
    case 4:
      return "landscape";
    default:
      return "unknown";
  }
}

std::string_view deviceOrientationText(int deviceOrientation) {
  switch (deviceOrientation) {
    case 1:
      return "portrait";
    case 2:
      return "portraitUpsideDown";
    case 3:
      return "landscapeLeft";
    case 4:
      return "landscapeRight";
    case 5:
      return "faceUp";
    case 6:
      return "faceDown";
    default:
      return "unknown";
  }
}

}  // namespace veltrano
