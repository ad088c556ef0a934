// When requests to a server in trouble are put off. Platforms ask these rules.
#pragma once

#include <array>
#include <optional>

#include "encoding/time.h"
#include "platform/endpoint_path.h"
#include "platform/url_session.h"
#include "upload/rules/retry.h"

namespace veltrano::internal {

/// The rests of one path: during a rest its requests fail without an attempt. The server asks for
/// one with Retry-After; repeated trouble begins one of our own. `now` is any monotonic clock's.
/// Not thread-safe.
class Rests {
 public:
  explicit Rests(EndpointPath path) : path_(path) {}

  /// The rest that puts off a request at `now`. Empty: send it. Ask once per request: the answer
  /// uses up the one skip that completions get every two seconds.
  std::optional<Rest> puttingOff(Duration now, Urgency urgency);

  /// Whether a request may be attempted more than once: not while the trouble lasts.
  bool mayRetry() const { return !isInTrouble_ || hasEnded_; }

  /// Call when a request ends at `now`, with the result of its last attempt; not for one that was
  /// put off or never got as far as an attempt. Returns the rest that this begins. `random` is from
  /// 0 to 1.
  std::optional<Rest> requestEnded(Duration now, const AttemptResult& last, double random);

  /// Call when the device has a route to the network again. Ends a rest that began because there
  /// was no connection.
  void routeReturned();

  /// The rest at `now`, if there is one.
  std::optional<Rest> restAt(Duration now) const;

  /// From now on nothing is put off: the library shuts down.
  void end() { hasEnded_ = true; }

 private:
  bool isTrouble(const AttemptResult& last) const;

  const EndpointPath path_;
  int troublesInARow_ = 0;
  bool isInTrouble_ = false;      // a rest has begun since the last success
  bool lacksConnection_ = false;  // the last request ended without one
  Duration askedUntil_ = Duration::min();
  Duration ownUntil_ = Duration::min();
  std::optional<Duration> skippedAt_;  // when a completion last skipped a rest of our own
  bool hasEnded_ = false;
};

/// The rests of all paths.
struct RestsByPath {
  Rests& of(EndpointPath path) { return all[indexOf(path)]; }

  std::array<Rests, kEndpointPathCount> all{Rests(EndpointPath::track),
                                            Rests(EndpointPath::heartbeat)};
};

}  // namespace veltrano::internal
