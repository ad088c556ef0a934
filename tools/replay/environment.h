#pragma once

#include <functional>
#include <map>
#include <string>

#include "platform/simulated/simulated_platform.h"
#include "tools/replay/trace.h"

namespace replay {

/// The initial state of the platform.
struct Configuration {
  veltrano::internal::Duration startTime = std::chrono::seconds(1'700'000'000);
  veltrano::internal::DeviceFacts device = veltrano::internal::SimulatedDevice::phoneInPortrait();
  veltrano::internal::SimulatedBundles bundles;
  std::map<std::string, double> defaults;
};

/// The outside world of a scenario. Used on the main thread.
class Environment {
 public:
  virtual ~Environment() = default;

  virtual Trace& trace() = 0;

  virtual void change(const veltrano::internal::DeviceChange& change) = 0;
  virtual void postNotification(const std::string& name) = 0;
  virtual void setAnswer(const std::string& path,
                         const veltrano::internal::SimulatedAnswer& answer) = 0;
  virtual void jumpClock(veltrano::internal::Duration distance) = 0;

  /// Runs `action` on a thread that runs no run loop.
  virtual void runWithoutRunLoop(const std::function<void()>& action) = 0;
};

}  // namespace replay
