#pragma once

#include <optional>
#include <string_view>

namespace veltrano::internal {

/// The number under `key` in a JSON object. None when `text` is not a JSON object, has no such key,
/// or its value is not a finite number. Among equal keys, the last one wins. Does not recurse.
std::optional<double> numberInJSONObject(std::string_view text, std::string_view key);

}  // namespace veltrano::internal
