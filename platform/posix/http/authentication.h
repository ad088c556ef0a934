#pragma once

#include <functional>
#include <optional>
#include <string>

#include "platform/authentication.h"

namespace veltrano {

/// Asks the host for the token of the user's session.
class ZKAuthTokenRepository final : public SessionTokenProvider {
 public:
  explicit ZKAuthTokenRepository(std::function<std::optional<std::string>()> hostsToken);

  /// None as well when the host's function throws.
  std::optional<std::string> sessionToken() const override;

 private:
  const std::function<std::optional<std::string>()> hostsToken_;
};

class ZKAuth final : public UserSessionManager {};

}  // namespace veltrano
