#pragma once

#include "encoding/json_writer.h"
#include "properties/flat.h"

namespace veltrano {

/// Writes `value`, which has been converted, as JSON: dates as ISO 8601 text, URLs as their text,
/// numbers that are not finite as null. False when it holds a Dictionary with a key that is no
/// String; what has been written is then of no use.
[[nodiscard]] bool writeJSON(JSONWriter& writer, FlatView value);

}  // namespace veltrano
