#pragma once

#include <chrono>
#include <string>

#include "encoding/time.h"
#include "platform/url_session.h"

namespace veltrano {

struct URLSessionOptions {
  std::string certificateAuthorities;  // a PEM file; empty for the system's own
  bool proxyFromEnvironment = false;
  Duration firstBackOff = std::chrono::milliseconds(200);  // doubles with every retry
};

/// Posts over HTTPS, on one network thread that the first post starts and that calls back. Until
/// then neither libcurl nor OpenSSL is initialised.
///
/// A request that the server may have seen is sent again only when the answer was 502, 503 or 504;
/// `dontRetryStatusCodesSet` takes codes out of these. In a forked child posts are dropped.
class PosixURLSession final : public ZKURLSessionManager {
 public:
  explicit PosixURLSession(URLSessionOptions options);
  ~PosixURLSession() override;
  PosixURLSession(const PosixURLSession&) = delete;
  PosixURLSession& operator=(const PosixURLSession&) = delete;

  void postData(PostRequest request, URLSessionCallback callback) override;

 private:
  class Network;

  Network& network_;  // once in use it outlives the session: its thread runs to the process's end
};

}  // namespace veltrano
