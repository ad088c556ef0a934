#include "tests/support/tls_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

namespace veltrano {
namespace {

// Threads of the server inherit this, so that a client that goes away does not end the test.
void blockBrokenPipeSignal() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

std::size_t bodySize(const std::string& head) {
  constexpr std::string_view kField = "Content-Length: ";
  const auto at = head.find(kField);
  return at == head.npos ? 0 : std::strtoul(head.c_str() + at + kField.size(), nullptr, 10);
}

}  // namespace

TLSServer::TLSServer(Handler handler, const TLSCertificate& certificate)
    : handler_(std::move(handler)) {
  std::string pem;
  context_ = makeServerContext(certificate, pem);

  listener_ = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  bind(listener_, reinterpret_cast<sockaddr*>(&address), size);
  listen(listener_, 64);
  getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size);
  port_ = ntohs(address.sin_port);

  pemFile_ = "/tmp/veltrano_authority_" + std::to_string(getpid()) + "_" + std::to_string(port_);
  std::ofstream(pemFile_) << pem;
  acceptor_ = std::thread([this] { accept(); });
}

TLSServer::~TLSServer() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
    shutdown(listener_, SHUT_RDWR);
    for (const int open : sockets_) shutdown(open, SHUT_RDWR);
  }
  changed_.notify_all();
  acceptor_.join();
  for (auto& connection : connections_) connection.join();
  for (const int open : sockets_) close(open);
  close(listener_);
  SSL_CTX_free(context_);
  unlink(pemFile_.c_str());
}

std::string TLSServer::url() const {
  return "https://127.0.0.1:" + std::to_string(port_) + "/path";
}

std::vector<std::string> TLSServer::requests() const {
  const std::lock_guard lock(mutex_);
  return requests_;
}

int TLSServer::connections() const {
  const std::lock_guard lock(mutex_);
  return static_cast<int>(connections_.size());
}

void TLSServer::waitForRequests(std::size_t count) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return requests_.size() >= count; });
}

void TLSServer::waitForConnectionEnds(int count) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return ended_ >= count; });
}

void TLSServer::accept() {
  blockBrokenPipeSignal();
  for (;;) {
    const int connected = ::accept(listener_, nullptr, nullptr);
    const int on = 1;
    setsockopt(connected, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    const std::lock_guard lock(mutex_);
    if (connected == -1 || stopping_) return;
    sockets_.push_back(connected);
    connections_.emplace_back([this, connected] { serve(connected); });
  }
}

void TLSServer::serve(int socket) {
  SSL* const tls = SSL_new(context_);
  SSL_set_fd(tls, socket);
  if (SSL_accept(tls) == 1) {
    for (;;) {
      const std::string request = readRequest(tls);
      if (request.empty()) break;
      std::unique_lock lock(mutex_);
      requests_.push_back(request);
      const int number = static_cast<int>(requests_.size());
      changed_.notify_all();
      lock.unlock();
      const Reply reply = handler_(number, request);
      if (reply.isHeldBack) {
        lock.lock();
        changed_.wait(lock, [&] { return stopping_; });
        break;
      }
      if (!reply.bytes.empty())
        SSL_write(tls, reply.bytes.data(), static_cast<int>(reply.bytes.size()));
      if (reply.endsConnection) break;
    }
    SSL_shutdown(tls);
  }
  SSL_free(tls);
  shutdown(socket, SHUT_RDWR);
  const std::lock_guard lock(mutex_);
  ++ended_;
  changed_.notify_all();
}

/// Empty when the client ends the connection.
std::string TLSServer::readRequest(SSL* tls) {
  std::string text;
  std::size_t needed = std::string::npos;
  while (text.size() < needed) {
    char bytes[4096];
    const int count = SSL_read(tls, bytes, sizeof bytes);
    if (count <= 0) return {};
    text.append(bytes, static_cast<std::size_t>(count));
    const auto head = text.find("\r\n\r\n");
    if (head != text.npos) needed = head + 4 + bodySize(text.substr(0, head));
  }
  return text;
}

}  // namespace veltrano
