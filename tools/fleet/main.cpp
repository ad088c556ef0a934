// veltrano-fleet: how many applications at once load a collection host, in virtual time.
#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/fleet/report.h"

namespace {

using fleet::Duration;

// The smallest of these that shows a run in at most 480 intervals.
Duration resolutionFor(Duration length) {
  for (const int seconds : {1, 2, 5, 10, 15, 30, 60, 120, 180, 300, 600})
    if (length <= 480 * std::chrono::seconds(seconds)) return std::chrono::seconds(seconds);
  return std::chrono::hours(1);
}

// What the run took; not for the table, which is the same for every run.
void reportCost(const fleet::Scenario& scenario, double wallSeconds) {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const double user = static_cast<double>(usage.ru_utime.tv_sec) +
                      static_cast<double>(usage.ru_utime.tv_usec) / 1e6;
  const double hours = std::chrono::duration<double>(scenario.length).count() / 3600;
  std::fprintf(stderr,
               "simulated in %.1f s (%.1f s of processor time, %.2f ms an application and hour), "
               "%ld MB of memory at most (%.0f KB an application)\n",
               wallSeconds, user, user * 1000 / hours / scenario.applications,
               usage.ru_maxrss / 1024,
               static_cast<double>(usage.ru_maxrss) / scenario.applications);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app(
      "Simulates many applications against one collection host. Durations are written as in 90s, "
      "20m or 1h30m. A failure is a status, or silence, refused or unreachable.");
  fleet::Scenario scenario;
  fleet::Usage& usage = scenario.usage;
  fleet::HostOptions& host = scenario.host;
  std::string output;

  const auto parsed = [&app](const char* name, auto& value, const auto& parse, const char* type,
                             const char* help) {
    return app
        .add_option_function<std::string>(
            name,
            [&value, parse, name](const std::string& text) {
              try {
                value = parse(text);
              } catch (const std::invalid_argument& error) {
                throw CLI::ValidationError(name, error.what());
              }
            },
            help)
        ->type_name(type);
  };
  const auto duration = [&](const char* name, auto& value, const char* help) {
    return parsed(name, value, fleet::parseDuration, "DURATION", help);
  };
  app.option_defaults()->always_capture_default();
  app.add_option("--applications", scenario.applications, "How many there are")
      ->check(CLI::Range(1, 1'000'000));
  duration("--length", scenario.length, "How much time is simulated, rounded up to the resolution")
      ->default_str("24h");
  duration("--starts-at", scenario.startsAt, "The time of the day at the start")->default_str("0h");
  app.add_option("--seed", scenario.seed, "Makes another run of the same kind");
  duration("--resolution", scenario.resolution, "Of CSV and plots; by the length unless given");
  app.add_option("--output", output, "A directory for CSV and plots; none without it")->take_last();

  app.add_option("--sessions", usage.sessionsPerDay, "Sessions of an application a day")
      ->check(CLI::PositiveNumber);
  duration("--session-length", usage.sessionLength, "What a session lasts on average")
      ->default_str("6m");
  app.add_option("--events", usage.eventsPerMinute, "Events a minute in the foreground")
      ->check(CLI::NonNegativeNumber);
  app.add_option("--background", usage.backgroundShare,
                 "The share of the events that is recorded in the background")
      ->check(CLI::Range(0.0, 0.99));
  duration("--stored-interval", usage.storedInterval,
           "The heartbeats' interval that the applications have stored when they begin");
  app.add_option("--swing", usage.dailySwing,
                 "How much more often sessions begin at the busiest time than on average, as a "
                 "share of that")
      ->check(CLI::Range(0.0, 1.0));
  duration("--busiest-time", usage.busiestTime, "The time of the day when most sessions begin")
      ->default_str("20h");

  app.add_option("--capacity", host.capacity, "Requests a second that the host accepts")
      ->check(CLI::PositiveNumber);
  duration("--latency", host.latency, "What an answer takes")->default_str("80ms");
  duration("--longest-wait", host.longestWait,
           "How long a request may wait for its turn before the host is overloaded")
      ->default_str("1s");
  parsed("--overload", host.overload, fleet::parseFailure, "FAILURE",
         "What requests get that are too many")
      ->default_str("503");
  std::vector<std::string> outages;
  app.add_option("--outage", outages,
                 "When every request fails, since the start; may be given several times")
      ->type_name("FROM..TO");
  parsed("--outage-answer", host.outage, fleet::parseFailure, "FAILURE",
         "What requests get in an outage")
      ->default_str("503");
  duration("--retry-after", host.retryAfter, "Sent as Retry-After with statuses of failures");
  duration("--back-off", host.backOff,
           "The heartbeats' interval that the host asks for; else it leaves it alone");
  app.add_option("--back-off-above", host.backOffAbove,
                 "The load, as a share of the capacity, above which it does; below, it asks for "
                 "20 s")
      ->check(CLI::NonNegativeNumber);
  CLI11_PARSE(app, argc, argv);

  try {
    for (const std::string& span : outages) host.outages.push_back(fleet::parseOutage(span));
    if (usage.foregroundShare() >= 0.95)
      throw std::invalid_argument("--sessions and --session-length fill the day");
    if (scenario.length == scenario.length.zero())
      throw std::invalid_argument("--length is too short");
    if (scenario.resolution == scenario.resolution.zero())
      scenario.resolution = resolutionFor(scenario.length);
    const auto rest = scenario.length % scenario.resolution;
    if (rest > rest.zero()) scenario.length += scenario.resolution - rest;
    const auto start = std::chrono::steady_clock::now();
    const fleet::Outcome outcome = fleet::run(scenario);
    fleet::writeTable(std::cout, scenario, outcome);
    if (!output.empty()) fleet::writeFiles(output, scenario, outcome);
    const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
    reportCost(scenario, wall.count());
    return outcome.isBalanced ? 0 : 1;
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 2;
  }
}
