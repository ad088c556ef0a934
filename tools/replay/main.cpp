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

constexpr int kUnwritable = 1;
constexpr int kMalformed = 2;
constexpr int kRunaway = 3;

replay::Scenario readFile(const std::string& path, replay::Mode mode) {
  std::ifstream file;
  if (path != "-") file.open(path);
  if (!file) throw replay::ScenarioError("cannot read " + path);
  auto scenario = replay::readScenario(path == "-" ? std::cin : file, mode);
  if (std::ferror(stdin) != 0) throw replay::ScenarioError("cannot read the standard input");
  return scenario;
}

// Whatever the library still holds is not torn down: static destructors do not run.
[[noreturn]] void end(int status) {
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    std::cerr << "the trace cannot be written\n";
    status = kUnwritable;
  }
  std::_Exit(status);
}

void writeLine(std::string_view line) {
  if (std::fwrite(line.data(), 1, line.size(), stdout) != line.size()) end(kUnwritable);
}

void writeAtOnce(std::string_view line) {
  writeLine(line);
  if (std::fflush(stdout) != 0) end(kUnwritable);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app(
      "Plays a scenario against the library and prints its trace. Exits with 0 when the scenario "
      "has run, 1 when the trace cannot be written, 2 when the scenario or the command line is "
      "wrong, and 3 when too much happens after one step of it");
  std::string path;
  replay::LiveOptions live;
  bool isReadable = false;
  app.add_option("FILE", path, "The scenario, as JSON Lines; - for standard input")->required();
  app.add_flag("--readable", isReadable, "Show the bodies of posts decoded");
  auto* host = app.add_option("--live", live.collectionHost,
                              "Play in real time against the collection server at HOST:PORT");
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
    if (*host) replay::runLive(readFile(path, replay::Mode::live), live, writeAtOnce, bodies);
    const replay::Scenario scenario = readFile(path, replay::Mode::simulated);
    auto& player = *new replay::SimulatedPlayer(writeLine, bodies);
    if (player.play(scenario)) end(0);
    std::cerr << "the scenario runs away: too much happens after one step\n";
    end(kRunaway);
  } catch (const std::runtime_error& error) {
    std::cerr << error.what() << '\n';
    return kMalformed;
  }
}
