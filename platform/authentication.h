// The authentication framework, as far as the heartbeat needs it.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/url_session.h"

namespace veltrano {

/// Provides the token of the user's session; `ZKAuthTokenRepository` is the shared one.
class SessionTokenProvider {
 public:
  virtual ~SessionTokenProvider() = default;

  /// The current token, or none. From any thread; may call the host.
  virtual std::optional<std::string> sessionToken() const = 0;
};

/// The framework's session authority; `ZKAuth` is the shared one. Nothing is asked of it here.
class UserSessionManager {
 public:
  virtual ~UserSessionManager() = default;
};

/// Authenticates requests with the provider's token, as "Authorization: Bearer".
class ZKAuthInterceptor final : public ZKInterceptor {
 public:
  ZKAuthInterceptor(std::function<bool(const URLRequest&)> shouldAuthenticate,
                    const SessionTokenProvider& sessionTokenProvider,
                    const UserSessionManager& userSessionManager);

  /// Leaves the request as it is when it is not to be authenticated, or when there is no token, or
  /// one with characters that a header must not carry.
  void intercept(URLRequest& request) const override;

 private:
  const std::function<bool(const URLRequest&)> shouldAuthenticate_;
  const SessionTokenProvider& sessionTokenProvider_;
};

}  // namespace veltrano
