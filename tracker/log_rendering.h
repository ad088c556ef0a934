// How property values read in diagnostic lines.
#pragma once

#include <optional>
#include <string>

#include "veltrano/value.h"

namespace veltrano {

/// "nil", or "Optional" and the debug form in parentheses.
void render(std::string& line, const std::optional<SupportedParameterType>& value);

}  // namespace veltrano
