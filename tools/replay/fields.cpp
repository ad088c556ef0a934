#include "tools/replay/fields.h"

#include <cmath>
#include <functional>
#include <limits>

#include "tools/replay/value_reader.h"

namespace replay {
namespace {

[[noreturn]] void fail(std::string_view key, const std::string& problem) {
  throw ScenarioError("field \"" + std::string(key) + "\" " + problem);
}

}  // namespace

Fields::Fields(const JSONValue& object) : object_(&object) {
  if (!object.IsObject()) throw ScenarioError("not an object");
}

template <class Is>
const JSONValue& Fields::require(std::string_view key, Is is, const char* wanted) const {
  const JSONValue* value = find(*object_, key);
  if (value == nullptr) fail(key, "is missing");
  if (!std::invoke(is, *value)) fail(key, std::string("must be ") + wanted);
  return *value;
}

bool Fields::isNull(std::string_view key) const {
  return has(key) && find(*object_, key)->IsNull();
}

std::int64_t Fields::integer(std::string_view key, std::int64_t lowest,
                             std::int64_t highest) const {
  const JSONValue& value = require(key, isNumber, "an integer");
  if (!isInteger(value)) fail(key, "must be an integer");
  const auto number = parsedNumber<std::int64_t>(value, key);
  if (number < lowest || number > highest) fail(key, "is out of range");
  return number;
}

Fields Fields::object(std::string_view key) const {
  return Fields(require(key, &JSONValue::IsObject, "an object"));
}

std::vector<Fields> Fields::objects(std::string_view key) const {
  const auto list = require(key, &JSONValue::IsArray, "a list of steps").GetArray();
  return {list.begin(), list.end()};
}

void Fields::read(std::string_view key, bool& value) const {
  value = require(key, &JSONValue::IsBool, "true or false").GetBool();
}

void Fields::read(std::string_view key, int& value) const {
  using Limits = std::numeric_limits<int>;
  value = static_cast<int>(integer(key, Limits::min(), Limits::max()));
}

void Fields::read(std::string_view key, double& value) const {
  value = parsedNumber<double>(require(key, isNumber, "a number"), key);
}

void Fields::read(std::string_view key, std::string& value) const {
  value = textOf(require(key, isString, "a string"));
}

void Fields::read(std::string_view key, std::optional<std::string>& value) const {
  value.reset();
  if (!isNull(key)) value = textOf(require(key, isString, "a string or null"));
}

void Fields::read(std::string_view key, std::optional<std::vector<std::string>>& value) const {
  constexpr const char* kWanted = "a list of strings or null";
  value.reset();
  if (isNull(key)) return;
  value.emplace();
  for (const JSONValue& item : require(key, &JSONValue::IsArray, kWanted).GetArray()) {
    if (!isString(item)) fail(key, std::string("must be ") + kWanted);
    value->emplace_back(textOf(item));
  }
}

void Fields::read(std::string_view key, std::vector<double>& value) const {
  constexpr const char* kWanted = "a list of numbers";
  for (const JSONValue& item : require(key, &JSONValue::IsArray, kWanted).GetArray()) {
    if (!isNumber(item)) fail(key, std::string("must be ") + kWanted);
    value.push_back(parsedNumber<double>(item, key));
  }
}

void Fields::read(std::string_view key, std::map<std::string, double>& value) const {
  const Fields fields = object(key);
  for (const auto& member : fields.object_->GetObject())
    fields.read(nameOf(member), value[std::string(nameOf(member))]);
}

// A number of seconds, rounded to microseconds.
void Fields::read(std::string_view key, veltrano::internal::Duration& value) const {
  constexpr double kMaxSeconds = 1e12;
  const auto seconds = get<double>(key);
  if (std::abs(seconds) > kMaxSeconds) fail(key, "is out of range");
  value = veltrano::internal::durationFromSeconds(seconds);
}

void Fields::read(std::string_view key, veltrano::HostValue& value) const {
  if (!has(key)) fail(key, "is missing");
  value = readValue(*find(*object_, key));
}

void Fields::read(std::string_view key, veltrano::HostMap& value) const {
  value = readMap(require(key, &JSONValue::IsObject, "an object"));
}

void Fields::read(std::string_view key, std::optional<veltrano::HostMap>& value) const {
  value.reset();
  if (!isNull(key)) value = readMap(require(key, &JSONValue::IsObject, "an object or null"));
}

}  // namespace replay
