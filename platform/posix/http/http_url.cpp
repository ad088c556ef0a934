#include "platform/posix/http/http_url.h"

namespace veltrano {
namespace {

// Spelled out, since <cctype> asks the host's locale.
bool isUnreserved(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '.' || c == '_' || c == '~';
}

void appendPercentEncoded(std::string& url, std::string_view text) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  for (const char c : text) {
    if (isUnreserved(c)) {
      url += c;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    url += {'%', kDigits[byte >> 4], kDigits[byte & 0xF]};
  }
}

}  // namespace

std::string urlWithQuery(std::string_view baseURL,
                         const std::map<std::string, std::string>& parameters) {
  std::string url(baseURL);
  char separator = '?';
  for (const auto& [name, value] : parameters) {
    url += separator;
    appendPercentEncoded(url, name);
    url += '=';
    appendPercentEncoded(url, value);
    separator = '&';
  }
  return url;
}

}  // namespace veltrano
