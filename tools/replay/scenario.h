#pragma once

#include <functional>
#include <istream>
#include <vector>

#include "tools/replay/environment.h"
#include "tools/replay/json.h"

namespace replay {

using Action = std::function<void(Environment&)>;

struct Step {
  veltrano::internal::Duration at{0};
  std::vector<Action> actions;  // several for a batch
  bool isEnd = false;           // whether the run ends after these
};

struct Scenario {
  Configuration configuration;
  std::vector<Step> steps;  // ordered by time
};

enum class Mode { simulated, live };

/// Reads a scenario, as JSON Lines. Throws ScenarioError, with the line
/// number in its message, when a step is malformed.
Scenario readScenario(std::istream& lines, Mode mode);

}  // namespace replay
