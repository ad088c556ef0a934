// A tracking plan: the events of an application and their properties. The tool, worlds and the
// collector read and check it alike.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace veltrano::planning {

enum class Type { any, text, integer, number, boolean, date, uri, list, object };

struct Property;
class Validator;

/// What a value may be.
struct Schema {
  Type type = Type::any;
  std::string description;
  std::vector<std::string> values;       // of an enumeration, whose type is text
  std::map<std::string, double> bounds;  // such as "minimum"; an exclusive one as a number
  std::string pattern;                   // as the plan says it
  std::vector<Property> properties;      // of an object, in the plan's order
  bool isOpen = false;                   // an object with further properties
  std::vector<Schema> element;           // of a list: one schema

  /// In words, such as "number (minimum 0)".
  std::string text() const;

  /// The same for JSON Schema's draft 4, without properties and elements.
  std::string draft4;
  mutable std::shared_ptr<const Validator> validator;  // made when it is first needed
};

/// A property, or an event with the schema of its properties.
struct Property {
  std::string name;
  Schema schema;
  bool isRequired = false;
};
using Event = Property;

/// What is wrong with a plan: a line such as "plan.json:12:9: ..." for each fault.
struct Faults : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// One thing that is not as planned.
struct Violation {
  std::string property;  // a path such as "items[2].price"; empty if the event is not planned
  std::string text;      // names the event, the property, what was sent and what was planned
  bool isOfEveryEvent = false;  // among super properties
};

/// What tests can cover: the name of an event, the path of an optional property, a value of an
/// enumeration. The first character says which: 'e', 'p' or 'v'.
using Coverage = std::set<std::string>;

struct Plan {
  std::string nameSpace;
  std::vector<Event> events;  // in the plan's order
  Schema superProperties;

  /// Throws `Faults`.
  static Plan read(const std::string& file);
  static Plan parse(const std::string& json, const std::string& file);

  /// Checks an event as it is sent, as JSON, and adds what it covers. The library's own events and
  /// properties are no violations. Not thread-safe.
  std::vector<Violation> check(std::string_view record, Coverage& covered) const;

  /// Everything that tests can cover.
  Coverage coverable() const;
};

/// Whether the library sends an event or a property of this name by itself.
bool isLibrarysEvent(std::string_view name);
bool isLibrarysProperty(std::string_view name);

/// Why no plan can have a name, such as `"..." has control characters`; empty if one can.
std::string faultOfName(std::string_view name);

/// The text as a JSON string, in which also line ends and control characters are escaped.
std::string quoted(std::string_view text);

/// Without needless decimals.
std::string numberText(double number);

}  // namespace veltrano::planning
