#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>

#include "encoding/time.h"

namespace veltrano::internal {

/// How one attempt at a request ended, as far as another attempt depends on it.
struct AttemptResult {
  bool failedToConnect = false;  // so the request has certainly not been sent
  std::optional<int> httpStatusCode;
  std::optional<Duration> retryAfter;  // what the server asked for
};

/// Which failures of a request are worth another attempt.
struct RetryRules {
  std::int32_t maxRetries = 2;
  std::set<int> dontRetryStatusCodes;
  Duration firstBackOff;
};

/// When to try again, after `retries` retries; none when not at all. The back-off is a random
/// share, `random` out of 0 to 1, of one that doubles with every retry, and no shorter than the
/// server asked for. A retry that would begin after `timeLeft` is not made.
std::optional<Duration> delayBeforeRetry(const AttemptResult& attempt, const RetryRules& rules,
                                         std::int32_t retries, Duration timeLeft, double random);

/// The wait that a Retry-After header asks for at `now`: a number of seconds, or the distance to a
/// date, zero when that has passed. None when it is neither.
std::optional<Duration> parseRetryAfter(const std::string& text, WallTime now);

}  // namespace veltrano::internal
