#pragma once

#include <optional>
#include <string>

#include "tools/fleet/measurements.h"
#include "tools/fleet/scenario.h"
#include "tools/random.h"

namespace fleet {

/// The collection host of all applications. Serves requests one at a time, at the rate of its
/// capacity. Requests that would wait too long fail as on an overloaded host. Decodes what it
/// accepts, so its counts do not rely on the library's.
class CollectionHost {
 public:
  struct Reply {
    std::optional<Failure> failure = {};  // none: status 200
    Duration after{0};                    // `Duration::max()`: no answer ever comes
    std::optional<Duration> retryAfter = {};
    std::string body = {};
  };

  CollectionHost(const HostOptions& options, std::uint64_t seed, Measurements& measurements)
      : options_(options), measurements_(measurements), random_(seed) {}

  /// Whether a new connection leads to one of the servers that fail.
  bool drawsFailingServer() { return random_.isAmong(options_.failingServers); }

  /// How long an idle connection stays open.
  Duration keepAlive() const { return options_.keepAlive; }
  void opened() { measurements_.opened(); }
  void closed(Duration openedAt, Duration at) { measurements_.closed(openedAt, at); }

  /// Decides the answer to a request that arrives at `now`, whose sender gives up after `patience`.
  Reply receive(EndpointPath path, const std::string& body, Duration now, Duration patience,
                bool isToFailingServer);

  /// Counts an accepted request when its answer leaves. `wallTime` is the time since 1970.
  void accept(EndpointPath path, const std::string& body, Duration wallTime);

  std::uint64_t events() const { return events_; }
  /// How many of them report a failed heartbeat.
  std::uint64_t heartbeatFailures() const { return heartbeatFailures_; }

 private:
  Reply failed(const Failure& failure) const;
  std::string bodyOfAnswer(EndpointPath path) const;
  Duration drawLatency();
  void noteLoad(Duration now);

  const HostOptions& options_;
  Measurements& measurements_;
  tools::Random random_;
  Duration busyUntil_{0};
  Duration loadSince_{0};        // start of the span in which requests are counted
  std::uint64_t loadCount_ = 0;  // requests in it
  double load_ = 0;              // requests per second in the span before
  std::uint64_t events_ = 0;
  std::uint64_t heartbeatFailures_ = 0;
};

}  // namespace fleet
