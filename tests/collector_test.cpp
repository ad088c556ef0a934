// The rules of the collector, of which collector_program.sh tests the program.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <functional>
#include <string>
#include <utility>

#include "encoding/base64.h"
#include "tools/collector/journal.h"
#include "tools/collector/wire_check.h"

namespace collector {
namespace {

const std::string kExtra = R"("extra_json":{"att_auth_status":0})";
const std::string kBatch =
    R"([{"event":"Bought","properties":{"time":1,"$wifi":true,)" + kExtra + R"(,"plan":"pro"}}])";
const std::string kHeartbeat =
    R"({"event":"heartbeat","properties":{"app_id":"","app_version":"2.3","os_version":"17.0",)"
    R"("manufacturer":"Apple","uid":"u","session_id":"1938AF34-86B3-441B-9B58-B59F06DA94AC",)"
    R"("time":1700000000000,"duration":0,"screen_orientation":"portrait",)"
    R"("device_orientation":"faceUp"}})";

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  return text.replace(text.find(from), from.size(), to);
}

httplib::Request request(const std::string& json) {
  httplib::Request request;
  request.method = "POST";
  request.path = json.starts_with('[') ? "/track" : "/heartbeat";
  request.params = {{"uid", "u"}};
  request.headers = {{"lib_version", "ios_0.0"}, {"publisher_version", "ios_2.3"}};
  const std::string_view pieces[] = {json};
  request.body = "data=";
  veltrano::internal::appendBase64(request.body, pieces);
  return request;
}

// `part` is a part of the reason for the refusal; empty if the request is valid.
void expectFault(const httplib::Request& request, const std::string& part) {
  WireMessage message;
  const std::string text = readRequest(request, message).value_or("");
  EXPECT_TRUE(part.empty() ? text.empty() : text.find(part) != text.npos) << text << " / " << part;
}

TEST(WireCheck, Envelope) {
  const std::pair<std::function<void(httplib::Request&)>, std::string> cases[] = {
      {[](auto&) {}, ""},
      {[](auto& r) { r.params.emplace("uid", "u"); }, "the query"},
      {[](auto& r) { r.params.begin()->second = "\xC3"; }, "not UTF-8"},
      {[](auto& r) { r.headers.erase("lib_version"); }, "\"lib_version\" is not there"},
      {[](auto& r) { r.headers.find("lib_version")->second = "1.0"; }, "does not start"},
      {[](auto& r) { r.headers.emplace("content-type", "text/plain"); }, "Content-Type"},
      {[](auto& r) { r.headers.emplace("Authorization", "Bearer t"); }, "Authorization"},
      {[](auto& r) { r.body += '\n'; }, "not strict Base64"},
  };
  for (const auto& [change, wrong] : cases) {
    httplib::Request changed = request(kBatch);
    change(changed);
    expectFault(changed, wrong);
  }
}

TEST(WireCheck, Bodies) {
  const std::string record = kBatch.substr(1, kBatch.size() - 2);
  std::string most = record;
  for (int i = 1; i < 200; ++i) most += "," + record;
  const auto nested = [](std::size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
  };
  const std::pair<std::string, std::string> bodies[] = {
      {"[" + most + "]", ""},
      {"[" + most + "," + record + "]", "201 records"},
      {replaced(kBatch, "\"event\"", "\"more\":1,\"event\""), "exactly"},
      {replaced(kBatch, "\"time\":1,\"$wifi\":true," + kExtra + ",", ""), ""},  // withheld
      {replaced(kBatch, kExtra, "\"extra_json\":1"), "\"extra_json\" is not an object"},
      {replaced(kBatch, "\"plan\"", "\"time\""), "duplicate key"},
      {replaced(kBatch, "\"pro\"", " \"pro\""), "not compact"},
      {replaced(kBatch, "\"pro\"", "\"\xC3\""), "not JSON"},
      {replaced(kBatch, "\"pro\"", "0." + std::string(400, '0')), "100 zeros"},
      {replaced(kBatch, "\"pro\"", nested(197)), ""},
      {replaced(kBatch, "\"pro\"", nested(100'000)), "200 deep"},
      {kHeartbeat, ""},
      {replaced(kHeartbeat, "\"app_id\":\"\",", ""), "\"app_id\" is missing"},
      {replaced(kHeartbeat, "1938AF34", "1938af34"), "\"session_id\" is not"},
      {replaced(kHeartbeat, "\"duration\":0", "\"duration\":-1"), "\"duration\" is not"},
      {replaced(kHeartbeat, "\"u\"", "\"v\""), "the query's uid"},
  };
  for (const auto& [json, wrong] : bodies) expectFault(request(json), wrong);
}

TEST(Journal, KeepsTheLatestInOrder) {
  Journal journal;
  httplib::Request wrong;
  wrong.body.assign(50, '\xFF');
  for (std::size_t i = 0; i < Journal::kMaximumEntries + 5; ++i)
    journal.addRefused(wrong, {}, 400, "wrong");
  wrong.body.resize(5000, '\xFF');
  journal.addRefused(wrong, {}, 400, "wrong");
  rapidjson::Document kept;
  kept.Parse(journal.list(Journal::Kind::refused));
  ASSERT_EQ(kept.Size(), Journal::kMaximumEntries);
  EXPECT_EQ(kept[0u]["number"].GetInt(), 7);

  journal.clear();
  journal.addRequest(wrong, 200, true);
  Journal::Position position;
  EXPECT_TRUE(journal.next(position, {}).starts_with("event: clear\n"));
  EXPECT_EQ(journal.next(position, {}), "");
}

}  // namespace
}  // namespace collector
