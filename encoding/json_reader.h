#pragma once

#include <optional>
#include <string_view>

namespace veltrano::internal {

/// The number under `key` in the JSON object that `text` is. None when `text` is no JSON, is not an
/// object, has no such key, or holds anything but a finite number there. Takes the same stack at
/// any depth of nesting; of equal keys, the last one counts.
std::optional<double> numberInJSONObject(std::string_view text, std::string_view key);

}  // namespace veltrano::internal
