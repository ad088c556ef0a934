#include "platform/posix/device/tracking.h"

namespace veltrano {

void PosixIdentifiers::setAdvertisingIdentifier(std::optional<std::string> identifier) {
  identifier_.set(identifier ? canonicalUUID(*identifier) : std::nullopt);
}

std::string PosixIdentifiers::advertisingIdentifier() const {
  return identifier_.get().value_or("00000000-0000-0000-0000-000000000000");
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

}  // namespace veltrano
