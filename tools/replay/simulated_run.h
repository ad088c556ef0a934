#pragma once

#include <memory>

#include "tools/replay/scenario.h"

namespace replay {

/// A library on the simulated platform as the stage of scenarios, in virtual time. Makes that the
/// process's library until the process ends.
class SimulatedWorld {
 public:
  /// Hands the lines of the trace to `write`.
  SimulatedWorld(const Trace::Write& write, Bodies bodies);

  /// Plays a scenario, beginning now. False when it ran away: when so much happened after one step
  /// that it would never end.
  bool play(const Scenario& scenario);

 private:
  class SimulatedStage;

  SimulatedStage& stage_;
};

}  // namespace replay
