// Writes random scenarios, for comparing two builds of the library. One build of this program gives
// the same scenario for the same number.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "tools/command_line.h"

namespace {

// Deeper than this, a rule stands for its first alternative, which ends soon.
constexpr int kMaximumDepth = 20;

class Generator {
 public:
  /// Of `usual.grammar` and perhaps `rare.grammar`.
  Generator(std::uint32_t seed, bool drawsRare) : random_(seed) {
    read("usual.grammar");
    if (drawsRare) read("rare.grammar");
    rules_["nothing"] = {""};
  }

  std::string scenario() {
    constexpr std::uint64_t kPauses[] = {1,       10000,    500000,   1000000,  5000000,
                                         9950000, 20000000, 30000000, 61000000, 200000000};
    std::string text;
    if (oneIn(2)) text += "{\"op\": \"configure\", " + any("configuration") + "}\n";
    if (!oneIn(5)) text += "{\"op\": \"enableLog\", \"on\": true}\n";
    std::uint64_t microseconds = 0;
    for (auto steps = 5 + below(55); steps > 0; --steps) {
      if (oneIn(2)) microseconds += kPauses[below(std::size(kPauses))];
      const std::string fraction = std::to_string(1000000 + microseconds % 1000000).substr(1);
      const std::string at = std::to_string(microseconds / 1000000) + "." + fraction;
      text += "{\"at\": " + at + ", " + (oneIn(15) ? batch() : any("step")) + "}\n";
    }
    return text;
  }

 private:
  void read(const std::string& name) {
    std::ifstream grammar(GRAMMARS "/" + name);
    for (std::string line; std::getline(grammar, line);) {
      const auto equals = line.find(" = ");
      if (equals == line.npos || line[0] == '#') continue;
      std::string rest = line.substr(equals + 3) + " | ";
      for (std::size_t end; (end = rest.find(" | ")) != rest.npos; rest.erase(0, end + 3))
        add(rules_[line.substr(0, equals)], rest.substr(0, end));
    }
  }

  static void add(std::vector<std::string>& alternatives, const std::string& text) {
    const auto digits = text.find_first_not_of("0123456789");
    const bool isWeighted = digits > 0 && digits != text.npos && text[digits] == ' ';
    alternatives.insert(alternatives.end(), isWeighted ? std::stoul(text) : 1,
                        isWeighted ? text.substr(digits + 1) : text);
  }

  std::uint32_t below(std::size_t count) { return static_cast<std::uint32_t>(random_() % count); }
  bool oneIn(std::uint32_t count) { return below(count) == 0; }

  std::string batch() {
    std::string steps;
    for (auto count = oneIn(8) ? 230 : 1 + below(20); count > 0; --count)
      steps += (steps.empty() ? "{" : ", {") + any("step") + "}";
    return "\"op\": \"batch\", \"steps\": [" + steps + "]";
  }

  std::string any(const std::string& rule, int depth = 0) {
    if (std::isdigit(rule[0]) != 0) return std::to_string(below(std::stoul(rule)));
    const auto& alternatives = rules_.at(rule);
    const std::string& form =
        depth > kMaximumDepth ? alternatives.front() : alternatives[below(alternatives.size())];
    std::string text;
    for (std::size_t at = 0; at < form.size();) {
      const auto open = std::min(form.find('<', at), form.size());
      text += form.substr(at, open - at);
      const auto close = form.find('>', open);
      if (open == form.size()) break;
      text += any(form.substr(open + 1, close - open - 1), depth + 1);
      at = close + 1;
    }
    return text;
  }

  std::mt19937 random_;
  std::map<std::string, std::vector<std::string>> rules_;
};

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Writes random scenarios, for comparing two builds of the library");
  std::string directory;
  std::uint32_t count = 200;
  std::uint32_t first = 1;
  bool drawsRare = false;
  app.add_option("DIRECTORY", directory, "Where to write them, as NUMBER.jsonl")->required();
  app.add_option("--count", count, "How many")->capture_default_str();
  app.add_option("--first", first, "The number of the first")->capture_default_str();
  app.add_flag("--rare", drawsRare, "Also draws values that hosts rarely have");
  if (const auto status = tools::parse(app, "veltrano-scenarios", argc, argv)) return *status;
  std::filesystem::create_directories(directory);
  for (std::uint32_t i = first; i != first + count; ++i) {
    std::ofstream file(std::filesystem::path(directory) / (std::to_string(i) + ".jsonl"));
    file << Generator(i, drawsRare).scenario();
    if (!file.flush()) {
      std::cerr << "Cannot write to " << directory << '\n';
      return 1;
    }
  }
}
