#include "tools/replay/value_reader.h"

#include <charconv>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace replay {
namespace {

using veltrano::HostMap;
using veltrano::HostValue;

// The kind that an object names with "$", or "" for any other value.
std::string_view kindOf(const JSONValue& value) {
  const JSONValue* kind = value.IsObject() ? find(value, "$") : nullptr;
  if (kind == nullptr) return "";
  if (!kind->IsString() || textOf(*kind).empty()) throw ScenarioError("unknown kind of value");
  return textOf(*kind);
}

// The field `key` of a value's kind. Throws unless it has the JSON type that `is` tests.
template <class Is>
const JSONValue& field(const JSONValue& object, std::string_view key, Is is) {
  const JSONValue* found = find(object, key);
  if (found == nullptr || !std::invoke(is, *found))
    throw ScenarioError("a value of kind " + std::string(kindOf(object)) + " needs another \"" +
                        std::string(key) + "\"");
  return *found;
}

template <class Number>
Number integer(const JSONValue& object, const char* key, const char* what) {
  const JSONValue& number = field(object, key, isNumber);
  if (!isInteger(number)) throw ScenarioError("not an integer: " + std::string(textOf(number)));
  return parsedNumber<Number>(number, what);
}

template <class Number>
Number real(const JSONValue& object) {
  const JSONValue* v = find(object, "v");
  if (v != nullptr && isString(*v)) {
    if (textOf(*v) == "nan") return std::numeric_limits<Number>::quiet_NaN();
    if (textOf(*v) == "inf") return std::numeric_limits<Number>::infinity();
    if (textOf(*v) == "-inf") return -std::numeric_limits<Number>::infinity();
  }
  return parsedNumber<Number>(field(object, "v", isNumber), "a number");
}

veltrano::NSNumber boxedNumber(const JSONValue& object) {
  const auto code = integer<std::int64_t>(object, "code", "a type code");
  if (code < std::numeric_limits<int>::min() || code > std::numeric_limits<int>::max())
    throw ScenarioError("a type code is out of range");
  const JSONValue& number = field(object, "v", isNumber);
  const auto real = parsedNumber<double>(number, "a number");
  const std::string_view text = textOf(number);
  std::int64_t integer = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), integer);
  if (isInteger(number) && error == std::errc())
    return veltrano::NSNumber(static_cast<int>(code), integer);
  return veltrano::NSNumber(static_cast<int>(code), real);
}

// The values that `value` consists of: none unless it is a container.
std::vector<const JSONValue*> partsOf(const JSONValue& value) {
  std::vector<const JSONValue*> parts;
  const std::string_view kind = kindOf(value);
  if (kind == "Dictionary") {
    for (const JSONValue& pair : field(value, "v", &JSONValue::IsArray).GetArray()) {
      if (!pair.IsArray() || pair.Size() != 2)
        throw ScenarioError("the entries of a Dictionary are pairs of key and value");
      parts.insert(parts.end(), {&pair[0], &pair[1]});
    }
  } else if (kind == "Array" || value.IsArray()) {
    const JSONValue& list = value.IsArray() ? value : field(value, "v", &JSONValue::IsArray);
    for (const JSONValue& element : list.GetArray()) parts.push_back(&element);
  } else if (kind.empty() && value.IsObject()) {
    for (const auto& member : value.GetObject()) parts.push_back(&member.value);
  }
  return parts;
}

// A value of the kind that "$" names, which is no container.
HostValue valueOfKind(const JSONValue& object, std::string_view kind) {
  if (kind == "String") return textOf(field(object, "v", isString));
  if (kind == "Int") return integer<std::int64_t>(object, "v", "an Int");
  if (kind == "UInt") return integer<std::uint64_t>(object, "v", "a UInt");
  if (kind == "Int64") return veltrano::Int64{integer<std::int64_t>(object, "v", "an Int64")};
  if (kind == "Double") return real<double>(object);
  if (kind == "Float") return real<float>(object);
  if (kind == "Bool") return field(object, "v", &JSONValue::IsBool).GetBool();
  if (kind == "URL") return veltrano::URL(textOf(field(object, "v", isString)));
  if (kind == "NSNumber") return boxedNumber(object);
  if (kind == "NSNull") return veltrano::NSNull{};
  if (kind == "Object") return veltrano::OtherObject{};
  if (kind == "Absent") return {};
  if (kind == "Date")
    return veltrano::Date::fromSecondsSince1970(
        parsedNumber<double>(field(object, "v", isNumber), "a Date"));
  throw ScenarioError("unknown kind of value: " + std::string(kind));
}

// A value whose parts have been read.
HostValue assembled(const JSONValue& value, std::vector<HostValue> parts) {
  const std::string_view kind = kindOf(value);
  if (value.IsArray() || kind == "Array") return veltrano::Array(std::move(parts));
  if (kind == "Dictionary") {
    std::vector<veltrano::DictionaryEntry> entries;
    for (std::size_t i = 0; i < parts.size(); i += 2) entries.push_back({parts[i], parts[i + 1]});
    return veltrano::Dictionary(std::move(entries));
  }
  if (!kind.empty()) return valueOfKind(value, kind);
  if (value.IsObject()) {
    HostMap map;
    auto part = parts.begin();
    for (const auto& member : value.GetObject()) map.set(nameOf(member), *part++);
    return map;
  }
  if (value.IsNull()) return {};
  if (value.IsBool()) return value.GetBool();
  if (isString(value)) return textOf(value);
  if (isInteger(value)) return parsedNumber<std::int64_t>(value, "an Int");
  return parsedNumber<double>(value, "a Double");
}

}  // namespace

// Does not recurse, because values may be nested to any depth.
HostValue readValue(const JSONValue& value) {
  struct Container {
    const JSONValue* json;
    std::vector<const JSONValue*> parts;
    std::vector<HostValue> read;  // the first parts
  };
  std::vector<Container> open{{&value, partsOf(value), {}}};
  for (;;) {
    Container& last = open.back();
    if (last.read.size() < last.parts.size()) {
      const JSONValue* part = last.parts[last.read.size()];
      open.push_back({part, partsOf(*part), {}});
      continue;
    }
    HostValue read = assembled(*last.json, std::move(last.read));
    open.pop_back();
    if (open.empty()) return read;
    open.back().read.push_back(std::move(read));
  }
}

HostMap readMap(const JSONValue& object) {
  HostMap map;
  for (const auto& member : object.GetObject()) map.set(nameOf(member), readValue(member.value));
  return map;
}

}  // namespace replay
