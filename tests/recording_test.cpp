// How an event's properties are merged, and how it is recorded.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <random>
#include <stdexcept>

#include "properties/parameter_conversion.h"
#include "tests/support/simulation.h"
#include "tracker/event_encoder.h"

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

// The device's state is read for each event, its description only once.
TEST_F(Recording, TheDeviceIsDescribedOnce) {
  auto& device = simulation.platform.device;
  device.screen = {414.9, 896.0};
  sent();
  device.screen = {1, 1};
  device.carrier = "Tele\xFFnor";
  const auto& later = sent();
  EXPECT_EQ(text(later, "$carrier"), "\"Tele\xEF\xBF\xBDnor\"");
  EXPECT_EQ(text(later, "$screen_width"), "414");
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

TEST_F(Recording, ARefreshHandlerMayUseTheTrackerReplaceItselfAndThrow) {
  auto& tracker = Veltrano::shared();
  int calls = 0;
  const auto handler = [&] { ++calls; };
  for (const auto& [triggers, given] :
       {std::pair<std::optional<std::vector<std::string>>, std::function<void()>>{std::nullopt,
                                                                                  handler},
        {{{"plain"}}, nullptr},
        {std::vector<std::string>(), handler}}) {
    tracker.setRefreshTriggersWithHandler(triggers, given);
    tracker.track("plain");
  }
  EXPECT_EQ(calls, 0);
  tracker.setRefreshTriggersWithHandler({{"outer"}}, [&] {
    tracker.track("inner");
    tracker.setRefreshTriggersWithHandler({{"inner"}}, handler);
    throw 1;
  });
  tracker.track("outer");
  tracker.track("inner");
  EXPECT_EQ(calls, 1);
  simulation.settle();
  EXPECT_EQ(tracker.statistics().recorded, 6U);
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

// Generates values whose keys are often withheld ones.
class Generator {
 public:
  explicit Generator(unsigned seed) : random_(seed) {}

  std::size_t below(std::size_t end) { return random_() % end; }

  std::string key() {
    constexpr const char* kKeys[] = {"a",           "b",    "email",      "$carrier",
                                     "$wifi",       "time", "extra_json", "att_auth_status",
                                     "lib_version", "é",    "pub_uid"};
    return kKeys[below(std::size(kKeys))];
  }

  HostMap map(int depth) {
    HostMap map;
    for (std::size_t left = below(6); left > 0; --left) map.set(key(), value(depth));
    return map;
  }

  HostValue value(int depth) {
    switch (below(depth > 0 ? 8 : 5)) {
      case 0:
        return "email";
      case 1:
        return 17;
      case 2:
        return NSNumber(6, 2.5);
      case 3:
        return OtherObject();
      case 4:
        return HostValue();
      case 5:
        return Array{value(depth - 1), value(depth - 1)};
      default:
        return map(depth - 1);
    }
  }

 private:
  std::mt19937 random_;
};

void strip(rapidjson::Value& value, const std::vector<std::string>& keys,
           rapidjson::Document::AllocatorType& allocator) {
  if (value.IsArray())
    for (auto& element : value.GetArray()) strip(element, keys, allocator);
  if (!value.IsObject()) return;
  for (const std::string& key : keys) value.EraseMember(rapidjson::Value(key.c_str(), allocator));
  // Clang finds the comparison of RapidJSON's own iterators ambiguous.
  for (auto member = value.MemberBegin(); member < value.MemberEnd(); ++member)
    strip(member->value, keys, allocator);
}

// With --gtest_shuffle and --gtest_repeat=1000, other batches each time: a million.
TEST(Withheld, PropertiesAreMissingAndNothingElse) {
  Generator generator(17 + testing::UnitTest::GetInstance()->random_seed());
  const std::vector<std::string> none;
  for (int batch = 0; batch < 1000; ++batch) {
    std::vector<std::string> withheld(generator.below(4));
    for (std::string& key : withheld) key = generator.key();
    std::sort(withheld.begin(), withheld.end());
    EventEncoder encoder(withheld);
    EventEncoder plain(none);
    const auto base = [&] {
      return ParameterConversion::convert(generator.map(2)).value_or(PropertyMap());
    };
    const PropertyMap defaults = base();
    const PropertyMap super = base();
    encoder.setBase(defaults, super);
    plain.setBase(defaults, super);
    for (int event = 0; event < 3; ++event) {
      const HostMap given = generator.map(3);
      const HostValue carrier = generator.below(2) == 0 ? HostValue("Tel") : HostValue();
      const AutomaticProperties automatic;
      Json expected;
      expected.Parse(plain.encode("email", automatic, viewOf(carrier), viewOf(given)).json.c_str());
      strip(expected["properties"], withheld, expected.GetAllocator());
      Json encoded;
      encoded.Parse(
          encoder.encode("email", automatic, viewOf(carrier), viewOf(given)).json.c_str());
      ASSERT_FALSE(encoded.HasParseError());
      ASSERT_EQ(encoded, expected) << text(encoded, "properties") << text(expected, "properties");
    }
  }
}

}  // namespace
}  // namespace veltrano::internal
