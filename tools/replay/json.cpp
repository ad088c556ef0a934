#include "tools/replay/json.h"

#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <type_traits>

#include "encoding/numbers.h"

namespace replay {

bool JSONText::Document::RawNumber(const char* text, rapidjson::SizeType length, bool) {
  return rapidjson::Document::String(text, length, true);
}

bool JSONText::Document::String(const char* text, rapidjson::SizeType length, bool) {
  const std::string marked = '"' + std::string(text, length);
  return rapidjson::Document::String(marked.data(), length + 1, true);
}

JSONText::JSONText(std::string_view text) {
  constexpr unsigned kFlags = rapidjson::kParseIterativeFlag |
                              rapidjson::kParseNumbersAsStringsFlag |
                              rapidjson::kParseValidateEncodingFlag;
  rapidjson::MemoryStream stream(text.data(), text.size());
  rapidjson::Reader reader;
  auto parse = [&](rapidjson::Document&) {
    return !reader.Parse<kFlags>(stream, document_).IsError();
  };
  document_.Populate(parse);
  // The reader stops at a zero byte, too.
  if (reader.HasParseError() || stream.Tell() != text.size())
    throw ScenarioError(
        "not JSON: " + std::string(rapidjson::GetParseError_En(reader.GetParseErrorCode())) +
        " (column " + std::to_string(reader.GetErrorOffset() + 1) + ")");
}

bool isString(const JSONValue& value) {
  return value.IsString() && *value.GetString() == '"';
}

bool isNumber(const JSONValue& value) {
  return value.IsString() && *value.GetString() != '"';
}

std::string_view textOf(const JSONValue& value) {
  const std::string_view text(value.GetString(), value.GetStringLength());
  return isString(value) ? text.substr(1) : text;
}

std::string_view nameOf(const JSONValue::Member& member) {
  return {member.name.GetString(), member.name.GetStringLength()};
}

const JSONValue* find(const JSONValue& object, std::string_view key) {
  for (auto member = object.MemberEnd(); member != object.MemberBegin();)
    if (nameOf(*--member) == key) return &member->value;
  return nullptr;
}

bool isInteger(const JSONValue& number) {
  return textOf(number).find_first_of(".eE") == std::string_view::npos;
}

template <class Number>
Number parsedNumber(const JSONValue& number, std::string_view what) {
  const std::string_view text = textOf(number);
  if constexpr (std::is_floating_point_v<Number>) {
    if (const auto parsed = veltrano::internal::decimalNumber<Number>(text)) return *parsed;
    // Underflow is not an error: the nearest number is 0.
    if (std::abs(std::strtod(std::string(text).c_str(), nullptr)) < 1)
      return std::copysign(Number(0), text.front() == '-' ? Number(-1) : Number(1));
  } else {
    Number parsed{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), parsed);
    if (error == std::errc() && end == text.data() + text.size()) return parsed;
  }
  throw ScenarioError(std::string(what) + " is out of range: " + std::string(text));
}

template std::int64_t parsedNumber(const JSONValue&, std::string_view);
template std::uint64_t parsedNumber(const JSONValue&, std::string_view);
template double parsedNumber(const JSONValue&, std::string_view);
template float parsedNumber(const JSONValue&, std::string_view);

}  // namespace replay
