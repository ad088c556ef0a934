#pragma once

#include <string_view>

namespace veltrano {

/// "portrait", "landscape" or "unknown" for a platform's interface orientation.
std::string_view screenOrientationText(int interfaceOrientation);

/// The text for a platform's device orientation; "unknown" for values it has no name for.
std::string_view deviceOrientationText(int deviceOrientation);

}  // namespace veltrano
