#include "platform/posix/http/option_checks.h"

#include <arpa/inet.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <algorithm>
#include <charconv>
#include <memory>

#include "platform/posix/http/request_text.h"
#include "platform/posix/http/tls_start.h"

namespace veltrano::internal {
namespace {

bool isName(std::string_view text) {
  constexpr std::size_t kMaxLength = 253;
  return !text.empty() && text.size() <= kMaxLength && isLetterOrDigit(text.front()) &&
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

bool isDigest(std::string_view text) {
  // 32 bytes in Base64. The last digit before the padding holds only four bits.
  return text.size() == 44 && text.back() == '=' &&
         std::string_view("AEIMQUYcgkosw048").find(text[42]) != std::string_view::npos &&
         std::all_of(text.begin(), text.end() - 1,
                     [](char c) { return isLetterOrDigit(c) || c == '+' || c == '/'; });
}

bool isCertificate(std::string_view pemName) {
  return pemName == PEM_STRING_X509 || pemName == PEM_STRING_X509_OLD ||
         pemName == PEM_STRING_X509_TRUSTED;
}

bool isSoundCertificate(const unsigned char* der, long size) {
  X509* const certificate = d2i_X509(nullptr, &der, size);
  X509_free(certificate);
  return certificate != nullptr;
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

bool holdsCertificates(const std::string& pem) {
  startTLS();
  const std::unique_ptr<BIO, int (*)(BIO*)> bytes(
      BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())), BIO_free);
  ERR_set_mark();  // keeps the host's errors of this thread
  int certificates = 0;
  bool isSound = bytes != nullptr;
  char *name = nullptr, *header = nullptr;
  unsigned char* der = nullptr;
  long size = 0;
  while (isSound && PEM_read_bio(bytes.get(), &name, &header, &der, &size) == 1) {
    if (isCertificate(name)) {
      ++certificates;
      isSound = isSoundCertificate(der, size);
    }
    OPENSSL_free(name);
    OPENSSL_free(header);
    OPENSSL_free(der);
  }
  isSound = isSound && ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE;  // the end
  ERR_pop_to_mark();
  return isSound && certificates > 0;
}

bool isProxy(std::string_view text) {
  constexpr std::string_view kScheme = "http://";
  if (text.substr(0, kScheme.size()) != kScheme) return false;
  text.remove_prefix(kScheme.size());
  const auto colon = text.rfind(':');
  return colon != std::string_view::npos && isPort(text.substr(colon + 1)) &&
         isCollectionHost(text);
}

bool isPublicKeyPin(std::string_view text) {
  constexpr std::string_view kPrefix = "sha256//";
  for (;;) {
    const auto end = std::min(text.find(';'), text.size());
    const auto pin = text.substr(0, end);
    if (pin.substr(0, kPrefix.size()) != kPrefix || !isDigest(pin.substr(kPrefix.size())))
      return false;
    if (end == text.size()) return true;
    text.remove_prefix(end + 1);
  }
}

}  // namespace veltrano::internal
