#include "tools/fleet/fleet.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <vector>

#include "tools/fleet/application.h"
#include "tools/fleet/collection_host.h"

namespace fleet {

using veltrano::Statistics;

namespace {

// Longer than the final flush and the upload before it can take together.
constexpr Duration kMaxEndTime = std::chrono::minutes(5);

void add(Statistics& sum, const Statistics& one) {
  // They consist of counts.
  using Counts = std::array<std::uint64_t, sizeof(Statistics) / sizeof(std::uint64_t)>;
  auto counts = std::bit_cast<Counts>(sum);
  const auto more = std::bit_cast<Counts>(one);
  std::ranges::transform(counts, more, counts.begin(), std::plus());
  sum = std::bit_cast<Statistics>(counts);
}

bool isBalanced(const Statistics& s) {
  return s.recorded == s.waiting + s.inFlight + s.delivered + s.dropped();
}

}  // namespace

Outcome run(const Scenario& scenario) {
  Outcome outcome{Measurements(scenario.resolution)};
  CollectionHost host(scenario.host, outcome.measurements);
  const auto timeline = std::make_shared<veltrano::internal::Timeline>();
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
    for (const auto& application : applications) {
      const Statistics statistics = application->statistics();
      outcome.isBalanced = outcome.isBalanced && isBalanced(statistics);
      add(all, statistics);
      inForeground += application->isInForeground();
    }
    outcome.isBalanced = outcome.isBalanced && host.events() == all.delivered;
    outcome.measurements.endInterval(all, inForeground);
  }
  for (const auto& application : applications) outcome.tracked += application->tracked();
  outcome.arrived = host.events();
  outcome.heartbeatFailures = host.heartbeatFailures();

  // Ends all use first: a library may only be destroyed once nothing of it runs.
  for (const auto& application : applications) application->end();
  runUntil(scenario.length + kMaxEndTime);
  return outcome;
}

}  // namespace fleet
