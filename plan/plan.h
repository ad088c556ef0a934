// A tracking plan: the events of an application and their properties. The tool, worlds and the
// collector read and check it alike.
#pragma once

#include <cmath>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "encoding/json_text.h"

namespace veltrano::planning {

enum class Type { any, text, integer, number, boolean, date, uri, list, object };

struct Property;
class Validator;

/// A limit of a number, or of the length of a text or a list, on one side.
struct Bound {
  std::string word;  // such as "exclusiveMinimum"; empty if there is none
  double value = 0;  // as the plan says it
  double end = 0;    // the last value that it allows
};

/// What a value may be.
struct Schema {
  Type type = Type::any;
  std::string description;
  std::vector<std::string> values;  // of an enumeration, whose type is text
  Bound least{{}, 0, -HUGE_VAL}, most{{}, 0, HUGE_VAL};
  std::string pattern;               // as the plan says it
  std::vector<Property> properties;  // of an object, in the plan's order
  bool isOpen = false;               // an object with further properties
  std::vector<Schema> element;       // of a list: one schema

  /// In words, such as "number (minimum 0)".
  std::string text() const;

  /// What lists contain in the end, or the schema itself.
  const Schema& innermost() const { return element.empty() ? *this : element[0].innermost(); }

  mutable std::shared_ptr<const Validator> validator;  // made when it is first needed
};

/// A property, or an event with the schema of its properties.
struct Property {
  std::string name;
  Schema schema;
  bool isRequired = false;
};
using Event = Property;

/// The one of this name, or null.
inline const Property* find(const std::vector<Property>& all, std::string_view name) {
  for (const Property& one : all)
    if (one.name == name) return &one;
  return nullptr;
}

/// What is wrong with a plan: a line such as "plan.json:12:9: ..." for each fault.
struct Faults : std::runtime_error {
  explicit Faults(const std::string& lines, std::set<std::string> without = {})
      : runtime_error(lines), taken(std::move(without)) {}

  std::set<std::string> taken;  // what has the identifier of another: "event.property = value"
};

/// What tests can cover: the name of an event, the path of an optional property, a value of an
/// enumeration. The first character says which: 'e', 'p' or 'v'. Tabs, which no name has, separate
/// names: "pevent\tproperty", "vevent\tproperty\t= value".
using Coverage = std::set<std::string>;

/// What records have shown so far.
struct Checked {
  Coverage covered;
  std::set<std::string> complaints;  // what has been complained about
};

struct Plan {
  std::string nameSpace, description;
  std::vector<Event> events;  // in the plan's order
  Schema superProperties;

  /// Throws `Faults`.
  static Plan read(const std::string& file);
  static Plan parse(const std::string& json, const std::string& file);

  /// What is not as planned in an event as it is sent, as JSON. Each text names the event, or says
  /// that it is about super properties, the property, what was sent and what was planned. The
  /// library's own events and properties are always as planned. Adds to
  /// `checked` what the event covers and what is complained about, and leaves out what has been
  /// complained about before. Not thread-safe.
  std::vector<std::string> check(std::string_view record, Checked& checked) const;

  /// Everything that tests can cover.
  Coverage coverable() const;
};

/// A text's characters, for patterns and names.
std::wstring codePoints(std::string_view text);

/// Why no value can be checked against a pattern; empty if one can.
std::string faultOfPattern(std::string_view pattern);

/// The pattern of a date and time. The 29th of February is that of a leap year.
inline constexpr char kDate[] =
    R"(^((\d\d(0[48]|[2468][048]|[13579][26])|([02468][048]|[13579][26])00)-02-29|)"
    R"(\d{4}-((0[1-9]|1[0-2])-(0[1-9]|1\d|2[0-8])|(0[13-9]|1[0-2])-(29|30)|(0[13578]|1[02])-31)))"
    R"([Tt]([01]\d|2[0-3]):[0-5]\d:([0-5]\d|60)(\.\d+)?([Zz]|[+-]([01]\d|2[0-3]):[0-5]\d)$)";

/// What a file has in it. Throws `Faults` if it cannot be read.
std::string contentOf(const std::string& file);

/// Whether the library sends an event or a property of this name by itself.
bool isLibrarysEvent(std::string_view name);
bool isLibrarysProperty(std::string_view name);

/// The name of a type in JSON Schema.
const char* jsonTypeOf(Type type);

/// The text as a JSON string, in which also line ends and control characters are escaped.
inline std::string inQuotes(std::string_view text) {
  return internal::json(text);
}

/// A text of RapidJSON's.
template <class Value>
std::string_view view(const Value& text) {
  return {text.GetString(), text.GetStringLength()};
}

/// The shortest that is the number, without an exponent unless it is very large or small.
std::string numberText(double number);

}  // namespace veltrano::planning
