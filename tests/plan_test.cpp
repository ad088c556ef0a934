// Tracking plans: what is refused, what typed calls send, and where an application is held to one.
#include "plan/plan.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "shop.h"
#include "tests/support/directory.h"
#include "veltrano/posix_platform.h"
#include "veltrano/testing.h"

using namespace std::chrono_literals;
using veltrano::internal::contentsOf;
using veltrano::planning::Checked;
using veltrano::planning::Faults;
using veltrano::planning::Plan;
using veltrano::testing::World;

// typed.c
extern "C" void track_typed();
extern "C" void track_without_text();

namespace {

const std::string kFolder = PLAN_FOLDER "/", kPlan = kFolder + "plan.json";
const veltrano::Date kAt(std::chrono::system_clock::time_point(1700000000250ms));
const veltrano::URL kLink("https://example.com");

std::string event(const std::string& properties) {
  return R"({"namespace":"shop","events":[
{"name":"A","properties":{)" +
         properties + "}}]}";
}

// A paragraph of the file is a fault, and a plan that has it or the properties of an event that do.
TEST(PlanReading, NamesTheLineOfEachFault) {
  std::ifstream file(PLAN_FOLDER "/faults.txt");
  int count = 0;
  for (std::string fault; std::getline(file, fault); ++count) {
    std::string text;
    for (std::string line; std::getline(file, line) && !line.empty();)
      text += (text.empty() ? "" : "\n") + line;
    const bool isProperties = text.starts_with('"');
    try {
      Plan::parse(isProperties ? event(text) : text, "p");
      ADD_FAILURE() << text << " is accepted";
    } catch (const Faults& faults) {
      EXPECT_NE(std::string(faults.what()).find(fault), std::string::npos) << text << faults.what();
    }
  }
  EXPECT_GT(count, 60);
}

// A paragraph of the file is a schema, with values that are as planned (+) and that are not (-).
TEST(PlanChecking, HoldsValuesToTheirSchema) {
  std::ifstream file(PLAN_FOLDER "/values.txt");
  int count = 0;
  for (std::string schema; std::getline(file, schema); ++count) {
    const Plan plan = Plan::parse(event("\"x\":" + schema), "p");
    for (std::string value; std::getline(file, value) && !value.empty();) {
      Checked checked;
      const std::string record = R"({"event":"A","properties":{"x":)" + value.substr(1) + "}}";
      EXPECT_EQ(plan.check(record, checked).size(), value[0] == '-') << schema << value;
    }
  }
  EXPECT_EQ(count, 12);
}

// The same event, without types and with them.
template <class Count, class Number>
void trackUntyped(Count count, Number number) {
  Veltrano::shared().track(
      "Every Type", {{"text", "word 1"},
                     {"count", count},
                     {"number", number},
                     {"flag", true},
                     {"at", kAt},
                     {"link", kLink},
                     {"source", "class"},
                     {"tags", {"a", "b"}},
                     {"sizes", {1, 2}},
                     {"kinds", std::vector<std::string>{"y"}},
                     {"lines", veltrano::Array{veltrano::Dictionary{{"sku", "b"}, {"price", 1.5}},
                                               veltrano::Dictionary{{"sku", "c"}}}},
                     {"address", {{"city", "c"}}},
                     {"class", "d"},
                     {"größe", 3}});
}
template <class Count, class Number>
void trackTyped(Count count, Number number) {
  using shop::EveryType;
  const std::vector<EveryType::Kinds> kinds{EveryType::Kinds::y};
  shop::track(EveryType{"word 1",
                        count,
                        number,
                        true,
                        kAt,
                        kLink,
                        EveryType::Source::class_,
                        {"a", "b"},
                        std::vector<int>{1, 2},
                        kinds,
                        {EveryType::Lines{"b", 1.5}, EveryType::Lines{"c", {}}},
                        EveryType::Address{"c", {}},
                        "d",
                        3,
                        {},
                        {}});
}

TEST(TypedCalls, SendWhatUntypedCallsSend) {
  World world;
  world.usePlan(kPlan);
  const auto compare = [&](auto count, auto number) {
    trackTyped(count, number);
    trackUntyped(count, number);
    world.advance(20s);
  };
  compare(7, 2.5);
  compare(7U, 0.1F);
  compare(std::int64_t{9007199254740993}, std::int64_t{9007199254740993});
  compare(std::uint64_t{18446744073709551615U}, 1e300);
  compare(veltrano::Int64{-7}, veltrano::Int64{7});
  track_typed();
  trackUntyped(7, 2.5);
  world.advance(20s);
  // What is absent is left out.
  shop::track(shop::Optional{});
  Veltrano::shared().track("Optional");
  world.advance(20s);
  shop::setSuperProperties(shop::SuperProperties{shop::SuperProperties::Tier::pro, {}});
  shop::track(shop::Optional{{}, std::optional<double>(3), {}, {}});
  Veltrano::shared().setSuperProperties({{"tier", "pro"}});
  Veltrano::shared().track("Optional", {{"much", 3.0}});
  world.advance(20s);
  ASSERT_EQ(world.requests().size(), 8U);
  for (const auto& request : world.requests()) {  // each body is "[record,record]"
    const std::string& body = request.body;
    const std::size_t size = (body.size() - 3) / 2;
    EXPECT_EQ(body.substr(1, size), body.substr(size + 2, size));
  }
  EXPECT_TRUE(world.complaints().empty()) << world.complaints();
}

// Run by plan_collected.sh and page_test.mjs, as a host of the collector that the environment
// names.
TEST(TypedCalls, ReachACollector) {
  const char* const port = std::getenv("VELTRANO_COLLECTOR_PORT");
  if (port == nullptr) GTEST_SKIP();
  veltrano::PosixOptions options;
  options.collectionHost = std::string("localhost:") + port;
  options.certificateAuthorities = std::getenv("VELTRANO_COLLECTOR_CERTIFICATE");
  const auto installation = veltrano::PosixPlatform::install(options);
  trackTyped(7, 2.5);
  track_typed();
  trackUntyped(7, 2.5);
  Veltrano::shared().track("Notting");
  Veltrano::shared().track("Optional", {{"much", "2"}});
  EXPECT_TRUE(installation.platform->shutDown(std::chrono::steady_clock::now() + 60s));
}

TEST(Worlds, ComplainAboutWhatIsNotAsPlanned) {
  World world;
  world.usePlan(kPlan);
  auto& tracker = Veltrano::shared();
  tracker.setUserId("user");
  tracker.setSuperProperties({{"tier", "gold"}, {"other", 1}});
  tracker.track("Optionl", {{"kind", "a"}});
  tracker.track("Optional", {{"kind", "c"}, {"mch", 1}, {"much", "2"}});
  tracker.track("Nothing", {{"further", 1}});
  track_without_text();
  tracker.track("Every Type", {{"text", "?"}, {"sizes", {"1", "2"}}, {"kinds", {1, 2}}});
  tracker.track("Optional", {{"kind", "d"}, {"mch", 2}, {"much", false}});
  tracker.track("Screen Orientation Changed", {{"x", 1}});
  world.advance(20s);
  std::string complaints;
  for (const std::string& complaint : world.complaints())
    complaints += complaint.substr(complaint.find(": ") + 2) + '\n';
  EXPECT_EQ(complaints, contentsOf(kFolder + "complaints.txt"));
}

// Also run by plan_program.sh, which sums the coverage up.
TEST(Worlds, TellTheirCoverage) {
  for (const auto& properties :
       {veltrano::HostMap{{"kind", "a"}, {"much", "2"}}, veltrano::HostMap{{"size.m", 1}}}) {
    World world;
    world.usePlan(kPlan);
    Veltrano::shared().track("Optional", properties);
    world.advance(20s);
  }
}

}  // namespace
