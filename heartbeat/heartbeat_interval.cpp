#include "heartbeat/heartbeat_interval.h"

namespace veltrano {
namespace {

constexpr std::string_view kIntervalKey = "kelvora_heartbeat_interval";
constexpr double kDefaultInterval = 20;

}  // namespace

double heartbeatInterval(const UserDefaults& defaults) {
  const double stored = defaults.doubleForKey(kIntervalKey);
  return stored > 0 ? stored : kDefaultInterval;
}

void setHeartbeatInterval(UserDefaults& defaults, double seconds) {
  if (!defaults.isStored(seconds, kIntervalKey)) defaults.setDouble(seconds, kIntervalKey);
}

}  // namespace veltrano
