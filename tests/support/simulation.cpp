#include "tests/support/simulation.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "encoding/base64.h"

namespace veltrano::internal {

Simulation::Simulation(const std::function<void(Platform&)>& change)
    : library_([&] {
        Platform services = platform.services();
        change(services);
        return services;
      }()) {
  platform.output.onLine = [this](std::string_view line) { lines.emplace_back(line); };
  platform.network.onPost = [this](const PostRequest& request) {
    posts.emplace_back().Parse(decodedBase64(request.httpBody.substr(5)).value_or(""));  // data=
  };
}

Simulation::~Simulation() {
  Library::exchangeCurrent(replaced_);
  Veltrano::isLoggerEnabled = false;
}

std::string text(const rapidjson::Value& object, std::string_view key) {
  const auto member =
      object.FindMember(rapidjson::Value(key.data(), static_cast<rapidjson::SizeType>(key.size())));
  if (member == object.MemberEnd()) return "absent";
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  member->value.Accept(writer);
  return buffer.GetString();
}

}  // namespace veltrano::internal
