#pragma once

#include <memory>

#include "tools/replay/scenario.h"

namespace replay {

/// Plays scenarios in virtual time, with a library on the simulated platform. Installs it as the
/// process's library for good.
class SimulatedPlayer {
 public:
  /// Passes the lines of the trace to `write`.
  SimulatedPlayer(const Trace::Write& write, Bodies bodies);

  /// Plays a scenario, starting now. False when it ran away: one step caused so much to happen that
  /// it would never end.
  bool play(const Scenario& scenario);

 private:
  class SimulatedEnvironment;

  SimulatedEnvironment& environment_;
};

}  // namespace replay
