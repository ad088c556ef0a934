#pragma once

#include <curl/curl.h>

#include <memory>
#include <optional>
#include <string>

#include "platform/posix/http/http_retry.h"
#include "platform/posix/http/http_sockets.h"
#include "platform/posix/http/url_session.h"

namespace veltrano {

/// How a transfer ended. A complete HTTP response has its status code in `attempt`.
struct TransferResult {
  AttemptResult attempt;
  std::string body;
  CURLcode error = CURLE_OK;
};

/// One attempt at a request, for the network thread. Sends the request at most once.
class HTTPTransfer {
 public:
  /// `body` is not copied and has to outlive the transfer.
  HTTPTransfer(HTTPSockets& sockets, const URLSessionOptions& options, const URLRequest& request,
               HTTPMethod method, const std::string& body, Duration timeLeft);
  HTTPTransfer(const HTTPTransfer&) = delete;

  /// What a multi handle runs; null when the transfer could not be set up.
  CURL* handle() const { return setUp_ == CURLE_OK ? easy_.get() : nullptr; }

  /// For once, when `handle` is no longer in a multi handle. `code` is how libcurl says it ended.
  TransferResult result(CURLcode code);

 private:
  template <class Value>
  void set(CURLoption option, Value value);
  void setConnectionOptions(const URLSessionOptions& options, Duration timeLeft);
  void setRequestOptions(const URLRequest& request, HTTPMethod method, const std::string& body);
  void addHeader(const char* line);

  static curl_socket_t openSocket(void* transfer, curlsocktype, curl_sockaddr* address);
  static int closeSocket(void* sockets, curl_socket_t socket);
  static std::size_t receiveHeader(char* bytes, std::size_t size, std::size_t count,
                                   void* transfer);
  static std::size_t receive(char* bytes, std::size_t size, std::size_t count, void* transfer);
  std::optional<curl_socket_t> staleSocket(int localPort) const;
  static int beforeRequest(void* transfer, char*, char*, int, int localPort);

  struct Free {
    void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
  };
  HTTPSockets& sockets_;
  std::unique_ptr<curl_slist, Free> headers_;
  const std::unique_ptr<CURL, Free> easy_;
  CURLcode setUp_;                 // the first thing that went wrong
  CURLcode cutOff_ = CURLE_OK;     // why one of our own functions ended the transfer
  bool hasOwnConnection_ = false;  // or else uses one that an earlier transfer left
  bool hasBegunRequest_ = false;
  bool hasWholeHead_ = false;  // of the response
  std::string received_;
};

}  // namespace veltrano
