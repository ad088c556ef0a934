// The parts of the authentication framework that the heartbeat needs.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "platform/host_callback.h"

namespace veltrano::internal {

/// Provides the user's session token.
class SessionTokenProvider {
 public:
  virtual ~SessionTokenProvider() = default;

  /// The current token, or none. Thread-safe; may call the host.
  virtual std::optional<std::string> sessionToken() const { return std::nullopt; }
};

/// The shared one: asks the host.
struct ZKAuthTokenRepository final : SessionTokenProvider {
  explicit ZKAuthTokenRepository(std::function<std::optional<std::string>()> function = nullptr)
      : hostsToken(std::move(function)) {}

  /// None without a function, and if it throws.
  std::optional<std::string> sessionToken() const override {
    std::optional<std::string> token;
    if (hostsToken) callHost([&] { token = hostsToken(); });
    return token;
  }

  std::function<std::optional<std::string>()> hostsToken;  // set before the first use
};

/// The framework's session authority; `ZKAuth` is the shared one. The library asks it nothing.
class UserSessionManager {
 public:
  virtual ~UserSessionManager() = default;
};

}  // namespace veltrano::internal
