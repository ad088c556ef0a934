#include "tools/replay/json_text.h"

#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <type_traits>

#include "encoding/numbers.h"

namespace replay {
namespace {

using Value = JsonText::Value;
using Kind = JsonText::Kind;

// Builds the list of values from the reader's events.
class Builder : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, Builder> {
 public:
  explicit Builder(std::vector<Value>& values) : values_(values) {}

  bool Null() { return add({}); }
  bool Bool(bool flag) {
    return add({.kind = Kind::boolean, .flag = flag, .text = {}, .items = {}, .keys = {}});
  }
  bool RawNumber(const char* text, rapidjson::SizeType length, bool) {
    return add(withText(Kind::number, text, length));
  }
  bool String(const char* text, rapidjson::SizeType length, bool) {
    return add(withText(Kind::string, text, length));
  }
  bool StartObject() { return open(Kind::object); }
  bool Key(const char* text, rapidjson::SizeType length, bool) {
    values_[open_.back()].keys.emplace_back(text, length);
    return true;
  }
  bool EndObject(rapidjson::SizeType) { return close(); }
  bool StartArray() { return open(Kind::array); }
  bool EndArray(rapidjson::SizeType) { return close(); }

 private:
  static Value withText(Kind kind, const char* text, rapidjson::SizeType length) {
    Value value;
    value.kind = kind;
    value.text.assign(text, length);
    return value;
  }

  bool add(Value value) {
    if (!open_.empty()) values_[open_.back()].items.push_back(values_.size());
    values_.push_back(std::move(value));
    return true;
  }

  bool open(Kind kind) {
    add(withText(kind, "", 0));
    open_.push_back(values_.size() - 1);
    return true;
  }

  bool close() {
    open_.pop_back();
    return true;
  }

  std::vector<Value>& values_;
  std::vector<std::size_t> open_;  // open containers, outermost first
};

}  // namespace

JsonText::JsonText(std::string_view text) {
  Builder builder(values_);
  rapidjson::MemoryStream stream(text.data(), text.size());
  rapidjson::Reader reader;
  constexpr unsigned kFlags = rapidjson::kParseIterativeFlag |
                              rapidjson::kParseNumbersAsStringsFlag |
                              rapidjson::kParseValidateEncodingFlag;
  const auto result = reader.Parse<kFlags>(stream, builder);
  // The reader stops at a zero byte, too.
  if (!result || stream.Tell() != text.size())
    throw ScenarioError("not JSON: " + std::string(rapidjson::GetParseError_En(result.Code())) +
                        " (column " + std::to_string(result.Offset() + 1) + ")");
}

const JsonText::Value* JsonText::find(const Value& object, std::string_view key) const {
  for (std::size_t i = object.keys.size(); i-- > 0;)
    if (object.keys[i] == key) return &values_[object.items[i]];
  return nullptr;
}

bool isIntegerText(std::string_view text) {
  return text.find_first_of(".eE") == std::string_view::npos;
}

template <class Number>
Number parsedNumber(std::string_view text, std::string_view what) {
  if constexpr (std::is_floating_point_v<Number>) {
    if (const auto number = veltrano::internal::decimalNumber<Number>(text)) return *number;
    // Underflow is not an error: the nearest number is 0.
    if (std::abs(std::strtod(std::string(text).c_str(), nullptr)) < 1)
      return std::copysign(Number(0), text.front() == '-' ? Number(-1) : Number(1));
  } else {
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc() && end == text.data() + text.size()) return number;
  }
  throw ScenarioError(std::string(what) + " is out of range: " + std::string(text));
}

template std::int64_t parsedNumber(std::string_view, std::string_view);
template std::uint64_t parsedNumber(std::string_view, std::string_view);
template double parsedNumber(std::string_view, std::string_view);
template float parsedNumber(std::string_view, std::string_view);

}  // namespace replay
