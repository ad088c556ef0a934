// The commands of veltrano-plan, as far as they do more than read a plan.
#pragma once

#include <string>
#include <vector>

#include "plan/plan.h"

namespace veltrano::planning {

/// The differences between two plans from the view of those who read the data, a line each, which
/// starts with "breaks: " or "fine: ".
std::vector<std::string> differences(const Plan& older, const Plan& newer);

/// The plan as Markdown.
std::string document(const Plan& plan);

/// A plan for what a collector has written, as lines of JSON. What is doubtful is marked in
/// "$comment"; what no plan can hold is left out and set as `leftOut`. Throws
/// `std::runtime_error` for lines that no collector writes.
std::string inferred(const std::string& lines, const std::string& nameSpace,
                     std::vector<std::string>& leftOut);

struct CoverageReport {
  std::string text;
  std::string json;
  double percent = 100;
};
CoverageReport coverageReport(const Plan& plan, const Coverage& covered);

}  // namespace veltrano::planning
