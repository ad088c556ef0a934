#include "platform/posix/device/clock_and_random.h"

#include <time.h>
#include <unistd.h>

#include <random>

namespace veltrano::internal {

// Each call of `track` reads it. Through the standard library it would take two more steps.
[[gnu::hot]] WallTime PosixClock::now() const {
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  return {std::chrono::seconds(now.tv_sec) + std::chrono::microseconds(now.tv_nsec / 1000)};
}

Duration PosixClock::elapsed() const {
  return std::chrono::floor<Duration>(std::chrono::steady_clock::now().time_since_epoch());
}

std::chrono::seconds PosixClock::localTimeOffset(WallTime instant) const {
  const time_t seconds = std::chrono::floor<std::chrono::seconds>(instant.sinceEpoch).count();
  tm local = {};
  if (localtime_r(&seconds, &local) == nullptr) return std::chrono::seconds(0);
  return std::chrono::seconds(local.tm_gmtoff);
}

RandomBytes PosixRandomSource::bytes() {
  // Reads the kernel directly, so no library is initialised on the host's main thread.
  RandomBytes bytes;
  if (getentropy(bytes.data(), bytes.size()) == 0) return bytes;
  std::random_device device;
  for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(device());
  return bytes;
}

}  // namespace veltrano::internal
