#include "platform/posix/http/name_lookup.h"

#include <arpa/inet.h>
#include <curl/curl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstring>
#include <memory>
#include <new>

namespace veltrano::internal {
namespace {

struct Free {
  void operator()(CURLU* url) const { curl_url_cleanup(url); }
  void operator()(char* text) const { curl_free(text); }
  void operator()(addrinfo* list) const { freeaddrinfo(list); }
};

std::string part(CURLU* url, CURLUPart which) {
  char* text = nullptr;
  if (curl_url_get(url, which, &text, 0) != CURLUE_OK) return {};
  return std::unique_ptr<char, Free>(text).get();
}

}  // namespace

std::optional<HostName> hostNameIn(const std::string& url, const char* defaultPort) {
  const std::unique_ptr<CURLU, Free> parsed(curl_url());
  if (!parsed) throw std::bad_alloc();
  if (curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(),
                   CURLU_GUESS_SCHEME | CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK)
    return std::nullopt;
  HostName name{part(parsed.get(), CURLUPART_HOST), part(parsed.get(), CURLUPART_PORT)};
  if (name.host.empty() || name.host.front() == '[') return std::nullopt;
  if (name.port.empty()) name.port = defaultPort;
  return name;
}

std::string literalAddress(const HostName& name) {
  in_addr address;
  return inet_pton(AF_INET, name.host.c_str(), &address) == 1 ? name.host : "";
}

std::string lookUp(const HostName& name) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(name.host.c_str(), name.port.c_str(), &hints, &found) != 0) return {};
  const std::unique_ptr<addrinfo, Free> owner(found);
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
