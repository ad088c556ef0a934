#include "tests/support/tls_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

namespace veltrano {

TLSServer::TLSServer(Handler handler, const TLSCertificate& certificate)
    : handler_(std::move(handler)), listener_(socket(AF_INET, SOCK_STREAM, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  bind(listener_, reinterpret_cast<sockaddr*>(&address), size);
  listen(listener_, 64);
  getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size);
  port_ = ntohs(address.sin_port);

  pemFile_ = "/tmp/veltrano_authority_" + std::to_string(getpid()) + "_" + std::to_string(port_);
  context_ = makeServerContext(certificate, pemFile_);
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

void TLSServer::waitForConnectionEnds(int count) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return ended_ >= count; });
}

void TLSServer::accept() {
  // The connections' threads inherit this, so that a client that goes away does not end the test.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  for (;;) {
    const int connected = ::accept(listener_, nullptr, nullptr);
    const std::lock_guard lock(mutex_);
    if (connected == -1 || stopping_) return;
    sockets_.push_back(connected);
    connections_.emplace_back([this, connected] { serve(connected); });
  }
}

void TLSServer::serve(int socket) {
  SSL* const tls = SSL_new(context_);
  SSL_set_fd(tls, socket);
  bool isOpen = SSL_accept(tls) == 1;
  while (isOpen) {
    const std::string request = readRequest(tls);
    if (request.empty()) break;
    std::unique_lock lock(mutex_);
    requests_.push_back(request);
    const int number = static_cast<int>(requests_.size());
    lock.unlock();
    const Reply reply = handler_(number);
    if (!reply.bytes.empty())
      SSL_write(tls, reply.bytes.data(), static_cast<int>(reply.bytes.size()));
    isOpen = !reply.endsConnection;
    if (!isOpen) SSL_shutdown(tls);
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
    const auto body = text.find("\r\n\r\n") + 4;
    const auto length = text.find("Content-Length: ") + 16;
    if (body >= 4 && length >= 16) needed = body + std::stoul(text.substr(length, 10));
  }
  return text;
}

}  // namespace veltrano
