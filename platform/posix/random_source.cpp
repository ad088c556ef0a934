#include "platform/posix/random_source.h"

#include <openssl/crypto.h>
#include <openssl/rand.h>

#include <random>

namespace veltrano {

RandomBytes PosixRandomSource::bytes() {
  // Without OpenSSL's clean-up at exit, which other threads would not survive.
  static const bool isReady = OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr) == 1;
  RandomBytes bytes;
  if (isReady && RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) == 1) return bytes;
  std::random_device device;
  for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(device());
  return bytes;
}

}  // namespace veltrano
