#include "tools/replay/fields.h"

#include <cmath>

namespace replay {

void read(const JSONValue& json, bool& value) {
  require(json.IsBool(), "must be true or false");
  value = json.GetBool();
}

void read(const JSONValue& json, std::string& value) {
  require(isString(json), "must be a string");
  value = textOf(json);
}

void read(const JSONValue& json, veltrano::internal::Duration& value) {
  constexpr double kMaxSeconds = 1e12;
  double seconds = 0;
  read(json, seconds);
  require(std::abs(seconds) <= kMaxSeconds, "is out of range");
  value = veltrano::internal::durationFromSeconds(seconds);
}

const JSONValue& Fields::json(std::string_view key) const {
  const JSONValue* const found = find(*object_, key);
  require(found != nullptr, "is missing");
  return *found;
}

}  // namespace replay
