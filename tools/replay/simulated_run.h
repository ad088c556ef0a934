#pragma once

#include <memory>

#include "tools/replay/scenario.h"

namespace replay {

/// Plays scenarios in virtual time, with a library on the simulated platform. Installs it as the
/// process's library for good.
class SimulatedWorld {
 public:
  /// Passes the lines of the trace to `write`.
  SimulatedWorld(const Trace::Write& write, Bodies bodies);

  /// Plays a scenario, starting now. False when it ran away: one step caused so much to happen that
  /// it would never end.
  bool play(const Scenario& scenario);

 private:
  class SimulatedStage;

  SimulatedStage& stage_;
};

}  // namespace replay
