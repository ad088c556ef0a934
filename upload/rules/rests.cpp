#include "upload/rules/rests.h"

#include <algorithm>
#include <chrono>

namespace veltrano::internal {
namespace {

constexpr int kTroublesBeforeRest = 3;
constexpr Duration kFirstRest = std::chrono::seconds(2);
constexpr Duration kLongestRest = std::chrono::minutes(5);
constexpr Duration kLongestAskedRest = std::chrono::hours(1);  // with our own after it
constexpr Duration kBetweenSkips = std::chrono::seconds(2);

// Doubles with each further trouble. The random half keeps devices from returning together.
Duration lengthAfter(int troubles, double random) {
  constexpr int kMostDoublings = 8;  // beyond the longest rest
  const int doublings = std::min(troubles - kTroublesBeforeRest, kMostDoublings);
  const Duration longest = std::min(kFirstRest * (1 << doublings), kLongestRest);
  return longest / 2 +
         durationFromSeconds(std::chrono::duration<double>(longest).count() / 2 * random);
}

}  // namespace

std::optional<Rest> Rests::puttingOff(Duration now, Urgency urgency) {
  const auto rest = restAt(now);
  if (!rest || now < askedUntil_) return rest;
  switch (urgency) {
    case Urgency::ordinary:
      return rest;
    case Urgency::completion:
      if (skippedAt_ && now - *skippedAt_ < kBetweenSkips) return rest;
      skippedAt_ = now;
      return std::nullopt;
    case Urgency::enteringBackground:
      return std::nullopt;
  }
  return rest;
}

std::optional<Rest> Rests::restAt(Duration now) const {
  if (hasEnded_) return std::nullopt;
  if (now < askedUntil_) return Rest{askedUntil_ - now, RestCause::server};
  if (now < ownUntil_) return Rest{ownUntil_ - now, RestCause::trouble};
  return std::nullopt;
}

std::optional<Rest> Rests::requestEnded(Duration now, const AttemptResult& last, double random) {
  lacksConnection_ = last.failedToConnect;
  if (!isTrouble(last)) {
    troublesInARow_ = 0;
    isInTrouble_ = false;
    askedUntil_ = ownUntil_ = Duration::min();
    return std::nullopt;
  }
  ++troublesInARow_;
  const int status = last.httpStatusCode.value_or(0);
  const auto asked = status == 429 || status == 503 ? last.retryAfter : std::nullopt;
  if (asked) askedUntil_ = now + std::min(*asked, kLongestAskedRest);
  // On top of what the server asks for: it may ask for little, again and again.
  const bool startsOwn = troublesInARow_ >= kTroublesBeforeRest;
  if (startsOwn)
    ownUntil_ = std::min((asked ? askedUntil_ : now) + lengthAfter(troublesInARow_, random),
                         now + kLongestAskedRest);
  if (!asked && !startsOwn) return std::nullopt;
  const auto rest = restAt(now);
  isInTrouble_ = isInTrouble_ || rest.has_value();
  return rest;
}

void Rests::routeReturned() {
  if (!lacksConnection_) return;
  troublesInARow_ = 0;
  isInTrouble_ = false;
  ownUntil_ = Duration::min();
}

// A status that repeats as surely as a 503 counts like one: the batch is kept.
bool Rests::isTrouble(const AttemptResult& last) const {
  if (!last.httpStatusCode) return true;
  const int status = *last.httpStatusCode;
  switch (path_) {
    case EndpointPath::track:
      return status != 200 && status != 400;
    case EndpointPath::heartbeat:
      return status >= 500 || status == 429 || status == 408;
  }
  return false;
}

}  // namespace veltrano::internal
