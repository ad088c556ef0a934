// Measures the library's threads while the host is idle, in the foreground or in the background.
#include <fmt/format.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <thread>

#include "benchmarks/bench_platform.h"
#include "benchmarks/figures.h"
#include "benchmarks/host.h"
#include "benchmarks/process_usage.h"
#include "benchmarks/scripted_url_session.h"
#include "veltrano/veltrano.h"

int main(int argc, char** argv) {
  const bool isInBackground = argc > 1 && std::string_view(argv[1]) == "background";
  const std::chrono::seconds duration(argc > 2 ? std::atoi(argv[2]) : 60);
  auto& session = *new bench::ScriptedURLSession(bench::ScriptedURLSession::Answer::accept);
  bench::installBenchPlatform(session);
  for (int i = 0; i < 30; ++i) Veltrano::shared().track("Bought", {{"items", i}});
  bench::drain();
  if (isInBackground) bench::enterBackground();

  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  const auto before = bench::otherThreads();
  std::this_thread::sleep_for(duration);
  std::uint64_t wakeUps = 0;
  std::uint64_t nanoseconds = 0;
  for (const auto& [id, after] : bench::otherThreads()) {
    const auto earlier = before.find(id);
    const bool isNew = earlier == before.end();
    wakeUps += after.wakeUps - (isNew ? 0 : earlier->second.wakeUps);
    nanoseconds += after.nanosecondsRun - (isNew ? 0 : earlier->second.nanosecondsRun);
  }

  // In the foreground, only the periodic flush is due.
  const auto allowed =
      isInBackground ? 0 : static_cast<std::uint64_t>(duration / std::chrono::seconds(20));
  bench::print(
      fmt::format("{} s idle in the {}: wake-ups", duration.count(),
                  isInBackground ? "background" : "foreground"),
      fmt::format("{}, {} of processor time", wakeUps,
                  bench::timeText(static_cast<double>(nanoseconds))),
      bench::goalText(isInBackground ? "none" : fmt::format("{}, the periodic flush", allowed),
                      wakeUps <= allowed));
  std::_Exit(0);
}
