// A host that only installs the platform and calls `shared`. Prints the nanoseconds that each took,
// and before them those of starting OpenSSL and libcurl, which is left to the installation
// otherwise.
#include <curl/curl.h>
#include <openssl/rand.h>
#include <openssl/ssl.h>

#include <chrono>
#include <cstdio>

#include "veltrano/posix_platform.h"
#include "veltrano/veltrano.h"

namespace {

using Clock = std::chrono::steady_clock;

long long nanoseconds(Clock::duration duration) {
  return std::chrono::nanoseconds(duration).count();
}

bool startTLS() {
  unsigned char byte = 0;
  if (OPENSSL_init_ssl(0, nullptr) != 1 || RAND_bytes(&byte, 1) != 1 ||
      RAND_priv_bytes(&byte, 1) != 1)
    return false;
  SSL_CTX* const context = SSL_CTX_new(TLS_client_method());
  SSL_CTX_free(context);
  return context != nullptr && curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
}

}  // namespace

int main() {
  veltrano::PosixOptions options;
  options.collectionHost = "events.example.com";
  const auto begin = Clock::now();
  if (!startTLS()) return 1;
  const auto start = Clock::now();
  if (!veltrano::PosixPlatform::install(std::move(options))) return 1;
  const auto installed = Clock::now();
  Veltrano::shared();
  const auto touched = Clock::now();
  std::printf("%lld %lld %lld\n", nanoseconds(start - begin), nanoseconds(installed - start),
              nanoseconds(touched - installed));
  return 0;
}
