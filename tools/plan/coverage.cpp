#include <algorithm>

#include "tools/plan/commands.h"

namespace veltrano::planning {

CoverageReport coverageReport(const Plan& plan, const Coverage& covered) {
  struct Kind {
    char mark;
    const char* json;
    const char* english;
  };
  constexpr Kind kKinds[] = {{'e', "events", " events"},
                             {'p', "optionalProperties", " optional properties"},
                             {'v', "values", " values of enumerations"}};
  CoverageReport report;
  const Coverage coverable = plan.coverable();
  std::size_t allCovered = 0;
  for (const auto& [mark, json, english] : kKinds) {
    std::size_t count = 0, never = 0;
    std::string names, list;
    for (const std::string& item : coverable) {
      if (item[0] != mark) continue;
      ++count;
      if (covered.count(item) > 0) continue;
      names += (never > 0 ? ", " : ", never tested: ") + item.substr(1);
      list += (never++ > 0 ? "," : "") + quoted(item.substr(1));
    }
    allCovered += count - never;
    report.text += std::to_string(count - never) + " of " + std::to_string(count) + english +
                   (never > 0 ? ", " + std::to_string(never) + names.substr(1) : "") + '\n';
    report.json += (report.json.empty() ? "{" : ",") + quoted(json) +
                   ":{\"covered\":" + std::to_string(count - never) +
                   ",\"planned\":" + std::to_string(count) + ",\"neverTested\":[" + list + "]}";
  }
  report.percent = coverable.empty() ? 100
                                     : 100.0 * static_cast<double>(allCovered) /
                                           static_cast<double>(coverable.size());
  const std::string percent = std::to_string(static_cast<int>(report.percent));  // rounded down
  report.text += percent + " % of the plan\n";
  report.json += ",\"percent\":" + numberText(report.percent) + "}\n";
  return report;
}

}  // namespace veltrano::planning
