#include "tools/replay/trace.h"

#include <cinttypes>
#include <map>
#include <utility>
#include <vector>

#include "encoding/base64.h"
#include "encoding/json_text.h"

namespace replay {
namespace {

using veltrano::internal::json;
using veltrano::internal::jsonObject;

std::string textsJSON(const std::map<std::string, std::string>& map) {
  veltrano::internal::JSONMembers members;
  for (const auto& [key, value] : map) members.emplace_back(key, json(value));
  return jsonObject(members);
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

void Trace::add(std::string_view key, const std::string& json, const std::string& more) {
  const std::lock_guard lock(mutex_);
  write_("{\"at\":" + secondsText(now_()) + ",\"" + std::string(key) + "\":" + json + more + "}\n");
}

void Trace::addPost(const veltrano::internal::PostRequest& request) {
  add("post", jsonObject({{"url", json(request.baseURL)},
                          {"method", json("POST")},
                          {"query", textsJSON(request.qsParameters)},
                          {"headers", textsJSON(request.headerParameters)},
                          {"body", bodies_ == Bodies::decoded ? decodedBody(request.httpBody)
                                                              : json(request.httpBody)},
                          {"authenticated", json(request.interceptor != nullptr)}}));
}

void Trace::addDefault(const std::string& key, double value) {
  add("defaults", jsonObject({{key, json(value)}}));
}

}  // namespace replay
