#pragma once

#include <optional>
#include <string>

#include "tools/fleet/measurements.h"
#include "tools/fleet/scenario.h"

namespace fleet {

/// The collection host of all applications. It takes requests one after the other, at the rate of
/// its capacity; those that would wait too long for their turn get the failure of an overloaded
/// host. It keeps no state but this, and reads for itself what it accepts.
class CollectionHost {
 public:
  struct Reply {
    std::optional<Failure> failure = {};  // none: status 200
    Duration after{0};                    // `Duration::max()` when nothing ever comes
    std::optional<Duration> retryAfter = {};
    std::string body = {};
  };

  CollectionHost(const HostOptions& options, Measurements& measurements)
      : options_(options), measurements_(measurements) {}

  /// Takes a request that arrives at `now`, and decides how it is answered.
  Reply receive(Endpoint endpoint, const std::string& body, Duration now);

  /// The answer to a request that is accepted leaves. `wallTime` is the time since 1970.
  void accept(Endpoint endpoint, const std::string& body, Duration wallTime);

  std::uint64_t events() const { return events_; }
  /// Of these, those by which the library reports a heartbeat that failed.
  std::uint64_t heartbeatFailures() const { return heartbeatFailures_; }

 private:
  Reply failed(const Failure& failure) const;
  std::string heartbeatAnswer() const;
  void noteLoad(Duration now);

  const HostOptions& options_;
  Measurements& measurements_;
  Duration busyUntil_{0};
  Duration loadSince_{0};        // begin of the span in which the load is counted
  std::uint64_t loadCount_ = 0;  // requests in it
  double load_ = 0;              // requests a second in the span before
  std::uint64_t events_ = 0;
  std::uint64_t heartbeatFailures_ = 0;
};

}  // namespace fleet
