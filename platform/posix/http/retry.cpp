#include "platform/posix/http/retry.h"

#include <curl/curl.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <ctime>
#include <system_error>

namespace veltrano::internal {
namespace {

// Longer than any request may take, and small enough not to overflow.
constexpr std::chrono::seconds kMaxDelay = std::chrono::hours(24);

bool isWorthRetry(const AttemptResult& attempt, const RetryRules& rules) {
  if (attempt.failedToConnect) return true;
  const int status = attempt.httpStatusCode.value_or(0);
  return (status == 502 || status == 503 || status == 504) &&
         rules.dontRetryStatusCodes.count(status) == 0;
}

Duration backOff(Duration first, std::int32_t retries, double random) {
  constexpr std::int32_t kMaxDoublings = 20;
  const double longest =
      static_cast<double>(first.count()) * (1 << std::min(retries, kMaxDoublings));
  return durationFromSeconds(longest * random / 1e6);
}

}  // namespace

std::optional<Duration> delayBeforeRetry(const AttemptResult& attempt, const RetryRules& rules,
                                         std::int32_t retries, Duration timeLeft, double random) {
  if (retries >= rules.maxRetries || !isWorthRetry(attempt, rules)) return std::nullopt;
  const auto delay = std::max(backOff(rules.firstBackOff, retries, random),
                              attempt.retryAfter.value_or(Duration::zero()));
  if (delay >= timeLeft) return std::nullopt;
  return delay;
}

std::optional<Duration> parseRetryAfter(const std::string& text, WallTime now) {
  const char* const end = text.data() + text.size();
  std::int64_t seconds = 0;
  const auto number = std::from_chars(text.data(), end, seconds);
  if (number.ptr == end && number.ec == std::errc::result_out_of_range) return kMaxDelay;
  if (number.ptr == end && number.ec == std::errc() && seconds >= 0)
    return std::min(std::chrono::seconds(seconds), kMaxDelay);

  const std::time_t date = curl_getdate(text.c_str(), nullptr);
  if (date == -1) return std::nullopt;
  const WallTime until{std::chrono::seconds(date)};
  return std::clamp<Duration>(until - now, Duration::zero(), kMaxDelay);
}

}  // namespace veltrano::internal
