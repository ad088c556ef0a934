#include "encoding/uuid.h"

#include <cstddef>

namespace veltrano::internal {

std::string uuidText(std::array<unsigned char, 16> random) {
  random[6] = (random[6] & 0x0F) | 0x40;  // version 4
  random[8] = (random[8] & 0x3F) | 0x80;  // the variant of RFC 4122

  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(36);
  for (std::size_t i = 0; i < random.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    text += kDigits[random[i] >> 4];
    text += kDigits[random[i] & 0x0F];
  }
  return text;
}

std::optional<std::string> canonicalUUID(std::string_view text) {
  constexpr std::string_view kPattern = "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx";
  if (text.size() != kPattern.size()) return std::nullopt;
  std::string canonical(text);
  for (std::size_t i = 0; i < kPattern.size(); ++i) {
    char& c = canonical[i];
    if (c >= 'a' && c <= 'f') c = static_cast<char>(c - 'a' + 'A');
    const bool isDigit = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F');
    if (kPattern[i] == '-' ? c != '-' : !isDigit) return std::nullopt;
  }
  return canonical;
}

}  // namespace veltrano::internal
