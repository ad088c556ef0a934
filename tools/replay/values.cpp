// Reads property values.
#include <limits>
#include <utility>

#include "tools/replay/fields.h"

namespace replay {
namespace {

using veltrano::HostMap;
using veltrano::HostValue;

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

veltrano::NSNumber boxedNumber(const Fields& fields) {
  const int code = fields.get<int>("code");
  try {
    return veltrano::NSNumber(code, fields.get<std::int64_t>("v"));
  } catch (const ScenarioError&) {  // not an integer, or a larger one
    return veltrano::NSNumber(code, fields.get<double>("v"));
  }
}

// The values that `value` consists of: none unless it is a container.
std::vector<const JSONValue*> partsOf(const JSONValue& value) {
  std::vector<const JSONValue*> parts;
  const std::string kind = kindOf(value);
  if (kind == "Dictionary" || kind == "Array" || value.IsArray()) {
    const JSONValue& list = value.IsArray() ? value : Fields(value).json("v");
    if (!list.IsArray()) throw ScenarioError("the \"v\" of a container must be a list");
    for (const JSONValue& item : list.GetArray()) {
      if (kind != "Dictionary") {
        parts.push_back(&item);
        continue;
      }
      if (!item.IsArray() || item.Size() != 2)
        throw ScenarioError("the entries of a Dictionary are pairs of key and value");
      parts.insert(parts.end(), {&item[0], &item[1]});
    }
  } else if (kind.empty() && value.IsObject()) {
    for (const auto& member : value.GetObject()) parts.push_back(&member.value);
  }
  return parts;
}

// A value of the kind that "$" names, which is no container.
HostValue valueOfKind(const Fields& fields, const std::string& kind) {
  if (kind == "String") return fields.get<std::string>("v");
  if (kind == "Int") return fields.get<std::int64_t>("v");
  if (kind == "UInt") return fields.get<std::uint64_t>("v");
  if (kind == "Int64") return veltrano::Int64{fields.get<std::int64_t>("v")};
  if (kind == "Double") return real<double>(fields);
  if (kind == "Float") return real<float>(fields);
  if (kind == "Bool") return fields.get<bool>("v");
  if (kind == "URL") return veltrano::URL(fields.get<std::string>("v"));
  if (kind == "Date") return veltrano::Date::fromSecondsSince1970(fields.get<double>("v"));
  if (kind == "NSNumber") return boxedNumber(fields);
  if (kind == "NSNull") return veltrano::NSNull{};
  if (kind == "Object") return veltrano::OtherObject{};
  if (kind == "Absent") return {};
  throw ScenarioError("unknown kind of value: " + kind);
}

// A value whose parts have been read.
HostValue assembled(const JSONValue& value, const std::vector<HostValue>& parts) {
  const std::string kind = kindOf(value);
  if (value.IsArray() || kind == "Array") return veltrano::Array(parts);
  if (kind == "Dictionary") {
    std::vector<veltrano::DictionaryEntry> entries;
    for (std::size_t i = 0; i < parts.size(); i += 2) entries.push_back({parts[i], parts[i + 1]});
    return veltrano::Dictionary(entries);
  }
  if (!kind.empty()) return valueOfKind(Fields(value), kind);
  if (value.IsObject()) {
    HostMap map;
    auto part = parts.begin();
    for (const auto& member : value.GetObject()) map.set(nameOf(member), *part++);
    return map;
  }
  if (value.IsNull()) return {};
  if (value.IsBool()) return value.GetBool();
  if (isString(value)) return textOf(value);
  std::int64_t integer = 0;
  double number = 0;
  if (isInteger(value)) return read(value, integer), integer;
  return read(value, number), number;
}

}  // namespace

// Does not recurse, because values may be nested to any depth.
void read(const JSONValue& json, HostValue& value) {
  struct Container {
    const JSONValue* json;
    std::vector<const JSONValue*> parts;
    std::vector<HostValue> read;  // the first parts
  };
  std::vector<Container> open{{&json, partsOf(json), {}}};
  for (;;) {
    Container& last = open.back();
    if (last.read.size() < last.parts.size()) {
      const JSONValue* part = last.parts[last.read.size()];
      open.push_back({part, partsOf(*part), {}});
      continue;
    }
    HostValue whole = assembled(*last.json, last.read);
    open.pop_back();
    if (open.empty()) return void(value = std::move(whole));
    open.back().read.push_back(std::move(whole));
  }
}

void read(const JSONValue& json, HostMap& value) {
  if (!json.IsObject()) throw ScenarioError("must be an object");
  HostValue held;
  for (const auto& member : json.GetObject()) {
    read(member.value, held);
    value.set(nameOf(member), held);
  }
}

}  // namespace replay
