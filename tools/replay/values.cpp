// Reads property values.
#include <limits>

#include "properties/flat.h"
#include "tools/replay/fields.h"

namespace replay {
namespace {

using namespace veltrano;

// The kind that an object names with "$", or "" for any other value.
std::string kindOf(const JSONValue& value) {
  if (!value.IsObject() || find(value, "$") == nullptr) return "";
  const auto kind = Fields(value).get<std::string>("$");
  return kind.empty() ? throw ScenarioError("a value has an empty kind") : kind;
}

template <class Real>
Real real(const Fields& fields) {
  if (!isString(fields.json("v"))) return fields.get<Real>("v");
  const auto text = fields.get<std::string>("v");
  if (text == "nan") return std::numeric_limits<Real>::quiet_NaN();
  if (text == "inf") return std::numeric_limits<Real>::infinity();
  if (text == "-inf") return -std::numeric_limits<Real>::infinity();
  throw ScenarioError("not a number: " + text);
}

NSNumber boxedNumber(const Fields& fields) {
  const int code = fields.get<int>("code");
  try {
    return NSNumber(code, fields.get<std::int64_t>("v"));
  } catch (const ScenarioError&) {  // not an integer, or a larger one
    return NSNumber(code, fields.get<double>("v"));
  }
}

HostValue valueIn(const JSONValue& json, int level);

std::vector<HostValue> elementsIn(const JSONValue& list, int level) {
  if (!list.IsArray()) throw ScenarioError("the \"v\" of a container must be a list");
  std::vector<HostValue> elements;
  for (const JSONValue& item : list.GetArray()) elements.push_back(valueIn(item, level + 1));
  return elements;
}

std::vector<DictionaryEntry> entriesIn(const JSONValue& list, int level) {
  if (!list.IsArray()) throw ScenarioError("the \"v\" of a container must be a list");
  std::vector<DictionaryEntry> entries;
  for (const JSONValue& item : list.GetArray()) {
    if (!item.IsArray() || item.Size() != 2)
      throw ScenarioError("the entries of a Dictionary are pairs of key and value");
    entries.push_back({valueIn(item[0], level + 1), valueIn(item[1], level + 1)});
  }
  return entries;
}

HostMap mapIn(const JSONValue& object, int level) {
  if (!object.IsObject()) throw ScenarioError("must be an object");
  HostMap map;
  for (const auto& member : object.GetObject())
    map.set(nameOf(member), valueIn(member.value, level + 1));
  return map;
}

// A value of the kind that "$" names.
HostValue valueOfKind(const Fields& fields, const std::string& kind, int level) {
  if (kind == "String") return fields.get<std::string>("v");
  if (kind == "Int") return fields.get<std::int64_t>("v");
  if (kind == "UInt") return fields.get<std::uint64_t>("v");
  if (kind == "Int64") return Int64{fields.get<std::int64_t>("v")};
  if (kind == "Double") return real<double>(fields);
  if (kind == "Float") return real<float>(fields);
  if (kind == "Bool") return fields.get<bool>("v");
  if (kind == "URL") return URL(fields.get<std::string>("v"));
  if (kind == "Date") return Date::fromSecondsSince1970(fields.get<double>("v"));
  if (kind == "NSNumber") return boxedNumber(fields);
  if (kind == "NSNull") return NSNull{};
  if (kind == "Array") return Array(elementsIn(fields.json("v"), level));
  if (kind == "Dictionary") return Dictionary(entriesIn(fields.json("v"), level));
  if (kind == "Object") return OtherObject{};
  if (kind == "Absent") return {};
  throw ScenarioError("unknown kind of value: " + kind);
}

HostValue valueIn(const JSONValue& json, int level) {
  // The library drops containers at this depth, whatever they hold. Values may be nested to any
  // depth, so this bounds the recursion.
  if (level > internal::kMaxNesting) return {};
  const std::string kind = kindOf(json);
  if (!kind.empty()) return valueOfKind(Fields(json), kind, level);
  if (json.IsObject()) return mapIn(json, level);
  if (json.IsArray()) return Array(elementsIn(json, level));
  if (json.IsNull()) return {};
  if (json.IsBool()) return json.GetBool();
  if (isString(json)) return textOf(json);
  std::int64_t integer = 0;
  double number = 0;
  if (isInteger(json)) return read(json, integer), integer;
  return read(json, number), number;
}

}  // namespace

void read(const JSONValue& json, HostValue& value) {
  value = valueIn(json, 0);
}

void read(const JSONValue& json, HostMap& value) {
  value = mapIn(json, -1);  // the map itself is not a property
}

}  // namespace replay
