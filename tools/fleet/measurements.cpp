#include "tools/fleet/measurements.h"

#include <algorithm>
#include <utility>

namespace fleet {
namespace {

Delays delaysOf(std::vector<float> seconds) {
  if (seconds.empty()) return {};
  const auto at = [&](double share) {
    const auto place = seconds.begin() +
                       static_cast<std::ptrdiff_t>(share * static_cast<double>(seconds.size() - 1));
    std::nth_element(seconds.begin(), place, seconds.end());
    return double{*place};
  };
  return {at(0.5), at(0.9), at(0.99), at(1)};
}

}  // namespace

void Measurements::received(EndpointPath path, Duration now, const Requests& one) {
  const auto second = std::chrono::floor<std::chrono::seconds>(now);
  if (second != second_) endSecond();
  second_ = second;
  ++inSecond_;
  add(current_.requests[indexOf(path)], one);
}

void Measurements::closed(Duration openedAt, Duration at) {
  const auto interval = static_cast<std::size_t>(at / resolution_);
  ++(interval < intervals_.size() ? intervals_[interval] : current_).closed;
  open_ += at - openedAt;
  ++closed_;
}

void Measurements::delivered(Duration delay) {
  ++current_.deliveredEvents;
  delays_.push_back(std::chrono::duration<float>(delay).count());
}

void Measurements::endInterval(const Statistics& all, std::uint64_t inForeground,
                               std::uint64_t lost) {
  endSecond();
  current_.atEnd = all;
  current_.inForegroundAtEnd = inForeground;
  current_.lostUntilEnd = lost;
  allDelays_.insert(allDelays_.end(), delays_.begin(), delays_.end());
  current_.delays = delaysOf(std::exchange(delays_, {}));
  intervals_.push_back(std::exchange(current_, {}));
  current_.start = intervals_.back().start + resolution_;
}

Interval Measurements::total() const {
  Interval total;
  for (const Interval& interval : intervals_) {
    for (std::size_t path = 0; path < kEndpointPathCount; ++path)
      add(total.requests[path], interval.requests[path]);
    total.opened += interval.opened;
    total.mostInASecond = std::max(total.mostInASecond, interval.mostInASecond);
    total.deliveredEvents += interval.deliveredEvents;
  }
  total.delays = delaysOf(allDelays_);
  if (!intervals_.empty()) {
    total.atEnd = intervals_.back().atEnd;
    total.lostUntilEnd = intervals_.back().lostUntilEnd;
  }
  return total;
}

}  // namespace fleet
