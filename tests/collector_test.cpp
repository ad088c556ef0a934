// The collector's rules, and the program itself over TLS.
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <rapidjson/document.h>
#include <signal.h>
#include <sys/wait.h>

#include <cstdio>
#include <functional>
#include <future>
#include <stdexcept>
#include <string>
#include <utility>

#include "tools/collector/fault.h"
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

std::string encoded(const std::string& json) {
  std::string text((json.size() + 2) / 3 * 4, '\0');
  EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                  reinterpret_cast<const unsigned char*>(json.data()), int(json.size()));
  return "data=" + text;
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  return text.replace(text.find(from), from.size(), to);
}

WireRequest request(const std::string& path, const std::string& json) {
  return {"POST",
          path,
          {{"uid", "u"}},
          {{"lib_version", "ios_0.0"}, {"publisher_version", "ios_2.3"}},
          encoded(json)};
}

// The error in the request; empty if it is valid.
std::string fault(const WireRequest& request) {
  WireMessage message;
  return readRequest(request, message).value_or("");
}

void expectPart(const std::string& text, const std::string& part) {
  EXPECT_TRUE(part.empty() ? text.empty() : text.find(part) != text.npos) << text << " / " << part;
}

TEST(WireCheck, Envelope) {
  const std::pair<std::function<void(WireRequest&)>, std::string> cases[] = {
      {[](auto&) {}, ""},
      {[](auto& r) { r.parameters.emplace("uid", "u"); }, "the query"},
      {[](auto& r) { r.parameters.begin()->second = "\xC3"; }, "not UTF-8"},
      {[](auto& r) { r.headers.erase("lib_version"); }, "\"lib_version\" is not there"},
      {[](auto& r) { r.headers.find("lib_version")->second = "1.0"; }, "does not start"},
      {[](auto& r) { r.headers.emplace("content-type", "text/plain"); }, "Content-Type"},
      {[](auto& r) { r.headers.emplace("Authorization", "Bearer t"); }, "Authorization"},
      {[](auto& r) { r.body = "data=W11="; }, "not strict Base64"},  // bits beyond the last byte
      {[](auto& r) { r.body += '\n'; }, "not strict Base64"},
  };
  for (const auto& [change, wrong] : cases) {
    WireRequest changed = request("/track", kBatch);
    change(changed);
    expectPart(fault(changed), wrong);
  }
}

TEST(WireCheck, Bodies) {
  const std::string record = kBatch.substr(1, kBatch.size() - 2);
  std::string most = record;
  for (int i = 1; i < 200; ++i) most += "," + record;
  const auto nested = [](std::size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
  };
  const std::pair<std::string, std::string> batches[] = {
      {"[" + most + "]", ""},
      {"[" + most + "," + record + "]", "201 records"},
      {replaced(kBatch, "\"event\"", "\"more\":1,\"event\""), "exactly"},
      {replaced(kBatch, "\"$wifi\":true,", ""), "\"$wifi\" is missing"},
      {replaced(kBatch, "\"plan\"", "\"time\""), "duplicate key"},
      {replaced(kBatch, "\"pro\"", " \"pro\""), "not compact"},
      {replaced(kBatch, "\"pro\"", "\"\xC3\""), "not JSON"},
      {replaced(kBatch, "\"pro\"", "0." + std::string(400, '0')), "100 zeros"},
      {replaced(kBatch, "\"pro\"", nested(197)), ""},
      {replaced(kBatch, "\"pro\"", nested(100'000)), "200 deep"},
  };
  for (const auto& [json, wrong] : batches) expectPart(fault(request("/track", json)), wrong);
  const std::pair<std::string, std::string> heartbeats[] = {
      {kHeartbeat, ""},
      {replaced(kHeartbeat, "\"app_id\":\"\",", ""), "\"app_id\" is missing"},
      {replaced(kHeartbeat, "1938AF34", "1938af34"), "\"session_id\" is not"},
      {replaced(kHeartbeat, "\"duration\":0", "\"duration\":-1"), "\"duration\" is not"},
      {replaced(kHeartbeat, "\"u\"", "\"v\""), "the query's uid"},
  };
  for (const auto& [json, wrong] : heartbeats)
    expectPart(fault(request("/heartbeat", json)), wrong);
}

TEST(Faults, FollowEachOtherUntilTheyAreUsedUp) {
  FaultsByPath faults =
      parseFaults(R"([{"path":"/track","status":503,"count":2,"retry_after":"3"},)"
                  R"({"path":"/track","truncate":true,"accept":true,"count":1,"body":"a,b=c"}])");
  EXPECT_EQ(takeFault(faults, "/track").retryAfter, "3");
  EXPECT_EQ(faultsJSON(faults),
            R"([{"path":"/track","status":503,"retry_after":"3","count":1},)"
            R"({"path":"/track","truncate":true,"accept":true,"body":"a,b=c","count":1}])");
  EXPECT_EQ(takeFault(faults, "/track").status, 503);
  const Fault truncated = takeFault(faults, "/track");
  EXPECT_TRUE(truncated.truncate && truncated.accept);
  EXPECT_EQ(truncated.body, "a,b=c");
  EXPECT_FALSE(takeFault(faults, "/track").body);
  for (const char* wrong : {R"({"status":503})", R"({"path":"/track","status":99})",
                            R"({"path":"/track","drop":1})", "path=/track"})
    EXPECT_THROW(parseFaults(wrong), std::invalid_argument) << wrong;
}

TEST(Journal, KeepsTheLatestInOrder) {
  Journal journal;
  const WireRequest wrong{"POST", "/track", {}, {}, std::string(5000, '\xFF')};
  for (std::size_t i = 0; i < Journal::kMaximumEntries + 5; ++i)
    journal.addRefused(wrong, {}, 400, "wrong");
  rapidjson::Document kept;
  kept.Parse(journal.list(Journal::Kind::refused));
  ASSERT_EQ(kept.Size(), Journal::kMaximumEntries);
  EXPECT_EQ(kept[0u]["number"].GetInt(), 6);

  journal.clear();
  journal.addRequest(wrong, 200, true);
  Journal::Position position;
  EXPECT_TRUE(journal.next(position, {}).starts_with("event: clear\n"));
  EXPECT_EQ(journal.next(position, {}), "");
}

// Runs the collector program.
class Program {
 public:
  explicit Program(const std::string& options)
      : output_(::popen(("echo $$; exec " COLLECTOR_PROGRAM " " + options + " 2>&1").c_str(), "r")),
        process_(std::stoi(line())) {
    for (std::string text = line(); text != "ready"; text = line()) {
      if (text.empty()) throw std::runtime_error("the collector did not start");
      if (text.starts_with("url=")) port_ = std::stoi(text.substr(text.rfind(':') + 1));
      if (text.starts_with("certificate=")) certificate_ = text.substr(text.find('=') + 1);
      if (text.starts_with("page=")) page_ = text.substr(text.find('=') + 1);
    }
  }
  ~Program() {
    if (output_ != nullptr) end();
  }

  std::string line() {
    std::string text;
    for (int c = std::fgetc(output_); c != EOF && c != '\n'; c = std::fgetc(output_))
      text += static_cast<char>(c);
    return text;
  }

  httplib::Result post(const std::string& target, const std::string& body) const {
    httplib::SSLClient client("localhost", port_);
    client.set_ca_cert_path(certificate_.c_str());
    // A plain body would get a Content-Type.
    const auto provide = [&body](std::size_t offset, std::size_t, httplib::DataSink& sink) {
      return sink.write(body.data() + offset, body.size() - offset);
    };
    return client.Post(target, request("", "").headers, body.size(), provide, "");
  }

  httplib::Client page() const { return httplib::Client(page_.substr(0, page_.rfind('/'))); }

  int end() {  // harmless if the program is already shutting down
    ::kill(process_, SIGTERM);
    return exitStatus();
  }
  int exitStatus() { return ::pclose(std::exchange(output_, nullptr)); }

 private:
  std::FILE* output_;
  const pid_t process_;
  int port_ = 0;
  std::string certificate_;
  std::string page_;
};

TEST(CollectorProgram, AcceptsRefusesAndMisbehaves) {
  Program program(R"(--require-token t --misbehave '{"path":"/track","status":503,"count":1}')");
  const std::string body = encoded(kBatch);
  const auto track = [&] { return program.post("/track?uid=u%2B1", body); };
  ASSERT_EQ(track()->status, 503);
  ASSERT_EQ(track()->status, 200);
  rapidjson::Document accepted;
  accepted.Parse(program.line());
  EXPECT_EQ(accepted["path"], "/track");
  EXPECT_EQ(accepted["uid"], "u+1");
  EXPECT_EQ(accepted["headers"]["lib_version"], "ios_0.0");
  EXPECT_EQ(accepted["body"], rapidjson::Document().Parse(kBatch));

  EXPECT_EQ(program.post("/track?uid=u", encoded("[]"))->status, 400);
  EXPECT_EQ(program.line(), "refused (track): the batch is empty");
  EXPECT_EQ(program.post("/heartbeat?uid=u", encoded(kHeartbeat))->status, 401);

  EXPECT_EQ(program.post("/control", R"({"path":"/track","dorp":true})")->status, 400);
  const std::string faults = R"([{"path":"/track","drop":true,"count":1},)"
                             R"({"path":"/track","truncate":true,"accept":true,"count":1}])";
  EXPECT_EQ(program.post("/control", faults)->status, 200);
  EXPECT_EQ(track().error(), httplib::Error::Read);
  EXPECT_EQ(track().error(), httplib::Error::Read);
  EXPECT_EQ(track()->status, 200);
  EXPECT_EQ(program.end(), 0);
}

TEST(CollectorProgram, TellsScriptsWhatHasCome) {
  Program program("--output /dev/null");
  const auto get = [&](const std::string& target) {
    const auto result = program.page().Get(target);
    return std::to_string(result->status) + ' ' + result->body;
  };
  auto waiting = std::async(std::launch::async, get, "/wait?event=Bought&count=2&timeout=60");
  const std::string record = replaced(kBatch, "\"pro\"", "12345678901234567890123");
  for (int i = 0; i < 2; ++i) program.post("/track?uid=u", encoded(record));
  program.post("/heartbeat?uid=u", encoded(kHeartbeat));
  program.post("/track?uid=u", encoded("[]"));
  EXPECT_EQ(waiting.get(), "200 {\"event\":\"Bought\",\"count\":2}\n");
  EXPECT_EQ(get("/wait?event=Bought&count=3&timeout=0").substr(0, 3), "504");
  EXPECT_EQ(get("/wait?event=Bought&cuont=2").substr(0, 3), "400");
  expectPart(get("/reset"), "404 there is no GET /reset; ");
  expectPart(get("/events"), ",\"uid\":\"u\",\"answer\":200,\"body\":" +
                                 record.substr(1, record.size() - 2) + "},\n");
  expectPart(get("/heartbeats"), kHeartbeat);
  expectPart(get("/refused"), "\"the batch is empty\"");

  auto page = program.page();
  EXPECT_EQ(page.Get("/events", {{"Host", "example.com"}})->status, 403);
  EXPECT_EQ(page.Post("/reset", httplib::Headers{{"Origin", "http://example.com"}})->status, 403);
  EXPECT_EQ(page.Post("/reset")->status, 200);
  EXPECT_EQ(get("/events"), "200 []\n");

  const auto heldBack = std::async(std::launch::async, get, "/wait?event=Bought&timeout=3600");
  EXPECT_EQ(program.end(), 0);
}

TEST(CollectorProgram, IsReadableAndEndsAtOnceWhenAsked) {
  Program program(R"(--format readable --misbehave '{"path":"/track","latency_ms":600000}')");
  program.post("/heartbeat?uid=u", encoded(kHeartbeat));
  EXPECT_TRUE(program.line().starts_with("heartbeat  uid=u session_id=\"1938AF34-"));
  auto heldBack = std::async(std::launch::async, [&program] {
    return program.post("/track?uid=u", encoded(kBatch))->status;
  });
  EXPECT_EQ(program.line(), "track  uid=u event=\"Bought\" plan=\"pro\"");
  EXPECT_EQ(program.post("/control/shutdown", "")->status, 200);
  EXPECT_EQ(heldBack.get(), 200);
  EXPECT_EQ(program.exitStatus(), 0);
}

}  // namespace
}  // namespace collector
