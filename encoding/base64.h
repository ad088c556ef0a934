#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace veltrano::internal {

/// Appends the Base64 form of the concatenated `pieces`: standard alphabet, "=" padding, no line
/// breaks.
void appendBase64(std::string& text, std::span<const std::string_view> pieces);

/// The bytes that `appendBase64` encodes as `text`, if there are any such bytes.
std::optional<std::string> decodedBase64(std::string_view text);

}  // namespace veltrano::internal
