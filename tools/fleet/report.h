// The results of a run, for people and for scripts.
#pragma once

#include <iosfwd>

#include "tools/fleet/fleet.h"

namespace fleet {

/// A table of the whole run.
void writeTable(std::ostream& output, const Scenario& scenario, const Outcome& outcome);

/// All measurements over time, one line per interval.
void writeCSV(std::ostream& output, const Scenario& scenario, const Outcome& outcome);

}  // namespace fleet
