#include "tools/collector/wire_check.h"

#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <cstddef>
#include <set>
#include <utility>

#include "encoding/base64.h"
#include "encoding/uuid.h"

namespace collector {
namespace {

using rapidjson::Value;

constexpr std::size_t kMaximumRecords = 200;

// Deeper than any record of the library; bounds recursion.
constexpr int kMaximumDepth = 200;

// Thrown to end a check; caught in `readRequest`.
struct Refusal {
  std::string reason;
};

void require(bool condition, const std::string& otherwise) {
  if (!condition) throw Refusal{otherwise};
}

// Checks what stands outside strings, before the parser sees it.
void checkForm(std::string_view json) {
  int depth = 0, zeros = 0;
  bool inString = false;
  for (std::size_t i = 0; i < json.size(); ++i) {
    const char c = json[i];
    if (inString && c == '\\') ++i;
    if (c == '"') inString = !inString;
    if (inString) continue;
    depth += (c == '[' || c == '{') - (c == ']' || c == '}');
    require(depth <= kMaximumDepth, "the body is nested more than 200 deep");
    // RapidJSON 1.1 crashes at a zero with some 350 decimals.
    zeros = c == '0' ? zeros + 1 : 0;
    require(zeros < 100, "a number has 100 zeros in a row");
    require(c != ' ' && c != '\t' && c != '\r' && c != '\n', "the body's JSON is not compact");
  }
}

void parse(WireMessage& message) {
  constexpr unsigned kStrict =
      rapidjson::kParseFullPrecisionFlag | rapidjson::kParseValidateEncodingFlag;
  const std::string& json = message.json;
  require(json.find('\0') == std::string::npos, "the body holds a zero byte");
  require(!json.starts_with("\xEF\xBB\xBF"), "the body starts with a byte order mark");
  checkForm(json);
  message.body.Parse<kStrict>(json.data(), json.size());
  require(!message.body.HasParseError(),
          "the body is not JSON: " +
              std::string(rapidjson::GetParseError_En(message.body.GetParseError())) + " (byte " +
              std::to_string(message.body.GetErrorOffset()) + ")");
}

void requireDistinctKeys(const Value& object, const std::string& where) {
  std::set<std::string_view> keys;
  for (const auto& member : object.GetObject())
    require(keys.emplace(member.name.GetString(), member.name.GetStringLength()).second,
            where + ": duplicate key");
}

// Checks a message's two members, "event" and "properties", and returns the latter.
const Value& propertiesOf(const Value& record, const std::string& where) {
  require(record.IsObject(), where + ": not an object");
  require(record.MemberCount() == 2 && record.HasMember("event") && record.HasMember("properties"),
          where + ": its keys are not exactly \"event\" and \"properties\"");
  require(record["event"].IsString(), where + ": \"event\" is not a string");
  const Value& properties = record["properties"];
  require(properties.IsObject(), where + ": \"properties\" is not an object");
  requireDistinctKeys(properties, where + ", properties");
  return properties;
}

void checkBatch(const Value& batch) {
  require(batch.IsArray(), "the batch is not an array");
  require(!batch.Empty(), "the batch is empty");
  require(batch.Size() <= kMaximumRecords,
          "the batch holds " + std::to_string(batch.Size()) + " records");
  for (rapidjson::SizeType i = 0; i < batch.Size(); ++i) {
    const std::string where = "record " + std::to_string(i);
    const Value& properties = propertiesOf(batch[i], where);
    // Hosts may withhold any property, and replace any but this one with a value of another type.
    const auto extra = properties.FindMember("extra_json");
    if (extra == properties.MemberEnd()) continue;
    require(extra->value.IsObject(), where + ": \"extra_json\" is not an object");
    requireDistinctKeys(extra->value, where + ", extra_json");
  }
}

bool isString(const Value& value) {
  return value.IsString();
}

template <std::size_t n>
bool isAmong(const Value& value, const char* const (&texts)[n]) {
  return std::any_of(texts, texts + n, [&](const char* text) { return value == text; });
}

bool isUpperCaseUUID(const Value& value) {
  if (!value.IsString()) return false;
  const std::string_view text(value.GetString(), value.GetStringLength());
  return veltrano::internal::canonicalUUID(text) == text;
}

struct HeartbeatProperty {
  const char* key;
  bool (*holds)(const Value&);
  const char* meaning;
};

constexpr HeartbeatProperty kHeartbeatProperties[] = {
    {"app_id", isString, "a string"},
    {"app_version", isString, "a string"},
    {"os_version", isString, "a string"},
    {"manufacturer", [](const Value& value) { return value == "Apple"; }, "\"Apple\""},
    {"uid", isString, "a string"},
    {"session_id", isUpperCaseUUID, "an upper-case UUID"},
    {"time", [](const Value& value) { return value.IsInt64(); }, "an integer"},
    {"duration", [](const Value& value) { return value.IsInt64() && value.GetInt64() >= 0; },
     "an integer from 0"},
    {"screen_orientation",
     [](const Value& value) {
       return isAmong(value, {"portrait", "landscape", "unknown"});
     },
     "one of its texts"},
    {"device_orientation",
     [](const Value& value) {
       return isAmong(value, {"portrait", "portraitUpsideDown", "landscapeLeft", "landscapeRight",
                              "faceUp", "faceDown", "unknown"});
     },
     "one of its texts"},
};

void checkHeartbeat(const Value& heartbeat, const std::string& uid) {
  const std::string where = "the heartbeat";  // named, because GCC 13 warns of a temporary
  const Value& properties = propertiesOf(heartbeat, where);
  require(heartbeat["event"] == "heartbeat", "the event is not \"heartbeat\"");
  for (const auto& [key, holds, meaning] : kHeartbeatProperties) {
    require(properties.HasMember(key), "the property \"" + std::string(key) + "\" is missing");
    require(holds(properties[key]), "the property \"" + std::string(key) + "\" is not " + meaning);
  }
  require(properties.MemberCount() == std::size(kHeartbeatProperties),
          "there are more properties than a heartbeat has");
  require(properties["uid"] == uid, "the property \"uid\" is not the query's uid");
}

void checkHeaders(const httplib::Request& request) {
  for (const auto& [name, value] : request.headers)
    require(isUTF8(name) && isUTF8(value), "a header is not UTF-8");
  for (const char* name : {"lib_version", "publisher_version"}) {
    const std::string quoted = "the header \"" + std::string(name) + "\"";
    require(request.headers.count(name) == 1, quoted + " is not there exactly once");
    require(request.headers.find(name)->second.starts_with("ios_"),
            quoted + " does not start with \"ios_\"");
  }
  require(request.headers.count("Content-Type") == 0, "there is a Content-Type header");
}

}  // namespace

bool isUTF8(std::string_view text) {
  rapidjson::MemoryStream stream(text.data(), text.size());
  rapidjson::StringBuffer unused;
  while (stream.Tell() < text.size())
    if (!rapidjson::UTF8<>::Validate(stream, unused)) return false;
  return true;
}

std::string jsonOf(const Value& value) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  value.Accept(writer);
  return {buffer.GetString(), buffer.GetSize()};
}

std::optional<std::string> readRequest(const httplib::Request& request, WireMessage& message) try {
  const bool isTrack = request.path == "/track";
  require(isTrack || request.path == "/heartbeat", "there is no such path");
  require(request.method == "POST", "the method is not POST");
  require(request.params.size() == 1 && request.params.begin()->first == "uid",
          "the query is not exactly \"uid\"");
  message.uid = request.params.begin()->second;
  require(isUTF8(message.uid), "the query's uid is not UTF-8");
  checkHeaders(request);
  require(!isTrack || request.headers.count("Authorization") == 0,
          "uploads carry no Authorization");

  constexpr std::string_view kPrefix = "data=";
  require(request.body.starts_with(kPrefix), "the body does not start with \"data=\"");
  auto json =
      veltrano::internal::decodedBase64(std::string_view(request.body).substr(kPrefix.size()));
  require(json && !json->empty(), "what follows \"data=\" is not strict Base64");
  message.json = *std::move(json);
  parse(message);
  if (isTrack)
    checkBatch(message.body);
  else
    checkHeartbeat(message.body, message.uid);
  return std::nullopt;
} catch (const Refusal& refusal) {
  return refusal.reason;
}

std::vector<std::string_view> elementsOf(std::string_view array) {
  std::vector<std::string_view> elements;
  rapidjson::MemoryStream stream(array.data(), array.size());
  rapidjson::Reader reader;
  rapidjson::BaseReaderHandler<> nothing;
  while (stream.Take() != ']') {
    const std::size_t start = stream.Tell();
    reader.Parse<rapidjson::kParseStopWhenDoneFlag>(stream, nothing);
    elements.push_back(array.substr(start, stream.Tell() - start));
  }
  return elements;
}

}  // namespace collector
