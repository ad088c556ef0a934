// What is counted while the fleet runs.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "tools/fleet/scenario.h"
#include "veltrano/statistics.h"

namespace fleet {

enum Endpoint { kTrack, kHeartbeat, kEndpoints };

/// Requests on their way to the collection host: each attempt is one, also one that gets no
/// connection and sends nothing.
struct Requests {
  std::uint64_t received = 0;
  std::uint64_t accepted = 0;
  std::uint64_t bodyBytes = 0;
};

/// The shares of all events that are delivered within...
struct Delays {
  double median = 0, percentile90 = 0, percentile99 = 0, longest = 0;  // seconds
};

/// What happened from one moment to the next, and how things stood at its end.
struct Interval {
  Duration start{0};
  std::array<Requests, kEndpoints> requests;
  std::uint64_t mostInASecond = 0;  // requests of both kinds, received
  std::uint64_t deliveredEvents = 0;
  Delays delays;               // of these
  veltrano::Statistics atEnd;  // of all applications
  std::uint64_t inForegroundAtEnd = 0;
};

class Measurements {
 public:
  explicit Measurements(Duration resolution) : resolution_(resolution) {}

  void received(Endpoint endpoint, Duration now, std::size_t bodyBytes, bool isAccepted);
  void delivered(Duration delay);

  /// Ends the current interval and begins the next one.
  void endInterval(const veltrano::Statistics& all, std::uint64_t inForeground);

  const std::vector<Interval>& intervals() const { return intervals_; }
  Duration resolution() const { return resolution_; }

  /// Of the whole run, in the intervals that have ended.
  Interval total() const;

 private:
  void endSecond();

  const Duration resolution_;
  std::vector<Interval> intervals_;
  Interval current_;
  Duration second_{0};
  std::uint64_t inSecond_ = 0;
  std::vector<float> delays_;     // seconds; of the current interval
  std::vector<float> allDelays_;  // of those before
};

}  // namespace fleet
