#include "tools/replay/simulated_run.h"

#include "encoding/json_text.h"

namespace replay {

using namespace veltrano::internal;

SimulatedPlayer::SimulatedPlayer(const Trace::Write& write, Bodies bodies)
    : trace_([this] { return platform_.timeline.now(); }, write, bodies) {
  platform_.output.onLine = [this](std::string_view line) { trace_.add("log", json(line)); };
  platform_.network.onPost = [this](const auto& request) { trace_.addPost(request); };
  platform_.defaults.onWrite = [this](const auto& key, double value) {
    trace_.addDefault(key, value);
  };
  Library::exchangeCurrent(&library_);
}

bool SimulatedPlayer::play(const Scenario& scenario) {
  const Configuration& configuration = scenario.configuration;
  platform_.clock.start = configuration.startTime;
  platform_.device.change([&](DeviceFacts& facts) { facts = configuration.device; });
  platform_.bundles = configuration.bundles;
  platform_.defaults.values.insert(configuration.defaults.begin(), configuration.defaults.end());

  Timeline& timeline = platform_.timeline;
  const auto start = timeline.begin();
  for (const Step& step : scenario.steps)
    timeline.addStep(start + step.at, [&] {
      for (const Action& action : step.actions) action(*this);
      if (step.isEnd) timeline.stop();
    });
  const auto last = scenario.steps.empty() ? Duration::zero() : scenario.steps.back().at;
  const auto end = start + last + std::chrono::hours(1);
  timeline.addStep(end, [&] { timeline.stop(); });
  timeline.runUntil(end);
  return !timeline.isRunaway();
}

void SimulatedPlayer::runWithoutRunLoop(const std::function<void()>& action) {
  platform_.timers.threadRunsRunLoop = false;
  action();
  platform_.timers.threadRunsRunLoop = true;
}

}  // namespace replay
