// Many applications against one collection server, in virtual time.
#pragma once

#include <cstdint>

#include "tools/fleet/measurements.h"
#include "tools/fleet/scenario.h"

namespace fleet {

struct Outcome {
  Measurements measurements;
  std::uint64_t tracked = 0;            // by the applications themselves
  std::uint64_t arrived = 0;            // events that the server read
  std::uint64_t heartbeatFailures = 0;  // how many of these report a failed heartbeat

  /// At the end of each interval, the statistics of each application added up, and the server had
  /// read as many events as the libraries had delivered.
  bool isBalanced = true;
};

/// Runs the scenario. Deterministic.
Outcome run(const Scenario& scenario);

}  // namespace fleet
