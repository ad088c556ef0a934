#pragma once

#include <charconv>
#include <cmath>
#include <concepts>
#include <cstdint>
#include <limits>
#include <locale>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>

namespace veltrano::internal {

/// `number` truncated toward zero and limited to 64 bits; 0 for NaN.
inline std::int64_t truncatedInteger(double number) {
  if (std::isnan(number)) return 0;
  if (number >= 0x1p63) return std::numeric_limits<std::int64_t>::max();
  if (number < -0x1p63) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(number);
}

/// `text` as an integer; empty if it is not one, or out of range.
template <std::integral Number>
std::optional<Number> wholeNumber(std::string_view text, int base = 10) {
  Number number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  const bool isWhole = error == std::errc() && end == text.data() + text.size();
  return isWhole ? std::optional(number) : std::nullopt;
}

/// `text` as a number in decimal notation; empty if it is not one, or out of range.
template <class Number = double>
std::optional<Number> decimalNumber(std::string_view text) {
  Number number = 0;
#ifdef __cpp_lib_to_chars
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
#else  // libc++ has std::from_chars for integers only
  std::istringstream stream{std::string(text)};
  stream.imbue(std::locale::classic());
  stream >> number;
  // It fails at denormal numbers, too, but stores them.
  const bool isDenormal = number != 0 && std::abs(number) < 1;
  if (!stream.eof() || (stream.fail() && !isDenormal)) return std::nullopt;
#endif
  return number;
}

}  // namespace veltrano::internal
