// How an event's properties are merged, and how it is recorded.
#include <gtest/gtest.h>

#include <functional>
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

// The device's state is read for each event, its description only once.
TEST_F(Recording, TheDeviceIsDescribedOnce) {
  auto& device = simulation.platform.device;
  device.screen = {414.9, 895.9};
  sent();
  device.screen = {1, 1};
  device.carrier = "Tele\xFFnor";
  const auto& later = sent();
  EXPECT_EQ(text(later, "$carrier"), "\"Tele\xEF\xBF\xBDnor\"");
  EXPECT_EQ(text(later, "$screen_width"), "414");
  EXPECT_EQ(text(later, "$screen_height"), "895");
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

}  // namespace
}  // namespace veltrano::internal
