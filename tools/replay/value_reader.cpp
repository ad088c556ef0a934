#include "tools/replay/value_reader.h"

#include <charconv>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>

namespace replay {
namespace {

using veltrano::HostMap;
using veltrano::HostValue;
using Value = JsonText::Value;
using Kind = JsonText::Kind;

// Reads values from the innermost outwards, without recursion. An invalid value is an error only
// where it is used, because the fields of a kind are not always values themselves.
class ValueReader {
 public:
  ValueReader(const JsonText& json, const Value& root)
      : json_(json), first_(json.placeOf(root)), read_(endOf(root) - first_) {
    for (std::size_t i = read_.size(); i-- > 0;) {
      try {
        read_[i].value = read(json_.at(first_ + i));
      } catch (const ScenarioError& error) {
        read_[i].error = error.what();
      }
    }
  }

  HostValue take(std::size_t place) {
    Read& read = read_[place - first_];
    if (read.error) throw ScenarioError(*read.error);
    return read.value;
  }

 private:
  struct Read {
    HostValue value;
    std::optional<std::string> error;
  };

  // The index after `value` and everything in it.
  std::size_t endOf(const Value& value) const {
    const Value* last = &value;
    while (!last->items.empty()) last = &json_.at(last->items.back());
    return json_.placeOf(*last) + 1;
  }

  HostValue read(const Value& value) {
    switch (value.kind) {
      case Kind::null:
        return {};
      case Kind::boolean:
        return value.flag;
      case Kind::number:
        if (isIntegerText(value.text)) return parsedNumber<std::int64_t>(value.text, "an Int");
        return parsedNumber<double>(value.text, "a Double");
      case Kind::string:
        return value.text;
      case Kind::array:
        return readArray(value);
      case Kind::object:
        break;
    }
    if (const Value* kind = json_.find(value, "$")) return readKind(value, *kind);
    return readObject(value);
  }

  HostValue readArray(const Value& array) {
    std::vector<HostValue> elements;
    elements.reserve(array.items.size());
    for (const std::size_t item : array.items) elements.push_back(take(item));
    return veltrano::Array(std::move(elements));
  }

  HostValue readObject(const Value& object) {
    HostMap map;
    for (std::size_t i = 0; i < object.items.size(); ++i)
      map.set(object.keys[i], take(object.items[i]));
    return map;
  }

  HostValue readKind(const Value& object, const Value& kind) {
    using KindReader = HostValue (ValueReader::*)(const Value&);
    static const std::map<std::string, KindReader> kinds = {
        {"String", &ValueReader::readString},   {"Int", &ValueReader::readInt},
        {"UInt", &ValueReader::readUInt},       {"Int64", &ValueReader::readInt64},
        {"Double", &ValueReader::readDouble},   {"Float", &ValueReader::readFloat},
        {"Bool", &ValueReader::readBool},       {"Date", &ValueReader::readDate},
        {"URL", &ValueReader::readURL},         {"NSNull", &ValueReader::readNull},
        {"Array", &ValueReader::readArrayKind}, {"Dictionary", &ValueReader::readDictionary},
        {"NSNumber", &ValueReader::readNumber}, {"Object", &ValueReader::readOther},
        {"Absent", &ValueReader::readAbsent},
    };
    const auto reader = kind.kind == Kind::string ? kinds.find(kind.text) : kinds.end();
    if (reader == kinds.end()) throw ScenarioError("unknown kind of value: " + kind.text);
    return (this->*reader->second)(object);
  }

  // The field `key` of a value's kind. Throws unless it has the JSON kind `kind`.
  const Value& field(const Value& object, std::string_view key, Kind kind) const {
    const Value* found = json_.find(object, key);
    if (found == nullptr || found->kind != kind)
      throw ScenarioError("a value of kind " + json_.find(object, "$")->text + " needs another \"" +
                          std::string(key) + "\"");
    return *found;
  }

  std::string_view integerField(const Value& object, std::string_view key) const {
    const Value& number = field(object, key, Kind::number);
    if (!isIntegerText(number.text)) throw ScenarioError("not an integer: " + number.text);
    return number.text;
  }

  template <class Number>
  Number floatingField(const Value& object) const {
    const Value* v = json_.find(object, "v");
    if (v != nullptr && v->kind == Kind::string) {
      constexpr Number kInfinity = std::numeric_limits<Number>::infinity();
      if (v->text == "nan") return std::numeric_limits<Number>::quiet_NaN();
      if (v->text == "inf") return kInfinity;
      if (v->text == "-inf") return -kInfinity;
    }
    return parsedNumber<Number>(field(object, "v", Kind::number).text, "a number");
  }

  HostValue readString(const Value& object) { return field(object, "v", Kind::string).text; }
  HostValue readInt(const Value& object) {
    return parsedNumber<std::int64_t>(integerField(object, "v"), "an Int");
  }
  HostValue readUInt(const Value& object) {
    return parsedNumber<std::uint64_t>(integerField(object, "v"), "a UInt");
  }
  HostValue readInt64(const Value& object) {
    return veltrano::Int64{parsedNumber<std::int64_t>(integerField(object, "v"), "an Int64")};
  }
  HostValue readDouble(const Value& object) { return floatingField<double>(object); }
  HostValue readFloat(const Value& object) { return floatingField<float>(object); }
  HostValue readBool(const Value& object) { return field(object, "v", Kind::boolean).flag; }
  HostValue readDate(const Value& object) {
    const auto seconds = parsedNumber<double>(field(object, "v", Kind::number).text, "a Date");
    return veltrano::Date::fromSecondsSince1970(seconds);
  }
  HostValue readURL(const Value& object) {
    return veltrano::URL(field(object, "v", Kind::string).text);
  }
  HostValue readNull(const Value&) { return veltrano::NSNull{}; }
  HostValue readArrayKind(const Value& object) {
    return readArray(field(object, "v", Kind::array));
  }
  HostValue readDictionary(const Value& object) {
    std::vector<veltrano::DictionaryEntry> entries;
    for (const std::size_t item : field(object, "v", Kind::array).items) {
      const Value& pair = json_.at(item);
      if (pair.kind != Kind::array || pair.items.size() != 2)
        throw ScenarioError("the entries of a Dictionary are pairs of key and value");
      entries.push_back({take(pair.items[0]), take(pair.items[1])});
    }
    return veltrano::Dictionary(std::move(entries));
  }
  HostValue readNumber(const Value& object) {
    const auto code = parsedNumber<std::int64_t>(integerField(object, "code"), "a type code");
    if (code < std::numeric_limits<int>::min() || code > std::numeric_limits<int>::max())
      throw ScenarioError("a type code is out of range");
    const std::string& text = field(object, "v", Kind::number).text;
    const auto real = parsedNumber<double>(text, "a number");
    std::int64_t integer = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), integer);
    if (isIntegerText(text) && error == std::errc())
      return veltrano::NSNumber(static_cast<int>(code), integer);
    return veltrano::NSNumber(static_cast<int>(code), real);
  }
  HostValue readOther(const Value&) { return veltrano::OtherObject{}; }
  HostValue readAbsent(const Value&) { return {}; }

  const JsonText& json_;
  const std::size_t first_;
  std::vector<Read> read_;  // for the indices from first_ on
};

}  // namespace

HostValue readValue(const JsonText& json, const Value& value) {
  return ValueReader(json, value).take(json.placeOf(value));
}

HostMap readMap(const JsonText& json, const Value& object) {
  HostMap map;
  for (std::size_t i = 0; i < object.items.size(); ++i)
    map.set(object.keys[i], readValue(json, json.at(object.items[i])));
  return map;
}

}  // namespace replay
