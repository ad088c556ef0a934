#include "test_kit/json.h"

#include "encoding/rapidjson_settings.h"
// Included after its settings.
#include <rapidjson/document.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>
#include <vector>

#include "properties/flat.h"
#include "veltrano/testing.h"

namespace veltrano::testing {
namespace {

namespace rapidjson = internal::rapidjson;
using internal::JSONWriter;
using Member = SupportedParameterType::Member;

// A number to compare. Integers are compared exactly; `real` may round them.
struct Number {
  double real = 0;
  std::optional<std::int64_t> integer;
  std::optional<std::uint64_t> large;  // above INT64_MAX
};

bool operator==(const Number& left, const Number& right) {
  const auto isInteger = [](const Number& number) { return number.integer || number.large; };
  if (isInteger(left) && isInteger(right))
    return left.integer == right.integer && left.large == right.large;
  return left.real == right.real;
}

Number numberOf(std::int64_t value) {
  return {static_cast<double>(value), value, std::nullopt};
}

Number numberOf(std::uint64_t value) {
  if (value <= INT64_MAX) return numberOf(static_cast<std::int64_t>(value));
  return {static_cast<double>(value), std::nullopt, value};
}

// The member that a boxed number is sent as.
HostValue unboxed(const NSNumber& number) {
  switch (internal::kindOfBoxed(number.storageTypeCode())) {
    case internal::Kind::Int:
      return number.integerValue();
    case internal::Kind::Bool:
      return number.boolValue();
    default:
      return number.doubleValue();
  }
}

HostValue asSent(const HostValue& value) {
  const auto number = value.number();
  return number ? unboxed(*number) : value;
}

std::optional<Number> numberIn(const SupportedParameterType& value) {
  switch (value.member()) {
    case Member::Int:
      return numberOf(*value.getIf<std::int64_t>());
    case Member::UInt:
      return numberOf(*value.getIf<std::uint64_t>());
    case Member::Int64:
      return numberOf(value.getIf<Int64>()->value);
    case Member::Double:
      return Number{*value.getIf<double>(), {}, {}};
    case Member::Float:
      return Number{*value.getIf<float>(), {}, {}};
    default:
      return std::nullopt;
  }
}

std::optional<std::string> textIn(const SupportedParameterType& value) {
  switch (value.member()) {
    case Member::String:
      return value.getIf<std::string>();
    case Member::URL:
      return value.getIf<URL>()->text();
    case Member::Date:
      return value.getIf<Date>()->iso8601();
    default:
      return std::nullopt;
  }
}

// Infinities and NaN are sent as null.
bool isNull(const SupportedParameterType& value) {
  const auto number = numberIn(value);
  return value.member() == Member::NSNull || (number && !std::isfinite(number->real));
}

bool isSent(const HostValue& value) {
  return internal::canBeHeld(internal::viewOf(value));
}

std::vector<HostValue> elementsOf(const Array& array) {
  std::vector<HostValue> elements;
  for (const HostValue& element : array)
    if (isSent(element)) elements.push_back(element);
  return elements;
}

std::vector<DictionaryEntry> entriesOf(const Dictionary& dictionary) {
  std::vector<DictionaryEntry> entries;
  for (const DictionaryEntry& entry : dictionary)
    if (isSent(entry.value)) entries.push_back(entry);
  return entries;
}

bool areEqual(const SupportedParameterType& left, const SupportedParameterType& right) {
  if (isNull(left) || isNull(right)) return isNull(left) && isNull(right);
  if (const auto number = numberIn(left)) {
    const auto other = numberIn(right);
    return other && *number == *other;
  }
  if (const auto text = textIn(left)) return text == textIn(right);
  if (left.member() != right.member()) return false;
  if (left.member() == Member::Bool) return left.getIf<bool>() == right.getIf<bool>();
  if (left.member() == Member::Array)
    return elementsOf(*left.getIf<Array>()) == elementsOf(*right.getIf<Array>());
  const auto entries = entriesOf(*left.getIf<Dictionary>());
  const auto others = entriesOf(*right.getIf<Dictionary>());
  return entries.size() == others.size() &&
         std::all_of(entries.begin(), entries.end(), [&](const DictionaryEntry& entry) {
           return std::any_of(others.begin(), others.end(), [&](const DictionaryEntry& other) {
             return entry.key == other.key && entry.value == other.value;
           });
         });
}

// Writes a value with its type, as scenarios do: {"$": kind, "v": value}.
template <class WriteValue>
void writeKind(JSONWriter& writer, std::string_view kind, WriteValue writeValue) {
  writer.startObject();
  writer.key("$");
  writer.string(kind);
  writer.key("v");
  writeValue();
  writer.endObject();
}

void writeReal(JSONWriter& writer, std::string_view kind, double value) {
  if (std::isfinite(value) && kind == "Double") return writer.number(value);
  writeKind(writer, kind, [&] {
    if (std::isnan(value))
      writer.string("nan");
    else if (std::isinf(value))
      writer.string(value > 0 ? "inf" : "-inf");
    else
      writer.number(value);
  });
}

void writeScenarioDictionary(JSONWriter& writer, const Dictionary& dictionary) {
  HostMap map;
  bool isMap = true;
  for (const DictionaryEntry& entry : dictionary) {
    const auto* key = entry.key.member();
    const auto text = key != nullptr ? key->getIf<std::string>() : std::nullopt;
    isMap = isMap && text && *text != "$";
    if (isMap) map.set(*text, entry.value);
  }
  if (isMap) return writeScenarioMap(writer, map);
  writeKind(writer, "Dictionary", [&] {
    writer.startArray();
    for (const DictionaryEntry& entry : dictionary) {
      writer.startArray();
      writeScenarioValue(writer, entry.key);
      writeScenarioValue(writer, entry.value);
      writer.endArray();
    }
    writer.endArray();
  });
}

void writeScenarioMember(JSONWriter& writer, const SupportedParameterType& value) {
  switch (value.member()) {
    case Member::String:
      return writer.string(*value.getIf<std::string>());
    case Member::Int:
      return writer.integer(*value.getIf<std::int64_t>());
    case Member::UInt:
      return writeKind(writer, "UInt",
                       [&] { writer.unsignedInteger(*value.getIf<std::uint64_t>()); });
    case Member::Int64:
      return writeKind(writer, "Int64", [&] { writer.integer(value.getIf<Int64>()->value); });
    case Member::Double:
      return writeReal(writer, "Double", *value.getIf<double>());
    case Member::Float:
      return writeReal(writer, "Float", *value.getIf<float>());
    case Member::Bool:
      return writer.boolean(*value.getIf<bool>());
    case Member::Date:
      return writeKind(writer, "Date", [&] {
        const std::chrono::duration<double> seconds = value.getIf<Date>()->sinceEpoch();
        writer.number(seconds.count());
      });
    case Member::URL:
      return writeKind(writer, "URL", [&] { writer.string(value.getIf<URL>()->text()); });
    case Member::NSNull:
      writer.startObject();
      writer.key("$");
      writer.string("NSNull");
      return writer.endObject();
    case Member::Array: {
      const Array array = *value.getIf<Array>();
      writer.startArray();
      for (const HostValue& element : array) writeScenarioValue(writer, element);
      return writer.endArray();
    }
    case Member::Dictionary:
      return writeScenarioDictionary(writer, *value.getIf<Dictionary>());
  }
}

HostValue valueOf(const rapidjson::Value& json) {
  if (json.IsString()) return std::string_view(json.GetString(), json.GetStringLength());
  if (json.IsBool()) return json.GetBool();
  if (json.IsInt64()) return json.GetInt64();
  if (json.IsUint64()) return json.GetUint64();
  if (json.IsNumber()) return json.GetDouble();
  if (json.IsArray()) {
    std::vector<HostValue> elements;
    for (const auto& element : json.GetArray()) elements.push_back(valueOf(element));
    return Array(elements);
  }
  if (json.IsObject()) {
    HostMap map;
    for (const auto& member : json.GetObject())
      map.set({member.name.GetString(), member.name.GetStringLength()}, valueOf(member.value));
    return map;
  }
  return NSNull();
}

void appendReadable(std::string& text, const HostValue& value);

template <class Items, class Append>
void appendReadable(std::string& text, const char* brackets, const Items& items, Append append) {
  text += brackets[0];
  const char* separator = "";
  for (const auto& item : items) {
    text += std::exchange(separator, ", ");
    append(item);
  }
  text += brackets[1];
}

void appendReadable(std::string& text, const HostValue& value) {
  if (value.isAbsent()) {
    text += "absent";
  } else if (value.otherObject()) {
    text += "an object of another type";
  } else if (const auto number = value.number()) {
    appendReadable(text, unboxed(*number));
  } else if (const auto array = value.member()->getIf<Array>()) {
    appendReadable(text, "[]", *array, [&](const HostValue& item) { appendReadable(text, item); });
  } else if (const auto dictionary = value.member()->getIf<Dictionary>()) {
    appendReadable(text, "{}", *dictionary, [&](const DictionaryEntry& entry) {
      appendReadable(text, entry.key);
      text += ": ";
      appendReadable(text, entry.value);
    });
  } else {
    const SupportedParameterType& member = *value.member();
    JSONWriter writer;
    if (isNull(member))
      writer.null();
    else if (const auto string = textIn(member))
      writer.string(*string);
    else if (const auto flag = member.getIf<bool>())
      writer.boolean(*flag);
    else if (const auto counted = *numberIn(member); counted.integer)
      writer.integer(*counted.integer);
    else if (counted.large)
      writer.unsignedInteger(*counted.large);
    else
      writer.number(counted.real);
    text += writer.text();
  }
}

}  // namespace

std::optional<HostMap> mapIn(const HostValue& value) {
  const auto* member = value.member();
  const auto dictionary = member != nullptr ? member->getIf<Dictionary>() : std::nullopt;
  if (!dictionary || !dictionary->hasOnlyStringKeys()) return std::nullopt;
  HostMap map;
  for (const DictionaryEntry& entry : *dictionary)
    map.set(*entry.key.member()->getIf<std::string>(), entry.value);
  return map;
}

bool isNotFinite(const HostValue& value) {
  const HostValue sent = asSent(value);
  const auto number = sent.member() != nullptr ? numberIn(*sent.member()) : std::nullopt;
  return number && !std::isfinite(number->real);
}

std::string readableText(const HostValue& value) {
  std::string text;
  appendReadable(text, value);
  return text;
}

void writeScenarioMap(JSONWriter& writer, const HostMap& map) {
  writer.startObject();
  for (const auto& [key, value] : map) {
    writer.key(key);
    writeScenarioValue(writer, value);
  }
  writer.endObject();
}

void writeScenarioValue(JSONWriter& writer, const HostValue& value) {
  if (value.member() != nullptr) return writeScenarioMember(writer, *value.member());
  if (value.isAbsent()) return writer.null();
  writer.startObject();
  writer.key("$");
  if (const auto number = value.number()) {
    writer.string("NSNumber");
    writer.key("code");
    writer.integer(number->storageTypeCode());
    writer.key("v");
    // Scenarios cannot express infinities and NaN in an NSNumber.
    const double real = number->doubleValue();
    if (!std::isfinite(real) || static_cast<double>(number->integerValue()) == real)
      writer.integer(number->integerValue());
    else
      writer.number(real);
  } else {
    writer.string("Object");
  }
  writer.endObject();
}

HostValue parsedJSON(std::string_view text) {
  rapidjson::Document document;
  document.Parse<rapidjson::kParseFullPrecisionFlag>(text.data(), text.size());
  return document.HasParseError() ? HostValue() : valueOf(document);
}

}  // namespace veltrano::testing

namespace veltrano {

bool operator==(const HostValue& left, const HostValue& right) {
  const HostValue l = testing::asSent(left);
  const HostValue r = testing::asSent(right);
  if (l.member() == nullptr || r.member() == nullptr)
    return l.member() == nullptr && r.member() == nullptr && l.isAbsent() == r.isAbsent();
  return testing::areEqual(*l.member(), *r.member());
}

std::ostream& operator<<(std::ostream& out, const HostValue& value) {
  return out << testing::readableText(value);
}

}  // namespace veltrano
