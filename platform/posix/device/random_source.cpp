#include "platform/posix/device/random_source.h"

#include <unistd.h>

#include <random>

namespace veltrano {

RandomBytes PosixRandomSource::bytes() {
  // The kernel's own, which takes no library to be set up on the host's main thread.
  RandomBytes bytes;
  if (getentropy(bytes.data(), bytes.size()) == 0) return bytes;
  std::random_device device;
  for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(device());
  return bytes;
}

}  // namespace veltrano
