#include "platform/simulated/trace_text.h"

#include <map>

#include "encoding/base64.h"
#include "encoding/json_text.h"

namespace veltrano::internal {
namespace {

std::string textsJSON(const std::map<std::string, std::string>& texts) {
  JSONMembers members;
  for (const auto& [key, text] : texts) members.emplace_back(key, json(text));
  return jsonObject(members);
}

}  // namespace

std::string secondsText(Duration time) {
  constexpr std::int64_t kMillion = 1'000'000;
  const std::string decimals = std::to_string(kMillion + time.count() % kMillion);
  std::string text = std::to_string(time.count() / kMillion) + '.' + decimals.substr(1);
  text.erase(text.find_last_not_of('0') + 1);
  if (text.back() == '.') text.pop_back();
  return text;
}

std::string jsonInBody(std::string_view body) {
  return decodedBase64(body.substr(body.find('=') + 1)).value_or("");
}

std::string postText(const PostRequest& post, const std::string& url, const std::string& body) {
  return jsonObject({{"url", json(url)},
                     {"method", json("POST")},
                     {"query", textsJSON(post.qsParameters)},
                     {"headers", textsJSON(post.headerParameters)},
                     {"body", body},
                     {"authenticated", json(post.interceptor != nullptr)}});
}

}  // namespace veltrano::internal
