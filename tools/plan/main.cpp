// veltrano-plan: checks a tracking plan and makes of it what applications, analysts and builds
// need.
#include <CLI/CLI.hpp>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "tools/command_line.h"
#include "tools/plan/commands.h"
#include "tools/plan/generate.h"

namespace veltrano::planning {
namespace {

namespace fs = std::filesystem;

// Leaves equal headers alone, so that nothing is compiled again for them, and removes those of
// events that the plan has no more.
void write(const Headers& headers, const fs::path& directory, const fs::path& folder) {
  const auto isOurs = [](const fs::path& path) {
    return fs::is_regular_file(path) && contentOf(path).compare(0, kMark.size(), kMark) == 0;
  };
  for (const auto& [name, content] : headers)
    if (fs::exists(directory / name) && !isOurs(directory / name))
      throw std::runtime_error((directory / name).string() + " is not ours; nothing is written");
  fs::create_directories(directory / folder);
  for (const auto& entry : fs::directory_iterator(directory / folder))
    if (headers.count((folder / entry.path().filename()).generic_string()) == 0 && isOurs(entry))
      fs::remove(entry.path());
  for (const auto& [name, content] : headers) {
    const fs::path path = directory / name;
    if (fs::exists(path) && contentOf(path) == content) continue;
    if (!(std::ofstream(path, std::ios::binary) << content << std::flush))
      throw std::runtime_error("cannot write " + path.string());
  }
}

Coverage coveredIn(const std::vector<std::string>& folders) {
  Coverage covered;
  for (const std::string& folder : folders)
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
      std::ifstream in(entry.path());  // a folder has no lines
      for (std::string line; std::getline(in, line);) covered.insert(line);
    }
  return covered;
}

int run(int argc, char** argv) {
  CLI::App app("Checks a tracking plan, and generates what follows from it.");
  app.require_subcommand(1);
  std::string file, newer, language = "c++", output = ".", nameSpace = "events";
  std::vector<std::string> folders, leftOut;
  double failUnder = 0;
  bool isJSON = false;
  const auto command = [&](const char* name, const char* description, const char* argument) {
    CLI::App* const it = app.add_subcommand(name, description);
    it->add_option(argument, file)->required();
    return it;
  };
  CLI::App* const check = command("check", "Say whether a plan is sound", "PLAN");
  CLI::App* const generate = command("generate", "Write headers with typed events", "PLAN");
  generate->add_option("--language", language)->check(CLI::IsMember({"c++", "c"}));
  generate->add_option("--output", output, "The folder to write to")->capture_default_str();
  CLI::App* const diff = command("diff", "Say what breaks those who read the data; 1 if so", "OLD");
  diff->add_option("NEW", newer)->required();
  CLI::App* const document = command("document", "Write the plan as Markdown", "PLAN");
  CLI::App* const infer = command("infer", "Make a plan from what a collector has written", "FILE");
  infer->add_option("--namespace", nameSpace)->capture_default_str();
  CLI::App* const coverage = command("coverage", "Sum up what tests have seen of a plan", "PLAN");
  coverage->add_option("FOLDER", folders, "$VELTRANO_PLAN_COVERAGE of the tests")->required();
  coverage->add_option("--fail-under", failUnder, "Exit with 1 under this percentage");
  coverage->add_flag("--json", isJSON, "Print JSON");
  if (const auto status = tools::parse(app, "veltrano-plan", argc, argv)) return *status;

  if (*infer) {
    const std::string plan = inferred(contentOf(file), nameSpace, leftOut);
    for (const std::string& line : leftOut) std::cerr << line << '\n';
    std::cout << plan;
    return EXIT_SUCCESS;
  }
  bool hasFailed = false;
  const Plan plan = Plan::read(file);
  if (*check) std::cout << plan.events.size() << " events, all sound\n";
  if (*generate && language == "c")
    write(headersForC(plan), output, plan.nameSpace + "_c");
  else if (*generate)
    write(headersForCPP(plan), output, plan.nameSpace);
  if (*document) std::cout << planning::document(plan);
  if (*diff)
    for (const std::string& line : differences(plan, Plan::read(newer))) {
      std::cout << line << '\n';
      hasFailed |= line[0] == 'b';
    }
  if (*coverage) {
    const CoverageReport report = coverageReport(plan, coveredIn(folders));
    std::cout << (isJSON ? report.json : report.text);
    hasFailed = report.percent < failUnder;
  }
  return hasFailed ? EXIT_FAILURE : EXIT_SUCCESS;
}

}  // namespace
}  // namespace veltrano::planning

int main(int argc, char** argv) {
  try {
    return veltrano::planning::run(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return EXIT_FAILURE;
  }
}
