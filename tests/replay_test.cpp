// The replay program: what it refuses, and that it always ends. The example scenarios compare
// traces.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/directory.h"
#include "tests/support/trace_laws.h"
#include "tools/replay/simulated_run.h"
#include "veltrano/veltrano.h"

namespace replay {
namespace {

std::string problemWith(const std::string& lines, Mode mode = Mode::simulated) {
  std::istringstream stream(lines);
  try {
    readScenario(stream, mode);
    return "none";
  } catch (const ScenarioError& error) {
    return error.what();
  }
}

struct Outcome {
  int status;
  std::string output;  // the first kilobytes
};

Outcome runCommand(const std::string& command) {
  FILE* pipe = popen(command.c_str(), "r");
  std::string output;
  std::array<char, 4096> buffer;
  while (const std::size_t size = std::fread(buffer.data(), 1, buffer.size(), pipe)) {
    // Keeps the end, where the program says why it ended.
    output.append(buffer.data(), size);
    if (output.size() > 2 * buffer.size()) output.erase(0, output.size() - buffer.size());
  }
  return {WEXITSTATUS(pclose(pipe)), output};
}

Outcome run(const std::string& scenario) {
  return runCommand("printf '%s' '" + scenario + "' | " + REPLAY_PROGRAM + " - 2>&1");
}

TEST(Replay, NamesTheLineOfAMalformedStep) {
  const std::string good = R"({"op":"shared"})"
                           "\n\n";
  const char* malformed[] = {
      "{",
      "[]",
      R"({"op":"shared"} x)",
      R"({"at":0})",
      R"({"op":"nothing"})",
      R"({"op":"shared","at":1e300})",
      R"({"op":"configure"})",
      R"({"op":"setUserId","id":null})",
      R"({"op":"setUserId","id":"u","runLoop":1})",
      R"({"op":"device","wifi":null})",
      R"({"op":"device","attStatus":-1})",
      R"({"op":"deviceOrientation","value":99999999999})",
      R"({"op":"network","path":"/other","status":200})",
      R"({"op":"network","path":"/track","status":200,"error":true})",
      R"({"op":"network","path":"/track","nonHTTP":true,"body":"b"})",
      R"({"op":"network","path":"/track","status":200,"latency":-1})",
      R"({"op":"track","name":"E","properties":[]})",
      R"({"op":"track","name":"E","completion":null})",
      R"({"op":"track","name":"E","properties":{"a":99999999999999999999}})",
      R"({"op":"track","name":"E","properties":{"a":[{"$":"Ufo"}]}})",
      R"({"op":"track","name":"E","properties":{"a":{"$":"UInt","v":-1}}})",
      R"({"op":"track","name":"E","properties":{"a":{"$":"Dictionary","v":[[1]]}}})",
      R"({"op":"track","name":"E","properties":{"a":{"$":"NSNumber","v":1}}})",
      R"({"op":"setRefreshTriggers","triggers":["a",1],"handler":null})",
      R"({"op":"isValidNestedType","value":{"$":"NSNumber","code":4,"v":1}})",
      R"({"op":"batch","steps":[{"op":"shared","at":1}]})",
      R"({"op":"batch","steps":[{"op":"batch","steps":[5]}]})",
  };
  for (const char* line : malformed)
    EXPECT_EQ(problemWith(good + line).rfind("line 3: ", 0), 0U) << line;
  EXPECT_EQ(problemWith(R"({"op":"shared","at":2})"
                        "\n"
                        R"({"op":"shared"})"),
            "line 2: \"at\" is decreasing");
}

TEST(Replay, TakesWhatTheFormatAllows) {
  const char* good[] = {
      "",
      R"({"op":"configure","startTime":1.5e9,"screen":[1,2.5],"info":null,"defaults":{"k":1}})",
      R"({"op":"configure","libraryBundle":{"resourceBundle":null,"info":{"$":"plain key"}}})",
      R"({"op":"batch","steps":[{"op":"batch","steps":[{"op":"end"}]},{"op":"shared"}]})",
      R"({"op":"track","name":"E","properties":{"a":{"$":"Double","v":99999999999999999999}}})",
      R"({"op":"track","name":"E","properties":{"a":{"$":"Float","v":1e-50}}})",
      R"({"op":"network","path":"/heartbeat","nonHTTP":true,"latency":0})",
      "{\"op\":\"shared\"}\r\n  \r\n{\"op\":\"end\",\"at\":0.000001}",
  };
  for (const char* lines : good) EXPECT_EQ(problemWith(lines), "none") << lines;
}

TEST(Replay, LiveScenariosAreLimited) {
  const std::string end = "\n{\"op\":\"end\",\"at\":1}";
  EXPECT_EQ(problemWith(R"({"op":"configure","info":{}})" + end, Mode::live), "none");
  for (const char* line :
       {R"({"op":"configure","startTime":5})", R"({"op":"clockJump","seconds":1})",
        R"({"op":"batch","steps":[{"op":"network","path":"/track","status":200}]})"})
    EXPECT_EQ(problemWith(line + end, Mode::live).rfind("line 1: ", 0), 0U) << line;
  EXPECT_NE(problemWith(R"({"op":"shared"})", Mode::live), "none");
}

TEST(Replay, AnyDepthOfValuesIsRead) {
  const std::string deep = std::string(200'000, '[') + std::string(200'000, ']');
  EXPECT_EQ(problemWith(R"({"op":"isValidNestedType","value":)" + deep + "}"), "none");
}

TEST(Replay, ARunawayEnds) {
  for (const char* interval : {"1e-9", "0.000001"}) {
    const Outcome outcome = run(R"({"op":"configure","defaults":{"kelvora_heartbeat_interval":)" +
                                std::string(interval) + "}}\n" + R"({"op":"setUserId","id":"u"})");
    EXPECT_EQ(outcome.status, 3);
    EXPECT_NE(outcome.output.find("runs away"), std::string::npos);
  }
}

TEST(Replay, TracesKeepToTheirLaws) {
  const veltrano::internal::Directory directory;
  const std::string program = SCENARIOS_PROGRAM;
  ASSERT_EQ(runCommand(program + " --count 50 " + (directory / "usual")).status, 0);
  ASSERT_EQ(runCommand(program + " --count 50 --rare " + (directory / "rare")).status, 0);
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory / "")) {
    if (!entry.is_regular_file()) continue;
    std::ifstream file(entry.path());
    const std::string text(std::istreambuf_iterator<char>(file), {});
    TraceLaws laws;
    laws.mayJump = text.find("clockJump") != text.npos || text.find("startTime") != text.npos ||
                   text.find("\"time\"") != text.npos;
    // Its library stays: keep it where the leak checker sees it.
    static auto& players = *new std::vector<std::unique_ptr<SimulatedPlayer>>;
    auto& player = *players.emplace_back(std::make_unique<SimulatedPlayer>(
        [&](std::string_view line) { EXPECT_EQ(laws.take(line), "") << entry << '\n'
                                                                    << line; },
        Bodies::decoded));
    Veltrano::isLoggerEnabled = true;
    std::istringstream lines(text);
    player.play(readScenario(lines, Mode::simulated));
    ASSERT_FALSE(HasFailure());
  }
}

TEST(Replay, NothingRunsWhenAStepIsMalformed) {
  const Outcome outcome = run("{\"op\":\"enableLog\",\"on\":true}\n{\"op\":\"shared\"}\n{}");
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.output, "line 3: field \"op\" is missing\n");
}

TEST(Replay, SaysWhatCannotBeReadOrWritten) {
  const std::string program = REPLAY_PROGRAM;
  EXPECT_EQ(runCommand(program + " / 2>&1").status, 2);
  EXPECT_EQ(runCommand(program + " - 2>&1 </").status, 2);
  const Outcome outcome = runCommand(R"(echo '{"op":"enableLog","on":true}
{"op":"shared"}' | )" + program + " - 2>&1 >/dev/full");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.output, "the trace cannot be written\n");
}

}  // namespace
}  // namespace replay
