// How property values read in diagnostic lines.
#pragma once

#include <optional>
#include <string>

#include "veltrano/value.h"

namespace veltrano::internal {

/// Text of a host's, in which ill-formed UTF-8 becomes U+FFFD.
struct HostText {
  std::string_view text;
};
void render(std::string& line, HostText text);

/// "nil", or "Optional" and the debug form in parentheses.
void render(std::string& line, const std::optional<SupportedParameterType>& value);

}  // namespace veltrano::internal
