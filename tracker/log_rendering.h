// How values read in diagnostic lines.
#pragma once

#include <charconv>
#include <concepts>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "veltrano/value.h"

namespace veltrano {

/// Text stands as it is.
template <std::convertible_to<std::string_view> Text>
void render(std::string& line, const Text& text) {
  line += std::string_view(text);
}

template <std::integral Integer>
requires(!std::same_as<Integer, bool>) void render(std::string& line, Integer number) {
  char digits[24];
  line.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

/// Text of a host's, in which ill-formed UTF-8 becomes U+FFFD.
struct HostText {
  std::string_view text;
};
void render(std::string& line, HostText text);

/// "true" or "false".
template <std::same_as<bool> Bool>
void render(std::string& line, Bool flag) {
  line += flag ? "true" : "false";
}

/// "nil", or "Optional" and the debug form in parentheses.
void render(std::string& line, const std::optional<SupportedParameterType>& value);
void render(std::string& line, const std::optional<std::vector<std::string>>& list);

}  // namespace veltrano
