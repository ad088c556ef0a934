// Tests what the application reports and when, without a network and without waiting.
#include <gtest/gtest.h>
#include <veltrano/testing.h>
#include <veltrano/veltrano.h>

#include <algorithm>
#include <string>
#include <thread>
#include <unordered_set>
#include <vector>

#include "application.h"

namespace {

using namespace std::chrono_literals;

TEST(Checkout, SurvivesAnOutageAndStartsANewSession) {
  veltrano::testing::World world;  // virtual time and a fresh library; many per process
  world.network("/track").answer(503).once();
  startApplication();  // the host's own code; its `install` gets the world's platform
  signIn("user-17");
  buy({"ticket", "poster"});

  world.advance(20s);  // takes milliseconds
  EXPECT_TRUE(world.delivered().empty());
  EXPECT_EQ(world.waiting(), 1u);
  world.advance(20s);
  const auto bought = world.delivered().only("Bought");  // otherwise throws with what did arrive
  EXPECT_EQ(bought["items"], (veltrano::Array{"ticket", "poster"}));
  EXPECT_EQ(bought.origin("plan"), veltrano::testing::Origin::superProperty);

  const auto before = world.heartbeats().back().sessionId();
  world.enterBackground();
  world.advance(1h);
  world.enterForeground();
  world.advance(2s);
  EXPECT_NE(world.heartbeats().back().sessionId(), before);
  EXPECT_TRUE(world.complaints().empty());  // values left out, batches dropped, a late install
}

TEST(Checkout, TellsTheUserWhenThePaymentHasArrived) {
  veltrano::testing::World world;
  world.network("/track").fail().after(3s).once();
  startApplication();
  pay(12.5);
  world.advance(2s);
  EXPECT_EQ(notice(), "");
  world.advance(1s);
  EXPECT_EQ(notice(), "We will keep trying");

  pay(8);
  world.advance(0s);
  EXPECT_EQ(notice(), "Thank you");
  const auto payments = world.delivered().named("Paid");
  ASSERT_EQ(payments.size(), 2u) << world.delivered();
  EXPECT_EQ(payments[0]["amount"], 12.5);
  EXPECT_EQ(payments[1]["amount"], 8);
  EXPECT_EQ(payments[1].origin("extra_json.att_auth_status"), veltrano::testing::Origin::automatic);
}

TEST(Checkout, ReportsPurchasesOfEveryThread) {
  veltrano::testing::World world;
  startApplication();
  std::vector<std::thread> customers(4);
  for (std::thread& customer : customers)
    customer = std::thread([] {
      for (int i = 0; i < 5; ++i) buy({"ticket " + std::to_string(i)});
    });
  for (std::thread& customer : customers) customer.join();
  world.advance(20s);

  const auto bought = world.delivered().named("Bought");
  EXPECT_EQ(bought.size(), 20u);
  const auto isLast = [](const auto& event) {
    return event["items"] == veltrano::Array{"ticket 4"};
  };
  EXPECT_EQ(std::count_if(bought.begin(), bought.end(), isLast), 4);
  EXPECT_EQ(world.statistics().delivered, 20u);
}

TEST(Checkout, BeatsAsOftenAsTheHostAsks) {
  veltrano::testing::World world;
  int heartbeats = 0;
  world.network("/heartbeat").answer([&](const veltrano::testing::Request& request) {
    EXPECT_EQ(request.query.at("uid"), "user-17");
    veltrano::testing::Answer answer;
    if (++heartbeats == 2) answer.body = R"({"back_off_seconds": 600})";
    return answer;
  });
  startApplication();
  signIn("user-17");
  world.advance(30s);
  EXPECT_EQ(world.heartbeats().size(), 2u);
  world.advance(15min);
  EXPECT_EQ(world.heartbeats().size(), 4u) << world.heartbeats();
  EXPECT_EQ(world.heartbeats().back()["app_version"], "2.4");
}

TEST(Checkout, IsToldOfItsMistakes) {
  veltrano::testing::World world;
  world.network("/track").answer(400).once();
  Veltrano::shared().track("Too early", {{"tags", std::unordered_set<std::string>{"a"}}});
  EXPECT_FALSE(startApplication());
  world.advance(20s);
  world.end();
  EXPECT_EQ(world.complaints().size(), 3u) << world.complaints();
}

}  // namespace
