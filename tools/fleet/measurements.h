// What is measured while the fleet runs.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

#include "platform/endpoint_path.h"
#include "tools/fleet/scenario.h"
#include "veltrano/statistics.h"

namespace fleet {

inline constexpr std::size_t kTrack = indexOf(EndpointPath::track);
inline constexpr std::size_t kHeartbeat = indexOf(EndpointPath::heartbeat);

/// Requests to the collection host. Each attempt counts, even one that gets no connection and sends
/// nothing.
struct Requests {
  std::uint64_t received = 0;
  std::uint64_t accepted = 0;
  std::uint64_t bodyBytes = 0;
  std::uint64_t headBytes = 0;
  std::uint64_t answerBytes = 0;  // with heads
};

/// Adds to a struct that consists of counts.
template <class Counts>
void add(Counts& sum, const Counts& more) {
  using Array = std::array<std::uint64_t, sizeof(Counts) / sizeof(std::uint64_t)>;
  auto counts = std::bit_cast<Array>(sum);
  std::ranges::transform(counts, std::bit_cast<Array>(more), counts.begin(), std::plus());
  sum = std::bit_cast<Counts>(counts);
}

/// How long events take from recording to delivery.
struct Delays {
  double median = 0, percentile90 = 0, percentile99 = 0, longest = 0;  // seconds
};

/// What happened during an interval, and the state at its end.
struct Interval {
  Duration start{0};
  std::array<Requests, kEndpointPathCount> requests;
  std::uint64_t mostInASecond = 0;  // requests to both endpoints
  std::uint64_t deliveredEvents = 0;
  Delays delays;     // of these events
  Statistics atEnd;  // sums over all applications
  std::uint64_t inForegroundAtEnd = 0;
  std::uint64_t lostUntilEnd = 0;        // events, with processes that have ended
  std::uint64_t opened = 0, closed = 0;  // connections
};

class Measurements {
 public:
  explicit Measurements(Duration resolution) : resolution_(resolution) {}

  void received(EndpointPath path, Duration now, const Requests& one);
  void opened() { ++current_.opened; }
  /// Also for earlier intervals.
  void closed(Duration openedAt, Duration at);
  void delivered(Duration delay);

  /// Ends the current interval and begins the next one.
  void endInterval(const Statistics& all, std::uint64_t inForeground, std::uint64_t lost);

  const std::vector<Interval>& intervals() const { return intervals_; }
  Duration resolution() const { return resolution_; }

  /// All intervals that have ended, as one.
  Interval total() const;

  /// How long connections were open that have been closed.
  Duration meanConnection() const { return closed_ > 0 ? open_ / closed_ : Duration::zero(); }

 private:
  void endSecond() {
    current_.mostInASecond = std::max(current_.mostInASecond, std::exchange(inSecond_, 0));
  }

  const Duration resolution_;
  std::vector<Interval> intervals_;
  Interval current_;
  Duration second_{0};
  std::uint64_t inSecond_ = 0;
  Duration open_{0};  // all connections that have been closed, together
  std::int64_t closed_ = 0;
  std::vector<float> delays_;     // seconds; in the current interval
  std::vector<float> allDelays_;  // in earlier intervals
};

}  // namespace fleet
