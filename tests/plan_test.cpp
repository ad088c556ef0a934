// Tracking plans: what is refused, what typed calls send, and where an application is held to one.
#include "plan/plan.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "shop.h"
#include "tests/plan/typed.h"
#include "tests/support/directory.h"
#include "veltrano/posix_platform.h"
#include "veltrano/testing.h"

using namespace std::chrono_literals;
using veltrano::planning::Checked;
using veltrano::planning::Faults;
using veltrano::planning::Plan;
using veltrano::testing::World;

namespace {

const std::string kPlan = PLAN_FOLDER "/plan.json";
const veltrano::Date kAt(std::chrono::system_clock::time_point(1700000000250ms));
const veltrano::URL kLink("https://example.com");

// What a command of veltrano-plan prints, and its status.
struct Outcome {
  std::string output;
  int status = 0;
};
Outcome run(const std::string& arguments) {
  Outcome outcome;
  FILE* const pipe = ::popen((PLAN_PROGRAM " " + arguments + " 2>&1").c_str(), "r");
  char bytes[4096];
  while (const auto size = std::fread(bytes, 1, sizeof bytes, pipe))
    outcome.output.append(bytes, size);
  outcome.status = WEXITSTATUS(::pclose(pipe));
  return outcome;
}

struct PlanFiles : testing::Test {
  const veltrano::internal::Directory directory;
};

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
  EXPECT_GT(count, 30);
}

// A schema, and values that are as planned and that are not.
TEST(PlanChecking, HoldsValuesToTheirSchema) {
  const struct {
    std::string schema;
    std::vector<std::string> planned, others;
  } kCases[] = {
      {R"({"type":"number","exclusiveMaximum":1})", {"0.5"}, {"1", "2"}},
      {R"({"type":"object"})", {R"({"x":1})"}, {"1"}},
      {R"({"type":"object","additionalProperties":false})", {"{}"}, {R"({"x":1})"}},
      {R"({"type":"string","pattern":"^.{1,3}$"})", {R"("äöü")"}, {R"("äöüß")"}},
      {R"({"type":"string","pattern":"^[à-ü]\\d"})", {R"("ä1")"}, {R"("z1")", R"("ä")"}},
      {R"({"type":"string","format":"date-time"})",
       {R"("2026-02-28T23:59:60.5+01:00")"},
       {R"("2026-13-28T23:59:59Z")", R"("2026-02-45T23:59:59Z")", R"("2026-02-28T24:59:59Z")",
        R"("2026-02-28T23:99:59Z")", R"("2026-02-28T23:59:99Z")"}},
      {R"({"type":"string","format":"uri"})",
       {R"("a+1:")", "\"data:" + std::string(3000, 'x') + '"'},
       {R"("no scheme")", R"("1a:b")", R"(":b")", R"("a:b c")"}},
  };
  for (const auto& [schema, planned, others] : kCases) {
    const Plan plan = Plan::parse(event("\"x\":" + schema), "p");
    const auto complaints = [&](const std::string& value) {
      Checked checked;
      return plan.check(R"({"event":"A","properties":{"x":)" + value + "}}", checked).size();
    };
    for (const std::string& value : planned) EXPECT_EQ(complaints(value), 0U) << schema << value;
    for (const std::string& value : others) EXPECT_EQ(complaints(value), 1U) << schema << value;
  }
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

// Run by plan_collected.sh, as a host of the collector that the environment names.
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
  EXPECT_EQ(complaints, veltrano::internal::contentsOf(PLAN_FOLDER "/complaints.txt"));
}

TEST_F(PlanFiles, CoverageSumsUpWhatWorldsHaveSeen) {
  ::setenv("VELTRANO_PLAN_COVERAGE", "/dev/null", 1);
  EXPECT_THROW(World().usePlan(kPlan), veltrano::testing::Error);
  const std::string folder = directory / "coverage", inner = folder + "/of/tests";
  ::setenv("VELTRANO_PLAN_COVERAGE", inner.c_str(), 1);
  for (const auto& properties :
       {veltrano::HostMap{{"kind", "a"}}, veltrano::HostMap{{"size.m", 1}}}) {
    World world;
    world.usePlan(kPlan);
    Veltrano::shared().track("Optional", properties);
    world.advance(20s);
  }
  ::unsetenv("VELTRANO_PLAN_COVERAGE");
  const Outcome text = run("coverage " + kPlan + ' ' + folder + " --fail-under 90");
  EXPECT_EQ(text.status, 1);
  EXPECT_NE(
      text.output.find("1 of 4 events, 3 never tested: Every Type, Nothing, Veltrano\n"
                       "2 of 23 optional properties, 21 never tested: Every Type.address.floor"),
      std::string::npos)
      << text.output;
  EXPECT_NE(text.output.find("1 of 13 values of enumerations"), std::string::npos) << text.output;
  const Outcome json = run("coverage " + kPlan + ' ' + folder + " --json --fail-under 10");
  EXPECT_EQ(json.status, 0);
  EXPECT_EQ(json.output.find(R"({"events":{"covered":1,"planned":4,"neverTested":["Every Type",)"),
            0U)
      << json.output;
}

TEST_F(PlanFiles, DifferencesSayWhatBreaks) {
  const std::string older = directory.write("older", event(R"(
    "a":{"type":"string"}, "b":{"type":"integer"}, "c":{"enum":["x","y"]},
    "d":{"type":"number","minimum":1,"maximum":9}, "e":{"type":"string","maxLength":9},
    "g":{"type":"number","exclusiveMinimum":0}, "h":{"type":"string","pattern":"a"},
    "i":{"type":"object"}, "j":{"type":"string"}, "k":{"type":"integer","exclusiveMinimum":0})"));
  const std::string newer = directory.write("newer", event(R"(
    "c":{"enum":["x","z"]}, "b":{"type":"number"},
    "d":{"type":"number","minimum":2,"maximum":10}, "e":{"type":"string"},
    "g":{"type":"number","minimum":0}, "h":{"type":"string"},
    "i":{"type":"object","additionalProperties":false}, "j":{"enum":["x","y"]},
    "k":{"type":"integer","minimum":1}, "f":{})")
                                                         .replace(14, 4, "kiosk"));
  const Outcome outcome = run("diff " + older + ' ' + newer);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.output, R"(fine: the namespace was shop, is kiosk
breaks: A.a is removed
breaks: A.b was integer, is number
breaks: A.c is narrower: without "y"
fine: A.c is wider: with "z"
breaks: A.d is narrower: minimum 2
fine: A.d is wider: maximum 10
fine: A.e is wider: no maxLength
fine: A.g is wider: minimum 0
fine: A.h is wider: no pattern
breaks: A.i is narrower: no further properties
breaks: A.j is narrower: only "x" or "y"
fine: A.k is wider: minimum 1
fine: A.* moved: C++17 hosts, which fill them in order, have to follow
fine: A.f is new
)");
  EXPECT_EQ(run("diff " + older + ' ' + older).status, 0);
}

TEST_F(PlanFiles, WhatIsInferredIsSoundAndTheEventsAreAsPlanned) {
  const Outcome outcome = run("infer " PLAN_FOLDER "/collected.jsonl");
  EXPECT_EQ(outcome.status, 0);
  for (const char* leftOut :
       {"Left.a-b", "Search.x", "Search.l_count", "Super Properties", "Track Left"})
    EXPECT_NE(outcome.output.find("left out: " + veltrano::planning::inQuotes(leftOut) +
                                  " has the identifier of another name\n"),
              std::string::npos)
        << outcome.output;
  const std::string json = outcome.output.substr(outcome.output.find('{'));
  const Plan plan = Plan::parse(json, "inferred");
  ASSERT_EQ(plan.events.size(), 3U);
  std::string shown;
  for (const auto& [name, schema, isRequired] : plan.events[1].schema.properties)
    shown += name + (isRequired ? ": " : "?: ") + schema.text() + '\n';
  EXPECT_EQ(shown,
            "at: date and time\nmixed: anything\nrare?: object\nseconds: number\nsong: text\n"
            "source: \"album\" or \"search\"\ntags: list of \"a\"\nuntil: text\n");
  EXPECT_EQ(plan.superProperties.properties.at(0).name, "tier");
  EXPECT_NE(json.find("doubtful: seen with values of several types"), std::string::npos);
  Checked checked;
  std::ifstream collected(PLAN_FOLDER "/collected.jsonl");
  for (std::string line; std::getline(collected, line);) {
    if (line.find("/heartbeat") != line.npos || line.find("LeftOut") != line.npos) continue;
    const auto begin = line.find('[') + 1;
    const std::string record = line.substr(begin, line.size() - begin - 2);
    for (const auto& violation : plan.check(record, checked)) ADD_FAILURE() << violation;
  }
}

TEST_F(PlanFiles, HeadersAreRemadeOnlyAsNeeded) {
  const std::string plan = directory.write("plan", event(R"("a":{"type":"string"})"));
  const std::string folder = directory / "headers", header = folder + "/shop/a.h";
  ASSERT_EQ(run("generate " + plan + " --output " + folder).status, 0);
  const auto written = std::filesystem::last_write_time(header);
  ASSERT_EQ(run("generate " + plan + " --output " + folder).status, 0);
  EXPECT_EQ(std::filesystem::last_write_time(header), written);
  directory.write("plan", R"({"namespace":"shop","events":[{"name":"A","x":1}]})");
  EXPECT_EQ(run("generate " + plan + " --output " + folder).status, 1);
  EXPECT_TRUE(std::filesystem::exists(header));
  directory.write("plan", R"({"namespace":"shop","events":[]})");
  std::filesystem::create_directory(folder + "/shop/hosts");
  EXPECT_EQ(run("generate " + plan + " --output " + folder).status, 0);
  EXPECT_FALSE(std::filesystem::exists(header));
  // The host's own file stays.
  const std::string own = directory.write("headers/shop.h", "int hosts;\n");
  directory.write("plan", event(""));
  EXPECT_EQ(run("generate " + plan + " --output " + folder).status, 1);
  EXPECT_EQ(veltrano::internal::contentsOf(own), "int hosts;\n");
  EXPECT_FALSE(std::filesystem::exists(header));
}

TEST_F(PlanFiles, ADocumentShowsEveryProperty) {
  const std::string table = run("document " + kPlan).output;
  for (const char* row :
       {"| lines\\[\\].sku | text | yes |  |", "| address.floor | integer | no |  |",
        "| tier | \"free\" or \"pro\" | no |  |", "Further properties are allowed."})
    EXPECT_NE(table.find(row), std::string::npos) << row << " in\n" << table;
}

}  // namespace
