#include "tools/replay/trace.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cinttypes>
#include <map>
#include <utility>

#include "encoding/base64.h"

namespace replay {
namespace {

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

void writeText(Writer& writer, std::string_view text) {
  writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
}

void writeMap(Writer& writer, const std::map<std::string, std::string>& map) {
  writer.StartObject();
  for (const auto& [key, value] : map) {
    writeText(writer, key);
    writeText(writer, value);
  }
  writer.EndObject();
}

// The JSON in a body, without "data=" and Base64.
std::string decodedBody(std::string_view body) {
  return veltrano::internal::decodedBase64(body.substr(body.find('=') + 1)).value_or("");
}

// Seconds with as many decimals as needed.
std::string secondsText(veltrano::internal::Duration time) {
  char text[40];
  std::snprintf(text, sizeof text, "%" PRId64 ".%06" PRId64,
                static_cast<std::int64_t>(time.count() / 1'000'000),
                static_cast<std::int64_t>(time.count() % 1'000'000));
  std::string seconds = text;
  seconds.erase(seconds.find_last_not_of('0') + 1);
  if (seconds.back() == '.') seconds.pop_back();
  return seconds;
}

}  // namespace

Trace::Trace(std::function<veltrano::internal::Duration()> now, Write write, Bodies bodies)
    : now_(std::move(now)), write_(std::move(write)), bodies_(bodies) {}

template <class WriteMembers>
void Trace::add(const WriteMembers& writeMembers) {
  const std::lock_guard lock(mutex_);
  const std::string at = secondsText(now_());
  rapidjson::StringBuffer buffer;
  Writer writer(buffer);
  writer.StartObject();
  writer.Key("at");
  writer.RawValue(at.data(), at.size(), rapidjson::kNumberType);
  writeMembers(writer);
  writer.EndObject();
  buffer.Put('\n');
  write_({buffer.GetString(), buffer.GetSize()});
}

void Trace::logged(std::string_view line) {
  add([&](Writer& writer) {
    writer.Key("log");
    writeText(writer, line);
  });
}

void Trace::posted(const veltrano::internal::PostRequest& request) {
  add([&](Writer& writer) {
    writer.Key("post");
    writer.StartObject();
    writer.Key("url");
    writeText(writer, request.baseURL);
    writer.Key("method");
    writer.String(request.httpMethod == veltrano::internal::HTTPMethod::post ? "POST" : "GET");
    writer.Key("query");
    writeMap(writer, request.qsParameters);
    writer.Key("headers");
    writeMap(writer, request.headerParameters);
    writer.Key("body");
    if (bodies_ == Bodies::decoded) {
      const std::string json = decodedBody(request.httpBody);
      writer.RawValue(json.data(), json.size(), rapidjson::kObjectType);
    } else {
      writeText(writer, request.httpBody);
    }
    writer.Key("authenticated");
    writer.Bool(request.interceptor != nullptr);
    writer.EndObject();
  });
}

void Trace::completed(const std::string& label, bool result) {
  add([&](Writer& writer) {
    writer.Key("completion");
    writeText(writer, label);
    writer.Key("result");
    writer.Bool(result);
  });
}

void Trace::handled(const std::string& label) {
  add([&](Writer& writer) {
    writer.Key("handler");
    writeText(writer, label);
  });
}

void Trace::wroteDefaults(const std::string& key, double value) {
  add([&](Writer& writer) {
    writer.Key("defaults");
    writer.StartObject();
    writeText(writer, key);
    writer.Double(value);
    writer.EndObject();
  });
}

void Trace::answered(std::string_view answer) {
  add([&](Writer& writer) {
    writer.Key("value");
    writeText(writer, answer);
  });
}

void Trace::answered(bool answer) {
  add([&](Writer& writer) {
    writer.Key("value");
    writer.Bool(answer);
  });
}

}  // namespace replay
