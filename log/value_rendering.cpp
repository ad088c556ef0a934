#include "log/value_rendering.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <utility>

#include "encoding/utf8.h"
#include "log/log.h"
#include "properties/flat.h"
#include "veltrano/value.h"

namespace veltrano::internal {
namespace {

// Escapes one control character, the double quote or the backslash.
void appendEscaped(std::string& line, unsigned character) {
  constexpr std::string_view kShort("\0\t\n\r\"\\", 6);
  if (const auto place = kShort.find(static_cast<char>(character)); place != kShort.npos) {
    line += '\\';
    line += "0tnr\"\\"[place];
    return;
  }
  char escape[16];
  std::snprintf(escape, sizeof escape, "\\u{%02X}", character);
  line += escape;
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

// The shortest digits that read back as the same number. Without an exponent up to the largest
// magnitude at which every integer is exact, and above, below 1e16, where that is shorter.
template <std::floating_point Number>
void appendNumber(std::string& line, Number number) {
  if (!std::isfinite(number)) {
    line += std::isnan(number) ? "nan" : number < 0 ? "-inf" : "inf";
    return;
  }
  const auto digits = [number](std::array<char, 64>& into, std::chars_format format) {
    const auto* const end =
        std::to_chars(into.data(), into.data() + into.size(), number, format).ptr;
    return std::string_view(into.data(), static_cast<std::size_t>(end - into.data()));
  };
  constexpr Number kLargestExactInteger = sizeof(Number) == 8 ? Number(0x1p53) : Number(0x1p24);
  const Number size = std::abs(number);
  std::array<char, 64> plain, scientific;
  const std::string_view exponential = digits(scientific, std::chars_format::scientific);
  if (size == 0 || (size >= Number(1e-4) && size < Number(1e16))) {
    std::string fixed(digits(plain, std::chars_format::fixed));
    if (fixed.find('.') == std::string::npos) fixed += ".0";
    if (size <= kLargestExactInteger || fixed.size() < exponential.size()) {
      line += fixed;
      return;
    }
  }
  line += exponential;
}

void appendDebugForm(std::string& line, FlatView value) {
  std::string_view separator;
  switch (value.kind()) {
    case Kind::String:
      return appendQuoted(line, value.text());
    case Kind::Int:
    case Kind::Int64:
      return render(line, value.integer());
    case Kind::UInt:
      return render(line, static_cast<std::uint64_t>(value.integer()));
    case Kind::Double:
      return appendNumber(line, value.real());
    case Kind::Float:
      return appendNumber(line, static_cast<float>(value.real()));
    case Kind::Bool:
      return render(line, value.boolean());
    case Kind::Date:
      return render(line, detail::FlatAccess::date(value).iso8601());
    case Kind::URL:
      return render(line, value.text());
    case Kind::NSNull:
      return render(line, "<null>");
    case Kind::Number:
      return appendNumber(line, value.numberAsDouble());
    case Kind::OtherObject:
      return render(line, "<object>");
    case Kind::Absent:
      return render(line, "nil");
    case Kind::Array:
      line += '[';
      for (const FlatView element : value.contents()) {
        line += std::exchange(separator, ", ");
        appendDebugForm(line, element);
      }
      line += ']';
      return;
    case Kind::Dictionary:
      line += '[';
      if (value.contents().bytes().empty()) line += ':';
      for (auto it = value.contents().begin(); it != value.contents().end(); ++it) {
        line += std::exchange(separator, ", ");
        appendDebugForm(line, *it);
        line += ": ";
        appendDebugForm(line, *++it);
      }
      line += ']';
      return;
  }
}

}  // namespace

void render(std::string& line, HostText text) {
  line += wellFormedUTF8(text.text);
}

void render(std::string& line, DebugForm form) {
  if (!form.value) {
    line += "nil";
    return;
  }
  line += "Optional(";
  appendDebugForm(line, viewOf(*form.value));
  line += ')';
}

}  // namespace veltrano::internal
