#include "tools/fleet/scenario.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>
#include <numbers>
#include <stdexcept>
#include <utility>

#include "encoding/numbers.h"

namespace fleet {
namespace {

constexpr std::pair<std::string_view, Duration> kUnits[] = {
    {"d", std::chrono::days(1)},          {"h", std::chrono::hours(1)},
    {"m", std::chrono::minutes(1)},       {"s", std::chrono::seconds(1)},
    {"ms", std::chrono::milliseconds(1)}, {"", std::chrono::seconds(1)}};

constexpr std::pair<std::string_view, Failure::Effect> kFailures[] = {
    {"silence", Failure::Effect::silence},
    {"refused", Failure::Effect::refused},
    {"unreachable", Failure::Effect::unreachable}};

[[noreturn]] void fail(std::string_view text) {
  throw std::invalid_argument("cannot read \"" + std::string(text) + '"');
}

}  // namespace

double Usage::swingAt(Duration timeOfDay) const {
  constexpr Duration kBusiestTime = std::chrono::hours(20);
  const double days = seconds(timeOfDay - kBusiestTime) / kSecondsPerDay;
  return 1 + dailySwing * std::cos(2 * std::numbers::pi * days);
}

double Usage::backgroundEventsPerMinute() const {
  const double inForeground = eventsPerMinute * foregroundShare();
  return inForeground * backgroundShare / (1 - backgroundShare) / (1 - foregroundShare());
}

Duration parseDuration(std::string_view text) {
  constexpr double kMost = 3650 * kSecondsPerDay;
  const std::string_view whole = text;
  Duration sum{0};
  do {
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || !(number >= 0 && number <= kMost)) fail(whole);
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    const auto name = text.substr(0, text.find_first_of("0123456789."));
    const auto* const unit = std::ranges::find(kUnits, name, [](const auto& u) { return u.first; });
    if (unit == std::end(kUnits)) fail(whole);
    text.remove_prefix(name.size());
    sum += durationFromSeconds(number * seconds(unit->second));
    if (seconds(sum) > kMost) fail(whole);
  } while (!text.empty());
  return sum;
}

Outage parseOutage(std::string_view text) {
  const auto dots = text.find("..");
  if (dots == text.npos) fail(text);
  const Outage outage{parseDuration(text.substr(0, dots)), parseDuration(text.substr(dots + 2))};
  if (outage.from >= outage.to) fail(text);
  return outage;
}

Failure parseFailure(std::string_view text) {
  for (const auto& [name, effect] : kFailures)
    if (text == name) return {effect, 0};
  const int status = wholeNumber<int>(text).value_or(0);
  if (status < 100 || status > 599) fail(text);
  return {Failure::Effect::status, status};
}

std::string text(const Failure& failure) {
  for (const auto& [name, effect] : kFailures)
    if (failure.effect == effect) return std::string(name);
  return std::to_string(failure.status);
}

std::string text(Duration duration) {
  std::string result;
  for (const auto& [name, length] : kUnits) {
    const auto count = duration / length;
    duration %= length;
    if (count > 0) result.append(std::to_string(count)).append(name);
  }
  return result.empty() ? "0s" : result;
}

}  // namespace fleet
