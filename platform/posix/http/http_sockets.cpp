#include "platform/posix/http/http_sockets.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

namespace veltrano {
namespace {

int localPort(curl_socket_t socket) {
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  if (getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0) return -1;
  if (address.ss_family == AF_INET6)
    return ntohs(reinterpret_cast<const sockaddr_in6&>(address).sin6_port);
  return ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
}

}  // namespace

curl_socket_t HTTPSockets::open(const curl_sockaddr& address) {
  open_.reserve(open_.size() + 1);
  const curl_socket_t socket =
      ::socket(address.family, address.socktype | SOCK_CLOEXEC, address.protocol);
  if (socket != CURL_SOCKET_BAD) open_.push_back(socket);
  return socket;
}

std::optional<curl_socket_t> HTTPSockets::withLocalPort(int port) const {
  std::optional<curl_socket_t> found;
  for (const curl_socket_t socket : open_) {
    if (localPort(socket) != port) continue;
    if (found) return std::nullopt;
    found = socket;
  }
  return found;
}

int HTTPSockets::close(curl_socket_t socket) {
  open_.erase(std::remove(open_.begin(), open_.end(), socket), open_.end());
  return ::close(socket);
}

}  // namespace veltrano
