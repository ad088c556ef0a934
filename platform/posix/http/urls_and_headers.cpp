#include "platform/posix/http/urls_and_headers.h"

#include <curl/curl.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <new>
#include <utility>

namespace veltrano::internal {
namespace {

std::string part(CURLU* url, CURLUPart which) {
  char* text = nullptr;
  const CURLUcode code = curl_url_get(url, which, &text, 0);
  const std::unique_ptr<char, void (*)(void*)> owner(text, curl_free);
  if (code == CURLUE_OUT_OF_MEMORY) throw std::bad_alloc();
  return code == CURLUE_OK ? text : "";
}

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

std::optional<URLParts> partsOf(const std::string& url) {
  const std::unique_ptr<CURLU, void (*)(CURLU*)> parsed(curl_url(), curl_url_cleanup);
  if (!parsed) throw std::bad_alloc();
  const CURLUcode code = curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(),
                                      CURLU_GUESS_SCHEME | CURLU_NON_SUPPORT_SCHEME);
  if (code == CURLUE_OUT_OF_MEMORY) throw std::bad_alloc();
  if (code != CURLUE_OK) return std::nullopt;
  return URLParts{part(parsed.get(), CURLUPART_USER),  part(parsed.get(), CURLUPART_HOST),
                  part(parsed.get(), CURLUPART_PORT),  part(parsed.get(), CURLUPART_PATH),
                  part(parsed.get(), CURLUPART_QUERY), part(parsed.get(), CURLUPART_FRAGMENT)};
}

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
