// What a run says to people and to scripts.
#pragma once

#include <filesystem>
#include <iosfwd>

#include "tools/fleet/fleet.h"

namespace fleet {

/// A table of the whole run.
void writeTable(std::ostream& output, const Scenario& scenario, const Outcome& outcome);

/// Everything over time, a line for each interval.
void writeCSV(std::ostream& output, const Outcome& outcome);

/// Writes `intervals.csv` and the plots into `directory`, which it makes if need be. Throws
/// std::runtime_error when it cannot.
void writeFiles(const std::filesystem::path& directory, const Scenario& scenario,
                const Outcome& outcome);

}  // namespace fleet
