#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

namespace veltrano::internal {

/// Request methods; the networking framework knows them by their ordinals.
enum class HTTPMethod { get = 0, post = 1 };

/// A request on its way out, as an interceptor sees it.
struct URLRequest {
  std::string url;  // with its query
  std::map<std::string, std::string> headers;
};

/// Adjusts a request before it is sent, for every attempt anew. Called on the framework's thread.
class ZKInterceptor {
 public:
  virtual ~ZKInterceptor() = default;
  virtual void intercept(URLRequest& request) const = 0;
};

/// What came back. A response that is not HTTP carries no status code.
struct URLResponse {
  std::optional<int> httpStatusCode;
};

/// Why there is no response; `reason` is for people and holds no URL, body or token.
struct TransportError {
  std::string reason;
};

using URLSessionCallback =
    std::function<void(std::optional<std::string> data, std::optional<URLResponse> response,
                       std::optional<TransportError> error)>;

/// The arguments of one post. Absent retry settings leave them to the framework's defaults.
struct PostRequest {
  std::string baseURL;  // absolute, without a query
  std::map<std::string, std::string> headerParameters;
  std::map<std::string, std::string> qsParameters;  // appended to the URL, percent-encoded
  HTTPMethod httpMethod = HTTPMethod::post;
  std::string httpBody;
  std::optional<std::int32_t> maxRetries;
  std::optional<std::set<int>> dontRetryStatusCodesSet;
  std::shared_ptr<const ZKInterceptor> interceptor;  // may be null
};

/// The networking framework's session manager. Safe to call from any thread.
class ZKURLSessionManager {
 public:
  virtual ~ZKURLSessionManager() = default;

  /// Sends one request and returns at once. `callback` is called exactly once with the outcome,
  /// later and never on a work queue.
  virtual void postData(PostRequest /*request*/, URLSessionCallback /*callback*/) {}
};

}  // namespace veltrano::internal
