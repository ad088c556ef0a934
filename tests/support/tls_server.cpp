#include "tests/support/tls_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string_view>

namespace veltrano::internal {
namespace {

// Ends the handshake with a client that offers more than HTTP/1.1.
int refuseHTTP2(SSL*, const unsigned char** chosen, unsigned char* length,
                const unsigned char* offered, unsigned int size, void*) {
  if (std::string_view(reinterpret_cast<const char*>(offered), size) != "\x08http/1.1")
    return SSL_TLSEXT_ERR_ALERT_FATAL;
  *chosen = offered + 1;
  *length = offered[0];
  return SSL_TLSEXT_ERR_OK;
}

template <class Write>
void send(const TLSReply& reply, Write write) {
  if (!reply.bytes.empty() && !write(reply.bytes)) return;
  while (!reply.endless.empty() && write(reply.endless)) {
  }
}

}  // namespace

TLSServer::TLSServer(Handler handler, TLSServerOptions options)
    : handler_(std::move(handler)),
      options_(std::move(options)),
      listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  bind(listener_, reinterpret_cast<sockaddr*>(&address), size);
  listen(listener_, 64);
  getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size);
  port_ = ntohs(address.sin_port);

  const collector::Certificate made = collector::makeCertificate(options_.certificate);
  collector::writePEM(made, pemFile_, {});
  context_ = SSL_CTX_new(TLS_server_method());
  SSL_CTX_use_certificate(context_, made.certificate.get());
  SSL_CTX_use_PrivateKey(context_, made.key.get());
  SSL_CTX_set_max_proto_version(context_, options_.newestProtocol);
  SSL_CTX_set_alpn_select_cb(context_, refuseHTTP2, nullptr);
  acceptor_ = std::thread([this] { accept(); });
}

TLSServer::~TLSServer() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
    shutdown(listener_, SHUT_RDWR);
    for (const int open : sockets_) shutdown(open, SHUT_RDWR);
  }
  acceptor_.join();
  for (auto& connection : connections_) connection.join();
  for (const int open : sockets_) close(open);
  close(listener_);
  SSL_CTX_free(context_);
}

std::string TLSServer::url(const std::string& path, const std::string& host) const {
  return "https://" + host + ":" + std::to_string(port_) + path;
}

std::string TLSServer::pin() const {
  unsigned char* key = nullptr;
  const int size = i2d_X509_PUBKEY(X509_get_X509_PUBKEY(SSL_CTX_get0_certificate(context_)), &key);
  unsigned char digest[32];
  EVP_Digest(key, static_cast<std::size_t>(size), digest, nullptr, EVP_sha256(), nullptr);
  OPENSSL_free(key);
  unsigned char text[45];
  EVP_EncodeBlock(text, digest, sizeof digest);
  return std::string("sha256//") + reinterpret_cast<const char*>(text);
}

std::vector<std::string> TLSServer::requests() const {
  const std::lock_guard lock(mutex_);
  return requests_;
}

void TLSServer::accept() {
  // Inherited by the connections' threads, so that SIGPIPE does not kill the test.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  for (;;) {
    const int connected = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    const std::lock_guard lock(mutex_);
    if (stopping_) return;
    if (connected == -1) continue;  // a test may have used up the descriptors for a while
    sockets_.push_back(connected);
    ++begun_;
    connections_.emplace_back([this, connected] { serve(connected); });
  }
}

void TLSServer::serve(int socket) {
  const int yes = 1;  // otherwise a response waits for the client's ACK of the session tickets
  setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
  SSL* const tls = SSL_new(context_);
  SSL_set_fd(tls, socket);
  bool isOpen = !reset(socket) && actAsProxy(socket) && SSL_accept(tls) == 1;
  while (isOpen) {
    const std::string request = readRequest(tls);
    if (request.empty()) break;
    const TLSReply reply = handler_(note(request));
    send(reply, [&](const std::string& bytes) {
      return SSL_write(tls, bytes.data(), static_cast<int>(bytes.size())) > 0;
    });
    isOpen = !reply.endsConnection;
    if (!isOpen) SSL_shutdown(tls);
  }
  SSL_free(tls);
  shutdown(socket, SHUT_RDWR);
  ++ended_;
}

// Returns the request's number.
int TLSServer::note(const std::string& request) {
  const std::lock_guard lock(mutex_);
  requests_.push_back(request);
  return static_cast<int>(requests_.size());
}

// Resets the connection, if it is one of the first ones that are to be.
bool TLSServer::reset(int socket) {
  if (connections() > options_.resets) return false;
  char hello;
  recv(socket, &hello, 1, MSG_PEEK);
  const sockaddr nobody{AF_UNSPEC, {}};
  connect(socket, &nobody, sizeof nobody);
  return true;
}

/// Returns whether to continue with TLS.
bool TLSServer::actAsProxy(int socket) {
  if (!options_.asProxy) return true;
  std::string head;
  char byte;
  while (!head.ends_with("\r\n\r\n") && recv(socket, &byte, 1, 0) == 1) head += byte;
  note(head);
  send(*options_.asProxy,
       [&](const std::string& bytes) { return ::send(socket, bytes.data(), bytes.size(), 0) > 0; });
  return !options_.asProxy->endsConnection;
}

/// Empty when the client closes the connection.
std::string TLSServer::readRequest(SSL* tls) const {
  std::string text;
  std::size_t needed = std::string::npos;
  while (text.size() < needed) {
    char bytes[4096];
    const int count = SSL_read(tls, bytes, sizeof bytes);
    if (count <= 0) return {};
    text.append(bytes, static_cast<std::size_t>(count));
    const auto body = text.find("\r\n\r\n") + 4;
    const auto length = text.find("Content-Length: ") + 16;
    const bool hasBody = length >= 16 && options_.readsBodies;
    if (body >= 4) needed = body + (hasBody ? std::stoul(text.substr(length, 10)) : 0);
  }
  return text;
}

}  // namespace veltrano::internal
