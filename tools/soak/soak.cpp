// veltrano-soak: a host whose eight threads track events while scripts/soak lets its collector fail
// in every way it can. Succeeds when every event has arrived or was dropped in a documented way,
// and nothing else went wrong.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <limits>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tools/command_line.h"
#include "tools/random.h"
#include "tools/soak/arrivals.h"
#include "veltrano/posix_platform.h"
#include "veltrano/veltrano.h"

namespace soak {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kThreads = 8;
// More than the library may take for an upload.
constexpr std::chrono::seconds kMaxUpload{70};

// What this process uses.
struct Usage {
  long descriptors = 0;  // including the tables of the library's network threads
  long threads = 0;
  long kibibytes = 0;  // resident
};

// Tolerates a connection's descriptors and thread, and the memory of waiting calls.
constexpr Usage kSlack{2, 1, 8 * 1024};

Usage usageNow() {
  const auto entries = [](const fs::path& directory) -> long {
    std::error_code error;  // if the thread has just ended
    const fs::directory_iterator list(directory, error);
    return error ? 0 : std::distance(begin(list), end(list));
  };
  Usage usage;
  usage.descriptors = entries("/proc/self/fd");
  for (const auto& thread : fs::directory_iterator("/proc/self/task")) {
    ++usage.threads;
    std::string name;
    std::getline(std::ifstream(thread.path() / "comm"), name);
    if (name == "veltrano.net") usage.descriptors += entries(thread.path() / "fd");
  }
  long pages = 0;
  std::ifstream("/proc/self/statm") >> pages >> pages;  // the second field is the resident size
  usage.kibibytes = pages * sysconf(_SC_PAGESIZE) / 1024;
  return usage;
}

// Whether the calling thread's last line of the log said that a flush was replaced.
thread_local bool isReplacingFlush = false;

class Soak {
 public:
  /// On the main thread. `host` is the collector's address, `directory` has its certificate and
  /// its record.
  Soak(const std::string& host, std::string directory, std::uint64_t seed);
  bool run();

 private:
  class Completion;

  void visitBackground(milliseconds length);
  void pause(Clock::duration length) { platform_->mainRunLoop().runUntil(Clock::now() + length); }
  void track(std::size_t thread, const std::string& filler, Veltrano::FlushCompletion completion);
  void trackAsThread(std::size_t thread, const std::stop_token& end);
  void uploadTheRest();
  bool report();

  const std::string directory_;
  const std::uint64_t seed_;
  tools::Random choices_;
  veltrano::PosixPlatform* platform_ = nullptr;
  std::atomic<std::size_t> given_{0}, called_{0}, calledAgain_{0}, replaced_{0}, inBackground_{0},
      unexplained_{0};                          // completions
  std::atomic<std::size_t> unbalanced_{0};      // inconsistent snapshots of the statistics
  std::atomic<unsigned> backgroundChanges_{0};  // odd while in the background
  std::vector<std::size_t> tracked_ = std::vector<std::size_t>(kThreads + 1);  // one per thread
  std::atomic<bool> hasInputEnded_{false};
  std::vector<Usage> samples_;
};

// The state of a completion, shared by its copies. The library must call the completion, or drop
// it for a documented reason.
class Soak::Completion {
 public:
  explicit Completion(Soak& owner) : soak_(owner), changesBefore_(owner.backgroundChanges_) {
    ++soak_.given_;
  }
  ~Completion() {
    if (calls_ > 0) return;
    const unsigned changes = soak_.backgroundChanges_;
    const bool wasInBackground = changes % 2 == 1 || changes != changesBefore_;
    ++(isReplacingFlush  ? soak_.replaced_
       : wasInBackground ? soak_.inBackground_
                         : soak_.unexplained_);
  }
  Completion(const Completion&) = delete;
  Completion& operator=(const Completion&) = delete;

  void call() { ++(calls_++ == 0 ? soak_.called_ : soak_.calledAgain_); }

 private:
  Soak& soak_;
  const unsigned changesBefore_;
  std::atomic<int> calls_{0};
};

Soak::Soak(const std::string& host, std::string directory, std::uint64_t seed)
    : directory_(std::move(directory)), seed_(seed), choices_(seed) {
  veltrano::PosixOptions options;
  options.collectionHost = host;
  options.certificateAuthorities = directory_ + "/certificate.pem";
  options.sessionToken = [] { return "soak"; };
  options.logSink = [](std::string_view line) {
    isReplacingFlush = line.ends_with("| Canceling scheduled flush!");
  };
  const auto installation = veltrano::PosixPlatform::install(std::move(options));
  if (!installation) throw std::runtime_error(installation.error);
  platform_ = installation.platform;
  Veltrano::isLoggerEnabled = true;
  Veltrano::shared().setUserId("soak");
}

bool Soak::run() {
  std::jthread input([this] {
    std::cin.ignore(std::numeric_limits<std::streamsize>::max());
    hasInputEnded_ = true;
  });
  std::vector<std::jthread> threads;
  for (std::size_t i = 0; i < kThreads; ++i)
    threads.emplace_back([this, i](const std::stop_token& end) { trackAsThread(i, end); });
  while (!hasInputEnded_) {
    pause(std::chrono::seconds(1));
    samples_.push_back(usageNow());
    if (choices_.isAmong(0.15)) visitBackground(milliseconds(choices_.below(1500)));
  }
  threads.clear();
  uploadTheRest();
  return report();
}

void Soak::trackAsThread(std::size_t thread, const std::stop_token& end) {
  tools::Random choices(seed_ * kThreads + thread);
  while (!end.stop_requested()) {
    const std::uint64_t burst = choices.isAmong(0.05) ? 1 + choices.below(40) : 1;
    for (std::uint64_t i = 0; i < burst; ++i) {
      const std::string filler(choices.isAmong(0.02) ? 4000 : choices.below(100), 'x');
      Veltrano::FlushCompletion completion;
      if (choices.isAmong(0.04))
        completion = [held = std::make_shared<Completion>(*this)](bool) { held->call(); };
      track(thread, filler, std::move(completion));
    }
    if (choices.isAmong(0.05))
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

void Soak::visitBackground(milliseconds length) {
  ++backgroundChanges_;
  platform_->applicationWillResignActive();
  platform_->applicationDidEnterBackground();
  pause(length);
  platform_->applicationWillEnterForeground();
  platform_->applicationDidBecomeActive();
  ++backgroundChanges_;
}

// Retries, because heartbeats that fail meanwhile add events.
void Soak::uploadTheRest() {
  for (int attempt = 0; attempt < 5; ++attempt) {
    const auto outcome = std::make_shared<std::atomic<int>>(-1);
    track(kThreads, "", [outcome](bool wasDelivered) { *outcome = wasDelivered; });
    for (const auto end = Clock::now() + 2 * kMaxUpload; *outcome < 0 && Clock::now() < end;)
      pause(std::chrono::seconds(1));
    if (*outcome < 0) throw std::runtime_error("The last upload has no outcome.");
    const auto counts = Veltrano::shared().statistics();
    if (*outcome == 1 && counts.waiting + counts.inFlight == 0) return;
  }
}

bool Soak::report() {
  auto arrivals = arrivalsIn(directory_ + "/record", tracked_);
  const auto counts = Veltrano::shared().statistics();
  auto& wrong = arrivals.wrong;
  const auto expectAtMost = [&](std::uint64_t most, std::uint64_t count, const char* what) {
    if (count > most) wrong[what] += count - most;
  };
  std::uint64_t tracked = 0;
  for (const std::size_t ofThread : tracked_) tracked += ofThread;
  const std::uint64_t own = counts.heartbeatsFailed + counts.heartbeatsPutOff;
  const std::uint64_t trimmed = counts.droppedByTrimming, refused = counts.droppedAsRefused;
  expectAtMost(counts.recorded, tracked + own, "tracked and not recorded");
  expectAtMost(tracked + own, counts.recorded, "recorded and not tracked");
  expectAtMost(counts.delivered + trimmed + refused, counts.recorded, "still waiting, or dropped");
  // What is missing was dropped. A library that counts other answers as delivered loses events,
  // too.
  expectAtMost(arrivals.succeeded + trimmed + refused, tracked, "lost");
  expectAtMost(counts.uploadsAttempted, arrivals.requests - arrivals.retries,
               "repeated in an upload without a reason");
  expectAtMost(counts.uploadsFailedInTransport, arrivals.repeatedAfterSuccess,
               "repeated after a success that was answered");
  expectAtMost(0, unbalanced_, "statistics that do not add up");
  expectAtMost(0, calledAgain_, "completions called again");
  expectAtMost(0, unexplained_, "completions dropped without a reason");
  const std::size_t settled = called_ + replaced_ + inBackground_ + unexplained_;
  expectAtMost(settled, given_, "completions still held");

  std::cout << "soak         seed " << seed_ << ", " << backgroundChanges_ / 2
            << " times in the background"
            << "\nevents       " << tracked << " tracked + " << own
            << " of heartbeats = " << counts.delivered << " delivered + " << trimmed
            << " trimmed + " << refused << " refused; " << arrivals.repeated
            << " arrived again after a failure"
            << "\nuploads      " << counts.uploadsAttempted << ", of which "
            << counts.uploadsSucceeded << " succeeded; " << arrivals.requests << " arrived"
            << "\nheartbeats   " << arrivals.heartbeats << " arrived, " << own << " failed"
            << "\ncompletions  " << given_ << " given = " << called_ << " called + " << replaced_
            << " replaced + " << inBackground_ << " in the background\n";
  const auto compare = [&](const char* what, const char* unit, long Usage::*part) {
    const auto half = samples_.begin() + static_cast<std::ptrdiff_t>(samples_.size() / 2);
    const auto most = [part](auto begin, auto end) {
      const auto less = [part](const Usage& a, const Usage& b) { return a.*part < b.*part; };
      return begin == end ? 0 : *std::max_element(begin, end, less).*part;
    };
    const long before = most(samples_.begin(), half), after = most(half, samples_.end());
    std::cout << what << "at most " << before << unit << " in the first half, " << after << unit
              << " in the second\n";
    expectAtMost(static_cast<std::uint64_t>(before + kSlack.*part),
                 static_cast<std::uint64_t>(after), what);
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
  CLI::App app(
      "A busy host. The first line of its input is the address of a collector; it ends when that "
      "collector works again and the input ends");
  std::string directory, host;
  std::uint64_t seed = 0;
  app.add_option("DIRECTORY", directory, "Where the collector's certificate and record are")
      ->required();
  app.add_option("SEED", seed, "Decides what the host does")->required();
  if (const auto status = tools::parse(app, "veltrano-soak", argc, argv)) return *status;
  try {
    std::getline(std::cin, host);
    // Never destroyed: the library's callbacks use it until the process ends.
    auto* soak = new soak::Soak(host, directory, seed);
    return soak->run() ? EXIT_SUCCESS : EXIT_FAILURE;
  } catch (const std::exception& error) {
    std::cerr << "veltrano-soak: " << error.what() << std::endl;
    return 2;
  }
}
