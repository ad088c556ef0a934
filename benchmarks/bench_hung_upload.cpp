// Measures a million calls while an upload hangs, and how fast the work queue catches up
// afterwards.
#include <fmt/format.h>

#include <cstdlib>
#include <semaphore>
#include <vector>

#include "benchmarks/bench_platform.h"
#include "benchmarks/figures.h"
#include "benchmarks/host.h"
#include "benchmarks/process_usage.h"
#include "benchmarks/scripted_url_session.h"
#include "veltrano/veltrano.h"

namespace {

using Answer = bench::ScriptedURLSession::Answer;

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::atoi(argv[1]) : 3;
  constexpr int kCalls = 1'000'000;
  auto& session = *new bench::ScriptedURLSession(Answer::accept);
  bench::installBenchPlatform(session);
  Veltrano& tracker = Veltrano::shared();
  bench::drain();

  const double before = bench::peakResidentBytes();
  double peak = 0;
  std::vector<double> rates;  // in millions per second
  for (int round = 0; round < rounds; ++round) {
    session.setAnswer(Answer::hang);
    tracker.track("Hangs", {}, [](bool) {});
    session.awaitPost();

    const auto droppedBefore = tracker.statistics().droppedByBacklog;
    std::binary_semaphore caughtUp(0);
    for (int i = 1; i < kCalls; ++i) {
      tracker.track(
          "Bought",
          {{"plan", "pro"}, {"items", i}, {"price", 9.5}, {"first", true}, {"store", "north"}});
    }
    tracker.track("Bought", {}, [&](bool) { caughtUp.release(); });

    const auto dropped = tracker.statistics().droppedByBacklog - droppedBefore;
    const double nanoseconds = bench::timeOf([&] {
      session.setAnswer(Answer::accept);
      caughtUp.acquire();
    });
    rates.push_back(static_cast<double>(kCalls - dropped) / nanoseconds * 1000);
    if (round == 0) peak = bench::peakResidentBytes() - before;
  }
  const double rate = bench::median(rates);
  bench::print("a million calls while an upload hangs: peak memory", bench::sizeText(peak),
               bench::goalText("at most 80 MB", peak <= 80e6));
  bench::print("the same: the work queue catches up", fmt::format("{:.2f} million a second", rate),
               bench::goalText("at least 2 million a second", rate >= 2));
  std::_Exit(0);
}
