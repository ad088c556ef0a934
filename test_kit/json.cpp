#include "test_kit/json.h"

#include "encoding/rapidjson_settings.h"
// Included after its settings.
#include <rapidjson/document.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include "encoding/utf8.h"
#include "properties/flat.h"
#include "veltrano/testing.h"

namespace veltrano::testing {
namespace {

namespace rapidjson = internal::rapidjson;
using internal::FlatContents;
using internal::FlatView;
using internal::JSONWriter;
using internal::Kind;
using veltrano::detail::FlatAccess;

// What a value is sent as: a boxed number as another kind.
Kind sentKind(FlatView value) {
  return value.kind() == Kind::Number ? internal::kindOfBoxed(value.numberCode()) : value.kind();
}

double realIn(FlatView value) {
  return value.kind() == Kind::Number ? value.numberAsDouble() : value.real();
}

template <class Function>
void forEachEntry(FlatView dictionary, Function function) {
  const FlatContents contents = dictionary.contents();
  for (auto it = contents.begin(); it != contents.end(); ++it) {
    const FlatView key = *it;
    function(key, *++it);
  }
}

bool hasTextKeys(FlatView dictionary) {
  if (dictionary.kind() != Kind::Dictionary) return false;
  bool hasOthers = false;
  forEachEntry(dictionary,
               [&](FlatView key, FlatView) { hasOthers |= key.kind() != Kind::String; });
  return !hasOthers;
}

std::string scalarText(FlatView value, bool forComparison) {
  JSONWriter writer;
  switch (sentKind(value)) {
    case Kind::Bool:
      writer.boolean(value.kind() == Kind::Number ? value.numberAsDouble() != 0 : value.boolean());
      break;
    case Kind::Int:
    case Kind::Int64:
      writer.integer(value.kind() == Kind::Number ? value.numberAsInteger() : value.integer());
      break;
    case Kind::UInt:
      writer.unsignedInteger(static_cast<std::uint64_t>(value.integer()));
      break;
    case Kind::Double:
    case Kind::Float: {
      const double real = realIn(value);
      // Compared with integers, 3.0 is 3.
      if (forComparison && real == std::floor(real) && std::abs(real) < 0x1p63)
        writer.integer(static_cast<std::int64_t>(real));
      else
        writer.number(real);
      break;
    }
    case Kind::Date:
      writer.string(FlatAccess::date(value).iso8601());
      break;
    case Kind::String:
    case Kind::URL:
      writer.string(internal::wellFormedUTF8(value.text()));
      break;
    case Kind::NSNull:
      writer.null();
      break;
    case Kind::Absent:
      return "absent";
    case Kind::OtherObject:
    case Kind::Number:
    case Kind::Array:
    case Kind::Dictionary:
      return "an object of another type";
  }
  return std::string(writer.text());
}

// The value as JSON, with dictionaries sorted by key. For comparison, equal values have equal texts
// and what is never sent is left out; for messages, words stand for it.
std::string textOf(FlatView value, bool forComparison) {
  const auto isLeftOut = [&](FlatView inner) {
    return forComparison && !internal::isSendable(inner);
  };
  if (!value.isContainer()) return scalarText(value, forComparison);
  std::vector<std::string> items;
  if (value.kind() == Kind::Array) {
    for (const FlatView element : value.contents())
      if (!isLeftOut(element)) items.push_back(textOf(element, forComparison));
  } else {
    std::map<std::string, std::optional<std::string>> entries;  // the last one of equal keys wins
    forEachEntry(value, [&](FlatView key, FlatView held) {
      auto& text = entries[textOf(key, forComparison)];
      text.reset();
      if (!isLeftOut(held)) text = textOf(held, forComparison);
    });
    for (const auto& [key, text] : entries)
      if (text) items.push_back(key + ": " + *text);
  }
  std::string text;
  for (const std::string& item : items) text += (text.empty() ? "" : ", ") + item;
  return value.kind() == Kind::Array ? '[' + text + ']' : '{' + text + '}';
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

void writeNumber(JSONWriter& writer, FlatView number) {
  writer.startObject();
  writer.key("$");
  writer.string("NSNumber");
  writer.key("code");
  writer.integer(number.numberCode());
  writer.key("v");
  // Scenarios cannot express infinities and NaN in an NSNumber.
  const double real = number.numberAsDouble();
  if (!std::isfinite(real) || static_cast<double>(number.numberAsInteger()) == real)
    writer.integer(number.numberAsInteger());
  else
    writer.number(real);
  writer.endObject();
}

void writeValue(JSONWriter& writer, FlatView value);

void writeMap(JSONWriter& writer, FlatView map) {
  writer.startObject();
  forEachEntry(map, [&](FlatView key, FlatView held) {
    writer.key(internal::wellFormedUTF8(key.text()));
    writeValue(writer, held);
  });
  writer.endObject();
}

void writeDictionary(JSONWriter& writer, FlatView dictionary) {
  bool isMap = true;
  forEachEntry(dictionary, [&](FlatView key, FlatView) {
    isMap &= key.kind() == Kind::String && key.text() != "$";
  });
  if (isMap) return writeMap(writer, dictionary);
  writeKind(writer, "Dictionary", [&] {
    writer.startArray();
    forEachEntry(dictionary, [&](FlatView key, FlatView held) {
      writer.startArray();
      writeValue(writer, key);
      writeValue(writer, held);
      writer.endArray();
    });
    writer.endArray();
  });
}

void writeValue(JSONWriter& writer, FlatView value) {
  switch (value.kind()) {
    case Kind::String:
      return writer.string(internal::wellFormedUTF8(value.text()));
    case Kind::Int:
      return writer.integer(value.integer());
    case Kind::UInt:
      return writeKind(writer, "UInt", [&] {
        writer.unsignedInteger(static_cast<std::uint64_t>(value.integer()));
      });
    case Kind::Int64:
      return writeKind(writer, "Int64", [&] { writer.integer(value.integer()); });
    case Kind::Double:
      return writeReal(writer, "Double", value.real());
    case Kind::Float:
      return writeReal(writer, "Float", value.real());
    case Kind::Bool:
      return writer.boolean(value.boolean());
    case Kind::Date:
      return writeKind(writer, "Date", [&] {
        const std::chrono::duration<double> time = FlatAccess::date(value).sinceEpoch();
        writer.number(time.count());
      });
    case Kind::URL:
      return writeKind(writer, "URL",
                       [&] { writer.string(internal::wellFormedUTF8(value.text())); });
    case Kind::Number:
      return writeNumber(writer, value);
    case Kind::Array:
      writer.startArray();
      for (const FlatView element : value.contents()) writeValue(writer, element);
      return writer.endArray();
    case Kind::Dictionary:
      return writeDictionary(writer, value);
    case Kind::Absent:
      return writer.null();
    case Kind::NSNull:
    case Kind::OtherObject:
      writer.startObject();
      writer.key("$");
      writer.string(value.kind() == Kind::NSNull ? "NSNull" : "Object");
      return writer.endObject();
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

}  // namespace

std::optional<HostMap> mapIn(const HostValue& value) {
  if (!hasTextKeys(internal::viewOf(value))) return std::nullopt;
  return FlatAccess::make<HostMap>(FlatAccess::flat(value));
}

bool isNotFinite(const HostValue& value) {
  const FlatView number = internal::viewOf(value);
  const Kind kind = sentKind(number);
  return (kind == Kind::Double || kind == Kind::Float) && !std::isfinite(realIn(number));
}

void writeScenarioMap(JSONWriter& writer, const HostMap& map) {
  writeMap(writer, internal::viewOf(map));
}

void writeScenarioValue(JSONWriter& writer, const HostValue& value) {
  writeValue(writer, internal::viewOf(value));
}

HostValue parsedJSON(std::string_view text) {
  rapidjson::Document document;
  document.Parse<rapidjson::kParseFullPrecisionFlag>(text.data(), text.size());
  return document.HasParseError() ? HostValue() : valueOf(document);
}

}  // namespace veltrano::testing

namespace veltrano {

bool operator==(const HostValue& left, const HostValue& right) {
  const auto comparable = [](const HostValue& value) {
    return testing::textOf(internal::viewOf(value), true);
  };
  return comparable(left) == comparable(right);
}

std::ostream& operator<<(std::ostream& out, const HostValue& value) {
  return out << testing::textOf(internal::viewOf(value), false);
}

}  // namespace veltrano
