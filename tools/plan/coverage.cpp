#include <tuple>

#include "tools/plan/commands.h"

namespace veltrano::planning {
namespace {

std::string shown(const std::string& item) {
  std::string text;
  for (auto c = item.begin() + 1; c != item.end(); ++c)
    text += *c != '\t' ? *c : c[1] == '=' ? ' ' : '.';
  return text;
}

}  // namespace

CoverageReport coverageReport(const Plan& plan, const Coverage& covered) {
  CoverageReport report;
  internal::JSONMembers kinds;
  std::size_t seen = 0;
  const Coverage coverable = plan.coverable();
  for (const auto& [mark, json, english] : {std::tuple('e', "events", " events"),
                                            {'p', "optionalProperties", " optional properties"},
                                            {'v', "values", " values of enumerations"}}) {
    std::size_t count = 0;
    std::vector<std::string> never;
    for (const std::string& item : coverable) {
      count += item[0] == mark;
      if (item[0] == mark && covered.count(item) == 0) never.push_back(shown(item));
    }
    seen += count - never.size();
    const std::string tested = std::to_string(count - never.size());
    const std::string planned = std::to_string(count);
    report.text.append(tested).append(" of ").append(planned).append(english);
    if (!never.empty()) report.text += ", " + std::to_string(never.size()) + " never tested";
    for (const std::string& name : never) report.text += (&name == &never[0] ? ": " : ", ") + name;
    report.text += '\n';
    kinds.emplace_back(json, internal::jsonObject({{"covered", tested},
                                                   {"planned", planned},
                                                   {"neverTested", internal::jsonTexts(never)}}));
  }
  if (!coverable.empty())
    report.percent = 100.0 * static_cast<double>(seen) / static_cast<double>(coverable.size());
  report.text += std::to_string(static_cast<int>(report.percent)) + " % of the plan\n";
  kinds.emplace_back("percent", numberText(report.percent));
  report.json = internal::jsonObject(kinds) + '\n';
  return report;
}

}  // namespace veltrano::planning
