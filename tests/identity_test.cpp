// Identity setters, super properties and orientation: what they log and what requests contain.
#include <gtest/gtest.h>

#include "tests/support/simulation.h"

namespace veltrano::internal {
namespace {

using Messages = std::vector<std::string>;

class Identity : public testing::Test {
 protected:
  void SetUp() override {
    tracker.track("first", {}, nullptr);
    simulation.settle();
    Veltrano::isLoggerEnabled = true;
  }

  const SentPost& flush() {
    Veltrano::isLoggerEnabled = false;
    tracker.track("flush", {}, [](bool) {});
    simulation.runUntil(simulation.now() + 0.5);
    return simulation.posts.back();
  }

  Simulation simulation;
  Veltrano& tracker = Veltrano::shared();
};

TEST_F(Identity, SettersWriteSuperPropertiesThatRequestsCarry) {
  simulation.platform.device.identifier = "6D92078A-8246-4BA4-AE5B-76104861E7DC";
  tracker.setUserId("");
  tracker.setUserId(" ");
  tracker.setUserId("u\xFF");
  tracker.setAppId("");
  tracker.setIdfa();
  tracker.setLibVersion("9.1");
  tracker.setPublisherUid("pub");
  EXPECT_EQ(simulation.takeMessages(),
            (Messages{"Setting userid to  ", "Setting userid to u\xEF\xBF\xBD",
                      "Setting app id to ", "Setting idfa: 6D92078A-8246-4BA4-AE5B-76104861E7DC",
                      "Setting ana lib version to 9.1", "Setting pub uid to pub"}));

  const auto& post = flush();
  EXPECT_EQ(post.request.baseURL, "https://collect.veltrano.example/track");
  EXPECT_EQ(post.request.qsParameters,
            (std::map<std::string, std::string>{{"uid", "u\xEF\xBF\xBD"}}));
  EXPECT_EQ(post.request.headerParameters,
            (std::map<std::string, std::string>{{"lib_version", "ios_9.1"},
                                                {"publisher_version", "ios_unknown"}}));
  EXPECT_EQ(post.request.interceptor, nullptr);
  const auto& properties = post.properties(1);
  EXPECT_EQ(text(properties, "uid"), "\"u\xEF\xBF\xBD\"");
  EXPECT_EQ(text(properties, "app_id"), "\"\"");
  EXPECT_EQ(text(properties, "$ios_ifa"), "\"6D92078A-8246-4BA4-AE5B-76104861E7DC\"");
  EXPECT_EQ(text(properties, "lib_version"), "\"9.1\"");
  EXPECT_EQ(text(properties, "pub_uid"), "\"pub\"");
  EXPECT_EQ(text(post.properties(0), "uid"), "absent");
}

TEST_F(Identity, ValuesThatAreNoTextCountAsMissingInRequests) {
  tracker.setSuperProperties({{"uid", 5}, {"lib_version", 7}});
  const auto& post = flush();
  EXPECT_EQ(post.request.qsParameters.at("uid"), "");
  EXPECT_EQ(post.request.headerParameters.at("lib_version"), "ios_0.0");
  EXPECT_EQ(text(post.properties(1), "uid"), "5");
}

TEST_F(Identity, RemovalsLogWhatTheyRemoved) {
  tracker.setPublisherUid("abc");
  tracker.setPublisherUid("");
  tracker.setPublisherUid(nullptr);
  tracker.setSuperProperties({{"m", {{"a", {1, 2.5}}}}});
  tracker.removeSuperProperty("m");
  simulation.settle();
  EXPECT_EQ(simulation.takeMessages(),
            (Messages{"Setting pub uid to abc",
                      "Removed superProperty: pub_uid with value: Optional(\"abc\")",
                      "Removed superProperty: pub_uid with value: nil",
                      "Removed superProperty: m with value: Optional([\"a\": [1, 2.5]])"}));
  EXPECT_EQ(text(flush().properties(1), "pub_uid"), "absent");
}

TEST_F(Identity, OrientationsHaveTheirNames) {
  const std::string screens[] = {"unknown", "portrait", "portrait", "landscape", "landscape"};
  const std::string devices[] = {"unknown",       "portrait",       "portraitUpsideDown",
                                 "landscapeLeft", "landscapeRight", "faceUp",
                                 "faceDown",      "unknown"};
  for (int i = 0; i < 8; ++i) {
    simulation.platform.device.screenOrientation = i;
    simulation.platform.device.deviceOrientation = i;
    EXPECT_EQ(tracker.getScreenOrientation(), i < 5 ? screens[i] : "unknown");
    EXPECT_EQ(tracker.getDeviceOrientation(), devices[i]);
  }
  simulation.platform.device.deviceOrientation = -1;
  EXPECT_EQ(tracker.getDeviceOrientation(), "unknown");
}

}  // namespace
}  // namespace veltrano::internal
