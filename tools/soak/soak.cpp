// veltrano-soak: a host whose eight threads track events while its collector fails in every way it
// can. Succeeds when every event has arrived or was dropped in a documented way, and nothing else
// went wrong.
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <iostream>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/endpoint_path.h"
#include "tools/command_line.h"
#include "tools/soak/collector_process.h"
#include "tools/soak/ledger.h"
#include "tools/soak/usage.h"
#include "veltrano/posix_platform.h"
#include "veltrano/veltrano.h"

namespace soak {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;
using veltrano::internal::EndpointPath;

constexpr std::size_t kThreads = 8;
// More than the library may take for an upload.
constexpr std::chrono::seconds kMaxUpload{70};
// Tolerates a connection's descriptors and thread, and the memory of waiting calls.
constexpr Usage kSlack{2, 1, 8 * 1024};

// Deterministic for a seed.
class Choices {
 public:
  explicit Choices(std::uint64_t seed) : engine_(seed) {}

  int below(int limit) { return static_cast<int>(engine_() % static_cast<unsigned>(limit)); }
  bool inPercent(int percent) { return below(100) < percent; }
  template <class T, std::size_t count>
  const T& of(const T (&values)[count]) {
    return values[below(int{count})];
  }

 private:
  std::mt19937_64 engine_;
};

// A fault that lacks its effects and the closing brace.
std::string faultStart(EndpointPath path) {
  return R"({"path":")" + std::string(veltrano::internal::text(path)) + '"';
}

struct Completions {
  std::atomic<std::size_t> given{0}, called{0}, calledAgain{0}, replaced{0}, inBackground{0},
      unexplained{0};

  std::size_t settled() const { return called + replaced + inBackground + unexplained; }
};

class Soak {
 public:
  Soak(std::string collectorProgram, std::filesystem::path directory, std::chrono::seconds length,
       std::uint64_t seed)
      : length_(length), seed_(seed), collector_(std::move(collectorProgram), directory) {}

  /// Call on the main thread.
  bool run();

 private:
  class Completion;

  void control();
  void act(Choices& choices);
  std::string fault(EndpointPath path, Choices& choices);
  void visitBackground(milliseconds length);
  void onMainThread(void (veltrano::PosixPlatform::*step)());
  void track(std::size_t thread, const std::string& filler, Veltrano::FlushCompletion completion);
  void trackAsThread(std::size_t thread, const std::stop_token& end);
  void uploadTheRest();
  bool report();

  const std::chrono::seconds length_;
  const std::uint64_t seed_;
  CollectorProcess collector_;
  veltrano::PosixPlatform* platform_ = nullptr;
  Ledger ledger_;
  Completions completions_;
  std::atomic<std::size_t> unbalanced_{0};      // inconsistent snapshots of the statistics
  std::atomic<unsigned> backgroundChanges_{0};  // odd while in the background
  std::vector<std::size_t> tracked_ = std::vector<std::size_t>(kThreads + 1);  // one per thread
  // Controlling thread only.
  std::size_t faults_ = 0, kills_ = 0, stops_ = 0, visits_ = 0;
  std::vector<Usage> samples_;
};

// The state of a completion, shared by its copies. The library must call the completion, or drop
// it for a documented reason.
class Soak::Completion {
 public:
  explicit Completion(Soak& owner) : soak_(owner), changesBefore_(owner.backgroundChanges_) {
    ++soak_.completions_.given;
  }
  ~Completion() {
    Completions& all = soak_.completions_;
    if (calls_ > 0) return;
    const unsigned changes = soak_.backgroundChanges_;
    if (Ledger::isReplacingFlush())
      ++all.replaced;
    else if (changes % 2 == 1 || changes != changesBefore_)
      ++all.inBackground;
    else
      ++all.unexplained;
  }
  Completion(const Completion&) = delete;
  Completion& operator=(const Completion&) = delete;

  void call() { ++(calls_++ == 0 ? soak_.completions_.called : soak_.completions_.calledAgain); }

 private:
  Soak& soak_;
  const unsigned changesBefore_;
  std::atomic<int> calls_{0};
};

bool Soak::run() {
  std::promise<void> started;
  std::promise<veltrano::PosixPlatform*> installed;
  // The collector ends with the thread that starts it.
  auto controlling = std::async(std::launch::async, [&] {
    try {
      collector_.start();
      started.set_value();
    } catch (...) {
      return started.set_exception(std::current_exception());
    }
    platform_ = installed.get_future().get();
    struct AtEnd {
      Soak& soak;
      ~AtEnd() { soak.platform_->mainRunLoop().stop(); }
    } const atEnd{*this};
    control();
  });
  started.get_future().get();

  veltrano::PosixOptions options;
  options.collectionHost = collector_.host();
  options.certificateAuthorities = collector_.certificate();
  options.sessionToken = [] { return "soak"; };
  options.logSink = [this](std::string_view line) { ledger_.takeLogLine(line); };
  const auto installation = veltrano::PosixPlatform::install(std::move(options));
  if (!installation) throw std::runtime_error(installation.error);
  Veltrano::isLoggerEnabled = true;
  Veltrano::shared().setUserId("soak");
  installed.set_value(installation.platform);
  installation.platform->mainRunLoop().run();
  controlling.get();
  return report();
}

void Soak::trackAsThread(std::size_t thread, const std::stop_token& end) {
  Choices choices(seed_ * kThreads + thread);
  while (!end.stop_requested()) {
    const int burst = choices.inPercent(5) ? 1 + choices.below(40) : 1;
    for (int i = 0; i < burst; ++i) {
      const std::string filler(
          static_cast<std::size_t>(choices.inPercent(2) ? 4000 : choices.below(100)), 'x');
      Veltrano::FlushCompletion completion;
      if (choices.inPercent(4))
        completion = [held = std::make_shared<Completion>(*this)](bool) { held->call(); };
      track(thread, filler, std::move(completion));
    }
    if (choices.inPercent(5))
      Veltrano::shared().setSuperProperties({{"changing", choices.below(9)}});
    const auto counts = Veltrano::shared().statistics();
    if (counts.recorded != counts.waiting + counts.inFlight + counts.delivered + counts.dropped())
      ++unbalanced_;
    std::this_thread::sleep_for(milliseconds(choices.below(400)));
  }
}

void Soak::track(std::size_t thread, const std::string& filler,
                 Veltrano::FlushCompletion completion) {
  Veltrano::shared().track("Soaked",
                           {{"thread", static_cast<int>(thread)},
                            {"number", static_cast<std::int64_t>(tracked_[thread]++)},
                            {"filler", filler}},
                           std::move(completion));
}

void Soak::control() {
  std::vector<std::jthread> threads;
  for (std::size_t i = 0; i < kThreads; ++i)
    threads.emplace_back([this, i](const std::stop_token& end) { trackAsThread(i, end); });

  Choices choices(seed_);
  // Makes heartbeats frequent.
  collector_.misbehave(faultStart(EndpointPath::heartbeat) +
                       R"(,"back_off_seconds":0.5,"count":1})");
  const auto end = Clock::now() + length_;
  auto nextAct = Clock::now();
  auto nextSample = Clock::now();
  while (Clock::now() < end) {
    if (Clock::now() >= nextAct) {
      act(choices);
      nextAct = Clock::now() + milliseconds(200 + choices.below(1000));
    }
    if (Clock::now() >= nextSample) {
      samples_.push_back(usageNow());
      nextSample = Clock::now() + std::chrono::seconds(1);
    }
    std::this_thread::sleep_until(std::min(nextAct, nextSample));
  }
  threads.clear();
  collector_.stop(SIGTERM);  // answers delayed requests
  collector_.start();
  uploadTheRest();
}

void Soak::act(Choices& choices) {
  const int choice = choices.below(100);
  if (choice < 45) {
    collector_.misbehave(fault(EndpointPath::track, choices));
  } else if (choice < 65) {
    collector_.misbehave(fault(EndpointPath::heartbeat, choices));
  } else if (choice < 82) {
    for (const EndpointPath path : veltrano::internal::kEndpointPaths)
      collector_.misbehave(faultStart(path) + '}');
  } else if (choice < 92) {
    visitBackground(milliseconds(choices.below(1500)));
  } else {
    const bool isKilled = choices.inPercent(50);
    ++(isKilled ? kills_ : stops_);
    collector_.stop(isKilled ? SIGKILL : SIGTERM);
    std::this_thread::sleep_for(milliseconds(choices.below(1500)));
    collector_.start();
  }
}

std::string Soak::fault(EndpointPath path, Choices& choices) {
  static constexpr int kStatuses[] = {201, 204, 302, 400, 400, 400, 404, 429, 500, 502, 503, 504};
  static constexpr const char* kBodies[] = {"",         "\\u0000\\u00ff",
                                            "[[[[[[[[", "{\\\"a\\\":1e999}",
                                            "<html>",   "{\\\"back_off_seconds\\\":-1}"};
  ++faults_;
  std::string text = faultStart(path);
  // Whether the collector accepts a request that it answers badly.
  bool accepts = choices.inPercent(50);
  switch (choices.below(7)) {
    case 0:
    case 1: {
      const int status = choices.of(kStatuses);
      text += ",\"status\":" + std::to_string(status);
      if (status == 400) accepts = false;  // refused requests do not count
      if (status == 503 && choices.inPercent(50))
        text += ",\"retry_after\":\"" + std::to_string(choices.below(3)) + '"';
      break;
    }
    case 2:
      text += ",\"latency_ms\":" + std::to_string(choices.below(1500));
      accepts = true;
      break;
    case 3:
      text += ",\"drop\":true";
      break;
    case 4:
      text += ",\"truncate\":true";
      accepts = true;  // the status arrives
      break;
    case 5:
      text += std::string(",\"body\":\"") + choices.of(kBodies) + '"';
      accepts = true;
      break;
    default: {  // a hang; the library gives up after 30 s
      const auto longest = std::min<long>(length_.count() * 100, 35'000);
      text += ",\"latency_ms\":" + std::to_string(choices.below(static_cast<int>(longest) + 1));
      accepts = true;
    }
  }
  text += std::string(",\"accept\":") + (accepts ? "true" : "false");
  return text + ",\"count\":" + std::to_string(1 + choices.below(3)) + '}';
}

void Soak::visitBackground(milliseconds length) {
  ++visits_;
  ++backgroundChanges_;
  onMainThread(&veltrano::PosixPlatform::applicationWillResignActive);
  onMainThread(&veltrano::PosixPlatform::applicationDidEnterBackground);
  std::this_thread::sleep_for(length);
  onMainThread(&veltrano::PosixPlatform::applicationWillEnterForeground);
  onMainThread(&veltrano::PosixPlatform::applicationDidBecomeActive);
  ++backgroundChanges_;
}

// Waits until the step is done.
void Soak::onMainThread(void (veltrano::PosixPlatform::*step)()) {
  std::promise<void> done;
  platform_->mainRunLoop().perform([&] {
    (platform_->*step)();
    done.set_value();
  });
  done.get_future().get();
}

// Retries, because heartbeats that fail meanwhile add events.
void Soak::uploadTheRest() {
  for (int attempt = 0; attempt < 5; ++attempt) {
    const auto wasDelivered = std::make_shared<std::promise<bool>>();
    auto outcome = wasDelivered->get_future();
    track(kThreads, "", [wasDelivered](bool result) { wasDelivered->set_value(result); });
    if (outcome.wait_for(2 * kMaxUpload) != std::future_status::ready)
      throw std::runtime_error("The last upload has no outcome.");
    std::this_thread::sleep_for(std::chrono::seconds(1));
    if (outcome.get() && ledger_.isSettled()) return;
  }
}

bool Soak::report() {
  auto result = ledger_.check(collector_.records(), tracked_);
  auto& wrong = result.violations;
  const auto expect = [&](bool holds, const char* what, std::size_t count) {
    if (!holds) wrong[what] += count;
  };
  const Completions& all = completions_;
  expect(all.calledAgain == 0, "completions called again", all.calledAgain);
  expect(all.unexplained == 0, "completions dropped without a reason", all.unexplained);
  expect(all.settled() == all.given, "completions still held", all.given - all.settled());
  expect(unbalanced_ == 0, "statistics that do not add up", unbalanced_);
  const auto counts = Veltrano::shared().statistics();
  const auto agree = [&](std::uint64_t count, std::size_t found, const char* what) {
    expect(count == found, what, count > found ? count - found : found - count);
  };
  agree(counts.recorded, result.tracked, "events in the statistics");
  agree(counts.delivered, result.delivered, "delivered events in the statistics");
  agree(counts.droppedByTrimming, result.trimmed, "trimmed events in the statistics");
  agree(counts.droppedAsRefused, result.refused, "refused events in the statistics");
  agree(counts.uploadsAttempted, result.uploads, "uploads in the statistics");
  agree(counts.uploadsSucceeded, result.successes, "successful uploads in the statistics");
  agree(counts.heartbeatsFailed + counts.heartbeatsPutOff, result.failedHeartbeats,
        "failed heartbeats in the statistics");
  const std::size_t complaints = collector_.complaints();
  expect(complaints == 0, "requests found malformed", complaints);
  const Usage before = most(samples_, 0, 0.5);
  const Usage after = most(samples_, 0.5, 1);

  std::cout << "soak         " << length_.count() << " s, seed " << seed_ << "\nfaults       "
            << faults_ << "; the collector stopped " << stops_ << " times, killed " << kills_
            << " times; " << visits_ << " times in the background"
            << "\nevents       " << result.tracked << " tracked = " << result.delivered
            << " delivered + " << result.trimmed << " trimmed + " << result.refused << " refused; "
            << result.repeated << " arrived again after a failure"
            << "\nuploads      " << result.uploads << ", of which " << result.successes
            << " succeeded"
            << "\nheartbeats   " << result.heartbeats << " arrived, " << result.failedHeartbeats
            << " failed"
            << "\ncompletions  " << all.given << " given = " << all.called << " called + "
            << all.replaced << " replaced + " << all.inBackground << " in the background\n";
  const auto compare = [&](const char* what, const char* unit, long Usage::*part) {
    std::cout << what << "at most " << before.*part << unit << " in the first half, " << after.*part
              << unit << " in the second\n";
    expect(after.*part <= before.*part + kSlack.*part, what,
           static_cast<std::size_t>(after.*part - before.*part));
  };
  compare("descriptors  ", "", &Usage::descriptors);
  compare("threads      ", "", &Usage::threads);
  compare("memory       ", " KiB", &Usage::kibibytes);
  for (const auto& [what, count] : wrong) std::cout << "WRONG: " << what << ": " << count << '\n';
  std::cout << (wrong.empty() ? "everything adds up" : "it does not add up") << std::endl;
  return wrong.empty();
}

}  // namespace
}  // namespace soak

int main(int argc, char** argv) {
  CLI::App app("Runs a busy host against a collector that fails in every way it can");
  std::string collector, directory;
  long seconds = 0;
  std::uint64_t seed = std::random_device()();
  app.add_option("COLLECTOR", collector, "The collector's program")->required();
  app.add_option("DIRECTORY", directory, "Where to keep its records")->required();
  app.add_option("SECONDS", seconds, "How long to run")->required();
  app.add_option("SEED", seed, "Decides what fails and when; by default another one each time");
  if (const auto status = tools::parse(app, "veltrano-soak", argc, argv)) return *status;
  try {
    // Never destroyed: the log sink may be called until the process ends.
    auto* soak = new soak::Soak(collector, directory, std::chrono::seconds(seconds), seed);
    return soak->run() ? EXIT_SUCCESS : EXIT_FAILURE;
  } catch (const std::exception& error) {
    std::cerr << "veltrano-soak: " << error.what() << std::endl;
    return 2;
  }
}
