#pragma once

#include "platform/simulated/simulated_platform.h"
#include "tools/replay/scenario.h"
#include "tracker/library.h"

namespace replay {

/// Plays scenarios in virtual time, with a library on the simulated platform. Installs it as the
/// process's library for good, so it is never destroyed.
class SimulatedPlayer final : private Environment {
 public:
  /// Passes the lines of the trace to `write`.
  SimulatedPlayer(const Trace::Write& write, Bodies bodies);

  /// Plays a scenario, starting now. False when it ran away: one step caused so much to happen that
  /// it would never end.
  bool play(const Scenario& scenario);

 private:
  Trace& trace() override { return trace_; }
  void change(const veltrano::internal::DeviceChange& change) override {
    platform_.device.change(change);
  }
  void postNotification(const std::string& name) override {
    platform_.notificationCenter.post(name);
  }
  void setAnswer(const std::string& path,
                 const veltrano::internal::SimulatedAnswer& answer) override {
    platform_.network.answers[path] = answer;
  }
  void jumpClock(veltrano::internal::Duration distance) override { platform_.clock.jump(distance); }
  void runWithoutRunLoop(const std::function<void()>& action) override;

  veltrano::internal::SimulatedPlatform platform_;
  Trace trace_;
  veltrano::internal::Library library_{platform_.services()};
};

}  // namespace replay
