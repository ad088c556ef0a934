// Many applications against one collection host, in virtual time.
#pragma once

#include <cstdint>

#include "tools/fleet/measurements.h"
#include "tools/fleet/scenario.h"

namespace fleet {

struct Outcome {
  Measurements measurements;
  std::uint64_t tracked = 0;            // by the applications themselves
  std::uint64_t arrived = 0;            // events that the host has read
  std::uint64_t heartbeatFailures = 0;  // of these, those by which the library reports one
  bool isBalanced = true;               // whether the statistics of each application add up, and
                           // all that was delivered arrived, at the end of each interval
};

/// Runs the scenario, the same way each time.
Outcome run(const Scenario& scenario);

}  // namespace fleet
