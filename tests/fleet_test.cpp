// Many libraries in one process, against a simulated collection server.
#include "tools/fleet/fleet.h"

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>

#include "tools/fleet/report.h"

namespace fleet {
namespace {

using namespace std::chrono_literals;

// So busy that more than 200 events wait in the outage.
Scenario smallFleet() {
  Scenario scenario;
  scenario.applications = 20;
  scenario.length = 2h;
  scenario.resolution = 1min;
  scenario.usage.sessionsPerDay = 12;
  scenario.usage.sessionLength = 1h;
  scenario.usage.eventsPerMinute = 6;
  scenario.host.outages = {{20min, 50min}};
  return scenario;
}

// Everything that a run writes.
std::string everythingOf(const Scenario& scenario) {
  const Outcome outcome = run(scenario);
  std::ostringstream text;
  writeTable(text, scenario, outcome);
  writeCSV(text, scenario, outcome);
  return text.str();
}

TEST(Fleet, ARunRepeatsToTheByte) {
  Scenario scenario = smallFleet();
  const std::string first = everythingOf(scenario);
  EXPECT_EQ(everythingOf(scenario), first);
  scenario.seed = 2;
  EXPECT_NE(everythingOf(scenario), first);
}

class FleetAndFailingServer : public testing::TestWithParam<const char*> {};

TEST_P(FleetAndFailingServer, EveryEventIsAccountedFor) {
  Scenario scenario = smallFleet();
  scenario.host.outage = scenario.host.overload = parseFailure(GetParam());
  scenario.host.capacity = 1;  // less than they need
  const Outcome outcome = run(scenario);
  EXPECT_TRUE(outcome.isBalanced);
  const Interval total = outcome.measurements.total();
  const auto& end = total.atEnd;
  EXPECT_EQ(end.delivered, outcome.arrived);
  EXPECT_EQ(end.delivered, total.deliveredEvents);
  // Events tracked during an upload are recorded when it ends.
  EXPECT_LE(end.recorded, outcome.tracked + end.heartbeatsFailed + end.heartbeatsPutOff);
  EXPECT_GT(end.recorded, outcome.tracked / 2);
  EXPECT_GT(end.delivered, 0U);
  const bool isRefused = std::string(GetParam()) == "400";
  EXPECT_EQ(end.droppedAsRefused > 0, isRefused);
  EXPECT_EQ(end.droppedByTrimming > 0, !isRefused);

  const auto accepted = total.requests[kTrack].accepted + total.requests[kHeartbeat].accepted;
  EXPECT_GT(accepted, 54 * 60U);  // most of the capacity of the other 90 minutes
  EXPECT_LE(accepted, 91 * 60U);
  for (const Interval& interval : outcome.measurements.intervals()) {
    if (interval.start < 20min || interval.start >= 50min) continue;
    EXPECT_EQ(interval.requests[kTrack].accepted + interval.requests[kHeartbeat].accepted, 0U);
  }
}

INSTANTIATE_TEST_SUITE_P(Failures, FleetAndFailingServer,
                         testing::Values("503", "500", "400", "silence", "refused", "unreachable"));

TEST(Fleet, TheServerSlowsHeartbeatsDownAndRestsInAnOutage) {
  Scenario scenario = smallFleet();
  const auto heartbeats = [&](Duration from, Duration to) {
    scenario.length = to;
    const Outcome outcome = run(scenario);
    double count = 0;
    for (const Interval& interval : outcome.measurements.intervals())
      if (interval.start >= from) count += double(interval.requests[kHeartbeat].received);
    return count;
  };
  const double usual = heartbeats(5min, 20min);
  const double inOutage = heartbeats(25min, 40min);
  EXPECT_LT(inOutage, usual / 5);
  scenario.host.backOff = 60s;
  EXPECT_LT(heartbeats(5min, 20min), usual / 2);
  scenario.host.backOffAbove = 1;  // never reached
  EXPECT_EQ(heartbeats(5min, 20min), usual);
  scenario.host.retryAfter = 20min;
  EXPECT_LT(heartbeats(25min, 40min), inOutage / 2);
}

TEST(Fleet, WhatWaitsInAProcessThatEndsIsLostAndCounted) {
  Scenario scenario = smallFleet();
  scenario.usage.crashShare = 0.2;
  scenario.usage.endShare = 0.5;
  const Outcome outcome = run(scenario);
  EXPECT_TRUE(outcome.isBalanced);
  const Interval total = outcome.measurements.total();
  const auto& end = total.atEnd;
  EXPECT_GT(total.lostUntilEnd, 0U);
  const auto made = outcome.tracked + end.heartbeatsFailed + end.heartbeatsPutOff;
  const auto told = end.waiting + end.inFlight + end.delivered + end.dropped() + total.lostUntilEnd;
  EXPECT_LE(told, made);
  EXPECT_LE(made, told + 20 * 10);  // calls that nobody has read yet
}

TEST(Fleet, ASmallShareFailsAndConnectionsStayOpen) {
  Scenario scenario = smallFleet();
  scenario.host.outages.clear();
  const auto totalWith = [&](double requests, double servers, Duration keepAlive) {
    scenario.host.failingRequests = requests;
    scenario.host.failingServers = servers;
    scenario.host.keepAlive = keepAlive;
    return run(scenario).measurements.total();
  };
  const auto failedShare = [](const Interval& total) {
    const auto& [track, heartbeat] = total.requests;
    return 1 - double(track.accepted + heartbeat.accepted) /
                   double(track.received + heartbeat.received);
  };
  const Interval usual = totalWith(0, 0, 60s);
  EXPECT_EQ(failedShare(usual), 0);
  EXPECT_NEAR(failedShare(totalWith(0.1, 0, 60s)), 0.1, 0.02);
  // Rests outlast the connections to such a server.
  EXPECT_GT(failedShare(totalWith(0, 0.5, 60s)), 0.02);
  EXPECT_LT(usual.opened, usual.requests[kTrack].received / 5);
  EXPECT_GT(totalWith(0, 0, 1s).opened, 5 * usual.opened);
}

TEST(Fleet, OptionsAreReadInFullOrNotAtAll) {
  EXPECT_EQ(parseDuration("1.5s250ms"), 1750ms);
  EXPECT_EQ(text(parseDuration("1d2h3m4s5ms")), "1d2h3m4s5ms");
  EXPECT_EQ(parseOutage("1h..1h10m").to, 70min);
  for (const char* const wrong : {"", "h", "1x", "-1", "1h-", "nan"})
    EXPECT_THROW(parseDuration(wrong), std::invalid_argument) << wrong;
  EXPECT_THROW(parseOutage("2h..1h"), std::invalid_argument);
  EXPECT_THROW(parseFailure("503 "), std::invalid_argument);
}

}  // namespace
}  // namespace fleet
