#include "tools/collector/report.h"

#include <strings.h>

#include <algorithm>
#include <map>
#include <string_view>

#include "encoding/json_text.h"
#include "plan/plan.h"

namespace collector {
namespace {

using rapidjson::Value;
using namespace veltrano::internal;

// Replaces control characters, which could break the line or control the terminal.
std::string printable(std::string_view text) {
  std::string result(text);
  std::replace_if(
      result.begin(), result.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; }, '?');
  return result;
}

std::string property(const Value& key, const Value& value) {
  return printable({key.GetString(), key.GetStringLength()}) + '=' + jsonOf(value);
}

std::string eventLine(const Value& record) {
  std::string line = " event=" + jsonOf(record["event"]);
  for (const auto& [key, value] : record["properties"].GetObject())
    if (key == "pub_uid" ||  // the host sets it
        !veltrano::planning::isLibrarysProperty(key.GetString()))
      line += ' ' + property(key, value);
  for (const auto& [key, value] : record["properties"]["extra_json"].GetObject())
    if (key != "att_auth_status") line += " extra_json." + property(key, value);
  return line;
}

}  // namespace

std::string jsonLine(const httplib::Request& request, const WireMessage& message,
                     std::chrono::system_clock::time_point received, int answer) {
  JSONMembers headers;
  // Newer versions of the server do not sort them. Of equal names, one is told.
  const auto precedes = [](const std::string& left, const std::string& right) {
    return strcasecmp(left.c_str(), right.c_str()) < 0;
  };
  const std::map sorted(request.headers.begin(), request.headers.end(), precedes);
  for (const auto& [name, value] : sorted) headers.emplace_back(name, json(value));
  const auto since1970 = received.time_since_epoch();
  // The body as it was sent: the check has found it compact, so it stays on one line.
  return jsonObject(
      {{"path", json(request.path)},
       {"uid", json(message.uid)},
       {"headers", jsonObject(headers)},
       {"body", message.json},
       {"received", json(std::chrono::duration_cast<std::chrono::milliseconds>(since1970).count())},
       {"answer", json(answer)}});
}

std::string readableLines(const httplib::Request& request, const WireMessage& message,
                          const Violations& violations) {
  const std::string start = request.path.substr(1) + "  uid=" + printable(message.uid);
  if (message.body.IsArray()) {
    std::string lines;
    std::size_t i = 0;
    for (const Value& record : message.body.GetArray()) {
      lines += (lines.empty() ? "" : "\n") + start + eventLine(record);
      if (i < violations.size())
        for (const std::string& violation : violations[i])
          lines += "  NOT AS PLANNED: " + printable(violation);
      ++i;
    }
    return lines;
  }
  std::string line = start;
  for (const char* key : {"session_id", "duration", "app_id", "app_version", "screen_orientation",
                          "device_orientation"})
    line += ' ' + std::string(key) + '=' + jsonOf(message.body["properties"][key]);
  return line;
}

}  // namespace collector
