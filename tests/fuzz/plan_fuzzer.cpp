// Fuzzes tracking plans: a plan is refused, or everything can be made of it. What follows the plan,
// after a zero byte, is sent as the properties of its first event.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "tools/plan/commands.h"
#include "tools/plan/generate.h"

using namespace veltrano::planning;

namespace {

// What is inferred is sound, and what it was inferred of is as planned.
void checkInferred(const std::string& record) {
  std::vector<std::string> leftOut;
  Checked checked;
  try {
    const std::string plan = inferred("{\"body\":[" + record + "]}", "f", "inferred", leftOut);
    if (!Plan::parse(plan, "inferred").check(record, checked).empty()) std::abort();
  } catch (const Faults&) {
    std::abort();
  } catch (const std::runtime_error&) {  // no record
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::size_t end = std::min(text.find('\0'), size);
  try {
    const Plan plan = Plan::parse(text.substr(0, end), "plan");
    const Headers cpp = headersForCPP(plan), c = headersForC(plan);
    // Each event has a header, and there are those of the super properties and of all.
    const std::size_t expected = plan.events.size() + 2;
    if (cpp.size() != expected || c.size() != expected || document(plan).empty() ||
        !differences(plan, plan).empty() || coverageReport(plan, plan.coverable()).percent != 100)
      std::abort();
    if (plan.events.empty() || end == size) return 0;
    Checked checked;
    const std::string properties = text.substr(end + 1);
    const std::string record =
        "{\"event\":" + inQuotes(plan.events[0].name) + ",\"properties\":{" + properties + "}}";
    plan.check(record, checked);
    for (const std::string& item : checked.covered)
      if (plan.coverable().count(item) == 0) std::abort();
    checkInferred(record);
  } catch (const Faults& faults) {
    if (std::string(faults.what()).find(':') == std::string::npos) std::abort();
  } catch (const std::runtime_error&) {  // no record
  }
  return 0;
}
