// veltrano-fleet: how many applications at once load a collection host, in virtual time.
#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <exception>
#include <iostream>
#include <stdexcept>

#include "tools/fleet/report.h"

namespace {

using fleet::Duration;

// The smallest of these that shows a run in at most 480 intervals.
Duration resolutionFor(Duration length) {
  for (const int seconds : {1, 2, 5, 10, 15, 30, 60, 120, 180, 300, 600})
    if (length <= 480 * std::chrono::seconds(seconds)) return std::chrono::seconds(seconds);
  return std::chrono::hours(1);
}

template <class Parse>
auto read(const std::string& option, const std::string& text, const Parse& parse) {
  try {
    return parse(text);
  } catch (const std::invalid_argument&) {
    throw CLI::ValidationError(option, "cannot read " + text);
  }
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

  const auto duration = [&](const std::string& name, Duration& value, const std::string& help) {
    app.add_option_function<std::string>(
           name,
           [&value, name](const std::string& text) {
             value = read(name, text, fleet::parseDuration);
           },
           help)
        ->default_str(value.count() > 0 ? fleet::text(value) : "")
        ->type_name("DURATION");
  };
  const auto optionalDuration = [&](const std::string& name, std::optional<Duration>& value,
                                    const std::string& help) {
    app.add_option_function<std::string>(
           name,
           [&value, name](const std::string& text) {
             value = read(name, text, fleet::parseDuration);
           },
           help)
        ->type_name("DURATION");
  };
  const auto failure = [&](const std::string& name, fleet::Failure& value,
                           const std::string& help) {
    app.add_option_function<std::string>(
           name,
           [&value, name](const std::string& text) {
             value = read(name, text, fleet::parseFailure);
           },
           help)
        ->default_str("503")
        ->type_name("FAILURE");
  };
  app.option_defaults()->always_capture_default();
  app.add_option("--applications", scenario.applications, "How many there are")
      ->check(CLI::Range(1, 1'000'000));
  duration("--length", scenario.length, "How much time is simulated");
  duration("--starts-at", scenario.startsAt, "The time of the day at the start; 0 is midnight");
  app.add_option("--seed", scenario.seed, "Makes another run of the same kind");
  duration("--resolution", scenario.resolution, "Of CSV and plots; by the length unless given");
  app.add_option("--output", output, "A directory for CSV and plots; none without it")->take_last();

  app.add_option("--sessions", usage.sessionsPerDay, "Sessions of an application a day")
      ->check(CLI::PositiveNumber);
  duration("--session-length", usage.sessionLength, "What a session lasts on average");
  app.add_option("--events", usage.eventsPerMinute, "Events a minute in the foreground")
      ->check(CLI::NonNegativeNumber);
  app.add_option("--background", usage.backgroundShare,
                 "The share of the events that is recorded in the background")
      ->check(CLI::Range(0.0, 0.99));
  app.add_option("--swing", usage.dailySwing,
                 "How much more often sessions begin at the busiest time than on average, as a share")
      ->check(CLI::Range(0.0, 1.0));
  duration("--busiest-time", usage.busiestTime, "The time of the day when most sessions begin");

  app.add_option("--capacity", host.capacity, "Requests a second that the host accepts")
      ->check(CLI::PositiveNumber);
  duration("--latency", host.latency, "What an answer takes");
  duration("--longest-wait", host.longestWait,
           "How long a request may wait for its turn before the host is overloaded");
  failure("--overload", host.overload, "What requests get that are too many");
  app.add_option_function<std::vector<std::string>>(
         "--outage",
         [&](const std::vector<std::string>& spans) {
           for (const std::string& span : spans)
             host.outages.push_back(read("--outage", span, fleet::parseOutage));
         },
         "When every request fails, since the start; may be given several times")
      ->type_name("FROM..TO");
  failure("--outage-answer", host.outage, "What requests get in an outage");
  optionalDuration("--retry-after", host.retryAfter, "Sent as Retry-After with failures");
  optionalDuration("--back-off", host.backOff,
                   "The heartbeats' interval that the host asks for; else it leaves it alone");
  app.add_option("--back-off-above", host.backOffAbove,
                 "The load, as a share of the capacity, above which it does; below, it asks for 20 s")
      ->check(CLI::NonNegativeNumber);
  CLI11_PARSE(app, argc, argv);

  try {
    if (usage.foregroundShare() >= 0.95)
      throw std::invalid_argument("--sessions and --session-length fill the day");
    if (scenario.length == scenario.length.zero())
      throw std::invalid_argument("--length is too short");
    if (scenario.resolution == scenario.resolution.zero())
      scenario.resolution = resolutionFor(scenario.length);
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
