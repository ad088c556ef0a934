#include "test_kit/json.h"

#include "encoding/rapidjson_settings.h"
// Included after its settings.
#include <rapidjson/document.h>

#include <cmath>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include "encoding/json_text.h"
#include "encoding/utf8.h"
#include "properties/flat.h"
#include "veltrano/testing.h"

namespace veltrano::testing {
namespace {

using namespace internal;
using veltrano::detail::FlatAccess;

// What a value is sent as: a boxed number as another kind.
Kind sentKind(FlatView value) {
  return value.kind() == Kind::Number ? kindOfBoxed(value.numberCode()) : value.kind();
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

// The text of a String or a URL, as JSON.
std::string textIn(FlatView value) {
  return json(wellFormedUTF8(value.text()));
}

std::string scalarText(FlatView value, bool forComparison) {
  const bool isBoxed = value.kind() == Kind::Number;
  switch (sentKind(value)) {
    case Kind::Bool:
      return json(isBoxed ? value.numberAsDouble() != 0 : value.boolean());
    case Kind::Int:
    case Kind::Int64:
      return json(isBoxed ? value.numberAsInteger() : value.integer());
    case Kind::UInt:
      return json(static_cast<std::uint64_t>(value.integer()));
    case Kind::Double:
    case Kind::Float: {
      const double real = realIn(value);
      // Compared with integers, 3.0 is 3.
      const bool isWhole = real == std::floor(real) && std::abs(real) < 0x1p63;
      return forComparison && isWhole ? json(static_cast<std::int64_t>(real)) : json(real);
    }
    case Kind::Date:
      return json(FlatAccess::date(value).iso8601());
    case Kind::String:
    case Kind::URL:
      return textIn(value);
    case Kind::NSNull:
      return "null";
    case Kind::Absent:
      return "absent";
    case Kind::OtherObject:
    case Kind::Number:
    case Kind::Array:
    case Kind::Dictionary:
      return "an object of another type";
  }
  return {};
}

// The value as JSON, with dictionaries sorted by key. For comparison, equal values have equal texts
// and what is never sent is left out; for messages, words stand for it.
std::string textOf(FlatView value, bool forComparison) {
  const auto isLeftOut = [&](FlatView inner) { return forComparison && !isSendable(inner); };
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
  return value.kind() == Kind::Array ? '[' + joined(items) + ']' : '{' + joined(items) + '}';
}

// A value with its type, as scenarios write it.
std::string typed(const char* kind, std::string value) {
  return jsonObject({{"$", json(kind)}, {"v", std::move(value)}});
}

// A real number, or one of the texts that stand for what JSON cannot express.
std::string realText(double value) {
  if (std::isnan(value)) return json("nan");
  return std::isinf(value) ? json(value > 0 ? "inf" : "-inf") : json(value);
}

std::string boxedText(FlatView number) {
  const double real = number.numberAsDouble();
  const std::int64_t integer = number.numberAsInteger();
  // Scenarios cannot express infinities and NaN in an NSNumber.
  const bool isInteger = !std::isfinite(real) || static_cast<double>(integer) == real;
  return jsonObject({{"$", json("NSNumber")},
                     {"code", json(number.numberCode())},
                     {"v", isInteger ? json(integer) : json(real)}});
}

std::string typedText(FlatView value);

std::string mapText(FlatView map) {
  JSONMembers members;
  forEachEntry(map, [&](FlatView key, FlatView held) {
    members.emplace_back(wellFormedUTF8(key.text()), typedText(held));
  });
  return jsonObject(members);
}

std::string dictionaryText(FlatView dictionary) {
  bool isMap = true;
  forEachEntry(dictionary, [&](FlatView key, FlatView) {
    isMap &= key.kind() == Kind::String && key.text() != "$";
  });
  if (isMap) return mapText(dictionary);
  std::vector<std::string> entries;
  forEachEntry(dictionary, [&](FlatView key, FlatView held) {
    entries.push_back(jsonArray({typedText(key), typedText(held)}));
  });
  return typed("Dictionary", jsonArray(entries));
}

std::string typedText(FlatView value) {
  switch (value.kind()) {
    case Kind::String:
    case Kind::Int:
    case Kind::Bool:
      return scalarText(value, false);
    case Kind::UInt:
      return typed("UInt", scalarText(value, false));
    case Kind::Int64:
      return typed("Int64", scalarText(value, false));
    case Kind::Double:
      return std::isfinite(value.real()) ? json(value.real())
                                         : typed("Double", realText(value.real()));
    case Kind::Float:
      return typed("Float", realText(value.real()));
    case Kind::Date: {
      const std::chrono::duration<double> time = FlatAccess::date(value).sinceEpoch();
      return typed("Date", json(time.count()));
    }
    case Kind::URL:
      return typed("URL", textIn(value));
    case Kind::Number:
      return boxedText(value);
    case Kind::Array: {
      std::vector<std::string> elements;
      for (const FlatView element : value.contents()) elements.push_back(typedText(element));
      return jsonArray(elements);
    }
    case Kind::Dictionary:
      return dictionaryText(value);
    case Kind::Absent:
      return "null";
    case Kind::NSNull:
      return jsonObject({{"$", json("NSNull")}});
    case Kind::OtherObject:
      return jsonObject({{"$", json("Object")}});
  }
  return {};
}

HostValue valueOf(const rapidjson::Value& json);

HostMap mapOf(const rapidjson::Value& object) {
  HostMap map;
  for (const auto& member : object.GetObject())
    map.set({member.name.GetString(), member.name.GetStringLength()}, valueOf(member.value));
  return map;
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
  return json.IsObject() ? HostValue(mapOf(json)) : NSNull();
}

}  // namespace

std::string joined(const std::vector<std::string>& texts) {
  std::string list;
  for (const std::string& text : texts) list += (list.empty() ? "" : ", ") + text;
  return list;
}

std::optional<HostMap> mapIn(const HostValue& value) {
  const auto dictionary =
      value.member() != nullptr ? value.member()->getIf<Dictionary>() : std::nullopt;
  if (!dictionary || !dictionary->hasOnlyStringKeys()) return std::nullopt;
  return FlatAccess::make<HostMap>(FlatAccess::flat(value));
}

bool isNotFinite(const HostValue& value) {
  const FlatView number = viewOf(value);
  const Kind kind = sentKind(number);
  return (kind == Kind::Double || kind == Kind::Float) && !std::isfinite(realIn(number));
}

std::string scenarioText(const HostMap& map) {
  return mapText(viewOf(map));
}

std::string scenarioText(const HostValue& value) {
  return typedText(viewOf(value));
}

// A property may nest as deep as a value can, and the maps around it deeper.
HostMap propertiesIn(std::string_view json) {
  rapidjson::Document document;
  document.Parse<rapidjson::kParseFullPrecisionFlag>(json.data(), json.size());
  return document.IsObject() ? mapOf(document["properties"]) : HostMap();
}

}  // namespace veltrano::testing

namespace veltrano {

bool operator==(const HostValue& left, const HostValue& right) {
  const auto comparable = [](const HostValue& value) {
    return testing::textOf(internal::viewOf(value), true);
  };
  return comparable(left) == comparable(right);
}

std::string FormatForComparisonFailureMessage(const char* text, const HostValue&) {
  return testing::textOf(internal::viewOf(HostValue(text)), false);
}

std::ostream& operator<<(std::ostream& out, const HostValue& value) {
  return out << testing::textOf(internal::viewOf(value), false);
}

}  // namespace veltrano
