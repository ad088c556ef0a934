// veltrano-fleet: simulates the load of many applications on a collection server, in virtual time.
#include <CLI/CLI.hpp>
#include <chrono>
#include <cmath>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/command_line.h"
#include "tools/fleet/report.h"

namespace {

using fleet::Duration;

// The finest resolution that divides a run into at most 480 intervals.
Duration resolutionFor(Duration length) {
  for (const int seconds : {1, 2, 5, 10, 15, 30, 60, 120, 180, 300, 600})
    if (length <= 480 * std::chrono::seconds(seconds)) return std::chrono::seconds(seconds);
  return std::chrono::hours(1);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app(
      "Simulates many applications against one collection server. Durations are written as in 90s, "
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
  app.add_option("--applications", scenario.applications, "Number of applications")
      ->check(CLI::Range(1, 1'000'000));
  duration("--length", scenario.length, "Simulated time; rounded up to the resolution")
      ->default_str("24h");
  duration("--starts-at", scenario.startsAt, "Time of day at the start")->default_str("0h");
  app.add_option("--seed", scenario.seed, "Seed of the random numbers")
      ->check(CLI::NonNegativeNumber);
  duration("--resolution", scenario.resolution,
           "Resolution of intervals.csv; depends on the length by default");
  app.add_option("--output", output, "Directory for intervals.csv; by default, it is not written")
      ->take_last();

  app.add_option("--sessions", usage.sessionsPerDay, "Sessions per application and day")
      ->check(CLI::PositiveNumber);
  duration("--session-length", usage.sessionLength, "Average length of a session")
      ->default_str("6m");
  app.add_option("--events", usage.eventsPerMinute, "Events per minute in the foreground")
      ->check(CLI::NonNegativeNumber);
  app.add_option("--background", usage.backgroundShare,
                 "Share of events recorded in the background")
      ->check(CLI::Range(0.0, 0.99));
  duration("--stored-interval", usage.storedInterval,
           "Heartbeat interval that the applications have stored at the start");
  const auto share = [&app](const char* name, double& value, const char* help) {
    app.add_option(name, value, help)->check(CLI::Range(0.0, 1.0));
  };
  share("--swing", usage.dailySwing,
        "How much more often sessions start at 20:00, the busiest time, than on average: 0.6 means "
        "1.6 times as often");
  share("--crashes", usage.crashShare,
        "Share of sessions that end with their process, without a last flush");
  share("--ends", usage.endShare,
        "Share of sessions after which the process ends in the background");

  app.add_option("--capacity", host.capacity, "Requests per second that the server can handle")
      ->check(CLI::PositiveNumber);
  duration("--latency", host.latency, "Latency of answers")->default_str("80ms");
  duration("--latency-99", host.latency99,
           "What 99 % of the answers take at most; then --latency is what they take at least");
  duration("--keep-alive", host.keepAlive, "How long idle connections stay open")
      ->default_str("60s");
  duration("--longest-wait", host.longestWait, "Requests that would wait longer than this fail")
      ->default_str("1s");
  parsed("--overload", host.overload, fleet::parseFailure, "FAILURE",
         "How requests fail that would wait too long")
      ->default_str("503");
  std::vector<std::string> outages;
  app.add_option("--outage", outages,
                 "Time since the start when every request fails; may be repeated")
      ->type_name("FROM..TO");
  parsed("--outage-answer", host.outage, fleet::parseFailure, "FAILURE",
         "How requests fail in an outage")
      ->default_str("503");
  share("--failing-requests", host.failingRequests,
        "Share of requests that fail at any time, as --outage-answer says");
  share("--failing-servers", host.failingServers,
        "Share of servers that fail at any time; a connection leads to one server");
  duration("--retry-after", host.retryAfter, "Retry-After header to send with failure statuses");
  duration("--back-off", host.backOff,
           "Heartbeat interval that the server asks for; by default, it does not");
  app.add_option("--back-off-above", host.backOffAbove,
                 "Load, as a share of the capacity, from which the server asks for --back-off; "
                 "below that it asks for 20 s")
      ->check(CLI::NonNegativeNumber);
  if (const auto status = tools::parse(app, "veltrano-fleet", argc, argv)) return *status;

  try {
    for (const std::string& span : outages) host.outages.push_back(fleet::parseOutage(span));
    for (const double number : {usage.sessionsPerDay, usage.eventsPerMinute, usage.backgroundShare,
                                usage.dailySwing, host.capacity, host.backOffAbove})
      if (!std::isfinite(number)) throw std::invalid_argument("an option is not a number");
    if (usage.foregroundShare() >= 0.95)
      throw std::invalid_argument("--sessions and --session-length fill the day");
    if (scenario.length == scenario.length.zero())
      throw std::invalid_argument("--length is too short");
    if (scenario.resolution == scenario.resolution.zero())
      scenario.resolution = resolutionFor(scenario.length);
    const auto rest = scenario.length % scenario.resolution;
    if (rest > rest.zero()) scenario.length += scenario.resolution - rest;
    const fleet::Outcome outcome = fleet::run(scenario);
    fleet::writeTable(std::cout, scenario, outcome);
    if (!output.empty()) {
      std::filesystem::create_directories(output);
      std::ofstream file(output + "/intervals.csv");
      fleet::writeCSV(file, scenario, outcome);
      if (!file.flush()) throw std::runtime_error("cannot write " + output + "/intervals.csv");
    }
    return outcome.isBalanced ? 0 : 1;
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 2;
  }
}
