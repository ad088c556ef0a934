#include "tests/support/simulation.h"

#include <gtest/gtest.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "encoding/base64.h"

namespace veltrano::internal {
namespace {

Json decodedBody(const std::string& body) {
  Json document;
  if (body.substr(0, 5) != "data=") {
    ADD_FAILURE() << "no data in " << body;
    return document;
  }
  const std::string bytes = decodedBase64(body.substr(5)).value_or("");
  document.Parse<rapidjson::kParseFullPrecisionFlag>(bytes.data(), bytes.size());
  EXPECT_FALSE(document.HasParseError()) << bytes;
  return document;
}

}  // namespace

Simulation::Simulation() {
  platform.output.onLine = [this](std::string_view line) { lines.emplace_back(line); };
  platform.network.onPost = [this](const PostRequest& request) {
    posts.push_back({now(), request, decodedBody(request.httpBody)});
  };
}

Simulation::~Simulation() {
  Library::exchangeCurrent(replaced_);
  Veltrano::isLoggerEnabled = false;
}

Veltrano::FlushCompletion Simulation::completion(std::string label) {
  return [this, label](bool result) { completions.emplace_back(label, result); };
}

std::vector<std::string> Simulation::takeMessages() {
  std::vector<std::string> messages;
  for (const std::string& line : lines) messages.push_back(line.substr(line.find(" | ") + 3));
  lines.clear();
  return messages;
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
