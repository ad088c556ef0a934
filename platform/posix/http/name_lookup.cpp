#include "platform/posix/http/name_lookup.h"

#include <curl/curl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstring>
#include <memory>
#include <utility>

namespace veltrano::internal {
namespace {

constexpr std::chrono::minutes kKeptFor{1};

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

// Separated by commas; empty if the lookup failed.
std::string addressesOf(const std::string& host, const std::string& port) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(host.c_str(), port.c_str(), &hints, &found) != 0) return {};
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

}  // namespace

std::optional<std::string> NameLookup::addresses(const std::string& url, const char* defaultPort) {
  const std::unique_ptr<CURLU, Free> parsed(curl_url());
  if (!parsed || curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(),
                              CURLU_GUESS_SCHEME | CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK)
    return "";
  const std::string host = part(parsed.get(), CURLUPART_HOST);
  std::string port = part(parsed.get(), CURLUPART_PORT);
  if (port.empty()) port = defaultPort;
  if (host.empty() || host.front() == '[') return "";

  const std::string key = host + ':' + port + ':';
  Known& known = known_[key];
  const auto now = Clock::now();
  if (known.addresses.empty() || now - known.since > kKeptFor) {
    if (auto fresh = addressesOf(host, port); !fresh.empty()) known = {std::move(fresh), now};
  }
  if (known.addresses.empty()) return std::nullopt;
  return key + known.addresses;
}

}  // namespace veltrano::internal
