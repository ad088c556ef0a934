#pragma once

#include <string>
#include <string_view>

namespace veltrano {

/// Appends the Base64 form of `bytes`: the standard alphabet, "=" padding, no line breaks.
void appendBase64(std::string& text, std::string_view bytes);

}  // namespace veltrano
