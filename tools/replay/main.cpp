// veltrano-replay: plays a scenario against the library and prints its trace.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <fstream>
#include <iostream>

#include "tools/command_line.h"
#include "tools/replay/live_run.h"
#include "tools/replay/scenario.h"
#include "tools/replay/simulated_run.h"

namespace {

constexpr int kMalformed = 2;
constexpr int kRunaway = 3;

replay::Scenario readFile(const std::string& path, replay::World world) {
  if (path == "-") return replay::readScenario(std::cin, world);
  std::ifstream file(path);
  if (!file) throw replay::ScenarioError("cannot read " + path);
  return replay::readScenario(file, world);
}

int runSimulated(const replay::Scenario& scenario, replay::Bodies bodies) {
  const auto write = [](std::string_view line) {
    std::fwrite(line.data(), 1, line.size(), stdout);
  };
  const bool hasEnded = replay::SimulatedWorld(write, bodies).play(scenario);
  std::fflush(stdout);
  if (!hasEnded) std::cerr << "the scenario runs away: too much happens after one step\n";
  // Skips static destructors: whatever the library still holds is not torn down.
  std::_Exit(hasEnded ? 0 : kRunaway);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Plays a scenario against the library and prints its trace");
  std::string path;
  replay::LiveOptions live;
  bool isReadable = false;
  app.add_option("FILE", path, "The scenario, as JSON Lines; - for standard input")->required();
  app.add_flag("--readable", isReadable, "Show the bodies of posts decoded");
  auto* host = app.add_option("--live", live.collectionHost,
                              "Play in real time against the collection host at HOST:PORT");
  app.add_option("--ca", live.certificateAuthorities,
                 "Live: the certificates to trust, as a PEM file; by default the system's")
      ->needs(host)
      ->check(CLI::ExistingFile);
  app.add_option("--defaults", live.userDefaultsFile,
                 "Live: the file that stores the user defaults; by default a temporary one")
      ->needs(host);
  app.add_option("--token", live.token, "Live: the user's session token; by default none")
      ->needs(host);
  if (const auto status = tools::parse(app, "veltrano-replay", argc, argv)) return *status;

  const auto bodies = isReadable ? replay::Bodies::decoded : replay::Bodies::asSent;
  try {
    if (*host) replay::runLive(readFile(path, replay::World::live), live, bodies);
    return runSimulated(readFile(path, replay::World::simulated), bodies);
  } catch (const replay::ScenarioError& error) {
    std::cerr << error.what() << '\n';
    return kMalformed;
  }
}
