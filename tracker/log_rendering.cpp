#include "tracker/log_rendering.h"

#include <array>
#include <cmath>
#include <cstdio>

#include "log/log.h"
#include "properties/parameter_conversion.h"

namespace veltrano {
namespace {

// Escapes one control character, the double quote or the backslash.
void appendEscaped(std::string& line, unsigned character) {
  switch (character) {
    case '\0':
      line += "\\0";
      return;
    case '\t':
      line += "\\t";
      return;
    case '\n':
      line += "\\n";
      return;
    case '\r':
      line += "\\r";
      return;
    case '"':
    case '\\':
      line += '\\';
      line += static_cast<char>(character);
      return;
    default:
      char escape[16];
      std::snprintf(escape, sizeof escape, "\\u{%02X}", character);
      line += escape;
  }
}

void appendQuoted(std::string& line, std::string_view text) {
  line += '"';
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const auto next = i + 1 < text.size() ? static_cast<unsigned char>(text[i + 1]) : 0U;
    if (byte < 0x20 || byte == 0x7F || byte == '"' || byte == '\\') {
      appendEscaped(line, byte);
    } else if (byte == 0xC2 && next >= 0x80 && next < 0xA0) {  // U+0080 to U+009F
      appendEscaped(line, next);
      ++i;
    } else {
      line += text[i];
    }
  }
  line += '"';
}

// The shortest digits that read back to the same number; without an exponent where every integer
// has a number of its own.
template <std::floating_point Number>
void appendNumber(std::string& line, Number number) {
  if (!std::isfinite(number)) {
    line += std::isnan(number) ? "nan" : number < 0 ? "-inf" : "inf";
    return;
  }
  constexpr Number kLargestExactInteger = sizeof(Number) == 8 ? Number(0x1p53) : Number(0x1p24);
  const Number size = std::abs(number);
  const bool isPlain = size == 0 || (size >= Number(1e-4) && size <= kLargestExactInteger);
  std::array<char, 64> digits;
  const auto* end =
      std::to_chars(digits.data(), digits.data() + digits.size(), number,
                    isPlain ? std::chars_format::fixed : std::chars_format::scientific)
          .ptr;
  const std::string_view text(digits.data(), static_cast<std::size_t>(end - digits.data()));
  line += text;
  if (isPlain && text.find('.') == std::string_view::npos) line += ".0";
}

void appendDebugForm(std::string& line, const SupportedParameterType& value, int depth);

void appendDebugForm(std::string& line, const HostValue& value, int depth) {
  if (const auto* member = value.member()) {
    appendDebugForm(line, *member, depth);
  } else if (const auto* number = value.number()) {
    appendNumber(line, number->doubleValue());
  } else {
    line += value.isAbsent() ? "nil" : "<object>";
  }
}

void appendList(std::string& line, const Array& array, int depth) {
  std::string_view separator;
  line += '[';
  for (const HostValue& element : array) {
    line += separator;
    appendDebugForm(line, element, depth + 1);
    separator = ", ";
  }
  line += ']';
}

void appendMap(std::string& line, const Dictionary& dictionary, int depth) {
  std::string_view separator;
  line += '[';
  if (dictionary.empty()) line += ':';
  for (const auto& [key, value] : dictionary) {
    line += separator;
    appendDebugForm(line, key, depth + 1);
    line += ": ";
    appendDebugForm(line, value, depth + 1);
    separator = ", ";
  }
  line += ']';
}

void appendDebugForm(std::string& line, const SupportedParameterType& value, int depth) {
  using Member = SupportedParameterType::Member;
  // A dictionary with other keys than text goes through conversion unexamined and may nest deeper
  // than the stack allows.
  if (depth > 2 * ParameterConversion::kDeepestNesting) {
    line += "...";
    return;
  }
  switch (value.member()) {
    case Member::String:
      return appendQuoted(line, *value.getIf<std::string>());
    case Member::Int:
      return render(line, *value.getIf<std::int64_t>());
    case Member::UInt:
      return render(line, *value.getIf<std::uint64_t>());
    case Member::Int64:
      return render(line, value.getIf<Int64>()->value);
    case Member::Double:
      return appendNumber(line, *value.getIf<double>());
    case Member::Float:
      return appendNumber(line, *value.getIf<float>());
    case Member::Bool:
      return render(line, *value.getIf<bool>());
    case Member::Date:
      return render(line, value.getIf<Date>()->iso8601());
    case Member::URL:
      return render(line, value.getIf<URL>()->text());
    case Member::NSNull:
      return render(line, "<null>");
    case Member::Array:
      return appendList(line, *value.getIf<Array>(), depth);
    case Member::Dictionary:
      return appendMap(line, *value.getIf<Dictionary>(), depth);
  }
}

}  // namespace

void render(std::string& line, const std::optional<SupportedParameterType>& value) {
  if (!value) {
    line += "nil";
    return;
  }
  line += "Optional(";
  appendDebugForm(line, *value, 0);
  line += ')';
}

}  // namespace veltrano
