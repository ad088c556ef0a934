// What a run of the fleet simulates.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "encoding/time.h"

namespace fleet {

using namespace veltrano;
using namespace veltrano::internal;

inline constexpr double kSecondsPerDay = 86'400;

inline double seconds(Duration duration) {
  return std::chrono::duration<double>(duration).count();
}

/// How one application is used. These are averages: the lengths of sessions and gaps are
/// exponentially distributed, and events are a Poisson process.
struct Usage {
  double sessionsPerDay = 8;
  Duration sessionLength = std::chrono::minutes(6);
  double eventsPerMinute = 4;              // in the foreground
  double backgroundShare = 0.05;           // of all events, recorded in the background
  std::optional<Duration> storedInterval;  // of heartbeats, stored before the run
  // Sessions begin up to this much more (at 20:00) or less often than on average.
  double dailySwing = 0.6;
  double crashShare = 0;  // of the sessions: the process ends instead of entering the background
  double endShare = 0;  // of the sessions: the process ends in the background, before the next one

  /// The share of the day that an application spends in the foreground. Less than 1.
  double foregroundShare() const {
    return sessionsPerDay * seconds(sessionLength) / kSecondsPerDay;
  }
  /// How often sessions begin at this time of the day, as a multiple of the average.
  double swingAt(Duration timeOfDay) const;
  double backgroundEventsPerMinute() const;
};

/// How the collection server answers what it does not accept.
struct Failure {
  enum class Effect {
    status,
    silence,     // connects, but never answers
    refused,     // refuses the connection at once
    unreachable  // the attempt to connect times out
  };

  bool connects() const { return effect == Effect::status || effect == Effect::silence; }

  Effect effect = Effect::status;
  int status = 503;
};

struct Outage {
  Duration from, to;
};

struct HostOptions {
  double capacity = 1000;  // requests per second
  Duration latency = std::chrono::milliseconds(80);
  Duration longestWait = std::chrono::seconds(1);  // of a request; it fails if it would be longer
  Failure overload;
  std::vector<Outage> outages;
  Failure outage;
  double failingRequests = 0;  // the share that fails at any time, as in an outage
  double failingServers = 0;   // the share of connections that lead to a server that always fails
  std::optional<Duration> latency99;  // 99 % of the answers take less; none: all take as long
  Duration keepAlive = std::chrono::seconds(60);  // idle connections stay open
  std::optional<Duration> retryAfter;             // sent with failure statuses
  std::optional<Duration> backOff;                // the heartbeat interval that answers ask for
  double backOffAbove = 0;  // asked for only from this share of the capacity on
};

struct Scenario {
  int applications = 1000;
  Duration length = std::chrono::hours(24);  // a multiple of the resolution
  Duration startsAt{0};                      // time of day
  Duration resolution{0};                    // of measurements over time
  std::uint64_t seed = 1;
  Usage usage;
  HostOptions host;
};

/// A duration such as "90s", "1h30m" or "250ms". A plain number means seconds. Throws
/// std::invalid_argument.
Duration parseDuration(std::string_view text);

/// Two durations, as in "12h..12h10m". Throws std::invalid_argument.
Outage parseOutage(std::string_view text);

/// A status from 100 to 599, "silence", "refused" or "unreachable". Throws std::invalid_argument.
Failure parseFailure(std::string_view text);

/// The texts that these accept.
std::string text(Duration duration);
std::string text(const Failure& failure);

}  // namespace fleet
