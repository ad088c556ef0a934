// Measures what an event costs that comes on its own, in a host that links the shared library and
// uploads to a collector: `scripts/with-collector veltrano-collector -- bench_paced`. The reference
// is a clock, a copy and an exchange at the same pace.
#include <fmt/format.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "benchmarks/figures.h"
#include "benchmarks/handoff_reference.h"
#include "benchmarks/host.h"
#include "benchmarks/process_usage.h"
#include "veltrano/veltrano.h"

namespace {

using std::chrono::milliseconds;

// Microseconds, and wake-ups, an event.
struct Cost {
  double caller = 0;     // median
  double processor = 0;  // of the whole process
  double own = 0;        // of that, without the threads that upload
  double wakeUps = 0;    // of the work queue
};

struct Usage {
  double processor = 0;
  double network = 0;
  std::uint64_t wakeUps = 0;
};

Usage usage() {
  Usage now;
  for (const auto& [id, thread] : bench::otherThreads()) {
    if (thread.name == "com.veltrano")
      now.wakeUps += thread.wakeUps;
    else
      now.network += static_cast<double>(thread.nanosecondsRun) / 1000;
  }
  rusage process = {};
  getrusage(RUSAGE_SELF, &process);
  for (const timeval& part : {process.ru_utime, process.ru_stime})
    now.processor += static_cast<double>(part.tv_sec) * 1e6 + static_cast<double>(part.tv_usec);
  return now;
}

template <class Call>
Cost measure(milliseconds pace, int count, Call call) {
  std::vector<double> times;
  const Usage before = usage();
  auto due = bench::Clock::now();
  for (int i = 0; i < count; ++i) {
    std::this_thread::sleep_until(due += pace);
    times.push_back(bench::timeOf(call) / 1000);
  }
  const Usage after = usage();
  const double processor = (after.processor - before.processor) / count;
  const double network = (after.network - before.network) / count;
  return {bench::median(times), processor, processor - network,
          static_cast<double>(after.wakeUps - before.wakeUps) / count};
}

std::string microseconds(double value) {
  return bench::timeText(value * 1000);
}

void printLimit(const std::string& what, const std::string& measured, double value, double limit,
                const std::string& goal) {
  bench::print(what, measured, bench::goalText(goal, value <= limit));
}

}  // namespace

int main(int argc, char** argv) {
  bench::installCollectingHost(argc, argv);
  for (int i = 0; i < 20; ++i) bench::trackWithProperties();  // connects
  std::this_thread::sleep_for(milliseconds(500));

  bench::HandoffReference reference;
  const auto refer = [&] { reference.call(); };
  const Cost slowReference = measure(milliseconds(100), 50, refer);
  const Cost slow = measure(milliseconds(100), 100, bench::trackWithProperties);
  bench::printRatio("one call every 100 ms: the caller", microseconds(slow.caller),
                    microseconds(slowReference.caller), slow.caller / slowReference.caller, 2);
  printLimit("the same: wake-ups of the work queue an event", fmt::format("{:.2f}", slow.wakeUps),
             slow.wakeUps, 0.3, "at most 0.3, uploads aside");
  const double own = slow.own - slowReference.processor;
  printLimit("the same: processor time an event, uploads and the reference's aside",
             microseconds(std::max(own, 0.0)), own, 40, "at most 40 µs");
  const Cost steady = measure(milliseconds(20), 500, bench::trackWithProperties);
  printLimit("one call every 20 ms: processor time an event in all", microseconds(steady.processor),
             steady.processor, 150, "at most 150 µs");
  const Cost quick = measure(milliseconds(15), 500, bench::trackWithProperties);
  printLimit("one call every 15 ms: the caller", microseconds(quick.caller), quick.caller, 3,
             "at most 3 µs");
  std::_Exit(0);
}
