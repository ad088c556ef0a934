#pragma once

#include <curl/curl.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/posix/http/url_session.h"
#include "upload/rules/retry.h"

namespace veltrano::internal {

/// One attempt at a request.
struct Attempt {
  URLRequest request;
  const std::string* body = nullptr;
  std::vector<std::string> addresses;  // of the host and the proxy; see NameLookup
  std::chrono::steady_clock::time_point deadline;
};

/// The outcome of an attempt. `attempt` has a status code if the whole head of the response
/// arrived; `error` then says whether the body did, too.
struct TransferResult {
  AttemptResult attempt;
  std::string body;
  CURLcode error = CURLE_OK;
  std::string reason = {};  // of the error, in words
  std::uint64_t bytesSent = 0;
  std::uint64_t bytesReceived = 0;
  bool lacksAddresses = false;   // failed because `Attempt::addresses` lacked a name
  bool wasPutOff = false;        // by a rest; nothing was attempted
  bool lacksConnection = false;  // failed before the request could begin
};

/// Performs one attempt. Sends the request at most once. Not thread-safe.
class HTTPTransfer {
 public:
  /// Removes the connection's socket from `sockets` when the connection is closed; they must
  /// outlive the connection, the other arguments the transfer. The transfer ends soon after any
  /// thread sets `isStopped`.
  HTTPTransfer(std::vector<curl_socket_t>& sockets, const URLSessionOptions& options,
               const Attempt& attempt, const std::atomic<bool>& isStopped);
  HTTPTransfer(const HTTPTransfer&) = delete;  // libcurl holds its address

  /// The handle to add to a multi handle; null when the transfer could not be set up.
  CURL* handle() const { return setUp_ == CURLE_OK ? easy_.get() : nullptr; }

  /// Call once, after removing `handle` from its multi handle. `code` is libcurl's result.
  TransferResult result(CURLcode code, WallTime now);

 private:
  template <class Type>
  std::uint64_t count(CURLINFO info) const;
  template <class Value>
  void set(CURLoption option, Value value);
  void setConnectionOptions(const URLSessionOptions& options);
  void setSecurityOptions(const URLSessionOptions& options);
  void setRequestOptions();
  void addLine(std::unique_ptr<curl_slist, void (*)(curl_slist*)>& list, const char* line);
  bool hasReusedDeadConnection(int localPort) const;
  std::uint64_t encryptedBytesRead() const;
  std::size_t cutOff(CURLcode reason);

  static int refuseLookup(void*, void*, void* transfer);
  static curl_socket_t openSocket(void*, curlsocktype, curl_sockaddr* address);
  static int closeSocket(void* sockets, curl_socket_t socket);
  static int beforeRequest(void* transfer, char*, char*, int, int localPort);
  static int progress(void* transfer, curl_off_t, curl_off_t, curl_off_t, curl_off_t);
  static std::size_t receiveHeader(char* bytes, std::size_t, std::size_t count, void* transfer);
  static std::size_t receive(char* bytes, std::size_t, std::size_t count, void* transfer);

  std::vector<curl_socket_t>& sockets_;
  const Attempt& attempt_;
  const std::atomic<bool>& isStopped_;
  std::unique_ptr<curl_slist, void (*)(curl_slist*)> headers_{nullptr, curl_slist_free_all};
  std::unique_ptr<curl_slist, void (*)(curl_slist*)> addresses_{nullptr, curl_slist_free_all};
  const std::unique_ptr<CURL, void (*)(CURL*)> easy_{curl_easy_init(), curl_easy_cleanup};
  CURLcode setUp_ = CURLE_OK;   // the first error
  CURLcode cutOff_ = CURLE_OK;  // why one of our callbacks ended the transfer
  char errorText_[CURL_ERROR_SIZE] = "";
  const bool usesSystemsAuthorities_;
  bool lacksAddresses_ = false;
  bool hasConnected_ = false;  // rather than reused a connection
  bool hasBegunRequest_ = false;
  // Read from the connection, earlier responses included.
  std::uint64_t bytesBefore_ = 0;  // when the request began
  std::uint64_t bytesRead_ = 0;    // by now
  std::size_t headBytes_ = 0;      // of all heads and trailers
  std::optional<int> refusal_;     // the status of a proxy that does not connect
  std::optional<int> statusCode_;  // of a complete head, received after the complete request
  std::string received_;
};

}  // namespace veltrano::internal
