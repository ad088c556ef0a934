#include "platform/posix/http/tls_start.h"

#include <curl/curl.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/rand.h>
#include <openssl/ssl.h>

#include <array>
#include <cerrno>
#include <memory>
#include <mutex>
#include <system_error>

namespace veltrano::internal {
namespace {

// OpenSSL takes up to 350 KB. If memory runs out meanwhile, it often never works again: at 10 of 43
// amounts of memory, 8 KB apart, no transfer of the process succeeded any more. Therefore what it
// needs has to be there.
void expectMemory() {
  constexpr std::size_t kBlock = std::size_t{64} << 10;
  std::array<std::unique_ptr<char[]>, 16> blocks;
  for (auto& block : blocks) block = std::make_unique_for_overwrite<char[]>(kBlock);
}

bool works() {
  unsigned char byte = 0;
  // Exit handlers run in reverse order. If the host registered OpenSSL's, it is older than the exit
  // gate's and runs later; otherwise INIT_NO_ATEXIT keeps it from ever being registered. Without a
  // default context, OpenSSL would read through a null pointer next.
  if (OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr) != 1 ||
      OPENSSL_init_ssl(0, nullptr) != 1 || OSSL_LIB_CTX_get0_global_default() == nullptr ||
      RAND_bytes(&byte, 1) != 1 || RAND_priv_bytes(&byte, 1) != 1)
    return false;
  const std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> context(SSL_CTX_new(TLS_client_method()),
                                                             SSL_CTX_free);
  return context != nullptr && curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
}

}  // namespace

void startTLS() {
  static auto& mutex = *new std::mutex;
  static bool isStarted = false;  // guarded by mutex
  const std::lock_guard lock(mutex);
  if (isStarted) return;
  expectMemory();
  ERR_set_mark();  // keeps the host's errors of this thread
  isStarted = works();
  ERR_pop_to_mark();
  if (!isStarted) throw std::system_error(ENOMEM, std::generic_category(), "OpenSSL cannot start");
}

}  // namespace veltrano::internal
