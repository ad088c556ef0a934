#include "platform/posix/http/option_checks.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <algorithm>
#include <memory>

#include "encoding/base64.h"
#include "platform/posix/http/tls_start.h"
#include "platform/posix/http/urls_and_headers.h"

namespace veltrano::internal {
namespace {

// The parts of a URL that ends after its host and port.
std::optional<URLParts> addressIn(const std::string& url) {
  const bool endsThere = url.find('\0') == std::string::npos && url.back() != '/' &&
                         url.back() != ':' && url.find("//.") == std::string::npos;
  auto parts = endsThere ? partsOf(url) : std::nullopt;
  const bool isAddress = parts && !parts->host.empty() && parts->path == "/" &&
                         parts->query.empty() && parts->fragment.empty();
  return isAddress ? parts : std::nullopt;
}

}  // namespace

bool isCollectionHost(const std::string& text) {
  const auto parts = addressIn("https://" + text);
  return parts && parts->user.empty();
}

bool isProxy(const std::string& text) {
  const auto parts = addressIn(text);
  return parts && text.rfind("http://", 0) == 0 && !parts->port.empty();
}

bool holdsCertificate(const std::string& pem) {
  startTLS();
  const std::unique_ptr<BIO, int (*)(BIO*)> bytes(
      BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())), BIO_free);
  ERR_set_mark();  // keeps the host's errors of this thread
  // Without this, OpenSSL would ask the terminal.
  const auto noPassword = [](char*, int, int, void*) { return -1; };
  X509* const first =
      bytes ? PEM_read_bio_X509_AUX(bytes.get(), nullptr, noPassword, nullptr) : nullptr;
  X509_free(first);
  ERR_pop_to_mark();
  return first != nullptr;
}

bool isPublicKeyPin(std::string_view text) {
  constexpr std::string_view kPrefix = "sha256//";
  constexpr std::size_t kDigestBytes = 32;
  for (;;) {
    const auto end = std::min(text.find(';'), text.size());
    const auto pin = text.substr(0, end);
    const auto digest = pin.substr(0, kPrefix.size()) == kPrefix
                            ? decodedBase64(pin.substr(kPrefix.size()))
                            : std::nullopt;
    if (!digest || digest->size() != kDigestBytes) return false;
    if (end == text.size()) return true;
    text.remove_prefix(end + 1);
  }
}

}  // namespace veltrano::internal
