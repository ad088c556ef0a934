// What examples/host_tests does not cover of the test kit.
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/directory.h"
#include "tests/support/trace_laws.h"
#include "veltrano/posix_platform.h"
#include "veltrano/testing.h"
#include "veltrano/testing_c.h"
#include "veltrano/veltrano.h"

namespace {

using namespace std::chrono_literals;
namespace kit = veltrano::testing;
using kit::Origin;
using veltrano::Array;
using veltrano::HostMap;
using veltrano::HostValue;
using veltrano::PosixPlatform;

veltrano::PosixOptions options() {
  veltrano::PosixOptions options;
  options.collectionHost = "events.example.com";
  return options;
}

// Tracks an event that forces its upload, and notes the outcome.
void post(std::vector<bool>& outcomes, kit::World& world, kit::Duration pause = 0s) {
  Veltrano::shared().track("E", {}, [&](bool accepted) { outcomes.push_back(accepted); });
  world.advance(pause);
}

TEST(Values, AreComparedAndPrintedAsTheyAreSent) {
  const veltrano::Date date = veltrano::Date::fromSecondsSince1970(0.5);
  const HostValue map = {
      {"b", Array{1u, veltrano::OtherObject()}}, {"a", 2.5}, {"c", veltrano::OtherObject()}};
  EXPECT_EQ(HostValue(3), 3u);
  EXPECT_EQ(HostValue(veltrano::Int64{3}), 3.0);
  EXPECT_NE(HostValue(INT64_MAX), HostValue(INT64_MAX - 1));
  EXPECT_NE(HostValue(1), true);
  EXPECT_NE(HostValue("3"), 3);
  EXPECT_EQ(HostValue("1970-01-01T00:00:00.500Z"), date);
  EXPECT_EQ(HostValue(std::numeric_limits<double>::infinity()), veltrano::NSNull());
  EXPECT_EQ(HostValue(veltrano::NSNumber(7, 1)), true);
  EXPECT_EQ(map, (HostMap{{"a", 2.5f}, {"b", std::vector<int>{1}}}));
  EXPECT_NE(map, (HostMap{{"a", 2.5f}}));
  EXPECT_EQ(testing::PrintToString(map),
            R"({"a": 2.5, "b": [1, an object of another type], "c": an object of another type})");
  EXPECT_EQ(testing::PrintToString(Array{date, "\"", UINT64_MAX, veltrano::NSNull(), HostValue()}),
            R"(["1970-01-01T00:00:00.500Z", "\"", 18446744073709551615, null, absent])");
  EXPECT_EQ(testing::PrintToString(Origin::superProperty), "superProperty");
  EXPECT_NONFATAL_FAILURE(EXPECT_EQ(HostValue("pro"), "free"), "\"free\"");
}

TEST(Events, KnowTheLayerOfEachProperty) {
  kit::World world;
  auto& tracker = Veltrano::shared();
  tracker.setSuperProperties({{"plan", "pro"},
                              {"kept", 1},
                              {"$os", "other"},
                              {"extra_json", {{"a", 1}, {"b", Array{HostMap{{"deep", 1}}}}}}});
  tracker.track("E", {{"plan", "free"},
                      {"kept", veltrano::OtherObject()},
                      {"own", {{"city", "Oslo"}}},
                      {"dotted.key", 1},
                      {"items", Array{HostMap{{"name", "ticket"}}}},
                      {"extra_json", {{"a", 2}}}});
  world.advance(20s);
  const auto event = world.delivered().only("E");
  const std::pair<Origin, std::vector<const char*>> origins[] = {
      {Origin::event, {"plan", "own.city", "dotted.key", "extra_json.a"}},
      {Origin::superProperty, {"kept", "$os", "extra_json.b"}},
      {Origin::defaultProperty, {"$os_version"}},
      {Origin::automatic, {"time", "extra_json.att_auth_status"}}};
  for (const auto& [origin, paths] : origins)
    for (const char* const path : paths) EXPECT_EQ(event.origin(path), origin) << path;
  EXPECT_EQ(event["own.city"], "Oslo");
  EXPECT_EQ(event["extra_json.a"], 2);
  EXPECT_EQ(event["items.0.name"], "ticket");
  for (const char* none : {"own.street", "items.1", "items.x", "items.0.price"})
    EXPECT_FALSE(event.has(none)) << none;
  EXPECT_EQ(event.recordedAt(), 0s);
}

TEST(Lookups, SayWhatIsThere) {
  kit::World world;
  Veltrano::shared().track("Seen");
  Veltrano::shared().track("Seen");
  world.advance(20s);
  const auto delivered = world.delivered();
  world.network("/track").answer(503);
  const std::string place = "threw: test_kit_test.cpp:" + std::to_string(__LINE__ + 1) + ": ";
  Veltrano::shared().track("Refused", {}, [&](bool) { delivered.only("Bought"); });
  world.advance(20s);
  const std::string complaint = world.complaints().back();
  EXPECT_NE(complaint.find(place), std::string::npos) << complaint;
  EXPECT_TRUE(complaint.ends_with("delivered were: Seen, Seen; waiting: none")) << complaint;
  EXPECT_THROW(delivered.only("Seen"), kit::Error);
  EXPECT_THROW(delivered[0]["plan"], kit::Error);
  EXPECT_THROW(delivered[2], kit::Error);
  EXPECT_THROW(world.heartbeats().back(), kit::Error);
  EXPECT_THROW(kit::World(), kit::Error);
  EXPECT_THROW(world.advance(-1s), kit::Error);
  EXPECT_THROW(world.advance(kit::Duration::max()), kit::Error);
  EXPECT_EQ(world.waiting(), 1u);
  EXPECT_EQ((std::ostringstream() << world.heartbeats()).str(), "none");
}

TEST(Rules, AreUsedUpInTheirOrder) {
  kit::World world;
  auto& track = world.network("/track");
  track.answer(500);
  track.answer(503).times(2);
  track.answer([](const kit::Request&) -> kit::Answer { throw std::runtime_error("oops"); }).once();
  track.fail().once().after(1s);
  EXPECT_THROW(track.answer(-1), kit::Error);
  EXPECT_THROW(track.answer(kit::Answer{1000}), kit::Error);
  std::vector<bool> outcomes;
  for (int i = 0; i < 4; ++i) post(outcomes, world);
  EXPECT_EQ(outcomes.size(), 3u);  // the fourth takes a second
  EXPECT_EQ(world.statistics().uploadsFailedByStatus, 2u);
  EXPECT_EQ(world.statistics().uploadsFailedInTransport, 1u);
  EXPECT_NE(world.complaints()[0].find("oops"), std::string::npos) << world.complaints();
  world.advance(10s);  // until the rest is over
  post(outcomes, world);
  EXPECT_EQ(world.statistics().uploadsFailedByStatus, 3u);
  track.answer(200);
  post(outcomes, world);
  EXPECT_EQ(outcomes, (std::vector<bool>{false, false, false, false, false, true}));
  track.answer(200).after(90s).once();
  post(outcomes, world, 29s);
  EXPECT_EQ(outcomes.size(), 6u);
  world.advance(1s);
  EXPECT_EQ(outcomes.size(), 7u) << "an attempt takes half a minute at most, as in production";
  EXPECT_EQ(world.delivered().size(), 6u);
  EXPECT_EQ(world.requests().back().headers.at("publisher_version"), "ios_unknown");

  world.network("/heartbeat").answer(200, R"({"back_off_seconds":1e-9})");
  Veltrano::shared().setUserId("user");
  world.advance(25s);
  EXPECT_GT(world.heartbeats().size(), 10u);
  EXPECT_LT(world.heartbeats().size(), 100u) << "timers have a tolerance";
}

TEST(Rests, AreGrantedToACollectionHostThatAsks) {
  kit::World world;
  auto given = options();
  std::vector<veltrano::TransferReport> reports;
  given.onTransfer = [&](const veltrano::TransferReport& report) { reports.push_back(report); };
  ASSERT_TRUE(PosixPlatform::install(std::move(given)));
  world.network("/track").answer(429, std::nullopt, {{"retry-After", "600"}}).once();
  std::vector<bool> outcomes;
  post(outcomes, world);
  EXPECT_EQ(reports.back().putOffUntil,
            std::chrono::system_clock::from_time_t(1'700'000'000) + 600s);
  post(outcomes, world, 1s);
  EXPECT_EQ(outcomes, (std::vector<bool>{false, false}));
  EXPECT_EQ(world.requests().size(), 1u);
  EXPECT_EQ(reports.size(), 1u);
  EXPECT_EQ(world.statistics().uploadsFailedByStatus, 1u);
  EXPECT_EQ(world.statistics().uploadsPutOff, 1u);
  const char* const rest =
      "Last request to /track: status 429, 2 s ago\n"
      "Requests to /track: put off for 599 s, because the collection host asked for it\n";
  EXPECT_NE(Veltrano::status().find(rest), std::string::npos) << Veltrano::status();
  EXPECT_NE(world.trace().find("\"error\":true"), std::string::npos);
  world.advance(598s);
  EXPECT_EQ(world.delivered().size(), 0u);
  world.advance(22s);
  EXPECT_EQ(world.delivered().size(), 2u);
  EXPECT_EQ(Veltrano::status().find("put off for"), std::string::npos);
}

TEST(Rests, OfOurOwnAreSkippedByFlushesThatCannotWait) {
  kit::World world;
  Veltrano::shared().setUserId("user");
  world.network("/track").answer(413);
  world.network("/heartbeat").answer(500);
  world.advance(240s);
  const auto counts = world.statistics();
  EXPECT_EQ(counts.heartbeatsSent, 12u);
  EXPECT_EQ(counts.heartbeatsFailed, world.heartbeats().size());
  EXPECT_EQ(counts.heartbeatsPutOff, 12 - world.heartbeats().size());
  EXPECT_GT(counts.heartbeatsPutOff, 3u);
  for (int i = 0; i < 12; ++i) Veltrano::shared().track("E");
  world.advance(0s);  // the threshold's flush is not one of those
  EXPECT_EQ(world.statistics().uploadsFailedByStatus, counts.uploadsFailedByStatus);
  std::vector<bool> outcomes;
  post(outcomes, world, 1s);
  world.enterBackground();
  world.advance(1s);
  EXPECT_EQ(world.statistics().uploadsFailedByStatus, counts.uploadsFailedByStatus + 2);
}

// What a world complains about, and nothing else, after `host` has used it.
template <class Host>
void expectComplaints(const Host& host, std::initializer_list<const char*> expected) {
  kit::World world;
  host(world);
  EXPECT_EQ(world.complaints().size(), expected.size()) << world.complaints();
  for (const char* const words : expected)
    EXPECT_NE(testing::PrintToString(world.complaints()).find(words), std::string::npos)
        << words << world.complaints();
}

TEST(Complaints, NameWhatNobodyNotices) {
  expectComplaints(
      [](kit::World& world) {
        EXPECT_FALSE(PosixPlatform::install({}));  // no collection host
        Veltrano::shared().track("E", {{"a", {{"b", Array{1, veltrano::OtherObject()}}}}});
        Veltrano::shared().setCollecting(false);
        world.end();
        world.enterBackground();
        EXPECT_THROW(world.advance(1s), kit::Error);
      },
      {"refused: ", "E: a.b[1] is an object of another type",
       "at 0.000000 s: 1 event was pending at the end, while collecting was off, and dropped."});
  expectComplaints(
      [](kit::World& world) {
        HostValue nested = 1;
        for (int depth = 0; depth < 127; ++depth) nested = Array(std::vector<HostValue>{nested});
        Veltrano::shared().track("E", {{"a", nested}, {"b", HostMap()}, {"c", NAN}});
        nested = Array(std::vector<HostValue>{nested});
        Veltrano::shared().setSuperProperties({{"s", nested}});
        Veltrano::shared().track("Deep",
                                 {{"a", Array{nested}}, {"n", veltrano::NSNumber(13, NAN)}});
        world.advance(20s);
        EXPECT_EQ(world.delivered().only("Deep")["s"], nested);
      },
      {"E: b is an empty map", "E: c is not finite", "Deep: n is not",
       "Deep: a nests more than 127 deep", "setSuperProperties: s nests"});
  expectComplaints(
      [](kit::World& world) {
        const auto end = [&] { world.end(); };
        world.network("/track").answer([&](const kit::Request&) {
          end();
          return kit::Answer{};
        });
        Veltrano::shared().setRefreshTriggersWithHandler({{"E"}}, end);
        Veltrano::shared().track("E", {}, [&](bool) { end(); });
        world.advance(0s);
        EXPECT_EQ(world.statistics().uploadsFailedInTransport, 1u);  // the rule threw
      },
      {"cannot end", "", ""});
  expectComplaints(
      [](kit::World& world) {
        Veltrano::shared().track("Bad", {{"d", veltrano::Dictionary({{1, 2}})}});
        world.advance(20s);
        world.network("/track").answer(400).once();
        Veltrano::shared().track("Refused");
        world.advance(20s);
        EXPECT_TRUE(world.delivered().empty());
        world.network("/track").answer(503).once();
        for (int i = 0; i < 201; ++i) Veltrano::shared().track("E" + std::to_string(i));
        world.advance(1min);
        EXPECT_EQ(world.delivered().front().name(), "E1");
      },
      {"Bad cannot be encoded", "status 400, and it was dropped: Refused",
       "because too many waited: 1 E0."});
  expectComplaints(
      [](kit::World&) {
        EXPECT_TRUE(PosixPlatform::install(options()));
        std::thread([] { Veltrano::shared().setUserId("user"); }).join();
        EXPECT_FALSE(PosixPlatform::install({}));
      },
      {"heartbeat", "second time"});
}

TEST(Complaints, NameWhatHappensToCallbacks) {
  expectComplaints(
      [](kit::World& world) {
        auto given = options();
        given.userDefaultsFile = "/no/such/directory/settings";
        given.sessionToken = []() -> std::optional<std::string> { throw std::runtime_error("a"); };
        given.onTransfer = [](const veltrano::TransferReport&) { throw 1; };
        auto& platform = *PosixPlatform::install(given).platform;
        auto& tracker = Veltrano::shared();
        tracker.setUserId("user");
        world.advance(2s);
        tracker.setRefreshTriggersWithHandler({{"E"}}, [] { throw std::runtime_error("b"); });
        tracker.track("E", {{"extra_json", 1}}, [](bool) {});
        tracker.track("F", {}, [&](bool) { world.delivered().only("None"); });
        platform.mainRunLoop().perform([] { throw std::runtime_error("c"); });
        world.advance(1s);
      },
      {"refused: The settings' directory", "threw: a", "onTransfer threw", "onTransfer threw",
       "handler threw: b", "no map", "of E is never called",
       "of F threw: test_kit_test.cpp:", "loop threw: c"});
}

TEST(Complaints, NameCallsThatDidNothing) {
  expectComplaints(
      [](kit::World& world) {
        PosixPlatform::install(options());
        Veltrano::shared();
        world.enterBackground();
        for (int i = 0; i < 201; ++i) Veltrano::shared().track(i == 0 ? "Oldest" : "Waits");
        world.advance(1s);
        veltrano_set_collecting(false);
        Veltrano::shared().track("Silenced");
        Veltrano::shared().track("Silenced", {}, [](bool) {});
        veltrano_object* one = veltrano_int(1);
        EXPECT_FALSE(veltrano_track("E", one, nullptr, nullptr));
        EXPECT_FALSE(veltrano_dictionary_set_int(one, "key", 1));
        for (const char* selector : {"setUserId:", "setIdfa", "nope"})
          veltrano_send(selector, &one, 1, nullptr, nullptr);
        veltrano_set_app_id(nullptr);
        veltrano_release(one);
        world.enterForeground();
        veltrano_set_collecting(true);
        Veltrano::shared().track("Recorded");
        world.advance(1min);
        EXPECT_EQ(world.delivered().size(), 1u);
      },
      {"off: 2 Silenced.", "too many waited: 1 Oldest.", "200 events were dropped",
       "of Silenced is never", "veltrano_track did nothing: its second argument",
       "set... did nothing: its first", "setUserId: did nothing: its first",
       "setIdfa did nothing: there", "nope did nothing: there",
       "veltrano_set_app_id did nothing: its first"});
}

TEST(Worlds, CanBeTheNextLaunch) {
  std::map<std::string, double> settings;
  {
    kit::World first;
    Veltrano::shared().setUserId("user");
    first.network("/heartbeat").answer(200, R"({"back_off_seconds": 100})");
    first.advance(2s);
    settings = first.settings();
  }
  kit::World second;
  second.setSettings(settings);
  second.setModel("Player 3");
  Veltrano::shared().setUserId("user");
  for (const char* plan : {"pro", "free"})
    Veltrano::shared().track("Bought", {{"plan", plan}, {"items", Array{HostMap{{"id", 7}}}}});
  second.advance(200s);
  EXPECT_EQ(second.heartbeats().size(), 2u);
  EXPECT_EQ(second.heartbeats().back().at(), 101s);
  EXPECT_EQ(testing::PrintToString(second.heartbeats()[1].at() - second.heartbeats()[0].at()),
            "100.000000 s");
  const auto found = second.delivered().with({{"plan", "free"}, {"items.0.id", 7}}).only("Bought");
  EXPECT_EQ(found["$model"], "Player 3");
  EXPECT_TRUE(second.delivered().with({{"plan", "none"}}).empty());
  const std::string trace = second.trace();
  EXPECT_NE(trace.find("\"defaults\":{\"kelvora_heartbeat_interval\":100"), std::string::npos);
  const auto answer = trace.find("\"/heartbeat\"");
  EXPECT_NE(answer, std::string::npos);
  EXPECT_EQ(trace.rfind("\"/heartbeat\""), answer) << "an unchanged answer is written once";
}

TEST(Worlds, SayTheSameInC) {
  veltrano_world* world = veltrano_world_create();
  veltrano_world_answer_with_header(world, "/track", 503, "Retry-After", "100", 1);
  veltrano_world_answer(world, "/heartbeat", 200, R"({"back_off_seconds":50})", 0, 0);  // always
  veltrano_set_user_id("user");
  veltrano_track("E", nullptr, nullptr, nullptr);
  veltrano_world_advance(world, 90);
  EXPECT_EQ(veltrano_world_delivered(world, nullptr), 0u);  // a rest
  veltrano_world_advance(world, 60);
  EXPECT_EQ(veltrano_world_delivered(world, nullptr), 1u);
  EXPECT_STREQ(veltrano_world_heartbeat_property(world, 0, "uid"), "\"user\"");
  EXPECT_EQ(veltrano_world_heartbeats(world), 4u);
  EXPECT_STREQ(veltrano_world_request(world, 0, "path"), "/heartbeat");
  EXPECT_STREQ(veltrano_world_request(world, 0, "query.uid"), "user");
  EXPECT_STREQ(veltrano_world_request(world, 0, "headers.lib_version"), "ios_0.0");
  EXPECT_EQ(veltrano_world_request(world, 0, "headers.x"), nullptr);
  EXPECT_NE(std::string(veltrano_world_error(world)).find("query.uid"), std::string::npos);
  EXPECT_EQ(veltrano_world_request(world, 99, "path"), nullptr);
  veltrano_world_jump_clock(world, 1e13);
  EXPECT_FALSE(veltrano_world_use_plan(world, "/dev/null"));
  EXPECT_TRUE(veltrano_world_use_plan(world, PLAN));
  veltrano_world_set_wifi(world, true);
  for (const char* name : {"Signed Out", "E"}) veltrano_track(name, nullptr, nullptr, nullptr);
  veltrano_world_advance(world, 20);
  EXPECT_STREQ(veltrano_world_property(world, "E", 1, "$wifi"), "true");
  EXPECT_STREQ(veltrano_world_complaints(world),
               "A time is over 1e12 s, or not a number.\n"
               "at 150.000002 s: E: not a planned event\n");
  const std::size_t requests = veltrano_world_requests(world);
  veltrano_world_fail(world, "/track", 1);
  veltrano_track("Signed Out", nullptr, nullptr, nullptr);
  veltrano_world_enter_background(world);
  veltrano_world_advance(world, 1);
  EXPECT_EQ(veltrano_world_requests(world), requests + 1);
  EXPECT_EQ(veltrano_world_waiting(world), 1u);
  veltrano_world_end(world);
  EXPECT_FALSE(veltrano_world_advance(world, 1));
  EXPECT_NE(std::string(veltrano_world_trace(world)).find("\"error\":true"), std::string::npos);
  veltrano_world_destroy(world);
}

TEST(Worlds, AreInertInAForkedChild) {
  kit::World world;
  PosixPlatform::install(options());
  Veltrano::shared().track("E");
  const auto useInChild = [&] {
    Veltrano::shared().track("F");
    world.advance(20s);
    const bool isInert = world.requests().empty() && Veltrano::shared().statistics().recorded == 0;
    world.end();
    Veltrano::shared().track("G");
    _exit(isInert && Veltrano::shared().statistics().recorded == 0 ? 0 : 1);
  };
  EXPECT_EXIT(useInChild(), testing::ExitedWithCode(0), "");
  world.advance(20s);
  EXPECT_EQ(world.delivered().size(), 1u);
}

// In C, whose options become those of C++.
TEST(Installation, SetsWhatTheOptionsSay) {
  kit::World world;
  const char* const withheld[] = {"mp_lib", "$model"};
  veltrano_options given = {};
  given.size = sizeof given;
  given.collection_host = veltrano_c_string("events.example.com");
  veltrano_object* const info = veltrano_dictionary();
  veltrano_dictionary_set_text(info, "CFBundleVersion", "7");
  given.info_dictionary = info;
  given.system_name = veltrano_c_string("Player OS");
  given.system_version = veltrano_c_string("9");
  given.screen_width = 100;
  given.screen_height = 200;
  given.interface_orientation = 3;
  given.device_orientation = 1;
  given.carrier_name = {"Tele\0nor", 8};
  given.tracking_authorization_status = 2;
  given.advertising_identifier = veltrano_c_string("6d92078a-8246-4ba4-ae5b-76104861e7dc");
  given.withheld_properties = withheld;
  given.withheld_count = std::size(withheld);
  given.session_token = [](void*) { return veltrano_string(veltrano_c_string("token")); };
  int lines = 0;
  given.log_sink = [](void* count, veltrano_text) { ++*static_cast<int*>(count); };
  given.log_sink_context = &lines;
  veltrano_object* error = info;
  ASSERT_TRUE(veltrano_install_posix_platform(&given, &error));
  EXPECT_EQ(error, nullptr);
  veltrano_release(info);
  veltrano_set_logger_enabled(true);
  EXPECT_STREQ(veltrano_screen_orientation(), "landscape");
  EXPECT_STREQ(veltrano_device_orientation(), "portrait");
  veltrano_set_user_id("user");
  veltrano_set_app_id("app");
  veltrano_set_publisher_uid("pub");
  veltrano_set_idfa();
  veltrano_track("First", nullptr, nullptr, nullptr);

  veltrano_set_publisher_uid(nullptr);
  veltrano_remove_super_property("app_id");
  veltrano_set_carrier_name({});
  veltrano_set_tracking_authorization_status(3);
  veltrano_set_advertising_identifier(veltrano_c_string("00000000-0000-0000-0000-00000000000a"));
  veltrano_set_idfa();
  veltrano_set_screen_size(1, 1);
  veltrano_set_device_orientation(5);
  veltrano_set_interface_orientation(1);
  world.setWiFi(true);
  veltrano_track("E", nullptr, nullptr, nullptr);
  world.jumpClock(-1h);
  world.advance(20s);
  EXPECT_GT(lines, 10);
  const std::pair<const char*, HostMap> expected[] = {
      {"First",
       {{"$app_build_number", "7"},
        {"$os", "Player OS"},
        {"$os_version", "9"},
        {"$screen_width", 100},
        {"$screen_height", 200},
        {"$carrier", std::string("Tele\0nor", 8)},
        {"app_id", "app"},
        {"pub_uid", "pub"},
        {"extra_json.att_auth_status", 2},
        {"$ios_ifa", "6D92078A-8246-4BA4-AE5B-76104861E7DC"},
        {"time", 1'700'000'000'000}}},
      {"E",
       {{"extra_json.att_auth_status", 3},
        {"$screen_width", 100},
        {"$wifi", true},
        {"$ios_ifa", "00000000-0000-0000-0000-00000000000A"},
        {"screen_orientation", "portrait"},
        {"device_orientation", "faceUp"}}}};
  for (const auto& [name, properties] : expected)
    for (const auto& [path, value] : properties)
      EXPECT_EQ(world.delivered().only(name)[path], value) << name << ": " << path;
  const auto last = world.delivered().only("E");
  for (const char* const gone : {"mp_lib", "$model", "pub_uid", "app_id", "$carrier"})
    EXPECT_FALSE(last.has(gone)) << gone;
  const auto heartbeat = world.heartbeats().front();
  EXPECT_EQ(heartbeat["screen_orientation"], "portrait");
  EXPECT_EQ(heartbeat["time"], 1'700'000'001'000 - 3'600'000);
  EXPECT_EQ(heartbeat.userId(), "user");
  EXPECT_EQ(world.requests().front().headers.at("Authorization"), "Bearer token");

  veltrano_application_did_enter_background();
  world.advance(2min);
  EXPECT_EQ(world.heartbeats().size(), 1u);
  veltrano_application_will_enter_foreground();
  veltrano_application_did_become_active();
  world.advance(2s);
  EXPECT_EQ(world.heartbeats().size(), 2u);
}

TEST(Installation, SendsATokenIfAHeaderCanCarryIt) {
  kit::World world;
  std::string token;
  auto given = options();
  given.sessionToken = [&] { return token; };
  ASSERT_TRUE(PosixPlatform::install(given));
  Veltrano::shared().setUserId("user");
  const std::pair<const char*, const char*> cases[] = {
      {"t", "Bearer t"}, {"!~", "Bearer !~"}, {"", ""}, {"a b", ""}, {"a\x7F", ""},
      {"a\xC3\xA9", ""}, {"a\r\nEvil: 1", ""}};
  for (const auto& [text, expected] : cases) {
    token = text;
    world.advance(20s);
    const auto headers = world.requests().back().headers;
    const auto sent = headers.find("Authorization");
    EXPECT_EQ(sent != headers.end() ? sent->second : "", expected) << text;
  }
}

TEST(MainRunLoop, RunsInVirtualTime) {
  PosixPlatform* kept = nullptr;
  {
    kit::World world;
    kept = PosixPlatform::install(options()).platform;
    auto& loop = kept->mainRunLoop();
    EXPECT_EQ(&loop, &veltrano::RunLoop::current());
    EXPECT_EQ(loop.fileDescriptor(), -1);
    std::string order;
    loop.perform([&] {
      order += 'a';
      loop.perform([&] { order += 'c'; });
    });
    std::thread([&] { loop.perform([&] { order += 'b'; }); }).join();
    loop.runDue();
    EXPECT_EQ(order, "ab");
    loop.runDue();
    EXPECT_EQ(order, "abc");

    // Like a program that exits when its last event has arrived.
    Veltrano::shared().setUserId("user");
    world.network("/track").answer(200).after(7s);
    Veltrano::shared().track("Last", {}, [&](bool) { loop.stop(); });
    loop.run();
    EXPECT_FALSE(loop.runUntil(std::chrono::steady_clock::time_point::min()));
    EXPECT_GE(world.now(), 7s);
    EXPECT_LT(world.now(), 8s);
    EXPECT_FALSE(loop.runUntil(std::chrono::steady_clock::now() + 100s));
    EXPECT_GT(world.now(), 100s);
    EXPECT_EQ(world.heartbeats().size(), 6u);

    // Reports from other threads take effect when the loop runs.
    std::thread([&] { kept->applicationDidEnterBackground(); }).join();
    world.advance(1h);
    EXPECT_EQ(world.heartbeats().size(), 6u);
    EXPECT_TRUE(world.complaints().empty()) << world.complaints();
    loop.perform([&] { world.advance(1s); });
    loop.run();
    EXPECT_NE(world.complaints().front().find("cannot advance"), std::string::npos);
    EXPECT_EQ(world.complaints().size(), 2u) << world.complaints();
    EXPECT_NE(world.complaints().back().find("after one day"), std::string::npos);
    const std::function<void()> again = [&] { loop.perform(again); };
    again();
    loop.run();
    EXPECT_EQ(world.complaints().size(), 3u) << world.complaints();
    EXPECT_NE(world.complaints().back().find("Runaway"), std::string::npos);
  }
  // A platform that outlives its world is a no-op while there is no world.
  kept->applicationDidEnterBackground();
  kit::World world;
  EXPECT_EQ(PosixPlatform::install(options()).platform, kept);
}

TEST(MainRunLoop, MayBeForgottenByTheHost) {
  kit::World world;
  world.setRunsMainLoop(false);
  auto& loop = PosixPlatform::install(options()).platform->mainRunLoop();
  Veltrano::shared().setUserId("user");
  Veltrano::shared().track("E");
  world.advance(1min);
  EXPECT_EQ(world.delivered().size(), 1u);
  EXPECT_TRUE(world.heartbeats().empty());
  loop.runDue();
  EXPECT_EQ(world.heartbeats().size(), 1u);
  world.setRunsMainLoop(true);
  world.advance(20s);
  EXPECT_EQ(world.heartbeats().size(), 2u);
}

std::chrono::steady_clock::time_point in(kit::Duration time) {
  return std::chrono::steady_clock::now() + time;
}

TEST(ShutDown, SendsWhatWaitsAndIsSilentAfterwards) {
  kit::World world;
  std::vector<int> statuses;
  auto given = options();
  given.onTransfer = [&](const veltrano::TransferReport& transfer) {
    EXPECT_EQ(transfer.duration, 1s);
    statuses.push_back(transfer.status);
  };
  auto& platform = *PosixPlatform::install(given).platform;
  auto& loop = platform.mainRunLoop();
  world.network("/track").answer(503).after(1s).times(2);
  world.network("/track").answer(200).after(1s);
  auto& tracker = Veltrano::shared();
  tracker.setUserId("user");
  tracker.track("E", {}, [&](bool) { EXPECT_FALSE(platform.shutDown(in(10s))); });
  loop.perform([&] {
    EXPECT_TRUE(platform.shutDown(in(10s)));
    loop.stop();
  });
  loop.run();
  EXPECT_EQ(statuses, (std::vector<int>{503, 503, 200}));
  EXPECT_LT(world.now(), 4s);

  tracker.track("Later", {}, [](bool) { ADD_FAILURE() << "after the shutdown"; });
  platform.applicationWillEnterForeground();
  world.enterForeground();
  world.advance(1h);
  EXPECT_TRUE(world.heartbeats().empty());
  EXPECT_TRUE(world.complaints().empty()) << world.complaints();
}

TEST(ShutDown, OnAnotherThreadEndsAtTheDeadline) {
  kit::World world;
  auto& platform = *PosixPlatform::install(options()).platform;
  world.network("/track").answer(200).after(kit::Duration::max());
  std::vector<bool> outcomes;
  const auto held = std::make_shared<int>();
  post(outcomes, world, 1s);
  Veltrano::shared().track("F", {}, [held](bool) { ADD_FAILURE() << "not to be called"; });
  std::atomic<bool> isOver{false};
  std::jthread host([&] {
    EXPECT_FALSE(platform.shutDown(in(10s)));
    isOver = true;
  });
  while (!isOver) world.advance(0s);
  EXPECT_EQ(outcomes, (std::vector<bool>{false}));
  EXPECT_EQ(held.use_count(), 1);
  EXPECT_GE(world.now(), 10s);
  EXPECT_EQ(world.statistics().droppedByShutDown, 2u);
  EXPECT_NE(world.complaints().back().find("2 events were dropped by the shutdown"),
            std::string::npos);
}

// The lines of the trace of a world's scenario.
std::vector<std::string> replayed(const kit::World& world) {
  const veltrano::internal::Directory directory;
  const std::string scenario = directory / "scenario";
  world.writeTrace(scenario);
  const std::string command = REPLAY_PROGRAM " --readable " + scenario + " >";
  EXPECT_EQ(std::system((command + directory / "trace").c_str()), 0) << world.trace();
  std::ifstream trace(directory / "trace");
  std::vector<std::string> lines;
  for (std::string line; std::getline(trace, line);) lines.push_back(line);
  return lines;
}

TEST(Threads, TrackWhileTheWorldGoesOnAndItsTraceKeepsToTheLaws) {
  kit::World world;
  PosixPlatform::install(options());
  Veltrano::isLoggerEnabled = true;
  std::atomic<bool> isOver{false};
  std::atomic<std::uint64_t> tracked{0};
  std::vector<std::jthread> threads;
  for (int i = 0; i < 3; ++i)
    threads.emplace_back([&, i] {
      for (; !isOver && tracked < 20'000 / VELTRANO_STRIDE; ++tracked) {  // without a pause
        Veltrano::shared().track("E" + std::to_string(tracked), {{"thread", i}});
        if (tracked % 50 == 0) Veltrano::shared().setSuperProperties({{"thread", i}});
      }
    });
  std::mt19937 random(7);
  while (tracked < 900) {
    world.network("/track").answer(random() % 2 == 0 ? 200 : 503).after(random() % 3000 * 1ms);
    if (random() % 5 == 0) world.enterBackground();
    world.advance(random() % 30 * 1s);
    world.enterForeground();
  }
  isOver = true;
  threads.clear();
  world.network("/track").answer(200);
  world.advance(10min);  // the longest rest is 5 minutes
  Veltrano::isLoggerEnabled = false;
  EXPECT_EQ(world.statistics().recorded, tracked);
  EXPECT_EQ(world.delivered().size() + world.statistics().droppedByTrimming, tracked);
  TraceLaws laws;
  for (const std::string& line : replayed(world)) EXPECT_EQ(laws.take(line), "") << line;
}

TEST(Trace, ReplaysToTheSameLog) {
  kit::World world;
  std::string log;
  auto given = options();
  given.infoDictionary = {{"CFBundleVersion", "7"}, {"$", Array{1.0, 2u}}};
  given.logSink = [&](std::string_view line) { log.append(line) += '\n'; };
  auto& platform = *PosixPlatform::install(given).platform;
  Veltrano::isLoggerEnabled = true;
  auto& tracker = Veltrano::shared();
  world.network("/track").answer(503).after(250ms).times(2);
  world.network("/heartbeat").answer([&](const kit::Request&) {
    tracker.track("Beaten");
    return kit::Answer{200, world.now() > 30s ? R"({"back_off_seconds":5})" : "{}", 40ms};
  });
  tracker.setUserId("us\"er");
  tracker.setAppId("app");
  tracker.setLibVersion("3");
  tracker.setPublisherUid(nullptr);
  tracker.setIdfa();
  tracker.setRefreshTriggersWithHandler({{"Refresh"}}, [&] { tracker.removeSuperProperty("old"); });
  tracker.setSuperProperties({{"old", 1.0f}, {"$", veltrano::Int64{1}}});
  for (int i = 0; i < 12; ++i) tracker.track("Many", {{"i", i}});
  world.advance(7s);
  tracker.track("Refresh",
                {{"map", {{"$", 1}, {"none", veltrano::NSNull()}}},
                 {"keys", veltrano::Dictionary({{"$", Array{veltrano::URL("a://b"), 0.1}}})},
                 {"date", veltrano::Date::fromSecondsSince1970(1.25)},
                 {"number", veltrano::NSNumber(12, 1.5)},
                 {"nan", std::numeric_limits<float>::quiet_NaN()},
                 {"large", UINT64_MAX},
                 {"other", veltrano::OtherObject()},
                 {"absent", std::nullopt}},
                [&](bool) { platform.mainRunLoop().perform([&] { tracker.track("Later"); }); });
  world.setInterfaceOrientation(4);
  world.jumpClock(90s);
  world.advance(13s);
  world.setWiFi(true);
  platform.setCarrierName("Telenor");
  platform.setDeviceOrientation(2);
  world.enterBackground();
  world.advance(1h);
  world.enterForeground();
  Veltrano::isLoggerEnabled = false;
  tracker.track("Unseen");
  Veltrano::isLoggerEnabled = true;
  world.advance(1min);
  Veltrano::isLoggerEnabled = false;  // a shutdown goes on after the trace has ended
  world.network("/track").answer(200).after(1min);
  world.enterBackground();
  world.advance(1s);
  tracker.track("Left");
  world.jumpClock(kit::Duration::max());
  world.jumpClock(kit::Duration::min());
  EXPECT_FALSE(platform.shutDown(in(10s)));
  world.advance(1h);

  std::string again;
  std::size_t posts = 0;
  for (const std::string& line : replayed(world)) {
    rapidjson::Document event;
    event.Parse(line);
    posts += event.HasMember("post");
    if (event.HasMember("log")) again.append(event["log"].GetString()) += '\n';
  }
  EXPECT_EQ(posts, world.requests().size());
  EXPECT_EQ(again, log) << world.trace();
  EXPECT_GT(log.size(), 5000u);
}

// Of memory and descriptors.
std::pair<long, std::ptrdiff_t> resources() {
  long size = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> size >> resident;
  return {resident, std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {})};
}

TEST(Worlds, LeaveNothingBehind) {
  const auto liveOften = [](int times) {
    for (; times > 0; --times) {
      kit::World world;
      const auto installation = PosixPlatform::install(options());
      Veltrano::shared().setUserId("user");
      for (int i = 0; i < 30; ++i) Veltrano::shared().track("E", {{"i", i}}, [](bool) {});
      world.network("/track").answer(200).after(1min);
      std::thread([&] { installation.platform->mainRunLoop().perform([] {}); }).join();
      world.advance(45s);
      Veltrano::shared().track("Pending", {}, [](bool) {});
      EXPECT_EQ(world.heartbeats().size(), 3u);
    }
  };
  liveOften(100);
  const auto before = resources();
#ifdef VELTRANO_SANITIZED  // detects leaks itself, and releases memory late
  liveOften(1);
#else
  liveOften(1000);
  EXPECT_LE(resources().first, before.first + 64);
#endif
  EXPECT_EQ(resources().second, before.second);
}

TEST(Worlds, GiveWayToTheSystem) {
  { kit::World world; }
  auto real = options();
  real.collectionHost = "localhost:1";
  const auto installation = PosixPlatform::install(real);
  ASSERT_TRUE(installation) << installation.error;
  Veltrano::shared().track("Real");
  {
    kit::World world;
    EXPECT_TRUE(PosixPlatform::install(options()));
    Veltrano::shared().track("Simulated");
    world.advance(20s);
    EXPECT_EQ(world.delivered().size(), 1u);
    EXPECT_TRUE(installation.platform->shutDown(std::chrono::steady_clock::now()));
  }
  EXPECT_NE(Veltrano::status().find("Collection host: localhost:1\n"), std::string::npos);
  EXPECT_FALSE(PosixPlatform::install(real));
  EXPECT_EQ(&installation.platform->mainRunLoop(), &veltrano::RunLoop::current());

  installation.platform->shutDown(std::chrono::steady_clock::now());
  kit::World world;  // not affected by the shutdown
  std::vector<bool> outcomes;
  post(outcomes, world, 1s);
  EXPECT_EQ(outcomes, std::vector<bool>{true});
  EXPECT_EQ(world.delivered().size(), 1u);
}

TEST(ShutDown, WaitsForAHeartbeatAndIsRefusedInDestructors) {
  kit::World world;
  auto& platform = *PosixPlatform::install(options()).platform;
  world.network("/heartbeat").answer(200).after(3s);
  Veltrano::shared().setUserId("user");
  const auto refuse = [&](void*) { EXPECT_FALSE(platform.shutDown(in(1h))); };
  const auto track = [&] {
    Veltrano::shared().track("E", {}, [held = std::shared_ptr<void>(nullptr, refuse)](bool) {});
  };
  track();
  world.advance(2s);
  track();
  EXPECT_TRUE(platform.shutDown(in(1h)));
  EXPECT_GE(world.now(), 4s);
  EXPECT_LT(world.now(), 5s) << "it ends with the last answer";
  EXPECT_NE(world.complaints().front().find("of E is never called"), std::string::npos);
}

}  // namespace
