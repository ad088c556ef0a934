#include "platform/posix/http/http_transfer.h"

#include <openssl/ssl.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <string_view>
#include <utility>

#include "platform/posix/http/http_headers.h"

namespace veltrano {
namespace {

constexpr std::size_t kMostBodyBytes = std::size_t{1} << 20;
constexpr Duration kConnectTimeout = std::chrono::seconds(10);
constexpr Duration kAttemptTimeout = std::chrono::seconds(30);

long milliseconds(Duration duration) {
  // To libcurl, 0 means no limit.
  return std::max(1L, static_cast<long>(duration / std::chrono::milliseconds(1)));
}

WallTime wallClockNow() {
  return {
      std::chrono::duration_cast<Duration>(std::chrono::system_clock::now().time_since_epoch())};
}

std::optional<std::string> responseHeader(CURL* easy, const char* name) {
  curl_header* header = nullptr;
  constexpr int kLastRequest = -1;
  if (curl_easy_header(easy, name, 0, CURLH_HEADER, kLastRequest, &header) != CURLHE_OK)
    return std::nullopt;
  return header->value;
}

}  // namespace

HTTPTransfer::HTTPTransfer(HTTPSockets& sockets, const URLSessionOptions& options,
                           const URLRequest& request, HTTPMethod method, const std::string& body,
                           Duration timeLeft)
    : sockets_(sockets), easy_(curl_easy_init()), setUp_(easy_ ? CURLE_OK : CURLE_FAILED_INIT) {
  setConnectionOptions(options, timeLeft);
  setRequestOptions(request, method, body);
}

template <class Value>
void HTTPTransfer::set(CURLoption option, Value value) {
  if (setUp_ == CURLE_OK) setUp_ = curl_easy_setopt(easy_.get(), option, value);
}

void HTTPTransfer::setConnectionOptions(const URLSessionOptions& options, Duration timeLeft) {
  set(CURLOPT_PROTOCOLS_STR, "https");
  set(CURLOPT_SSL_VERIFYPEER, 1L);
  set(CURLOPT_SSL_VERIFYHOST, 2L);
  if (!options.certificateAuthorities.empty()) {
    set(CURLOPT_CAINFO, options.certificateAuthorities.c_str());
    set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
  }
  if (!options.proxyFromEnvironment) set(CURLOPT_PROXY, "");
  set(CURLOPT_NETRC, static_cast<long>(CURL_NETRC_IGNORED));
  set(CURLOPT_FOLLOWLOCATION, 0L);
  set(CURLOPT_CONNECTTIMEOUT_MS, milliseconds(std::min(kConnectTimeout, timeLeft)));
  set(CURLOPT_TIMEOUT_MS, milliseconds(std::min(kAttemptTimeout, timeLeft)));
  set(CURLOPT_NOSIGNAL, 1L);
  // Else a transfer that times out waits for its resolver, and all other transfers with it.
  set(CURLOPT_QUICK_EXIT, 1L);
  set(CURLOPT_OPENSOCKETFUNCTION, openSocket);
  set(CURLOPT_OPENSOCKETDATA, this);
  set(CURLOPT_CLOSESOCKETFUNCTION, closeSocket);
  set(CURLOPT_CLOSESOCKETDATA, &sockets_);  // the connection may outlive the transfer
  // Some builds of libcurl know no HTTP/2; they go on with HTTP/1.1.
  if (easy_) curl_easy_setopt(easy_.get(), CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_2TLS});
}

void HTTPTransfer::setRequestOptions(const URLRequest& request, HTTPMethod method,
                                     const std::string& body) {
  set(CURLOPT_URL, request.url.c_str());
  if (method == HTTPMethod::post) {
    set(CURLOPT_POST, 1L);
    set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    set(CURLOPT_POSTFIELDS, body.c_str());
  } else {
    set(CURLOPT_HTTPGET, 1L);
  }

  for (const auto& line : headerLines(request.headers)) addHeader(line.c_str());
  addHeader("Content-Type:");  // what libcurl would add by itself
  addHeader("Expect:");
  set(CURLOPT_HTTPHEADER, headers_.get());

  set(CURLOPT_HEADERFUNCTION, receiveHeader);
  set(CURLOPT_HEADERDATA, this);
  set(CURLOPT_WRITEFUNCTION, receive);
  set(CURLOPT_WRITEDATA, this);
  set(CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(kMostBodyBytes));
  set(CURLOPT_PREREQFUNCTION, beforeRequest);
  set(CURLOPT_PREREQDATA, this);
}

void HTTPTransfer::addHeader(const char* line) {
  curl_slist* const longer = curl_slist_append(headers_.get(), line);
  if (!longer) {
    setUp_ = CURLE_OUT_OF_MEMORY;
    return;
  }
  static_cast<void>(headers_.release());
  headers_.reset(longer);
}

curl_socket_t HTTPTransfer::openSocket(void* transfer, curlsocktype, curl_sockaddr* address) {
  auto& self = *static_cast<HTTPTransfer*>(transfer);
  self.hasOwnConnection_ = true;
  try {
    return self.sockets_.open(*address);
  } catch (...) {
    return CURL_SOCKET_BAD;
  }
}

int HTTPTransfer::closeSocket(void* sockets, curl_socket_t socket) {
  return static_cast<HTTPSockets*>(sockets)->close(socket);
}

std::size_t HTTPTransfer::receiveHeader(char* bytes, std::size_t size, std::size_t count,
                                        void* transfer) {
  // Interim responses have heads, too, and a status line each.
  const std::string_view line(bytes, size * count);
  bool& hasWholeHead = static_cast<HTTPTransfer*>(transfer)->hasWholeHead_;
  if (line == "\r\n" || line == "\n") hasWholeHead = true;
  if (line.substr(0, 5) == "HTTP/") hasWholeHead = false;
  return line.size();
}

std::size_t HTTPTransfer::receive(char* bytes, std::size_t size, std::size_t count,
                                  void* transfer) {
  auto& self = *static_cast<HTTPTransfer*>(transfer);
  const std::size_t received = size * count;
  try {
    if (received > kMostBodyBytes - self.received_.size()) {
      self.cutOff_ = CURLE_FILESIZE_EXCEEDED;
      return 0;
    }
    self.received_.append(bytes, received);
  } catch (...) {
    self.cutOff_ = CURLE_OUT_OF_MEMORY;
    return 0;
  }
  return received;
}

/// The connection's socket, if the server has closed the connection while it was kept for reuse.
/// libcurl takes the closing message, which is still to be read, for a sign of life.
std::optional<curl_socket_t> HTTPTransfer::staleSocket(int localPort) const {
  if (hasOwnConnection_) return std::nullopt;
  const curl_tlssessioninfo* tls = nullptr;
  curl_easy_getinfo(easy_.get(), CURLINFO_TLS_SSL_PTR, &tls);
  if (!tls || tls->backend != CURLSSLBACKEND_OPENSSL || !tls->internals) return std::nullopt;
  const unsigned char* protocol = nullptr;
  unsigned size = 0;
  SSL_get0_alpn_selected(static_cast<const SSL*>(tls->internals), &protocol, &size);
  // With HTTP/2 there may be anything to read, and libcurl has looked at it.
  if (std::string_view(reinterpret_cast<const char*>(protocol), size) == "h2") return std::nullopt;
  const auto socket = sockets_.withLocalPort(localPort);
  char byte;
  if (!socket || recv(*socket, &byte, 1, MSG_PEEK | MSG_DONTWAIT) < 0) return std::nullopt;
  return socket;
}

// Called whenever libcurl has a connection and is about to send the request on it.
int HTTPTransfer::beforeRequest(void* transfer, char*, char*, int, int localPort) {
  auto& self = *static_cast<HTTPTransfer*>(transfer);
  if (self.hasBegunRequest_) {
    // A reused connection has broken off without an answer, and libcurl turns to a new one. But
    // the server may have read the request on the first.
    self.cutOff_ = CURLE_GOT_NOTHING;
    return CURL_PREREQFUNC_ABORT;
  }
  if (const auto stale = self.staleSocket(localPort)) {
    shutdown(*stale, SHUT_RDWR);  // nothing can be sent there now, and libcurl turns to a new one
  } else {
    self.hasBegunRequest_ = true;
  }
  return CURL_PREREQFUNC_OK;
}

TransferResult HTTPTransfer::result(CURLcode code) {
  TransferResult result;
  long status = 0;
  curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
  const bool hasResponse = hasWholeHead_ && status >= 200;
  if (code == CURLE_OK && !hasResponse) code = CURLE_PARTIAL_FILE;  // cut in its head
  result.error = cutOff_ != CURLE_OK ? cutOff_ : code;
  if (result.error != CURLE_OK) {
    result.attempt.failedToConnect =
        !hasBegunRequest_ &&
        (code == CURLE_COULDNT_RESOLVE_HOST || code == CURLE_COULDNT_RESOLVE_PROXY ||
         code == CURLE_COULDNT_CONNECT || code == CURLE_OPERATION_TIMEDOUT);
    return result;
  }
  result.attempt.httpStatusCode = static_cast<int>(status);
  if (const auto text = responseHeader(easy_.get(), "Retry-After"))
    result.attempt.retryAfter = parseRetryAfter(*text, wallClockNow());
  result.body = std::move(received_);
  return result;
}

}  // namespace veltrano
