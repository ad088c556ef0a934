#include "platform/posix/device/clock.h"

#include <time.h>

namespace veltrano {

WallTime PosixClock::now() const {
  return {std::chrono::floor<Duration>(std::chrono::system_clock::now().time_since_epoch())};
}

std::chrono::seconds PosixClock::localTimeOffset(WallTime instant) const {
  const time_t seconds = std::chrono::floor<std::chrono::seconds>(instant.sinceEpoch).count();
  tm local = {};
  if (localtime_r(&seconds, &local) == nullptr) return std::chrono::seconds(0);
  return std::chrono::seconds(local.tm_gmtoff);
}

}  // namespace veltrano
