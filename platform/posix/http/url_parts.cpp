#include "platform/posix/http/url_parts.h"

#include <curl/curl.h>

#include <memory>
#include <new>

namespace veltrano::internal {
namespace {

std::string part(CURLU* url, CURLUPart which) {
  char* text = nullptr;
  const CURLUcode code = curl_url_get(url, which, &text, 0);
  const std::unique_ptr<char, void (*)(void*)> owner(text, curl_free);
  if (code == CURLUE_OUT_OF_MEMORY) throw std::bad_alloc();
  return code == CURLUE_OK ? text : "";
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

}  // namespace veltrano::internal
