#include "platform/posix/http/authentication.h"

#include <utility>

#include "platform/posix/threads/fork.h"

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
