#include "log/log.h"

#include <cstdio>

namespace veltrano::internal {
namespace {

// A local time as "HH:mm:ss.SSSS", truncated.
std::string timeOfDay(Duration instant) {
  namespace chrono = std::chrono;
  const auto day = chrono::floor<chrono::days>(instant);
  const chrono::hh_mm_ss time{instant - day};
  char text[32];
  std::snprintf(text, sizeof text, "%02d:%02d:%02d.%04d", static_cast<int>(time.hours().count()),
                static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()),
                static_cast<int>(time.subseconds().count() / 100));
  return text;
}

}  // namespace

void Log::write(const std::string& message) const {
  const WallTime now = clock_.now();
  const Duration local = now.sinceEpoch + clock_.localTimeOffset(now);
  output_.writeLine("Veltrano " + timeOfDay(local) + " | " + message);
}

}  // namespace veltrano::internal
