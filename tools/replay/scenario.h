#pragma once

#include <functional>
#include <istream>
#include <vector>

#include "tools/replay/json_text.h"
#include "tools/replay/stage.h"

namespace replay {

/// Something that happens. Returns false to end the run.
using Action = std::function<bool(Stage&)>;

struct Step {
  veltrano::internal::Duration at{0};
  Action action;
};

struct Scenario {
  Configuration configuration;
  std::vector<Step> steps;  // ordered by time
  bool hasEnd = false;      // whether one of them ends the run
};

enum class World { simulated, live };

/// Reads a scenario for one of the two worlds, as JSON Lines. Throws ScenarioError, with the line
/// number in its message, when a step is malformed.
Scenario readScenario(std::istream& lines, World world);

}  // namespace replay
