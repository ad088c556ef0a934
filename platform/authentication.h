// The authentication framework, as far as the heartbeat needs it.
#pragma once

#include <optional>
#include <string>

namespace veltrano::internal {

/// Provides the token of the user's session; `ZKAuthTokenRepository` is the shared one.
class SessionTokenProvider {
 public:
  virtual ~SessionTokenProvider() = default;

  /// The current token, or none. From any thread; may call the host.
  virtual std::optional<std::string> sessionToken() const { return std::nullopt; }
};

/// The framework's session authority; `ZKAuth` is the shared one. Nothing is asked of it here.
class UserSessionManager {
 public:
  virtual ~UserSessionManager() = default;
};

}  // namespace veltrano::internal
