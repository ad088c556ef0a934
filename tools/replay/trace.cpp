#include "tools/replay/trace.h"

#include <utility>

#include "encoding/json_text.h"
#include "platform/simulated/trace_text.h"

namespace replay {

using namespace veltrano::internal;

Trace::Trace(std::function<Duration()> now, Write write, Bodies bodies)
    : now_(std::move(now)), write_(std::move(write)), bodies_(bodies) {}

void Trace::add(std::string_view key, const std::string& json, const std::string& more) {
  const std::lock_guard lock(mutex_);
  write_("{\"at\":" + secondsText(now_()) + ",\"" + std::string(key) + "\":" + json + more + "}\n");
}

void Trace::addPost(const PostRequest& request) {
  const std::string body =
      bodies_ == Bodies::decoded ? jsonInBody(request.httpBody) : json(request.httpBody);
  add("post", postText(request, request.baseURL, body));
}

void Trace::addDefault(const std::string& key, double value) {
  add("defaults", jsonObject({{key, json(value)}}));
}

}  // namespace replay
