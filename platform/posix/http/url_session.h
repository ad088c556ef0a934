#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "encoding/time.h"
#include "platform/url_session.h"
#include "veltrano/posix_platform.h"

namespace veltrano::internal {

class Endpoint;

struct URLSessionOptions {
  std::string certificateAuthorities = {};  // a PEM file; empty for the system's own
  std::string pinnedPublicKey = {};         // see isPublicKeyPin; empty for any certified key
  std::string proxy = {};                   // see isProxy; empty for none
  std::string noProxy = {};                 // hosts without a proxy, as the variable no_proxy
  bool proxyFromEnvironment = false;        // read by the constructor, unless `proxy` is set
  std::function<void(const TransferReport&)> onTransfer = {};
  Duration firstBackOff = std::chrono::milliseconds(200);  // doubles with every retry
  Duration connectTimeout = std::chrono::seconds(10);
  Duration attemptTimeout = std::chrono::seconds(30);
  Duration requestTimeout = std::chrono::seconds(60);  // with all retries
};

/// Posts over HTTPS. The first two base URLs have transfers and callbacks of their own, one after
/// the other each; further base URLs share those of the second. The first post initialises libcurl
/// and OpenSSL.
///
/// A request that the server may have seen is sent again only when the answer was 502, 503 or 504;
/// `dontRetryStatusCodesSet` takes codes out of these. In a forked child posts are dropped.
class PosixURLSession final : public ZKURLSessionManager {
 public:
  /// Starts the threads that call back. Throws std::system_error when there are none to be had.
  explicit PosixURLSession(URLSessionOptions options);
  /// Shuts down at once.
  ~PosixURLSession() override;
  PosixURLSession(const PosixURLSession&) = delete;
  PosixURLSession& operator=(const PosixURLSession&) = delete;

  void postData(PostRequest request, URLSessionCallback callback) override;

  /// Ends the session. New posts fail; those under way may finish until `deadline`, then they fail,
  /// too. Returns once all have been called back, half a second after the deadline at the latest.
  /// From then on nothing is called back, and posts are dropped. The threads end; one that is in
  /// the host's code or in a name lookup ends when it returns from there. True when nothing was cut
  /// short. Not for callbacks.
  bool shutDown(std::chrono::steady_clock::time_point deadline);

 private:
  struct OwnEndpoint {
    std::atomic<std::size_t> url{0};     // a hash of the base URL; 0 before there is one
    std::shared_ptr<Endpoint> endpoint;  // shared with its threads
  };

  Endpoint& endpointFor(const std::string& baseURL);

  std::array<OwnEndpoint, 2> endpoints_;
};

}  // namespace veltrano::internal
