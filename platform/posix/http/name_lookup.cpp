#include "platform/posix/http/name_lookup.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstring>
#include <memory>

#include "platform/posix/http/urls_and_headers.h"

namespace veltrano::internal {

std::optional<HostName> hostNameIn(const std::string& url, const char* defaultPort) {
  const auto parts = partsOf(url);
  if (!parts || parts->host.empty() || parts->host.front() == '[') return std::nullopt;
  return HostName{parts->host, parts->port.empty() ? defaultPort : parts->port};
}

std::string literalAddress(const HostName& name) {
  in_addr address;
  return inet_pton(AF_INET, name.host.c_str(), &address) == 1 ? name.host : "";
}

std::string addressesOf(const HostName& name) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(name.host.c_str(), name.port.c_str(), &hints, &found) != 0) return {};
  const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owner(found, freeaddrinfo);
  std::string addresses;
  for (; found != nullptr; found = found->ai_next) {
    char text[NI_MAXHOST];
    if (getnameinfo(found->ai_addr, found->ai_addrlen, text, sizeof text, nullptr, 0,
                    NI_NUMERICHOST) != 0)
      continue;
    text[std::strcspn(text, "%")] = '\0';  // libcurl does not accept a scope
    if (!addresses.empty()) addresses += ',';
    addresses += found->ai_family == AF_INET6 ? "[" + std::string(text) + "]" : text;
  }
  return addresses;
}

}  // namespace veltrano::internal
