// When a request is attempted again, and how long it may take. Platforms ask these rules.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <set>
#include <string>

#include "encoding/time.h"

namespace veltrano::internal {

/// How long a request may take.
struct RequestLimits {
  Duration firstBackOff = std::chrono::milliseconds(200);  // doubles with every retry
  Duration connectTimeout = std::chrono::seconds(10);
  Duration attemptTimeout = std::chrono::seconds(30);
  Duration requestTimeout = std::chrono::seconds(60);  // including all retries
};

/// The outcome of one attempt, as far as it decides about retries and rests.
struct AttemptResult {
  bool failedToConnect = false;  // so the request was certainly not sent
  std::optional<int> httpStatusCode;
  std::optional<Duration> retryAfter;  // what the server asked for
};

/// When a request is retried.
struct RetryRules {
  std::int32_t maxRetries = 2;
  std::set<int> dontRetryStatusCodes;
  Duration firstBackOff;
};

/// The delay before the next retry, after `retries` of them; none to give up. Exponential back-off
/// with full jitter (`random` is from 0 to 1), but no shorter than the server asked for. Gives up
/// if the delay reaches `timeLeft`.
std::optional<Duration> delayBeforeRetry(const AttemptResult& attempt, const RetryRules& rules,
                                         std::int32_t retries, Duration timeLeft, double random);

/// The delay that a Retry-After header asks for at `now`: a number of seconds, or the time until a
/// date, zero if that has passed; a day at most. None when it is neither.
std::optional<Duration> parseRetryAfter(const std::string& text, WallTime now);

}  // namespace veltrano::internal
