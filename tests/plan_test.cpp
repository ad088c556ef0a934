// Tracking plans: what is refused, what typed calls send, and where an application is held to one.
#include "plan/plan.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "shop.h"
#include "tests/plan/typed.h"
#include "veltrano/testing.h"

using namespace std::chrono_literals;
using veltrano::planning::Faults;
using veltrano::planning::Plan;
using veltrano::testing::World;

namespace {

const std::string kPlan = PLAN_FILE;

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

class PlanFiles : public testing::Test {
 protected:
  PlanFiles() { std::filesystem::create_directories(directory_); }
  ~PlanFiles() override { std::filesystem::remove_all(directory_); }

  std::string file(const std::string& name, const std::string& content = {}) const {
    const std::string path = directory_ + '/' + name;
    if (!content.empty()) std::ofstream(path) << content;
    return path;
  }

 private:
  const std::string directory_ = testing::TempDir() + "plan_" + std::to_string(::getpid());
};

std::string event(const std::string& properties) {
  return R"({"namespace":"shop","events":[
{"name":"A","properties":{)" +
         properties + "}}]}";
}

TEST(PlanReading, NamesTheLineOfEachFault) {
  const std::pair<std::string, std::string> cases[] = {
      {"{", "p:1:2: Missing a name"},
      {"[]", "p:1:1: a plan has to be an object"},
      {R"({"namespace":"a b","events":[]})", "p:1:2: a plan needs a \"namespace\", an identifier"},
      {R"({"namespace":"a","events":[],
"evnts":[]})",
       "p:2:1: a plan has no \"evnts\""},
      {R"({"namespace":"a","events":[{"name":"A"},
 {"name":"A"}]})",
       "p:2:10: \"A\" stands here twice"},
      {R"({"namespace":"a","events":[{"name":"A b"},
 {"name":"a B"}]})",
       "p:2:10: \"a B\" and \"A b\" make the same identifier, AB"},
      {R"({"namespace":"a","events":[{"name":"Heartbeat Failed"}]})", "the library has an event"},
      {R"({"namespace":"a","events":[{"name":"A B","properties":{"c":{"enum":["x"]}}},
 {"name":"A","properties":{"b_c":{"enum":["x"]}}}]})",
       "p:2:35: \"A.b_c\" and \"A B.c\" make the same identifier, a_b_c"},
      {R"({"namespace":"a","superProperties":{"properties":{"t":{}}},
"events":[{"name":"A","properties":{"t":{}}}]})",
       "p:2:37: \"t\" is a super property, too"},
      {event(R"("x":{},"x":{})"), "p:2:34: \"x\" stands here twice"},
      {event(R"("time":{})"), "p:2:27: \"time\" is a property of the library's own"},
      {event(R"("$x":{})"), "property of the library's own"},
      {event(R"("uid":{})"), "property of the library's own"},
      {event(R"("extra_json":{})"), "property of the library's own"},
      {event(R"("a-b":{},"a b":{})"), "\"a b\" and \"a-b\" make the same identifier, a.a_b"},
      {event(R"("class":{},"class_":{})"), "make the same identifier, a.class_"},
      {event(R"("S":{"type":"string"},"s":{"enum":["x"]})"),
       "\"s as a type\" and \"S\" make the same identifier, a.S"},
      {event(R"("e\u0301":{})"), "has combining marks"},
      {event(R"("a\n":{})"), "has control characters"},
      {event(R"("--":{})"), "has no letter or digit"},
      {event(R"("x":{"type":"int"})"), "p:2:39: \"type\" has to be one of"},
      {event(R"("x":{"type":["string","null"]})"), "p:2:27: \"type\" has to be one of"},
      {event(R"("x":{"multipleOf":2})"), "p:2:32: \"multipleOf\" is outside the vocabulary"},
      {event(R"("x":{"type":"string","minimum":2})"), "\"minimum\" says nothing about text"},
      {event(R"("x":{"type":"string","format":"email"})"), "p:2:57: an unknown format"},
      {event(R"("x":{"type":"integer","format":"uri"})"), "a format says nothing about integer"},
      {event(R"("x":{"type":"string","pattern":"(a"})"), "p:2:48: the pattern cannot be checked"},
      {event(R"("x":{"type":"number","minimum":2,"maximum":1})"), "leave no value"},
      {event(R"("x":{"type":"number","exclusiveMinimum":true})"), "this has to be a number"},
      {event(R"("x":{"type":"string","minLength":-1})"), "this has to be a count"},
      {event(R"("x":{"enum":[1]})"), "p:2:32: only texts can be enumerated"},
      {event(R"("x":{"enum":["a","A"]})"), "same identifier, A_X_A"},
      {event(R"("x":{"enum":["-","a"]})"), "has no letter or digit"},
      {event(R"("x":{"type":"object","required":["y"]})"), "\"y\" is not among the properties"},
      {event(R"("x":{"type":"object","additionalProperties":{}})"), "has to be true or false"},
  };
  for (const auto& [json, fault] : cases) {
    try {
      Plan::parse(json, "p");
      ADD_FAILURE() << json << " is accepted";
    } catch (const Faults& faults) {
      EXPECT_NE(std::string(faults.what()).find(fault), std::string::npos) << json << '\n'
                                                                           << faults.what();
    }
  }
}

// Each pair of equal records makes a body "[record,record]".
void expectPairs(const World& world) {
  for (const auto& request : world.requests()) {
    const std::string& body = request.body;
    const std::size_t size = (body.size() - 3) / 2;
    EXPECT_EQ(body.substr(1, size), body.substr(size + 2, size));
  }
  EXPECT_TRUE(world.complaints().empty()) << world.complaints();
}

TEST(TypedCalls, SendWhatUntypedCallsSend) {
  using shop::EveryType;
  World world;
  world.usePlan(kPlan);
  const veltrano::Date at(std::chrono::system_clock::time_point(1700000000250ms));
  const veltrano::URL link("https://example.com");
  const std::vector<EveryType::Kinds> kinds{EveryType::Kinds::y};
  const auto trackUntyped = [&](auto count, auto number) {
    Veltrano::shared().track(
        "Every Type", {{"text", "word 1"},
                       {"count", count},
                       {"number", number},
                       {"flag", true},
                       {"at", at},
                       {"link", link},
                       {"source", "class"},
                       {"tags", {"a", "b"}},
                       {"sizes", {1, 2}},
                       {"kinds", std::vector<std::string>{"y"}},
                       {"lines", veltrano::Array{veltrano::Dictionary{{"sku", "b"}, {"price", 1.5}},
                                                 veltrano::Dictionary{{"sku", "c"}}}},
                       {"address", {{"city", "c"}}},
                       {"class", "d"},
                       {"größe", 3}});
  };
  const auto trackTyped = [&](auto count, auto number) {
    shop::track(EveryType{"word 1",
                          count,
                          number,
                          true,
                          at,
                          link,
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
  };
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
  ASSERT_EQ(world.requests().size(), 6U);
  expectPairs(world);
}

// What is sent after `track`, in a world of its own.
template <class Track>
std::string bodyAfter(Track track) {
  World world;
  world.usePlan(kPlan);
  track();
  world.advance(20s);
  EXPECT_TRUE(world.complaints().empty()) << world.complaints();
  return world.requests().front().body;
}

TEST(TypedCalls, LeaveOutWhatIsAbsent) {
  const std::string typed = bodyAfter([] {
    shop::track(shop::Optional{});
    shop::setSuperProperties(shop::SuperProperties{shop::SuperProperties::Tier::pro, {}});
    shop::track(shop::Optional{{}, std::optional<double>(3)});
  });
  const std::string untyped = bodyAfter([] {
    Veltrano::shared().track("Optional");
    Veltrano::shared().setSuperProperties({{"tier", "pro"}});
    Veltrano::shared().track("Optional", {{"much", 3.0}});
  });
  EXPECT_EQ(typed, untyped);
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
  tracker.track("Every Type", {{"text", "?"}});
  tracker.track("Screen Orientation Changed", {{"x", 1}});
  world.advance(20s);
  std::string complaints;
  for (const std::string& complaint : world.complaints())
    complaints += complaint.substr(complaint.find(": ") + 2) + '\n';
  EXPECT_EQ(complaints,
            R"(Optionl is sent; planned: no such event
Optional: "other" is 1; planned: no such property
super properties: "tier" is "gold"; planned: "free" or "pro"
Optional: "kind" is "c"; planned: "a" or "b"
Optional: "mch" is 1; planned: no such property
Optional: "much" is "2"; planned: number
Every Type: "text" is missing; planned: text (pattern "^\\w+ ?\\d*$")
Every Type: "link" is missing; planned: URI
Every Type: "source" is missing; planned: "search", "größe", "a \"quoted\" one" or "class"
Every Type: "tags" is missing; planned: list of text (maxItems 3)
Every Type: "lines" is missing; planned: list of object
Every Type: "address" is missing; planned: object
Every Type: "other" is 1; planned: no such property
Every Type: "number" is 0.0; planned: number (exclusiveMinimum 0)
Every Type: "count" is missing; planned: integer
Every Type: "number" is missing; planned: number (exclusiveMinimum 0)
Every Type: "flag" is missing; planned: true or false
Every Type: "at" is missing; planned: date and time
Every Type: "text" is "?"; planned: text (pattern "^\\w+ ?\\d*$")
)");
}

TEST_F(PlanFiles, CoverageSumsUpWhatWorldsHaveSeen) {
  const std::string folder = file("coverage");
  ::setenv("VELTRANO_PLAN_COVERAGE", folder.c_str(), 1);
  for (const auto& properties :
       {veltrano::HostMap{{"kind", "a"}}, veltrano::HostMap{{"much", 1}}}) {
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
                       "2 of 17 optional properties, 15 never tested: Every Type.address.floor"),
      std::string::npos)
      << text.output;
  EXPECT_NE(text.output.find("1 of 11 values of enumerations"), std::string::npos) << text.output;
  const Outcome json = run("coverage " + kPlan + ' ' + folder + " --json --fail-under 12");
  EXPECT_EQ(json.status, 0);
  EXPECT_EQ(json.output.find(R"({"events":{"covered":1,"planned":4,"neverTested":["Every Type",)"),
            0U)
      << json.output;
}

TEST_F(PlanFiles, DifferencesSayWhatBreaks) {
  const auto plan = [&](const char* name, const std::string& properties) {
    return file(name, event(properties));
  };
  const std::string older = plan("older", R"(
    "a":{"type":"string"}, "b":{"type":"integer"}, "c":{"enum":["x","y"]},
    "d":{"type":"number","minimum":1,"maximum":9}, "e":{"type":"string","maxLength":9})");
  const std::string newer = plan("newer", R"(
    "b":{"type":"number"}, "c":{"enum":["x","z"]},
    "d":{"type":"number","minimum":2,"maximum":10}, "e":{"type":"string"}, "f":{})");
  const Outcome outcome = run("diff " + older + ' ' + newer);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.output, R"(breaks: A.a is removed
breaks: A.b was integer, is number
breaks: A.c is narrower: without "y"
fine: A.c is wider: with "z"
breaks: A.d is narrower: minimum 2
fine: A.d is wider: maximum 10
fine: A.e is wider: no maxLength
fine: A.f is new
)");
  EXPECT_EQ(run("diff " + older + ' ' + older).status, 0);
}

TEST_F(PlanFiles, WhatIsInferredIsSoundAndTheEventsAreAsPlanned) {
  std::string lines = R"({"path":"/heartbeat","body":{"event":"heartbeat","properties":{}}})"
                      "\n";
  std::vector<std::string> records;
  for (int i = 0; i < 12; ++i) {
    const std::string common = R"("time":1,"$wifi":true,"extra_json":{},"tier":"pro")";
    const std::string source = i % 2 == 0 ? "search" : "album";
    records.push_back(R"({"event":"Played","properties":{)" + common + R"(,"source":")" + source +
                      R"(","seconds":)" + (i == 0 ? "2.5" : "3") + R"(,"tags":["a"],"at":)" +
                      R"("2026-01-01T00:00:00.000Z","mixed":)" + (i == 3 ? "1" : "\"1\"") +
                      (i == 5 ? R"(,"rare":{"x":1})" : "") + "}}");
    records.push_back(R"({"event":"Left","properties":{)" + common + R"(,"a-b":1,"a b":1}})");
    records.push_back(R"({"event":"Screen Orientation Changed","properties":{)" + common + "}}");
  }
  for (const std::string& record : records)
    lines += R"({"path":"/track","body":[)" + record + "]}\n";
  const Outcome outcome = run("infer " + file("lines", lines));
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output.find("left out of Left: \"a-b\" has the identifier of another name\n"),
            0U)
      << outcome.output;
  const std::string json = outcome.output.substr(outcome.output.find('{'));
  const Plan plan = Plan::parse(json, "inferred");
  ASSERT_EQ(plan.events.size(), 2U);
  std::string shown;
  for (const auto& [name, schema, isRequired] : plan.events[1].schema.properties)
    shown += name + (isRequired ? ": " : "?: ") + schema.text() + '\n';
  EXPECT_EQ(shown,
            "at: date and time\nmixed: anything\nrare?: object\nseconds: number\n"
            "source: \"album\" or \"search\"\ntags: list of \"a\"\n");
  EXPECT_EQ(plan.superProperties.properties.at(0).name, "tier");
  EXPECT_NE(json.find("doubtful: seen with values of several types"), std::string::npos);
  veltrano::planning::Coverage covered;
  for (const std::string& record : records)
    if (record.find("a-b") == std::string::npos)
      for (const auto& violation : plan.check(record, covered)) ADD_FAILURE() << violation;
}

TEST_F(PlanFiles, HeadersAreRemadeOnlyAsNeeded) {
  const std::string plan = file("plan", event(R"("a":{"type":"string"})"));
  const std::string folder = file("headers"), header = folder + "/shop/a.h";
  ASSERT_EQ(run("generate " + plan + " --output " + folder).status, 0);
  const auto written = std::filesystem::last_write_time(header);
  ASSERT_EQ(run("generate " + plan + " --output " + folder).status, 0);
  EXPECT_EQ(std::filesystem::last_write_time(header), written);
  file("plan", R"({"namespace":"shop","events":[{"name":"A","x":1}]})");
  EXPECT_EQ(run("generate " + plan + " --output " + folder).status, 1);
  EXPECT_TRUE(std::filesystem::exists(header));
  file("plan", R"({"namespace":"shop","events":[]})");
  EXPECT_EQ(run("generate " + plan + " --output " + folder).status, 0);
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
