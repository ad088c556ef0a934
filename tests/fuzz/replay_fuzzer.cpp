// Plays mutated scenarios back to back with one library, as in a host: each scenario starts in the
// state that the previous one left.
#include <cstdint>
#include <sstream>
#include <string>

#include "tools/replay/simulated_run.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static auto& player =
      *new replay::SimulatedPlayer([](std::string_view) {}, replay::Bodies::decoded);

  std::istringstream lines(std::string(reinterpret_cast<const char*>(data), size));
  replay::Scenario scenario;
  try {
    scenario = replay::readScenario(lines, replay::Mode::simulated);
  } catch (const replay::ScenarioError&) {
    return -1;
  }
  // Skips long scenarios, which are repetitive: short ones find more in the same time.
  constexpr auto kMaxDuration = std::chrono::hours(1);
  if (!scenario.steps.empty() && scenario.steps.back().at > kMaxDuration) return -1;
  player.play(scenario);
  return 0;
}
