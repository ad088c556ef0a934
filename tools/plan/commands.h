// The commands of veltrano-plan, as far as they do more than read a plan.
#pragma once

#include <string>
#include <vector>

#include "plan/plan.h"

namespace veltrano::planning {

/// The differences between two plans from the view of those who read the data, a line each, which
/// starts with "breaking: " or "compatible: ".
std::vector<std::string> differences(const Plan& older, const Plan& newer);

/// The plan as Markdown.
std::string document(const Plan& plan);

/// A plan for what a collector has written to the file, as lines of JSON. What is doubtful is
/// marked in "$comment"; what no plan can hold is left out and set as `leftOut`. Throws
/// `std::runtime_error` for a line that no collector writes, and if there are no events.
std::string inferred(const std::string& lines, const std::string& file,
                     const std::string& nameSpace, std::vector<std::string>& leftOut);

struct CoverageReport {
  std::string text;
  std::string json;
  double percent = 100;
};
CoverageReport coverageReport(const Plan& plan, const Coverage& covered);

}  // namespace veltrano::planning
