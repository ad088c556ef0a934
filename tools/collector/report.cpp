#include "tools/collector/report.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <string_view>

namespace collector {
namespace {

using rapidjson::Value;

// Deeper values are abbreviated. Also bounds the recursion.
constexpr int kMaximumDepth = 4;

std::string readable(const Value& value, int depth = 0) {
  std::string text;
  const auto separate = [&] {
    if (text.size() > 1) text += ',';
  };
  if (value.IsArray()) {
    if (depth == kMaximumDepth) return "[...]";
    text = "[";
    for (const Value& element : value.GetArray()) {
      separate();
      text += readable(element, depth + 1);
    }
    return text + "]";
  }
  if (value.IsObject()) {
    if (depth == kMaximumDepth) return "{...}";
    text = "{";
    for (const auto& [key, element] : value.GetObject()) {
      separate();
      text += readable(key) + ":" + readable(element, depth + 1);
    }
    return text + "}";
  }
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  value.Accept(writer);
  return {buffer.GetString(), buffer.GetSize()};
}

// Replaces control characters, which could break the line or control the terminal.
std::string printable(std::string_view text) {
  std::string result(text);
  std::replace_if(
      result.begin(), result.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; }, '?');
  return result;
}

// Whether the library adds the property to every event itself.
bool isLibrarys(std::string_view key) {
  constexpr std::string_view kKeys[] = {
      "time", "mp_lib", "lib_version", "uid", "app_id", "screen_orientation", "device_orientation"};
  return key.starts_with("$") ||
         std::find(std::begin(kKeys), std::end(kKeys), key) != std::end(kKeys);
}

std::string property(const Value& key, const Value& value) {
  return printable({key.GetString(), key.GetStringLength()}) + '=' + readable(value);
}

std::string eventLine(const Value& record) {
  std::string line = " event=" + readable(record["event"]);
  for (const auto& [key, value] : record["properties"].GetObject())
    if (!isLibrarys(key.GetString()) && key != "extra_json") line += ' ' + property(key, value);
  for (const auto& [key, value] : record["properties"]["extra_json"].GetObject())
    if (key != "att_auth_status") line += " extra_json." + property(key, value);
  return line;
}

}  // namespace

std::string jsonLine(const WireRequest& request, const WireMessage& message,
                     std::chrono::system_clock::time_point received, int answer) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  writer.StartObject();
  writer.Key("path");
  writer.String(request.path);
  writer.Key("uid");
  writer.String(message.uid);
  writer.Key("headers");
  writer.StartObject();
  const auto& headers = request.headers;
  for (auto header = headers.begin(); header != headers.end();
       header = headers.upper_bound(header->first)) {
    writer.Key(header->first.c_str());
    writer.String(header->second);
  }
  writer.EndObject();
  // Copied: the check has found it well-formed and compact, so it stays on one line, and writing it
  // value by value could overflow the stack.
  writer.Key("body");
  writer.RawValue(message.json.data(), message.json.size(), rapidjson::kObjectType);
  writer.Key("received");
  writer.Int64(
      std::chrono::duration_cast<std::chrono::milliseconds>(received.time_since_epoch()).count());
  writer.Key("answer");
  writer.Int(answer);
  writer.EndObject();
  return {buffer.GetString(), buffer.GetSize()};
}

std::string readableLines(const WireRequest& request, const WireMessage& message) {
  const std::string start = request.path.substr(1) + "  uid=" + printable(message.uid);
  if (message.body.IsArray()) {
    std::string lines;
    for (const Value& record : message.body.GetArray())
      lines += (lines.empty() ? "" : "\n") + start + eventLine(record);
    return lines;
  }
  std::string line = start;
  for (const char* key : {"session_id", "duration", "app_id", "app_version", "screen_orientation",
                          "device_orientation"})
    line += ' ' + std::string(key) + '=' + readable(message.body["properties"][key]);
  return line;
}

}  // namespace collector
