#include "tools/replay/fields.h"

#include <cmath>
#include <cstdlib>

#include "encoding/numbers.h"

namespace replay {
namespace {

void require(bool condition, const char* otherwise) {
  if (!condition) throw ScenarioError(otherwise);
}

}  // namespace

void read(const JSONValue& json, bool& value) {
  require(json.IsBool(), "must be true or false");
  value = json.GetBool();
}

template <std::integral Integer>
void read(const JSONValue& json, Integer& value) {
  require(isInteger(json), "must be an integer");
  const auto parsed = veltrano::internal::wholeNumber<Integer>(textOf(json));
  require(parsed.has_value(), "is out of range");
  value = *parsed;
}

template <std::floating_point Real>
void read(const JSONValue& json, Real& value) {
  require(isNumber(json), "must be a number");
  const std::string_view text = textOf(json);
  if (const auto parsed = veltrano::internal::decimalNumber<Real>(text)) {
    value = *parsed;
  } else {
    // Underflow is not an error: the nearest number is 0.
    require(std::abs(std::strtod(std::string(text).c_str(), nullptr)) < 1, "is out of range");
    value = std::copysign(Real(0), text.front() == '-' ? Real(-1) : Real(1));
  }
}

template void read(const JSONValue&, int&);
template void read(const JSONValue&, std::int64_t&);
template void read(const JSONValue&, std::uint64_t&);
template void read(const JSONValue&, float&);
template void read(const JSONValue&, double&);

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
