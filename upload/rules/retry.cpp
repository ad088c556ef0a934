#include "upload/rules/retry.h"

#include <algorithm>
#include <charconv>
#include <ctime>
#include <iomanip>
#include <locale>
#include <sstream>
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

// In any of the three forms that HTTP allows.
std::optional<WallTime> parseDate(const std::string& text) {
  for (const char* const format :
       {"%a, %d %b %Y %H:%M:%S GMT", "%a, %d-%b-%y %H:%M:%S GMT", "%a %b %d %H:%M:%S %Y"}) {
    std::istringstream input(text);
    input.imbue(std::locale::classic());
    std::tm date{};
    input >> std::get_time(&date, format);
    if (input.fail() || input.peek() != std::istringstream::traits_type::eof()) continue;
    using namespace std::chrono;
    const sys_days day = year(1900 + date.tm_year) / (date.tm_mon + 1) / date.tm_mday;
    return WallTime{day.time_since_epoch() + hours(date.tm_hour) + minutes(date.tm_min) +
                    seconds(date.tm_sec)};
  }
  return std::nullopt;
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
  if (number.ptr == end && number.ec == std::errc::result_out_of_range && text[0] != '-')
    return kMaxDelay;
  if (number.ptr == end && number.ec == std::errc() && seconds >= 0)
    return std::min(std::chrono::seconds(seconds), kMaxDelay);

  const auto until = parseDate(text);
  if (!until) return std::nullopt;
  return std::clamp<Duration>(*until - now, Duration::zero(), kMaxDelay);
}

}  // namespace veltrano::internal
