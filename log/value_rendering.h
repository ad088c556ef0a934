// Renders property values in diagnostic lines.
#pragma once

#include <optional>
#include <string>

#include "veltrano/detail/arguments.h"

namespace veltrano::internal {

/// Text from the host; ill-formed UTF-8 becomes U+FFFD.
struct HostText {
  std::string_view text;
};
void render(std::string& line, HostText text);

/// An optional value: "nil", or "Optional(...)" with the value's debug form.
struct DebugForm {
  const std::optional<SupportedParameterType>& value;
};
void render(std::string& line, DebugForm form);

}  // namespace veltrano::internal
