#include "platform/posix/http/tls_start.h"

#include <curl/curl.h>
#include <openssl/crypto.h>
#include <openssl/decoder.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/rand.h>
#include <openssl/ssl.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <system_error>

namespace veltrano::internal {
namespace {

// OpenSSL runs each initialisation step once; one that runs out of memory fails permanently, and
// then no transfer of the process succeeds. So while it starts, which takes up to 350 KB, memory is
// held back for it: what the C library cannot allocate, it can once that is freed.
constexpr std::size_t kReserve = std::size_t{512} << 10;
std::atomic<char*> reserve{nullptr};

template <class Allocate>
void* allocateSurely(Allocate allocate) {
  void* const block = allocate();
  if (block != nullptr) return block;
  delete[] reserve.exchange(nullptr);
  return allocate();
}

void* allocate(std::size_t size, const char*, int) {
  return size > 0 ? allocateSurely([=] { return std::malloc(size); }) : nullptr;
}

void release(void* block, const char*, int) {
  std::free(block);
}

void* reallocate(void* block, std::size_t size, const char*, int) {
  if (size > 0) return allocateSurely([=] { return std::realloc(block, size); });
  std::free(block);
  return nullptr;
}

// Lets OpenSSL allocate surely. False if it has blocks of its own functions, or the host's,
// already.
bool allocatesSurely() {
  CRYPTO_malloc_fn current = nullptr;
  CRYPTO_get_mem_functions(&current, nullptr, nullptr);
  return current == CRYPTO_malloc && CRYPTO_set_mem_functions(allocate, reallocate, release) == 1;
}

// Those that the first handshake would load, all of a kind at a time.
void loadAlgorithms() {
  EVP_KDF_do_all_provided(
      nullptr, [](EVP_KDF*, void*) {}, nullptr);
  EVP_KEYEXCH_do_all_provided(
      nullptr, [](EVP_KEYEXCH*, void*) {}, nullptr);
  EVP_MAC_do_all_provided(
      nullptr, [](EVP_MAC*, void*) {}, nullptr);
  EVP_SIGNATURE_do_all_provided(
      nullptr, [](EVP_SIGNATURE*, void*) {}, nullptr);
  OSSL_DECODER_do_all_provided(
      nullptr, [](OSSL_DECODER*, void*) {}, nullptr);
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
  loadAlgorithms();
  return context != nullptr && curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
}

}  // namespace

void startTLS() {
  static auto& mutex = *new std::mutex;
  static bool isStarted = false;  // guarded by mutex
  const std::lock_guard lock(mutex);
  if (isStarted) return;
  reserve = new char[kReserve];
  const bool isSure = allocatesSurely();
  if (!isSure) delete[] reserve.exchange(nullptr);
  ERR_set_mark();  // keeps the host's errors of this thread
  isStarted = works();
  ERR_pop_to_mark();
  if (isSure) CRYPTO_set_mem_functions(CRYPTO_malloc, CRYPTO_realloc, CRYPTO_free);
  delete[] reserve.exchange(nullptr);
  if (!isStarted) throw std::system_error(ENOMEM, std::generic_category(), "OpenSSL cannot start");
}

}  // namespace veltrano::internal
