#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "encoding/time.h"
#include "platform/endpoint_path.h"

namespace veltrano::internal {

/// The one request method in use, with the networking framework's ordinal.
enum class HTTPMethod { post = 1 };

/// An outgoing request, as an interceptor sees it.
struct URLRequest {
  std::string url;  // with its query
  std::map<std::string, std::string> headers;
};

/// Modifies each attempt of a request before it is sent. Called on a thread of the framework. If it
/// throws, the request is sent unmodified.
class ZKInterceptor {
 public:
  virtual ~ZKInterceptor() = default;
  virtual void intercept(URLRequest& request) const = 0;
};

/// A response. Without a status code it is not HTTP.
struct URLResponse {
  std::optional<int> httpStatusCode;
};

/// Why a response did not arrive, or only in part.
struct TransportError {
  std::string reason;      // for humans; never contains a URL, body or token
  bool wasPutOff = false;  // by a rest: nothing was attempted
};

/// Who or what asks for a rest.
enum class RestCause { server, trouble };

/// A time during which posts to a path are put off.
struct Rest {
  Duration left;  // until it ends
  RestCause cause;
};

/// Which rests a post may skip.
enum class Urgency {
  ordinary,
  completion,          // someone waits for the outcome
  enteringBackground,  // the last flush for an unknown time
};

/// A response together with an error means that the status arrived but not the whole body; `data`
/// is absent then. Without an error and `data`, the body is too long to be read.
using URLSessionCallback =
    std::function<void(std::optional<std::string> data, std::optional<URLResponse> response,
                       std::optional<TransportError> error)>;

/// The arguments of one post. Absent retry settings mean the framework's defaults.
struct PostRequest {
  std::string baseURL;  // absolute, without a query
  std::map<std::string, std::string> headerParameters;
  std::map<std::string, std::string> qsParameters;  // appended to the URL, percent-encoded
  HTTPMethod httpMethod = HTTPMethod::post;
  std::string httpBody;
  std::optional<std::int32_t> maxRetries;
  std::optional<std::set<int>> dontRetryStatusCodesSet;
  std::shared_ptr<const ZKInterceptor> interceptor;  // may be null
  Urgency urgency = Urgency::ordinary;
  /// False while the callback neither runs code of the host nor blocks. Null: it may do both.
  const std::atomic<bool>* callsHost = nullptr;

  /// The URL's path; empty without one.
  std::string path() const {
    const auto host = baseURL.find("://") + 3;
    return baseURL.substr(std::min(baseURL.find('/', host), baseURL.size()));
  }
};

/// The networking framework's session manager. Thread-safe.
class ZKURLSessionManager {
 public:
  virtual ~ZKURLSessionManager() = default;

  /// Sends one request and returns at once. Calls `callback` exactly once with the outcome, later
  /// and never on a work queue. A response that arrives before the whole request was sent is an
  /// error.
  // NOLINTNEXTLINE(performance-unnecessary-value-param): for implementations to keep
  virtual void postData(PostRequest /*request*/, URLSessionCallback /*callback*/) {}

  /// The current rest of a path, if there is one.
  virtual std::optional<Rest> restOf(EndpointPath /*path*/) { return std::nullopt; }
};

}  // namespace veltrano::internal
