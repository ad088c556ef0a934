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
#include <sstream>
#include <string>
#include <vector>

#include "tools/command_line.h"

namespace {

// RULE = ALTERNATIVE | ALTERNATIVE ..., where a number and a space before an alternative is its
// weight. <RULE> stands for one of the rule's alternatives, <100> for a number below 100.
constexpr const char* kGrammar = R"grammar(
flag = true | false
time = 0 | 1.5 | 1600000000 | 1700000000.123456
info = null | {"CFBundleShortVersionString": "3.2"} | {"a": [1, null]}
defaults = {} | {"kelvora_heartbeat_interval": 5.5} | {"kelvora_heartbeat_interval": -1}
configuration = "startTime": <time>, "screen": [<3000>, <3000>], "info": <info>, "libraryBundle": {"resources": <flag>}, "defaults": <defaults>
step = 7 <track> | 3 "op": "notify", "name": "UI<notification>Notification" | 2 <network> | <property> | <identity> | <device>
property = 2 "op": "setSuperProperties", "properties": <map> | "op": "removeSuperProperty", "key": <key>
identity = "op": "setUserId", "id": <text>, "runLoop": <flag> | "op": "setAppId", "id": <text> | "op": "setUserId", "id": <text>
identity = "op": "setLibVersion", "version": <text> | "op": "setPublisherUid", "uid": <uid> | "op": "<call>" | "op": "setRefreshTriggers", "triggers": <triggers>, "handler": <handler>
uid = null | "" | "p1"
call = setIdfa | shared | getScreenOrientation | getDeviceOrientation
triggers = null | [] | ["Opened"] | ["Bought", "Heartbeat Failed"]
handler = null | "refresh"
device = "op": "device", "wifi": <flag>, "attStatus": <4>, "carrier": <carrier> | "op": "applicationState", "state": "<state>" | "op": "<orientation>", "value": <8> | "op": "clockJump", "seconds": <jump>
carrier = null | "T" | "é"
state = active | inactive | background
orientation = interfaceOrientation | deviceOrientation
jump = -3600 | -1 | 0.5 | 100 | 86400
notification = ApplicationDidBecomeActive | ApplicationDidChangeStatusBarOrientation | ApplicationDidEnterBackground
notification = ApplicationWillEnterForeground | ApplicationWillResignActive | DeviceOrientationDidChange
network = "op": "network", "path": "/<path>", "latency": <latency>, <answer>
path = track | heartbeat
latency = 0 | 0.05 | 1 | 5 | 31 | 70
answer = "error": true | "nonHTTP": true | 8 "status": <status>, "body": <body>
status = 2 200 | 204 | 400 | 401 | 429 | 503
body = "" | "{}" | "x" | "{\"back_off_seconds\": 7.5}" | "{\"back_off_seconds\": \"5\"}"
track = "op": "track", "name": <name><properties><completion>
name = "Opened" | "Bought" | "" | "Heartbeat Failed" | "é"
properties = 4 , "properties": <map> | <nothing>
completion = , "completion": "c<100>" | 3 <nothing>
key = "plan" | "extra_json" | "a" | "b" | "" | "é" | "e\u0301" | "$os" | "$manufacturer" | "uid" | "app_id" | "time"
text = "" | "a" | "é" | "e\u0301" | "日本" | "a\"b\\c\n\u0001" | "\u2028/" | "a longer text, which needs memory of its own"
map = {} | 5 {<entries>}
entries = <key>: <value> | 2 <key>: <value>, <entries>
elements = <value> | 2 <value>, <elements>
value = 12 <scalar> | [] | [<elements>] | <map> | {"$": "Dictionary", "v": [[<value>, <value>], [<text>, 1]]}
scalar = null | 2 <text> | <1073741824> | <double> | <flag> | <large> | {"$": "<real>", "v": <limit>} | {"$": "Date", "v": <date>} | <other> | 2 {"$": "NSNumber", "code": <code>, "v": <boxed>}
double = 0.1 | 1.5 | 3.0 | 1e21 | 1e-7 | -0.0 | 123456.789 | 5e-324
large = {"$": "UInt", "v": 18446744073709551615} | {"$": "Int64", "v": -9223372036854775808} | -9007199254740993
real = Float | Double
limit = "nan" | "-inf" | 0.1 | 16777217 | 1e10
date = 0 | 1.5 | 1700000000.25 | -1
other = {"$": "URL", "v": "https://a.example/c?d"} | {"$": "NSNull"} | {"$": "Object"} | {"$": "Absent"}
code = 1 | 2 | 3 | 4 | 5 | 6 | 7 | 8 | 9 | 10 | 11 | 12 | 13 | 14 | 15 | 16
boxed = 0 | 1 | -7 | 2.75 | 300
)grammar";

// Values that hosts rarely have, added to the rules above.
constexpr const char* kRareGrammar = R"grammar(
defaults = {"kelvora_heartbeat_interval": <interval>}
interval = 0.1 | 0.999999 | 9007199254740993 | 1e300
body = "{\"back_off_seconds\": <interval>}"
entries = <key>: <value>, <entries>
map = {"a": <value>, "b": <value>, "a": <value>}
large = 9007199254740992 | 9007199254740993 | 9223372036854775807 | 1e300 | -1.7976931348623157e308
name = "Opened\u0000" | "a name of more than twenty-two bytes"
latency = 0.000001 | 19.999999 | 20 | 100000
)grammar";

// Deeper than this, a rule stands for its first alternative, which ends soon.
constexpr int kMaximumDepth = 20;

class Generator {
 public:
  Generator(std::uint32_t seed, bool drawsRare) : random_(seed) {
    std::istringstream grammar(kGrammar + std::string(drawsRare ? kRareGrammar : ""));
    for (std::string line; std::getline(grammar, line);) {
      const auto equals = line.find(" = ");
      if (equals == line.npos) continue;
      std::string rest = line.substr(equals + 3) + " | ";
      for (std::size_t end; (end = rest.find(" | ")) != rest.npos; rest.erase(0, end + 3))
        add(rules_[line.substr(0, equals)], rest.substr(0, end));
    }
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
