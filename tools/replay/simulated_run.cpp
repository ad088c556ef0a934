#include "tools/replay/simulated_run.h"

#include "encoding/json_text.h"
#include "platform/simulated/simulated_platform.h"
#include "tracker/library.h"

namespace replay {

using namespace veltrano::internal;

class SimulatedPlayer::SimulatedEnvironment final : public Environment {
 public:
  SimulatedEnvironment(const Trace::Write& write, Bodies bodies)
      : trace_([this] { return platform_.timeline.now(); }, write, bodies) {
    platform_.output.onLine = [this](std::string_view line) { trace_.add("log", json(line)); };
    platform_.network.onPost = [this](const auto& request) { trace_.addPost(request); };
    platform_.defaults.onWrite = [this](const auto& key, double value) {
      trace_.addDefault(key, value);
    };
  }

  SimulatedPlatform& platform() { return platform_; }
  Library& library() { return library_; }

  void configure(const Configuration& configuration) {
    platform_.clock.start = configuration.startTime;
    platform_.device.change([&](DeviceFacts& facts) { facts = configuration.device; });
    platform_.bundles = configuration.bundles;
    platform_.defaults.values.insert(configuration.defaults.begin(), configuration.defaults.end());
  }

  Trace& trace() override { return trace_; }

  void change(const DeviceChange& change) override { platform_.device.change(change); }
  void postNotification(const std::string& name) override {
    platform_.notificationCenter.post(name);
  }
  void setAnswer(const std::string& path, const SimulatedAnswer& answer) override {
    platform_.network.answers[path] = answer;
  }
  void jumpClock(Duration distance) override { platform_.clock.jump(distance); }

  void runWithoutRunLoop(const std::function<void()>& action) override {
    platform_.timers.threadRunsRunLoop = false;
    action();
    platform_.timers.threadRunsRunLoop = true;
  }

 private:
  SimulatedPlatform platform_;
  Trace trace_;
  Library library_{platform_.services()};
};

SimulatedPlayer::SimulatedPlayer(const Trace::Write& write, Bodies bodies)
    : environment_(*new SimulatedEnvironment(write, bodies)) {
  Library::exchangeCurrent(&environment_.library());
}

bool SimulatedPlayer::play(const Scenario& scenario) {
  environment_.configure(scenario.configuration);
  Timeline& timeline = environment_.platform().timeline;
  const auto start = timeline.begin();
  for (const Step& step : scenario.steps)
    timeline.addStep(start + step.at, [&] {
      for (const Action& action : step.actions) action(environment_);
      if (step.isEnd) timeline.stop();
    });
  const auto last = scenario.steps.empty() ? Duration::zero() : scenario.steps.back().at;
  const auto end = start + last + std::chrono::hours(1);
  timeline.addStep(end, [&] { timeline.stop(); });
  timeline.runUntil(end);
  return !timeline.isRunaway();
}

}  // namespace replay
