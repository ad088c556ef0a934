#include "tools/fleet/fleet.h"

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <vector>

#include "tools/fleet/application.h"
#include "tools/fleet/collection_host.h"

namespace fleet {

namespace {

// Longer than the final flush and the upload before it can take together.
constexpr Duration kMaxEndTime = std::chrono::minutes(5);

}  // namespace

Outcome run(const Scenario& scenario) {
  Outcome outcome{Measurements(scenario.resolution)};
  CollectionHost host(scenario.host, scenario.seed, outcome.measurements);
  const auto timeline = std::make_shared<Timeline>();
  std::vector<std::unique_ptr<Application>> applications;
  applications.reserve(static_cast<std::size_t>(scenario.applications));
  for (int number = 0; number < scenario.applications; ++number)
    applications.push_back(std::make_unique<Application>(number, scenario, timeline, host));

  const auto runUntil = [&](Duration time) {
    if (!timeline->runUntil(time)) throw std::runtime_error("the simulation runs away");
  };
  for (Duration now = scenario.resolution; now <= scenario.length; now += scenario.resolution) {
    runUntil(now);
    Statistics all;
    std::uint64_t inForeground = 0;
    std::uint64_t lost = 0;
    for (const auto& application : applications) {
      outcome.isBalanced &= application->addTo(all);
      inForeground += application->isInForeground();
      lost += application->lost();
    }
    outcome.isBalanced &= host.events() == all.delivered;
    outcome.measurements.endInterval(all, inForeground, lost);
  }
  for (const auto& application : applications) {
    outcome.tracked += application->tracked();
    application->closeConnections();
  }
  outcome.arrived = host.events();
  outcome.heartbeatFailures = host.heartbeatFailures();

  // Ends all use first: a library may only be destroyed once nothing of it runs.
  for (const auto& application : applications) application->end();
  runUntil(scenario.length + kMaxEndTime);
  return outcome;
}

}  // namespace fleet
