#include "tools/replay/json.h"

#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>

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

bool isInteger(const JSONValue& value) {
  return isNumber(value) && textOf(value).find_first_of(".eE") == std::string_view::npos;
}

}  // namespace replay
