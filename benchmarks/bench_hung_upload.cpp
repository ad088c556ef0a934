// A million calls while an upload hangs, and how fast the work queue catches up once it ends.
#include <fmt/format.h>

#include <chrono>
#include <cstdlib>
#include <semaphore>
#include <string>
#include <vector>

#include "benchmarks/bench_platform.h"
#include "benchmarks/figures.h"
#include "benchmarks/process_usage.h"
#include "benchmarks/scripted_url_session.h"
#include "veltrano/veltrano.h"

namespace {

using Answer = bench::ScriptedURLSession::Answer;
using Clock = std::chrono::steady_clock;

double nanosecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::atoi(argv[1]) : 3;
  constexpr int kCalls = 1'000'000;
  auto& session = *new bench::ScriptedURLSession(Answer::accept);
  bench::installBenchPlatform(session);
  Veltrano& tracker = Veltrano::shared();
  bench::drainTracker();

  const double before = bench::peakResidentBytes();
  double peak = 0;
  std::vector<double> callTimes, recordingTimes;
  for (int round = 0; round < rounds; ++round) {
    session.setAnswer(Answer::hang);
    tracker.track("Hangs", {}, [](bool) {});
    session.awaitPost();

    std::binary_semaphore caughtUp(0);
    const auto firstCall = Clock::now();
    for (int i = 1; i < kCalls; ++i) {
      tracker.track(
          "Bought",
          {{"plan", "pro"}, {"items", i}, {"price", 9.5}, {"first", true}, {"store", "north"}});
    }
    tracker.track("Bought", {}, [&](bool) { caughtUp.release(); });
    callTimes.push_back(nanosecondsSince(firstCall) / kCalls);

    const auto release = Clock::now();
    session.setAnswer(Answer::accept);
    caughtUp.acquire();
    recordingTimes.push_back(nanosecondsSince(release) / kCalls);
    if (round == 0) peak = bench::peakResidentBytes() - before;
  }
  const double rate = 1e3 / bench::median(recordingTimes);
  bench::print({"a million calls while an upload hangs: peak memory", bench::sizeText(peak),
                bench::sizeText(peak / kCalls) + " a call", "", "reported"});
  bench::print({"the same: mean of the calls", bench::timeText(bench::median(callTimes)), "", "",
                "reported"});
  bench::print({"the same: the work queue catches up", fmt::format("{:.2f} million a second", rate),
                "", "", bench::goalText("at least 1 million a second", rate >= 1)});
  std::_Exit(0);
}
