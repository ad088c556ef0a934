#include "platform/posix/http/collection_host.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <string>

namespace veltrano {
namespace {

bool isLetterOrDigit(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

bool isName(std::string_view text) {
  constexpr std::size_t kLongest = 253;
  return !text.empty() && text.size() <= kLongest && isLetterOrDigit(text.front()) &&
         text.find("..") == std::string_view::npos &&
         std::all_of(text.begin(), text.end(),
                     [](char c) { return isLetterOrDigit(c) || c == '-' || c == '.' || c == '_'; });
}

bool isIPv6Address(std::string_view text) {
  in6_addr address;
  return text.find('\0') == std::string_view::npos &&
         inet_pton(AF_INET6, std::string(text).c_str(), &address) == 1;
}

bool isPort(std::string_view text) {
  int port = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  return error == std::errc() && end == text.data() + text.size() && port > 0 && port <= 65535;
}

}  // namespace

bool isCollectionHost(std::string_view text) {
  std::string_view port;
  bool isHost = false;
  if (text.substr(0, 1) == "[") {
    const auto end = text.find(']');
    if (end == std::string_view::npos) return false;
    isHost = isIPv6Address(text.substr(1, end - 1));
    port = text.substr(end + 1);
  } else {
    const auto colon = std::min(text.find(':'), text.size());
    isHost = isName(text.substr(0, colon));
    port = text.substr(colon);
  }
  return isHost && (port.empty() || (port.front() == ':' && isPort(port.substr(1))));
}

}  // namespace veltrano
