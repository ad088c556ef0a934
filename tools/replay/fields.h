#pragma once

#include <cmath>
#include <concepts>
#include <cstdlib>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "encoding/numbers.h"
#include "encoding/time.h"
#include "tools/replay/json.h"
#include "veltrano/value.h"

namespace replay {

inline void require(bool condition, const char* otherwise) {
  if (!condition) throw ScenarioError(otherwise);
}

// Each reads one value. Throws ScenarioError, which says what it must be, if it is something else.
void read(const JSONValue& json, bool& value);
void read(const JSONValue& json, std::string& value);
/// A number of seconds, rounded to microseconds.
void read(const JSONValue& json, veltrano::internal::Duration& value);
/// Plain JSON, or {"$": kind, ...} for values that JSON cannot represent.
void read(const JSONValue& json, veltrano::HostValue& value);
/// `$` is an ordinary key here.
void read(const JSONValue& json, veltrano::HostMap& value);

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

template <class T>
void read(const JSONValue& json, std::vector<T>& values) {
  require(json.IsArray(), "must be a list");
  for (const JSONValue& item : json.GetArray()) read(item, values.emplace_back());
}

template <class T>
void read(const JSONValue& json, std::map<std::string, T>& values) {
  require(json.IsObject(), "must be an object");
  for (const auto& member : json.GetObject())
    read(member.value, values[std::string(nameOf(member))]);
}

/// For what may be null.
template <class T>
void read(const JSONValue& json, std::optional<T>& value) {
  value.reset();
  if (!json.IsNull()) read(json, value.emplace());
}

/// The fields of a step, or of an object in it, which has to outlive this.
class Fields {
 public:
  explicit Fields(const JSONValue& object) : object_(&object) {
    require(object.IsObject(), "must be an object");
  }

  bool has(std::string_view key) const { return find(*object_, key) != nullptr; }

  /// Throws ScenarioError if there is none.
  const JSONValue& json(std::string_view key) const;

  /// Of a type that a `read` takes.
  template <class T>
  T get(std::string_view key) const {
    try {
      T value{};
      read(json(key), value);
      return value;
    } catch (const ScenarioError& error) {
      throw ScenarioError("field \"" + std::string(key) + "\" " + error.what());
    }
  }

  template <class T>
  std::optional<T> getIfThere(std::string_view key) const {
    return has(key) ? std::make_optional<T>(get<T>(key)) : std::nullopt;
  }

  /// Leaves `value` as it is if the field is missing.
  template <class T>
  void update(std::string_view key, T& value) const {
    if (has(key)) value = get<T>(key);
  }

 private:
  const JSONValue* object_;
};

}  // namespace replay
