#include "tools/plan/commands.h"

namespace veltrano::planning {

CoverageReport coverageReport(const Plan& plan, const Coverage& covered) {
  struct Kind {
    char mark;
    const char* json;
    const char* english;
  };
  CoverageReport report;
  std::size_t seen = 0;
  const Coverage coverable = plan.coverable();
  for (const auto& [mark, json, english] : {Kind{'e', "events", " events"},
                                            {'p', "optionalProperties", " optional properties"},
                                            {'v', "values", " values of enumerations"}}) {
    std::size_t count = 0, never = 0;
    std::string names, list;
    for (const std::string& item : coverable) {
      count += item[0] == mark;
      if (item[0] != mark || covered.count(item) > 0) continue;
      names += (names.empty() ? "" : ", ") + item.substr(1);
      list += (list.empty() ? "" : ",") + inQuotes(item.substr(1));
      ++never;
    }
    seen += count - never;
    const std::string tested = std::to_string(count - never), planned = std::to_string(count);
    report.text += tested + " of " + planned + english;
    if (never > 0) report.text += ", " + std::to_string(never) + " never tested: " + names;
    report.text += '\n';
    report.json += inQuotes(json) + ":{\"covered\":" + tested + ",\"planned\":" + planned +
                   ",\"neverTested\":[" + list + "]},";
  }
  if (!coverable.empty())
    report.percent = 100.0 * static_cast<double>(seen) / static_cast<double>(coverable.size());
  report.text += std::to_string(static_cast<int>(report.percent)) + " % of the plan\n";
  report.json = '{' + report.json + "\"percent\":" + numberText(report.percent) + "}\n";
  return report;
}

}  // namespace veltrano::planning
