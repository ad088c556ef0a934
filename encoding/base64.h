#pragma once

#include <span>
#include <string>
#include <string_view>

namespace veltrano::internal {

/// Appends the Base64 form of the concatenated `pieces`: standard alphabet, "=" padding, no line
/// breaks.
void appendBase64(std::string& text, std::span<const std::string_view> pieces);

}  // namespace veltrano::internal
