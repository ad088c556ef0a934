#include "platform/posix/http/transfer.h"

#include <netinet/in.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <string_view>
#include <utility>

#include "platform/posix/http/urls_and_headers.h"
#include "platform/posix/system/system.h"

namespace veltrano::internal {
namespace {

constexpr std::size_t kMaxBodyBytes = std::size_t{1} << 20;
constexpr std::size_t kMaxHeadBytes = std::size_t{1} << 16;  // incl. interim heads and trailers
// Everything that a response makes us read: also chunk extensions, TLS records and tickets.
constexpr std::uint64_t kMaxEncryptedBytes = std::uint64_t{4} << 20;

long milliseconds(Duration duration) {
  // To libcurl, 0 means no limit.
  return std::max(1L, static_cast<long>(duration / std::chrono::milliseconds(1)));
}

std::optional<std::string> responseHeader(CURL* easy, const char* name) {
  curl_header* header = nullptr;
  constexpr int kLastRequest = -1;
  if (curl_easy_header(easy, name, 0, CURLH_HEADER, kLastRequest, &header) != CURLHE_OK)
    return std::nullopt;
  return header->value;
}

// The port of the socket's own end; 0 if it is not connected.
int localPortOf(curl_socket_t socket) {
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
  return ntohs(address.ss_family == AF_INET6 ? reinterpret_cast<sockaddr_in6&>(address).sin6_port
                                             : reinterpret_cast<sockaddr_in&>(address).sin_port);
}

// Overrides the environment: OPENSSL_CONF may lower the security level, and SSLKEYLOGFILE makes
// libcurl log the keys. libcurl still creates that file, but it stays empty.
CURLcode secure(CURL*, void* sslContext, void*) {
  constexpr int kLevel = 2;  // 112 bits: no RSA key below 2048 bits, no signature with SHA-1
  auto* const context = static_cast<SSL_CTX*>(sslContext);
  SSL_CTX_set_security_level(context, std::max(kLevel, SSL_CTX_get_security_level(context)));
  SSL_CTX_set_keylog_callback(context, nullptr);
  // With auto-retry, one read would last as long as the server sends records without data.
  SSL_CTX_clear_mode(context, SSL_MODE_AUTO_RETRY);
  return CURLE_OK;
}

}  // namespace

HTTPTransfer::HTTPTransfer(std::vector<curl_socket_t>& sockets, const URLSessionOptions& options,
                           const Attempt& attempt, const std::atomic<bool>& isStopped)
    : sockets_(sockets),
      attempt_(attempt),
      isStopped_(isStopped),
      usesSystemsAuthorities_(options.certificateAuthorities.empty()) {
  if (!easy_) setUp_ = CURLE_OUT_OF_MEMORY;
  setConnectionOptions(options);
  setSecurityOptions(options);
  setRequestOptions();
}

template <class Value>
void HTTPTransfer::set(CURLoption option, Value value) {
  if (setUp_ == CURLE_OK) setUp_ = curl_easy_setopt(easy_.get(), option, value);
}

void HTTPTransfer::setConnectionOptions(const URLSessionOptions& options) {
  const auto timeLeft =
      std::chrono::duration_cast<Duration>(attempt_.deadline - std::chrono::steady_clock::now());
  set(CURLOPT_CONNECTTIMEOUT_MS, milliseconds(std::min(options.connectTimeout, timeLeft)));
  set(CURLOPT_TIMEOUT_MS, milliseconds(timeLeft));
  set(CURLOPT_ERRORBUFFER, errorText_);
  // libcurl calls this even where it does not check its timeouts, such as in a proxy's response.
  set(CURLOPT_NOPROGRESS, 0L);
  set(CURLOPT_XFERINFOFUNCTION, progress);
  set(CURLOPT_XFERINFODATA, this);
  set(CURLOPT_NOSIGNAL, 1L);

  // Set even when empty: otherwise libcurl reads the environment.
  set(CURLOPT_PROXY, options.proxy.c_str());
  set(CURLOPT_NOPROXY, options.noProxy.c_str());
  bool needsNoLookup = true;
  for (const auto& addresses : attempt_.addresses) {
    if (!addresses.empty()) addLine(addresses_, addresses.c_str());
    if (addresses.empty()) needsNoLookup = false;
  }
  set(CURLOPT_RESOLVE, addresses_.get());
  if (needsNoLookup) {
    set(CURLOPT_RESOLVER_START_FUNCTION, refuseLookup);
    set(CURLOPT_RESOLVER_START_DATA, this);
  }

  set(CURLOPT_OPENSOCKETFUNCTION, openSocket);
  set(CURLOPT_CLOSESOCKETFUNCTION, closeSocket);
  set(CURLOPT_OPENSOCKETDATA, this);
  set(CURLOPT_CLOSESOCKETDATA, &sockets_);  // not `this`: the connection may live longer
}

void HTTPTransfer::setSecurityOptions(const URLSessionOptions& options) {
  set(CURLOPT_PROTOCOLS_STR, "https");
  set(CURLOPT_SSLVERSION, long{CURL_SSLVERSION_TLSv1_2});
  set(CURLOPT_SSL_VERIFYPEER, 1L);
  set(CURLOPT_SSL_VERIFYHOST, 2L);
  set(CURLOPT_SSL_CTX_FUNCTION, secure);
  // The session cache of libcurl 7.88 has a double free when memory runs out.
  set(CURLOPT_SSL_SESSIONID_CACHE, 0L);
  if (!options.certificateAuthorities.empty()) {
    set(CURLOPT_CAINFO, options.certificateAuthorities.c_str());
    set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
  }
  if (!options.pinnedPublicKey.empty())
    set(CURLOPT_PINNEDPUBLICKEY, options.pinnedPublicKey.c_str());
}

void HTTPTransfer::setRequestOptions() {
  set(CURLOPT_URL, attempt_.request.url.c_str());
  set(CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_1_1});
  set(CURLOPT_NETRC, static_cast<long>(CURL_NETRC_IGNORED));
  set(CURLOPT_FOLLOWLOCATION, 0L);
  set(CURLOPT_POST, 1L);
  set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(attempt_.body->size()));
  set(CURLOPT_POSTFIELDS, attempt_.body->c_str());

  for (const auto& line : headerLines(attempt_.request.headers)) addLine(headers_, line.c_str());
  addLine(headers_, "Content-Type:");  // removes the headers that libcurl adds
  addLine(headers_, "Expect:");
  set(CURLOPT_HTTPHEADER, headers_.get());

  set(CURLOPT_PREREQFUNCTION, beforeRequest);
  set(CURLOPT_PREREQDATA, this);
  set(CURLOPT_HEADERFUNCTION, receiveHeader);
  set(CURLOPT_HEADERDATA, this);
  set(CURLOPT_WRITEFUNCTION, receive);
  set(CURLOPT_WRITEDATA, this);
}

void HTTPTransfer::addLine(std::unique_ptr<curl_slist, void (*)(curl_slist*)>& list,
                           const char* line) {
  curl_slist* const longer = curl_slist_append(list.get(), line);
  if (!longer) {
    setUp_ = CURLE_OUT_OF_MEMORY;
    return;
  }
  static_cast<void>(list.release());
  list.reset(longer);
}

template <class Type>
std::uint64_t HTTPTransfer::count(CURLINFO info) const {
  Type bytes = 0;
  curl_easy_getinfo(easy_.get(), info, &bytes);
  return static_cast<std::uint64_t>(bytes);
}

// The bytes of the connection so far, earlier responses included.
std::uint64_t HTTPTransfer::encryptedBytesRead() const {
  const curl_tlssessioninfo* session = nullptr;
  if (curl_easy_getinfo(easy_.get(), CURLINFO_TLS_SSL_PTR, &session) != CURLE_OK ||
      session->backend != CURLSSLBACKEND_OPENSSL || session->internals == nullptr)
    return 0;
  BIO* const input = SSL_get_rbio(static_cast<const SSL*>(session->internals));
  return input != nullptr ? BIO_number_read(input) : 0;
}

// Returns 0, which makes a receiving callback end the transfer.
std::size_t HTTPTransfer::cutOff(CURLcode reason) {
  cutOff_ = reason;
  return 0;
}

// Called when libcurl is about to look up a name itself.
int HTTPTransfer::refuseLookup(void*, void*, void* transfer) {
  static_cast<HTTPTransfer*>(transfer)->lacksAddresses_ = true;
  return 1;
}

curl_socket_t HTTPTransfer::openSocket(void* transfer, curlsocktype, curl_sockaddr* address) {
  auto& self = *static_cast<HTTPTransfer*>(transfer);
  try {
    self.sockets_.reserve(self.sockets_.size() + 1);
  } catch (const std::bad_alloc&) {
    return CURL_SOCKET_BAD;
  }
  const auto socket = internal::openSocket(address->family, address->socktype, address->protocol);
  if (socket != CURL_SOCKET_BAD) self.sockets_.push_back(socket);
  self.hasConnected_ = true;
  return socket;
}

int HTTPTransfer::closeSocket(void* sockets, curl_socket_t socket) {
  std::erase(*static_cast<std::vector<curl_socket_t>*>(sockets), socket);
  return ::close(socket);
}

// If data arrives on an idle connection, the server is closing it. libcurl takes the closing
// message for a sign that the connection is alive. Shut down, the connection fails before it can
// send anything, and libcurl makes another.
bool HTTPTransfer::hasReusedDeadConnection(int localPort) const {
  if (hasConnected_) return false;
  return std::any_of(sockets_.begin(), sockets_.end(), [&](curl_socket_t socket) {
    char byte;
    return localPortOf(socket) == localPort &&
           recv(socket, &byte, 1, MSG_PEEK | MSG_DONTWAIT) >= 0 && shutdown(socket, SHUT_RDWR) == 0;
  });
}

// Called each time libcurl is about to send the request on a connection.
int HTTPTransfer::beforeRequest(void* transfer, char*, char*, int, int localPort) {
  auto& self = *static_cast<HTTPTransfer*>(transfer);
  if (self.hasReusedDeadConnection(localPort)) return CURL_PREREQFUNC_OK;
  if (std::exchange(self.hasBegunRequest_, true)) {
    // A reused connection broke without a response, and libcurl retries on a new one. But the
    // server may have read the first request.
    self.cutOff(CURLE_GOT_NOTHING);
    return CURL_PREREQFUNC_ABORT;
  }
  self.bytesBefore_ = self.encryptedBytesRead();
  return CURL_PREREQFUNC_OK;
}

int HTTPTransfer::progress(void* transfer, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
  auto& self = *static_cast<HTTPTransfer*>(transfer);
  if (self.isStopped_ || std::chrono::steady_clock::now() >= self.attempt_.deadline) {
    self.cutOff(CURLE_OPERATION_TIMEDOUT);
    return 1;
  }
  if (self.hasBegunRequest_) self.bytesRead_ = std::max(self.bytesRead_, self.encryptedBytesRead());
  if (self.bytesRead_ > self.bytesBefore_ + kMaxEncryptedBytes) {
    self.cutOff(CURLE_FILESIZE_EXCEEDED);
    return 1;
  }
  return 0;
}

std::size_t HTTPTransfer::receiveHeader(char* bytes, std::size_t, std::size_t count,
                                        void* transfer) {
  auto& self = *static_cast<HTTPTransfer*>(transfer);
  self.headBytes_ += count;
  if (self.headBytes_ > kMaxHeadBytes) return self.cutOff(CURLE_WEIRD_SERVER_REPLY);

  const std::string_view line(bytes, count);
  if (line != "\r\n" && line != "\n") return count;
  long status = 0;
  if (!self.hasBegunRequest_) {
    // A proxy's response. libcurl would read the whole body of a refusal.
    curl_easy_getinfo(self.easy_.get(), CURLINFO_HTTP_CONNECTCODE, &status);
    if (status >= 300) {
      self.refusal_ = static_cast<int>(status);
      return self.cutOff(CURLE_COULDNT_CONNECT);
    }
    return count;
  }
  curl_easy_getinfo(self.easy_.get(), CURLINFO_RESPONSE_CODE, &status);
  if (status >= 200 && !self.statusCode_) {
    const bool hasSentEverything =
        self.count<curl_off_t>(CURLINFO_SIZE_UPLOAD_T) >= self.attempt_.body->size();
    if (!hasSentEverything) return self.cutOff(CURLE_WEIRD_SERVER_REPLY);
    self.statusCode_ = static_cast<int>(status);
  }
  return count;
}

std::size_t HTTPTransfer::receive(char* bytes, std::size_t, std::size_t count, void* transfer) {
  auto& self = *static_cast<HTTPTransfer*>(transfer);
  if (count > kMaxBodyBytes - self.received_.size()) return self.cutOff(CURLE_FILESIZE_EXCEEDED);
  try {
    self.received_.append(bytes, count);
  } catch (...) {
    return self.cutOff(CURLE_OUT_OF_MEMORY);
  }
  return count;
}

TransferResult HTTPTransfer::result(CURLcode code, WallTime now) {
  TransferResult result;
  // libcurl reports a header line of more than 100 KB as a lack of memory, since 8.6 as too large.
  constexpr auto kTooLarge = static_cast<CURLcode>(100);  // CURLE_TOO_LARGE in newer headers
  const bool isHeadTooLarge =
      headBytes_ > kMaxHeadBytes || ((code == CURLE_OUT_OF_MEMORY || code == kTooLarge) &&
                                     !statusCode_ && bytesRead_ > bytesBefore_ + kMaxHeadBytes);
  if (isHeadTooLarge) cutOff_ = CURLE_WEIRD_SERVER_REPLY;
  result.error = cutOff_ != CURLE_OK ? cutOff_ : code;
  if (result.error == CURLE_OK && !statusCode_) result.error = CURLE_PARTIAL_FILE;  // head cut off
  if (result.error != CURLE_OK) {
    const bool isLibcurls = result.error == code && errorText_[0] != '\0';
    result.reason = isHeadTooLarge ? "The head of the answer exceeds 64 KiB"
                    : isLibcurls   ? errorText_
                                   : curl_easy_strerror(result.error);
    if (result.error == CURLE_SSL_CACERT_BADFILE && usesSystemsAuthorities_)
      result.reason = "The system has no certificate authorities";
    if (refusal_) result.reason = "The proxy answered with status " + std::to_string(*refusal_);
  }
  // The request's size includes a body that libcurl sent together with the head.
  const std::uint64_t request = count<long>(CURLINFO_REQUEST_SIZE);
  const std::uint64_t body = count<curl_off_t>(CURLINFO_SIZE_UPLOAD_T);
  result.bytesSent = request > body ? request : request + body;
  result.bytesReceived =
      count<long>(CURLINFO_HEADER_SIZE) + count<curl_off_t>(CURLINFO_SIZE_DOWNLOAD_T);
  result.lacksAddresses = lacksAddresses_;
  result.lacksConnection = result.error != CURLE_OK && !hasBegunRequest_;
  result.attempt.httpStatusCode = statusCode_;
  long systemError = 0;
  curl_easy_getinfo(easy_.get(), CURLINFO_OS_ERRNO, &systemError);
  // Among others, refused certificates are for good.
  result.attempt.failedToConnect =
      !hasBegunRequest_ &&
      (result.error == CURLE_COULDNT_RESOLVE_HOST || result.error == CURLE_COULDNT_RESOLVE_PROXY ||
       result.error == CURLE_COULDNT_CONNECT || result.error == CURLE_OPERATION_TIMEDOUT ||
       systemError == ECONNRESET);
  if (!statusCode_) return result;
  if (const auto text = responseHeader(easy_.get(), "Retry-After"))
    result.attempt.retryAfter = parseRetryAfter(*text, now);
  result.body = std::move(received_);
  return result;
}

}  // namespace veltrano::internal
