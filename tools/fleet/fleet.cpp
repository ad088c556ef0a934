#include "tools/fleet/fleet.h"

#include <cstdint>
#include <iterator>
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
  constexpr std::uint64_t Statistics::*kCounts[] = {
      &Statistics::recorded,
      &Statistics::waiting,
      &Statistics::inFlight,
      &Statistics::delivered,
      &Statistics::droppedByTrimming,
      &Statistics::droppedAsRefused,
      &Statistics::droppedAsNotEncodable,
      &Statistics::droppedForMemory,
      &Statistics::droppedByShutDown,
      &Statistics::droppedByBacklog,
      &Statistics::uploadsAttempted,
      &Statistics::uploadsSucceeded,
      &Statistics::uploadsFailedInTransport,
      &Statistics::uploadsFailedByStatus,
      &Statistics::uploadsFailedForMemory,
      &Statistics::uploadsPutOff,
      &Statistics::heartbeatsSent,
      &Statistics::heartbeatsFailed,
      &Statistics::heartbeatsPutOff,
      &Statistics::droppedByOptOut,
  };
  static_assert(sizeof(Statistics) == std::size(kCounts) * sizeof(std::uint64_t));
  for (const auto count : kCounts) sum.*count += one.*count;
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
