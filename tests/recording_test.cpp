// Code of the host that runs while an event is recorded, and the event of a failed heartbeat.
#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

#include "tests/support/simulation.h"

namespace veltrano::internal {
namespace {

// A host's text, which may throw when it is read.
struct Text {
  operator const char*() const { return isReadable ? "text" : throw std::runtime_error("text"); }
  bool isReadable;
};

TEST(Recording, AContainerThatThrowsEndsOnlyItsOwnCall) {
  Simulation simulation;
  Veltrano& tracker = Veltrano::shared();
  const std::vector<Text> list = {{true}, {false}};
  tracker.track("E", {{"list", list}});
  tracker.setSuperProperties({{"list", list}});
  tracker.track("F", {}, [](bool) {});
  simulation.runUntil(1);
  EXPECT_EQ(text(simulation.posts.at(0)[0u]["properties"], "list"), "absent");
  EXPECT_EQ(tracker.statistics().recorded, 1U);
  EXPECT_EQ(tracker.statistics().dropped(), 0U);
}

TEST(Recording, WithheldPropertiesAreInNoLayer) {
  Simulation simulation([](Platform& services) { services.withheldProperties = {"email"}; });
  Veltrano& tracker = Veltrano::shared();
  const HostMap layer = {{"email", 1}, {"kept", 2}};
  tracker.setSuperProperties({{"email", 1}, {"extra_json", layer}});
  tracker.track("E", {{"email", 2}, {"deep", layer}});
  tracker.track("F", {{"extra_json", layer}}, [](bool) {});
  simulation.settle();
  for (const auto& event : simulation.posts.at(0).GetArray()) {
    const std::string sent = text(event, "properties");
    EXPECT_EQ(sent.find("email"), sent.npos) << sent;
    EXPECT_NE(sent.find("\"kept\":2"), sent.npos) << sent;
  }
}

// Has no memory for the first heartbeat, and cuts the answer to the second off.
struct FailingNetwork final : ZKURLSessionManager {
  void postData(PostRequest request, URLSessionCallback callback) override {
    if (request.path() != "/heartbeat") return;
    if (++heartbeats == 1) throw std::bad_alloc();
    callback(std::nullopt, URLResponse{200}, TransportError{"cut off"});
  }
  int heartbeats = 0;
};

TEST(Recording, AnyFailureOfAHeartbeatIsRecorded) {
  FailingNetwork network;
  Simulation simulation([&](Platform& services) { services.urlSession = &network; });
  Veltrano& tracker = Veltrano::shared();
  tracker.setUserId("u");
  simulation.runUntil(2);
  EXPECT_EQ(tracker.statistics().recorded, 1U);
  simulation.runUntil(22);
  EXPECT_EQ(network.heartbeats, 2);
  EXPECT_EQ(tracker.statistics().recorded, 2U);
}

}  // namespace
}  // namespace veltrano::internal
