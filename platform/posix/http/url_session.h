#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "encoding/time.h"
#include "platform/platform.h"
#include "upload/rules/retry.h"
#include "veltrano/transfer_report.h"

namespace veltrano::internal {

class NetworkThread;

struct URLSessionOptions {
  const WallClock* wallClock = nothing<WallClock>();  // for dates in answers
  std::string certificateAuthorities = {};            // a PEM file; empty: the system's own
  std::string pinnedPublicKey = {};                   // see isPublicKeyPin; empty: no pinning
  std::string proxy = {};                             // see isProxy; empty: none
  std::string noProxy = {};           // hosts without a proxy, in the format of no_proxy
  bool proxyFromEnvironment = false;  // read by the constructor, unless `proxy` is set
  std::function<void(const TransferReport&)> onTransfer = {};
  bool interceptorsMayBlock = true;               // otherwise they run on the network thread
  std::function<void()> onNetworkChange = [] {};  // called on the network thread; must not block
  Duration firstBackOff = RequestLimits().firstBackOff;
  Duration connectTimeout = RequestLimits().connectTimeout;
  Duration attemptTimeout = RequestLimits().attemptTimeout;
  Duration requestTimeout = RequestLimits().requestTimeout;
};

/// Posts over HTTPS, on one thread. Posts to the same path run one at a time, independently of the
/// other path. What may block in the host's code or in a name lookup runs on further threads and
/// holds up nothing else.
///
/// A request that the server may have seen is retried only after a 502, 503 or 504, minus the codes
/// in `dontRetryStatusCodesSet`. In a forked child posts are dropped.
class PosixURLSession final : public ZKURLSessionManager {
 public:
  /// Starts OpenSSL, the network thread and one that calls back. Throws when that fails.
  explicit PosixURLSession(URLSessionOptions options);
  /// Shuts down at once.
  ~PosixURLSession() override;
  PosixURLSession(const PosixURLSession&) = delete;
  PosixURLSession& operator=(const PosixURLSession&) = delete;

  void postData(PostRequest request, URLSessionCallback callback) override;
  std::optional<Rest> restOf(EndpointPath path) override;

  /// Ignores Retry-After from now on, also for retries already scheduled, and puts nothing off.
  void ignoreRetryAfter();

  /// Ends the session. New posts fail; pending ones fail at `deadline`, or at that of a concurrent
  /// shutdown if it is earlier. Returns when all have been called back, at most half a second after
  /// the deadline. Afterwards posts are dropped without a
  /// callback. The threads end; one in the host's code or in a name lookup ends when that returns.
  /// Returns true if all posts finished in time. Must not be called from a callback.
  bool shutDown(std::chrono::steady_clock::time_point deadline);

 private:
  const std::shared_ptr<NetworkThread> thread_;
};

}  // namespace veltrano::internal
