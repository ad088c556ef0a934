#include "platform/posix/http/request_text.h"

#include <curl/curl.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <new>
#include <utility>

namespace veltrano::internal {
namespace {

void appendPercentEncoded(std::string& url, const std::string& text) {
  const std::unique_ptr<char, void (*)(void*)> encoded(
      curl_easy_escape(nullptr, text.c_str(), static_cast<int>(text.size())), curl_free);
  if (!encoded) throw std::bad_alloc();
  url += encoded.get();
}

// HTTP's token characters. Without <cctype>, which depends on the host's locale.
bool isTokenCharacter(char c) {
  constexpr std::string_view kMarks = "!#$%&'*+-.^_`|~";
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
         kMarks.find(c) != kMarks.npos;
}

bool isValueCharacter(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte == '\t' || (byte >= 0x20 && byte != 0x7F);
}

std::string filtered(std::string_view text, bool (*isKept)(char)) {
  std::string kept;
  std::copy_if(text.begin(), text.end(), std::back_inserter(kept), isKept);
  return kept;
}

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(" \t");
  if (first == text.npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
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

std::vector<std::string> headerLines(const std::map<std::string, std::string>& headers) {
  std::vector<std::string> lines;
  for (const auto& [name, value] : headers) {
    std::string line = filtered(name, isTokenCharacter);
    if (line.empty()) continue;
    const std::string kept = filtered(value, isValueCharacter);
    const auto text = trimmed(kept);
    // For libcurl, "Name:" removes the header and "Name;" sends it without a value.
    if (text.empty())
      line += ';';
    else
      line.append(": ").append(text);
    lines.push_back(std::move(line));
  }
  return lines;
}

}  // namespace veltrano::internal
