#include "platform/posix/authentication.h"

#include <utility>

#include "platform/posix/fork.h"

namespace veltrano {

ZKAuthTokenRepository::ZKAuthTokenRepository(std::function<std::optional<std::string>()> hostsToken)
    : hostsToken_(std::move(hostsToken)) {}

std::optional<std::string> ZKAuthTokenRepository::sessionToken() const {
  if (!hostsToken_ || isForkedChild()) return std::nullopt;
  try {
    return hostsToken_();
  } catch (...) {
    return std::nullopt;
  }
}

}  // namespace veltrano
