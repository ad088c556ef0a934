// Plays mutated scenarios back to back with one library, as in a host: each scenario starts in the
// state that the previous one left. What happens keeps to the laws of traces.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

#include "tests/support/trace_laws.h"
#include "tools/replay/simulated_run.h"
#include "veltrano/veltrano.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static auto& laws = *new TraceLaws;
  static auto& player = *new replay::SimulatedPlayer(
      [](std::string_view line) {
        const std::string broken = laws.take(line);
        if (broken.empty()) return;
        std::fprintf(stderr, "%s:\n%.*s", broken.c_str(), int(line.size()), line.data());
        std::abort();
      },
      replay::Bodies::decoded);
  Veltrano::isLoggerEnabled = true;
  laws.mayJump = true;

  const std::string text(reinterpret_cast<const char*>(data), size);
  if (text.find("enableLog") != text.npos) return -1;
  std::istringstream lines(text);
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
  Veltrano::shared().setCollecting(true);
  return 0;
}
