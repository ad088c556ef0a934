// What the library says of itself.
#include <gtest/gtest.h>

#include "tests/support/simulation.h"

namespace veltrano::internal {
namespace {

TEST(Status, SaysWhyNothingArrives) {
  Library* const earlier = Library::exchangeCurrent(nullptr);
  const std::string withoutPlatform = Veltrano::status();
  EXPECT_EQ(Library::exchangeCurrent(earlier), nullptr) << "asking must not prevent installation";
  EXPECT_NE(withoutPlatform.find("no platform was installed"), std::string::npos);

  Simulation simulation;
  const auto expectStatus = [](const std::string& lines) {
    EXPECT_NE(Veltrano::status().find(lines), std::string::npos) << Veltrano::status();
  };
  expectStatus("Last request: none has ended yet\nNext flush: when the library is first used\n");
  Veltrano::shared().setUserId("user");
  Veltrano::shared().track("Bought");
  simulation.runUntil(5);
  expectStatus("Events: 1 recorded; 1 waiting\nUploads: 0 attempted");
  simulation.platform.clock.jump(std::chrono::hours(1));
  expectStatus("Next flush: in 15 s\n");

  simulation.platform.network.answers["/track"] = {.status = 400,
                                                   .latency = std::chrono::seconds(3)};
  simulation.runUntil(21);
  expectStatus("Next flush: after the upload in progress\n");
  simulation.runUntil(25);
  expectStatus("1 dropped, because the collection host answered with status 400\nUploads: 1");
  expectStatus(
      "Last request to /track: status 400, 2 s ago\n"
      "Last request to /heartbeat: status 200, 4 s ago\nNext flush: ");

  Veltrano::shared().track("Late");
  simulation.platform.notificationCenter.post(std::string(kApplicationDidEnterBackground));
  simulation.runUntil(40);
  expectStatus("Next flush: when the application returns to the foreground\n");

  Veltrano::shared().track("Left");
  Veltrano::shared().setCollecting(false);
  simulation.settle();
  expectStatus("1 dropped, because collecting was switched off\n");
  expectStatus("Next flush: when collecting is switched on\n");
}

}  // namespace
}  // namespace veltrano::internal
