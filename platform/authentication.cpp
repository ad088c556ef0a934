#include "platform/authentication.h"

#include <algorithm>
#include <utility>

namespace veltrano {
namespace {

// Visible ASCII only: a token with anything else could forge headers or be cut short.
bool canStandInHeader(const std::string& token) {
  return !token.empty() &&
         std::all_of(token.begin(), token.end(), [](char c) { return c > 0x20 && c < 0x7F; });
}

}  // namespace

ZKAuthInterceptor::ZKAuthInterceptor(std::function<bool(const URLRequest&)> shouldAuthenticate,
                                     const SessionTokenProvider& sessionTokenProvider,
                                     const UserSessionManager&)
    : shouldAuthenticate_(std::move(shouldAuthenticate)),
      sessionTokenProvider_(sessionTokenProvider) {}

void ZKAuthInterceptor::intercept(URLRequest& request) const {
  if (!shouldAuthenticate_(request)) return;
  const auto token = sessionTokenProvider_.sessionToken();
  if (token && canStandInHeader(*token)) request.headers["Authorization"] = "Bearer " + *token;
}

}  // namespace veltrano
