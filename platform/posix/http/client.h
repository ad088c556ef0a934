#pragma once

#include <curl/curl.h>

#include <atomic>
#include <memory>
#include <vector>

#include "platform/posix/http/transfer.h"

namespace veltrano::internal {

/// Sends HTTPS requests one at a time over a reused connection. Used by one thread, to which the
/// constructor gives its own descriptor table.
class HTTPClient {
 public:
  explicit HTTPClient(const URLSessionOptions& options);
  ~HTTPClient();
  HTTPClient(const HTTPClient&) = delete;

  /// Performs one attempt, until its deadline. Ends soon after any thread sets `isStopped`.
  TransferResult send(const Attempt& attempt, const std::atomic<bool>& isStopped);

 private:
  bool setUp();
  void endDeadConnections() const;

  const URLSessionOptions& options_;
  std::vector<curl_socket_t> sockets_;  // the open ones; must outlive multi_
  std::unique_ptr<CURLM, CURLMcode (*)(CURLM*)> multi_{nullptr, curl_multi_cleanup};
};

}  // namespace veltrano::internal
