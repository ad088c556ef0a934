// Writes random scenarios, for comparing two builds of the library. One build of this program gives
// the same scenario for the same number.
#include <CLI/CLI.hpp>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <string>
#include <vector>

namespace {

class Generator {
 public:
  explicit Generator(std::uint32_t seed) : random_(seed) {}

  std::string scenario() {
    std::string text;
    if (oneIn(2)) text += "{\"op\": \"configure\", " + configuration() + "}\n";
    if (!oneIn(5)) text += "{\"op\": \"enableLog\", \"on\": true}\n";
    std::uint64_t microseconds = 0;
    for (auto steps = 5 + below(55); steps > 0; --steps) {
      if (oneIn(2)) microseconds += kPauses[below(std::size(kPauses))];
      const std::string fraction = std::to_string(1000000 + microseconds % 1000000).substr(1);
      const std::string at = std::to_string(microseconds / 1000000) + "." + fraction;
      text += "{\"at\": " + at + ", " + (oneIn(15) ? batch() : step()) + "}\n";
    }
    return text;
  }

 private:
  static constexpr std::uint64_t kPauses[] = {1,       10000,    500000,   1000000,  5000000,
                                              9950000, 20000000, 30000000, 61000000, 200000000};

  std::uint32_t below(std::size_t count) {
    return static_cast<std::uint32_t>(random_()) % static_cast<std::uint32_t>(count);
  }
  bool oneIn(std::uint32_t count) { return below(count) == 0; }
  std::string any(const std::vector<const char*>& texts) { return texts[below(texts.size())]; }
  std::string flag() { return oneIn(2) ? "true" : "false"; }
  std::string number(std::uint32_t end) { return std::to_string(below(end)); }

  std::string configuration() {
    return "\"startTime\": " + any({"0", "1.5", "1600000000", "1700000000.123456"}) +
           ", \"screen\": [" + number(3000) + ", " + number(3000) + "], \"info\": " +
           any({"null", R"({"CFBundleShortVersionString": "3.2"})", R"({"a": [1, null]})"}) +
           ", \"libraryBundle\": {\"resources\": " + flag() + "}, \"defaults\": " +
           any({"{}", R"({"kelvora_heartbeat_interval": 5.5})",
                R"({"kelvora_heartbeat_interval": -1})"});
  }

  std::string batch() {
    std::string steps;
    for (auto count = oneIn(8) ? 230 : 1 + below(20); count > 0; --count)
      steps += (steps.empty() ? "{" : ", {") + step() + "}";
    return "\"op\": \"batch\", \"steps\": [" + steps + "]";
  }

  std::string step() {
    switch (below(24)) {
      case 0:
        return R"("op": "setSuperProperties", "properties": )" + map(0);
      case 1:
        return R"("op": "removeSuperProperty", "key": )" + key();
      case 2:
        return R"("op": "setUserId", "id": )" + text() + ", \"runLoop\": " + flag();
      case 3:
        return "\"op\": " + any({"\"setAppId\"", "\"setUserId\""}) + ", \"id\": " + text();
      case 4:
        return R"("op": "setLibVersion", "version": )" + text();
      case 5:
        return R"("op": "setPublisherUid", "uid": )" + any({"null", "\"\"", "\"p1\""});
      case 6:
        return "\"op\": " + any({"\"setIdfa\"", "\"shared\"", "\"getScreenOrientation\"",
                                 "\"getDeviceOrientation\""});
      case 7:
        return R"("op": "setRefreshTriggers", "triggers": )" +
               any({"null", "[]", R"(["Opened"])", R"(["Bought", "Heartbeat Failed"])"}) +
               ", \"handler\": " + any({"null", "\"refresh\""});
      case 8:
        return R"("op": "device", "wifi": )" + flag() + ", \"attStatus\": " + number(4) +
               ", \"carrier\": " + any({"null", "\"T\"", "\"é\""});
      case 9:
        return R"("op": "applicationState", "state": )" +
               any({"\"active\"", "\"inactive\"", "\"background\""});
      case 10:
        return "\"op\": " + any({"\"interfaceOrientation\"", "\"deviceOrientation\""}) +
               ", \"value\": " + number(8);
      case 11:
      case 12:
      case 13:
        return R"("op": "notify", "name": )" +
               any({"\"UIApplicationDidBecomeActiveNotification\"",
                    "\"UIApplicationDidChangeStatusBarOrientationNotification\"",
                    "\"UIApplicationDidEnterBackgroundNotification\"",
                    "\"UIApplicationWillEnterForegroundNotification\"",
                    "\"UIApplicationWillResignActiveNotification\"",
                    "\"UIDeviceOrientationDidChangeNotification\""});
      case 14:
      case 15:
        return network();
      case 16:
        return R"("op": "clockJump", "seconds": )" + any({"-3600", "-1", "0.5", "100", "86400"});
      default:
        return track();
    }
  }

  std::string network() {
    const std::string to = R"("op": "network", "path": )" + any({"\"/track\"", "\"/heartbeat\""}) +
                           ", \"latency\": " + any({"0", "0.05", "1", "5", "31", "70"}) + ", ";
    if (oneIn(5)) return to + any({"\"error\": true", "\"nonHTTP\": true"});
    return to + "\"status\": " + any({"200", "200", "204", "400", "401", "429", "503"}) +
           ", \"body\": " +
           any({"\"\"", "\"{}\"", "\"x\"", R"("{\"back_off_seconds\": 7.5}")",
                R"("{\"back_off_seconds\": \"5\"}")"});
  }

  std::string track() {
    std::string step = R"("op": "track", "name": )" +
                       any({"\"Opened\"", "\"Bought\"", "\"\"", "\"Heartbeat Failed\"", "\"é\""});
    if (!oneIn(5)) step += ", \"properties\": " + map(0);
    if (oneIn(4)) step += ", \"completion\": \"c" + number(100) + "\"";
    return step;
  }

  std::string key() {
    return any({"\"plan\"", "\"extra_json\"", "\"a\"", "\"b\"", "\"\"", "\"é\"", R"("e\u0301")",
                "\"$os\"", "\"$manufacturer\"", "\"uid\"", "\"app_id\"", "\"time\""});
  }

  std::string text() {
    return any({"\"\"", "\"a\"", "\"é\"", R"("e\u0301")", "\"日本\"", R"("a\"b\\c\n\u0001")",
                R"("\u2028/")", "\"a longer text, which needs memory of its own\""});
  }

  std::string map(int depth) {
    std::string entries;
    for (auto count = below(6); count > 0; --count)
      entries += (entries.empty() ? "" : ", ") + key() + ": " + value(depth);
    return "{" + entries + "}";
  }

  std::string list(int depth) {
    std::string elements;
    for (auto count = below(5); count > 0; --count)
      elements += (elements.empty() ? "" : ", ") + value(depth);
    return "[" + elements + "]";
  }

  std::string value(int depth) {
    switch (below(depth < 4 ? 16 : 12)) {
      case 0:
        return "null";
      case 1:
      case 2:
        return text();
      case 3:
        return number(1U << 30);
      case 4:
        return any({"0.1", "1.5", "3.0", "1e21", "1e-7", "-0.0", "123456.789", "5e-324"});
      case 5:
        return flag();
      case 6:
        return any({R"({"$": "UInt", "v": 18446744073709551615})",
                    R"({"$": "Int64", "v": -9223372036854775808})", "-9007199254740993"});
      case 7:
        return "{\"$\": " + any({"\"Float\"", "\"Double\""}) +
               ", \"v\": " + any({"\"nan\"", "\"-inf\"", "0.1", "16777217", "1e10"}) + "}";
      case 8:
        return R"({"$": "Date", "v": )" + any({"0", "1.5", "1700000000.25", "-1"}) + "}";
      case 9:
        return any({R"({"$": "URL", "v": "https://a.example/c?d"})", R"({"$": "NSNull"})",
                    R"({"$": "Object"})", R"({"$": "Absent"})"});
      case 10:
      case 11:
        return R"({"$": "NSNumber", "code": )" + std::to_string(1 + below(16)) +
               ", \"v\": " + any({"0", "1", "-7", "2.75", "300"}) + "}";
      case 12:
      case 13:
        return list(depth + 1);
      case 14:
        return map(depth + 1);
      default:
        return R"({"$": "Dictionary", "v": [[)" + value(depth + 2) + ", " + value(depth + 2) +
               "], [" + text() + ", 1]]}";
    }
  }

  std::mt19937 random_;
};

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Writes random scenarios, for comparing two builds of the library",
               "veltrano-scenarios");
  std::string directory;
  std::uint32_t count = 200;
  std::uint32_t first = 1;
  app.add_option("DIRECTORY", directory, "Where to write them, as NUMBER.jsonl")->required();
  app.add_option("--count", count, "How many")->capture_default_str();
  app.add_option("--first", first, "The number of the first")->capture_default_str();
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  std::filesystem::create_directories(directory);
  for (std::uint32_t i = first; i != first + count; ++i) {
    std::ofstream file(std::filesystem::path(directory) / (std::to_string(i) + ".jsonl"));
    file << Generator(i).scenario();
    if (!file.flush()) {
      std::cerr << "Cannot write to " << directory << '\n';
      return 1;
    }
  }
}
