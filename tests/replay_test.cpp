// Scenarios: what is refused, and the laws of every trace. Recorded ones are compared by
// compare_trace.sh.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/directory.h"
#include "tests/support/trace_laws.h"
#include "tools/replay/simulated_run.h"
#include "tracker/library.h"
#include "veltrano/veltrano.h"

namespace replay {
namespace {

std::string problemWith(const std::string& lines) {
  std::istringstream stream(lines);
  try {
    readScenario(stream, Mode::simulated);
    return "none";
  } catch (const ScenarioError& error) {
    return error.what();
  }
}

TEST(Replay, NamesTheLineOfAMalformedStep) {
  const std::string good = "{\"op\":\"shared\"}\n\n";
  std::ifstream malformed(SCENARIOS "/malformed.txt");
  int count = 0;
  for (std::string line; std::getline(malformed, line); ++count)
    EXPECT_EQ(problemWith(good + line).rfind("line 3: ", 0), 0U) << line;
  EXPECT_GT(count, 20);
  EXPECT_EQ(problemWith("{\"op\":\"shared\",\"at\":2}\n{\"op\":\"shared\"}"),
            "line 2: \"at\" is decreasing");
}

// Plays a scenario; `take` gets the lines of its trace, with the log.
void play(const std::string& scenario, std::function<void(std::string_view)> take) {
  // Its library stays: keep it where the leak checker sees it.
  static auto& players = *new std::vector<std::unique_ptr<SimulatedPlayer>>;
  auto& player =
      *players.emplace_back(std::make_unique<SimulatedPlayer>(std::move(take), Bodies::decoded));
  Veltrano::isLoggerEnabled = true;
  std::istringstream lines(scenario);
  player.play(readScenario(lines, Mode::simulated));
}

// Reads the counts without starting the library.
veltrano::Statistics balanced() {
  const auto now = veltrano::internal::Library::current().accounting().statistics();
  EXPECT_EQ(now.recorded, now.waiting + now.inFlight + now.delivered + now.dropped());
  return now;
}

void expectLaws(const std::string& scenario) {
  using veltrano::Statistics;
  TraceLaws laws;
  laws.mayJump = std::regex_search(scenario, std::regex("clockJump|startTime|\"time\""));
  play(scenario, [&](std::string_view line) {
    EXPECT_EQ(laws.take(line), "") << line;
    const Statistics now = balanced();
    const bool isUpload = line.find("/track\"") != line.npos;
    EXPECT_TRUE(!isUpload || (now.inFlight == laws.waiting() && now.waiting == 0)) << line;
  });
  const Statistics last = balanced();
  for (const auto count : {&Statistics::delivered, &Statistics::droppedByTrimming,
                           &Statistics::droppedAsRefused, &Statistics::droppedAsNotEncodable,
                           &Statistics::droppedForMemory, &Statistics::uploadsAttempted,
                           &Statistics::uploadsSucceeded, &Statistics::uploadsFailedInTransport,
                           &Statistics::uploadsFailedByStatus, &Statistics::heartbeatsSent})
    EXPECT_EQ(last.*count, laws.counts.*count) << Veltrano::status();
  EXPECT_TRUE(last.droppedByOptOut > 0 || last.waiting + last.inFlight == laws.waiting());
}

// Whatever still runs.
void expectNothingWaitsAfterTheEnd(const std::string& scenario) {
  int lines = 0;
  play(scenario, [&](std::string_view) {
    if (++lines == 100) veltrano::internal::Library::current().accounting().end();
    EXPECT_TRUE(balanced().waiting == 0 || lines < 100);
  });
}

TEST(Replay, TracesKeepToTheirLaws) {
  const veltrano::internal::Directory directory;
  const std::string program = SCENARIOS_PROGRAM;
  const std::string count = " --count " + std::to_string(50 / VELTRANO_STRIDE);
  ASSERT_EQ(std::system((program + count + " " + (directory / "usual")).c_str()), 0);
  ASSERT_EQ(std::system((program + count + " --rare " + (directory / "rare")).c_str()), 0);
  std::filesystem::copy(SCENARIOS, directory / "recorded");
  std::filesystem::copy(SCENARIOS "/../../examples/scenarios", directory / "recorded");
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory / "")) {
    if (entry.path().extension() != ".jsonl") continue;
    const std::string text = std::regex_replace(  // the log is on all the time
        veltrano::internal::contentsOf(entry.path()), std::regex("enableLog"), "shared");
    expectLaws(text);
    if (entry.path().parent_path().filename() == "recorded") expectNothingWaitsAfterTheEnd(text);
    ASSERT_FALSE(HasFailure()) << entry;
  }
}

}  // namespace
}  // namespace replay
