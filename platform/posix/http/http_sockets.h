#pragma once

#include <curl/curl.h>

#include <optional>
#include <vector>

namespace veltrano {

/// The sockets that libcurl uses for one session. For the network thread; never destroyed.
class HTTPSockets {
 public:
  /// As `socket` and `close`. Programs that the host executes do not inherit the socket.
  curl_socket_t open(const curl_sockaddr& address);

  /// The open socket with this port of the device; none when there is not exactly one.
  std::optional<curl_socket_t> withLocalPort(int port) const;

  int close(curl_socket_t socket);

 private:
  std::vector<curl_socket_t> open_;
};

}  // namespace veltrano
