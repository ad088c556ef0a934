#pragma once

#include <string>
#include <string_view>

namespace veltrano {

/// Whether `text` holds nothing but ASCII.
bool isASCII(std::string_view text);

/// `text` with each maximal ill-formed sequence replaced by U+FFFD.
std::string wellFormedUTF8(std::string text);

}  // namespace veltrano
