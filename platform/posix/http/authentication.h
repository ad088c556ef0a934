#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "platform/authentication.h"
#include "platform/host_callback.h"

namespace veltrano::internal {

/// Asks the host for the user's session token.
class ZKAuthTokenRepository final : public SessionTokenProvider {
 public:
  explicit ZKAuthTokenRepository(std::function<std::optional<std::string>()> hostsToken)
      : hostsToken_(std::move(hostsToken)) {}

  /// None if the host's function throws.
  std::optional<std::string> sessionToken() const override {
    std::optional<std::string> token;
    if (hostsToken_) callHost([&] { token = hostsToken_(); });
    return token;
  }

 private:
  const std::function<std::optional<std::string>()> hostsToken_;
};

class ZKAuth final : public UserSessionManager {};

}  // namespace veltrano::internal
