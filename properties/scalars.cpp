#include "veltrano/scalars.h"

#include <algorithm>
#include <cstdio>

#include "encoding/numbers.h"
#include "encoding/time.h"
#include "encoding/utf8.h"

namespace veltrano {

using namespace internal;

Date::Date(std::chrono::system_clock::time_point instant) {
  sinceEpoch_ =
      std::clamp(std::chrono::floor<std::chrono::microseconds>(instant.time_since_epoch()),
                 -kFarthest, kFarthest);
}

Date Date::fromSecondsSince1970(double seconds) {
  return Date(std::clamp(durationFromSeconds(seconds), -kFarthest, kFarthest));
}

std::string Date::iso8601() const {
  namespace chrono = std::chrono;
  const auto day = chrono::floor<chrono::days>(sinceEpoch_);
  const chrono::year_month_day date{chrono::sys_days(day)};
  const chrono::hh_mm_ss time{chrono::floor<chrono::milliseconds>(sinceEpoch_ - day)};
  char text[48];
  std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ",
                static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                static_cast<unsigned>(date.day()), static_cast<int>(time.hours().count()),
                static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()),
                static_cast<int>(time.subseconds().count()));
  return text;
}

URL::URL(std::string_view text) : text_(wellFormedUTF8(text)) {}

std::int64_t NSNumber::truncated(double value) {
  return truncatedInteger(value);
}

}  // namespace veltrano
