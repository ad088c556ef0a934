#pragma once

#include <curl/curl.h>

#include <atomic>
#include <memory>
#include <vector>

#include "platform/posix/http/transfer.h"

namespace veltrano::internal {

/// Sends requests over HTTPS, one after the other, and keeps the connection for the next. For one
/// thread, which the client owns: the thread's descriptors are no longer those of the process.
class HTTPClient {
 public:
  explicit HTTPClient(const URLSessionOptions& options);
  ~HTTPClient();
  HTTPClient(const HTTPClient&) = delete;

  /// Performs one attempt, by its deadline. `isStopped` may be set by any thread, which ends it
  /// soon.
  TransferResult send(const Attempt& attempt, const std::atomic<bool>& isStopped);

 private:
  bool setUp();
  void endDeadConnections() const;

  const URLSessionOptions& options_;
  std::vector<curl_socket_t> sockets_;  // those that are open; outlive the handle below
  std::unique_ptr<CURLM, CURLMcode (*)(CURLM*)> multi_{nullptr, curl_multi_cleanup};
};

}  // namespace veltrano::internal
