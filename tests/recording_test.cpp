// How an event's properties are merged, and how it is recorded.
#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/support/simulation.h"

namespace veltrano::internal {
namespace {

class Recording : public testing::Test {
 protected:
  // The properties of one event as they are sent.
  const rapidjson::Value& sent(HostMap properties = {}) {
    Veltrano::shared().track("E", std::move(properties), [](bool) {});
    simulation.runUntil(simulation.now() + 1);
    const auto& post = simulation.posts.back();
    EXPECT_EQ(post.eventCount(), 1U);
    return post.properties();
  }

  Simulation simulation;
};

TEST_F(Recording, AnEventCarriesAutomaticAndDefaultProperties) {
  simulation.platform.bundles.mainInfo =
      HostMap{{"CFBundleShortVersionString", "2.3"}, {"CFBundleVersion", "45"}};
  simulation.platform.device.screen = {414.9, 896.0};
  const auto& bare = sent();
  const std::pair<std::string, std::string> expected[] = {
      {"time", "1700000000000"},
      {"$wifi", "false"},
      {"$carrier", "absent"},
      {"extra_json", R"({"att_auth_status":0})"},
      {"$screen_height", "896"},
      {"$screen_width", "414"},
      {"$manufacturer", R"("Apple")"},
      {"$model", R"("iPhone15,2")"},
      {"$os", R"("iOS")"},
      {"$os_version", R"("17.0")"},
      {"mp_lib", R"("swift")"},
      {"lib_version", R"("1.0.0")"},
      {"$app_build_number", R"("45")"},
      {"$app_version_string", R"("2.3")"},
  };
  for (const auto& [key, value] : expected) EXPECT_EQ(text(bare, key), value) << key;
  EXPECT_EQ(bare.MemberCount(), 13U);
  EXPECT_EQ(simulation.posts[0].request.headerParameters.at("publisher_version"), "ios_2.3");

  // The device's state is read for each event, its description only once.
  auto& device = simulation.platform.device;
  device.screen = {1, 1};
  device.isOnWiFi = true;
  device.carrier = "Tele\xFFnor";
  device.trackingStatus = 3;
  const auto& later = sent();
  EXPECT_EQ(text(later, "$wifi"), "true");
  EXPECT_EQ(text(later, "$carrier"), "\"Tele\xEF\xBF\xBDnor\"");
  EXPECT_EQ(text(later, "extra_json"), R"({"att_auth_status":3})");
  EXPECT_EQ(text(later, "$screen_height"), "896");
}

TEST_F(Recording, WithoutInfoDictionariesVersionsAreUnknown) {
  simulation.platform.bundles.mainInfo =
      HostMap{{"CFBundleShortVersionString", 2}, {"CFBundleVersion", 45}};
  simulation.platform.bundles.libraryHasResources = false;
  simulation.platform.bundles.libraryInfo = HostMap{{"CFBundleShortVersionString", "1.4.0"}};
  const auto& properties = sent();
  EXPECT_EQ(text(properties, "lib_version"), R"("unknown")");
  EXPECT_EQ(text(properties, "$app_build_number"), "absent");
  EXPECT_EQ(text(properties, "$app_version_string"), "absent");
  EXPECT_EQ(simulation.posts[0].request.headerParameters.at("publisher_version"), "ios_unknown");
}

TEST_F(Recording, WithoutResourceBundleTheLibrarysOwnVersionCounts) {
  simulation.platform.bundles.resourceBundleInfo = std::nullopt;
  simulation.platform.bundles.libraryInfo = HostMap{{"CFBundleShortVersionString", "1.4.0"}};
  EXPECT_EQ(text(sent(), "lib_version"), R"("1.4.0")");
}

TEST_F(Recording, LaterLayersWin) {
  auto& tracker = Veltrano::shared();
  tracker.setSuperProperties({{"$os", "mine"}, {"a", 1}, {"b", 1}, {"$wifi", "often"}});
  const auto& first = sent({{"b", {1, 2}}, {"time", 5}, {"$model", NSNull{}}, {"c", true}});
  EXPECT_EQ(text(first, "$os"), R"("mine")");
  EXPECT_EQ(text(first, "$wifi"), R"("often")");
  EXPECT_EQ(text(first, "a"), "1");
  EXPECT_EQ(text(first, "b"), "[1,2]");
  EXPECT_EQ(text(first, "time"), "5");
  EXPECT_EQ(text(first, "$model"), "null");
  EXPECT_EQ(text(first, "c"), "true");

  // An event's own properties do not persist, and a dropped value does not remove an earlier one.
  tracker.setSuperProperties({{"a", OtherObject{}}, {"n", NSNull{}}});
  tracker.setSuperProperties({});
  tracker.removeSuperProperty("$os");
  const auto& second = sent();
  EXPECT_EQ(text(second, "a"), "1");
  EXPECT_EQ(text(second, "b"), "1");
  EXPECT_EQ(text(second, "n"), "null");
  EXPECT_EQ(text(second, "$os"), R"("iOS")");
  EXPECT_EQ(text(second, "$model"), R"("iPhone15,2")");
}

TEST_F(Recording, ExtraJSONIsMergedKeyByKey) {
  auto& tracker = Veltrano::shared();
  tracker.setSuperProperties({{"extra_json", {{"a", 1}, {"m", {{"x", 1}}}}}});
  EXPECT_EQ(text(sent({{"extra_json", {{"a", 2}, {"b", 3}, {"m", {{"y", 2}}}}}}), "extra_json"),
            R"({"a":2,"att_auth_status":0,"b":3,"m":{"y":2}})");
  EXPECT_EQ(text(sent({{"extra_json", {{"att_auth_status", 9}}}}), "extra_json"),
            R"({"a":1,"att_auth_status":9,"m":{"x":1}})");
  for (const HostValue& noMap : {HostValue("text"), HostValue(Array{1}), HostValue(Dictionary()),
                                 HostValue(Dictionary(std::vector<DictionaryEntry>{{1, 2}}))})
    EXPECT_EQ(text(sent({{"extra_json", noMap}}), "extra_json"),
              R"({"a":1,"att_auth_status":0,"m":{"x":1}})");
  tracker.setSuperProperties({{"extra_json", "text"}});
  EXPECT_EQ(text(sent(), "extra_json"), R"({"att_auth_status":0})");
}

TEST_F(Recording, TheTimeIsThatOfTheCallRoundedHalfAwayFromZero) {
  const std::pair<std::int64_t, std::string> cases[] = {
      {1'700'000'000'000'500, "1700000000001"},
      {1'700'000'000'000'499, "1700000000000"},
      {-500, "-1"},
      {-499, "0"},
  };
  for (const auto& [microseconds, milliseconds] : cases) {
    auto& clock = simulation.platform.clock;
    clock.jumped = Duration(microseconds) - clock.start - simulation.platform.timeline.now();
    EXPECT_EQ(text(sent(), "time"), milliseconds);
  }
}

TEST_F(Recording, AnEventThatCannotBeEncodedTakesItsBatchAlong) {
  const HostValue keyedByInt = Dictionary(std::vector<DictionaryEntry>{{1, 2}});
  auto& tracker = Veltrano::shared();
  tracker.track("Good");
  tracker.track("Bad", {{"d", {{"deep", keyedByInt}}}}, simulation.completion("dropped"));
  simulation.runUntil(1);
  EXPECT_TRUE(simulation.posts.empty());
  ASSERT_EQ(simulation.completions.size(), 1U);
  EXPECT_TRUE(simulation.completions[0].second);

  // A replaced value does not have to be encodable.
  tracker.setSuperProperties({{"s", keyedByInt}});
  tracker.track("Good", {{"s", 1}});
  simulation.runUntil(30);
  ASSERT_EQ(simulation.posts.size(), 1U);
  EXPECT_EQ(simulation.posts[0].eventCount(), 1U);
  tracker.track("Bad through super property", {}, simulation.completion("dropped too"));
  simulation.runUntil(31);
  EXPECT_EQ(simulation.posts.size(), 1U);
  EXPECT_EQ(simulation.completions.size(), 2U);
}

TEST_F(Recording, TextArrivesUnchangedOrRepaired) {
  const std::string odd("a\0\x01\n\"\xC3\xA9", 7);
  Veltrano::shared().track(odd, {{odd, odd}, {"bad\xC3", "\xF0\x9F"}}, [](bool) {});
  Veltrano::shared().track("", {{"", ""}, {"long", std::string(1 << 20, 'x')}});
  simulation.runUntil(30);
  ASSERT_EQ(simulation.posts.size(), 1U);
  const auto& post = simulation.posts[0];
  const auto& event = post.body[0u]["event"];
  EXPECT_EQ(std::string(event.GetString(), event.GetStringLength()), odd);
  const auto& value =
      post.properties()[rapidjson::Value(odd.data(), static_cast<rapidjson::SizeType>(odd.size()))];
  EXPECT_EQ(std::string(value.GetString(), value.GetStringLength()), odd);
  EXPECT_EQ(text(post.properties(), "bad\xEF\xBF\xBD"), "\"\xEF\xBF\xBD\"");
  EXPECT_EQ(post.eventName(1), "");
  EXPECT_EQ(text(post.properties(1), ""), "\"\"");
  EXPECT_EQ(text(post.properties(1), "long").size(), (1U << 20) + 2);
}

TEST_F(Recording, RefreshTriggersCallTheHandlerBeforeTheEvent) {
  auto& tracker = Veltrano::shared();
  Veltrano::isLoggerEnabled = true;
  int calls = 0;
  const auto handler = [&] {
    ++calls;
    simulation.lines.emplace_back(" | handler");
  };
  tracker.setRefreshTriggersWithHandler({{"caf\xC3\xA9", "plain", "plain"}}, handler);
  tracker.track("cafe\xCC\x81");
  tracker.track("plain");
  tracker.track("Plain");
  EXPECT_EQ(calls, 2);
  simulation.settle();
  const auto messages = simulation.takeMessages();
  const std::vector<std::string> head(messages.begin(), messages.begin() + 3);
  EXPECT_EQ(head, (std::vector<std::string>{
                      "Setting refresh triggers: Optional([\"caf\xC3\xA9\", \"plain\", \"plain\"])",
                      "handler", "Adding event of cafe\xCC\x81 to current 0 events"}));

  tracker.setRefreshTriggersWithHandler(std::nullopt, handler);
  tracker.track("plain");
  tracker.setRefreshTriggersWithHandler({{"plain"}}, nullptr);
  tracker.track("plain");
  tracker.setRefreshTriggersWithHandler({std::vector<std::string>()}, handler);
  tracker.track("plain");
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(simulation.takeMessages().front(), "Setting refresh triggers: nil");

  // A handler may use the tracker, replace itself and throw.
  tracker.setRefreshTriggersWithHandler({{"outer"}}, [&] {
    tracker.track("inner");
    tracker.setRefreshTriggersWithHandler({{"inner"}}, handler);
    throw 1;
  });
  tracker.track("outer");
  tracker.track("inner");
  EXPECT_EQ(calls, 3);
}

// A host's list whose second element throws when it is read.
struct Unreadable {
  using value_type = int;
  struct const_iterator {
    int operator*() const { return at == 0 ? at : throw std::runtime_error("unreadable"); }
    const_iterator& operator++() { return ++at, *this; }
    bool operator!=(const const_iterator& other) const { return at != other.at; }
    int at;
  };
  const_iterator begin() const { return {0}; }
  const_iterator end() const { return {2}; }
};

TEST_F(Recording, AContainerThatThrowsEndsOnlyItsOwnCall) {
  Veltrano& tracker = Veltrano::shared();
  tracker.track("E", {{"list", Unreadable()}});
  tracker.setSuperProperties({{"list", Unreadable()}});
  EXPECT_EQ(text(sent(), "list"), "absent");
  EXPECT_EQ(tracker.statistics().recorded, 1U);
  EXPECT_EQ(tracker.statistics().dropped(), 0U);
}

}  // namespace
}  // namespace veltrano::internal
