#include "tools/replay/step_fields.h"

#include <cmath>

#include "tools/replay/value_reader.h"

namespace replay {
namespace {

using Value = JsonText::Value;
using Kind = JsonText::Kind;

[[noreturn]] void fail(std::string_view key, std::string_view problem) {
  throw ScenarioError("field \"" + std::string(key) + "\" " + std::string(problem));
}

}  // namespace

StepFields::StepFields(const JsonText& json, const Value& object) : json_(&json), object_(&object) {
  if (object.kind != Kind::object) throw ScenarioError("not an object");
}

const Value& StepFields::require(std::string_view key, Kind kind, std::string_view wanted) const {
  const Value* value = find(key);
  if (value == nullptr) fail(key, "is missing");
  if (value->kind != kind) fail(key, "must be " + std::string(wanted));
  return *value;
}

bool StepFields::isNull(std::string_view key) const {
  const Value* value = find(key);
  return value != nullptr && value->kind == Kind::null;
}

std::string StepFields::string(std::string_view key) const {
  return require(key, Kind::string, "a string").text;
}

std::optional<std::string> StepFields::stringOrNull(std::string_view key) const {
  if (isNull(key)) return std::nullopt;
  return require(key, Kind::string, "a string or null").text;
}

bool StepFields::boolean(std::string_view key) const {
  return require(key, Kind::boolean, "true or false").flag;
}

std::int64_t StepFields::integer(std::string_view key, std::int64_t lowest,
                                 std::int64_t highest) const {
  const std::string& text = require(key, Kind::number, "an integer").text;
  if (!isIntegerText(text)) fail(key, "must be an integer");
  const auto number = parsedNumber<std::int64_t>(text, key);
  if (number < lowest || number > highest) fail(key, "is out of range");
  return number;
}

double StepFields::number(std::string_view key) const {
  return parsedNumber<double>(require(key, Kind::number, "a number").text, key);
}

veltrano::internal::Duration StepFields::duration(std::string_view key) const {
  constexpr double kMaxSeconds = 1e12;
  const double seconds = number(key);
  if (std::abs(seconds) > kMaxSeconds) fail(key, "is out of range");
  return veltrano::internal::durationFromSeconds(seconds);
}

veltrano::HostValue StepFields::value(std::string_view key) const {
  const Value* value = find(key);
  if (value == nullptr) fail(key, "is missing");
  return readValue(*json_, *value);
}

veltrano::HostMap StepFields::map(std::string_view key) const {
  return readMap(*json_, require(key, Kind::object, "an object"));
}

std::optional<veltrano::HostMap> StepFields::mapOrNull(std::string_view key) const {
  if (isNull(key)) return std::nullopt;
  return readMap(*json_, require(key, Kind::object, "an object or null"));
}

std::optional<std::vector<std::string>> StepFields::stringsOrNull(std::string_view key) const {
  if (isNull(key)) return std::nullopt;
  std::vector<std::string> strings;
  for (const std::size_t item : require(key, Kind::array, "a list of strings or null").items) {
    if (json_->at(item).kind != Kind::string) fail(key, "must be a list of strings or null");
    strings.push_back(json_->at(item).text);
  }
  return strings;
}

std::vector<double> StepFields::numbers(std::string_view key, std::size_t count) const {
  const Value& list = require(key, Kind::array, "a list of numbers");
  if (list.items.size() != count) fail(key, "has another number of elements");
  std::vector<double> numbers;
  for (const std::size_t item : list.items) {
    if (json_->at(item).kind != Kind::number) fail(key, "must be a list of numbers");
    numbers.push_back(parsedNumber<double>(json_->at(item).text, key));
  }
  return numbers;
}

StepFields StepFields::object(std::string_view key) const {
  return StepFields(*json_, require(key, Kind::object, "an object"));
}

std::vector<StepFields> StepFields::objects(std::string_view key) const {
  std::vector<StepFields> objects;
  for (const std::size_t item : require(key, Kind::array, "a list of steps").items)
    objects.emplace_back(*json_, json_->at(item));
  return objects;
}

}  // namespace replay
