// The parts of the authentication framework that the heartbeat needs.
#pragma once

#include <optional>
#include <string>

namespace veltrano::internal {

/// Provides the user's session token; `ZKAuthTokenRepository` is the shared one.
class SessionTokenProvider {
 public:
  virtual ~SessionTokenProvider() = default;

  /// The current token, or none. Thread-safe; may call the host.
  virtual std::optional<std::string> sessionToken() const { return std::nullopt; }
};

/// The framework's session authority; `ZKAuth` is the shared one. The library asks it nothing.
class UserSessionManager {
 public:
  virtual ~UserSessionManager() = default;
};

}  // namespace veltrano::internal
