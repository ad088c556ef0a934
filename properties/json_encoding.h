#pragma once

#include "encoding/json_writer.h"
#include "veltrano/value.h"

namespace veltrano {

/// Writes `value` as JSON: dates as ISO 8601 text, URLs as their text, numbers that are not finite
/// as null. False when it holds a Dictionary with a key that is no String, or anything that is no
/// member of the set; what has been written is then of no use.
[[nodiscard]] bool writeJSON(JSONWriter& writer, const SupportedParameterType& value);

}  // namespace veltrano
