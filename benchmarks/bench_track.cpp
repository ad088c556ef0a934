// What `track` costs the thread that calls it, against handing a formatted line to an asynchronous
// spdlog logger: a queue of 8192 lines, one thread, callers that wait when the queue is full, and a
// sink that drops everything. What reading the clock takes of each time is taken off it.
#include <spdlog/async.h>
#include <spdlog/sinks/base_sink.h>

#include <barrier>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <optional>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include "benchmarks/bench_platform.h"
#include "benchmarks/figures.h"
#include "benchmarks/scripted_url_session.h"
#include "veltrano/veltrano.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kBurst = 2000;  // calls until both sides may catch up
constexpr std::chrono::microseconds kPace{20};

struct Load {
  int threads = 1;
  bool isPaced = false;
  std::size_t bursts = 10;
};

// Both percentiles of the times of single calls, in nanoseconds.
struct Times {
  double median = 0;
  double p99 = 0;
};

double nanosecondsBetween(Clock::time_point before, Clock::time_point after) {
  return std::chrono::duration<double, std::nano>(after - before).count();
}

// What a call that does nothing would seem to take.
double clockCost() {
  static const double cost = [] {
    std::vector<double> times(100'000);
    for (double& time : times) {
      const auto before = Clock::now();
      time = nanosecondsBetween(before, Clock::now());
    }
    return bench::median(times);
  }();
  return cost;
}

void waitUntil(Clock::time_point due) {
  while (Clock::now() < due) {
  }
}

// The burst is shared out among the threads. Before the next one, `drain` lets the other side catch
// up, so that what is measured is not how a backlog grows.
template <class Call, class Drain>
Times measure(const Load& load, Call call, Drain drain) {
  const std::size_t share = kBurst / static_cast<std::size_t>(load.threads);
  std::vector<std::vector<double>> times(static_cast<std::size_t>(load.threads));
  for (auto& own : times) own.reserve(load.bursts * share);

  std::barrier burstEnd(load.threads, [&]() noexcept { drain(); });
  const auto makeCalls = [&](std::vector<double>& own) {
    for (std::size_t burst = 0; burst < load.bursts; ++burst) {
      Clock::time_point due = Clock::now();
      for (std::size_t i = 0; i < share; ++i) {
        if (load.isPaced) waitUntil(due += kPace);
        const auto before = Clock::now();
        call();
        const auto after = Clock::now();
        own.push_back(nanosecondsBetween(before, after));
      }
      burstEnd.arrive_and_wait();
    }
  };
  std::vector<std::thread> callers;
  callers.reserve(times.size());
  for (auto& own : times) callers.emplace_back(makeCalls, std::ref(own));
  for (auto& caller : callers) caller.join();

  std::vector<double> all;
  for (const auto& own : times) all.insert(all.end(), own.begin(), own.end());
  return {bench::percentile(all, 0.5) - clockCost(), bench::percentile(all, 0.99) - clockCost()};
}

// Drops lines, and says when it is flushed.
class NullSink final : public spdlog::sinks::base_sink<std::mutex> {
 public:
  std::counting_semaphore<> flushed{0};

 private:
  void sink_it_(const spdlog::details::log_msg&) override {}
  void flush_() override { flushed.release(); }
};

class Logger {
 public:
  void line() {
    logger_->info("Bought plan={} items={} price={} first={} store={}", "pro", 3, 9.5, true,
                  "north");
  }

  void drain() {
    logger_->flush();
    sink_->flushed.acquire();
  }

 private:
  const std::shared_ptr<NullSink> sink_ = std::make_shared<NullSink>();
  const std::shared_ptr<spdlog::details::thread_pool> pool_ =
      std::make_shared<spdlog::details::thread_pool>(8192, 1);
  const std::shared_ptr<spdlog::async_logger> logger_ = std::make_shared<spdlog::async_logger>(
      "events", sink_, pool_, spdlog::async_overflow_policy::block);
};

class Comparison {
 public:
  explicit Comparison(int rounds) : rounds_(rounds) {}

  struct Goals {
    std::optional<double> median;
    std::optional<double> p99;
  };

  // The two sides take turns, and each ratio is of neighbouring turns: what slows the machine down
  // for a while slows both.
  template <class Call>
  void run(const std::string& what, const Load& load, Call call, Goals goals) {
    std::vector<double> medians, p99s, loggerMedians, loggerP99s, medianRatios, p99Ratios;
    for (int round = -1; round < rounds_; ++round) {
      const Times own = measure(load, call, bench::drainTracker);
      // Until the work queue's thread sleeps.
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      const Times other = measure(
          load, [this] { logger_.line(); }, [this] { logger_.drain(); });
      if (round < 0) continue;  // for warming up
      medians.push_back(own.median);
      p99s.push_back(own.p99);
      loggerMedians.push_back(other.median);
      loggerP99s.push_back(other.p99);
      medianRatios.push_back(own.median / other.median);
      p99Ratios.push_back(own.p99 / other.p99);
    }
    bench::printRatio(what + ": median", bench::timeText(bench::median(medians)),
                      bench::timeText(bench::median(loggerMedians)), bench::median(medianRatios),
                      goals.median);
    bench::printRatio(what + ": 99th percentile", bench::timeText(bench::median(p99s)),
                      bench::timeText(bench::median(loggerP99s)), bench::median(p99Ratios),
                      goals.p99);
  }

 private:
  const int rounds_;
  Logger logger_;
};

void trackWithProperties() {
  Veltrano::shared().track(
      "Bought",
      {{"plan", "pro"}, {"items", 3}, {"price", 9.5}, {"first", true}, {"store", "north"}});
}

void trackWithoutProperties() {
  Veltrano::shared().track("Bought");
}

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::atoi(argv[1]) : 15;
  auto& session = *new bench::ScriptedURLSession(bench::ScriptedURLSession::Answer::accept);
  bench::installBenchPlatform(session);
  Comparison comparison(rounds);

  const Load backToBack;
  const Load fourThreads{.threads = 4};
  const Load paced{.isPaced = true, .bursts = 4};
  comparison.run("`track`, 5 properties, back to back, 1 thread", backToBack, trackWithProperties,
                 {0.5, 0.25});
  comparison.run("`track`, 5 properties, back to back, 4 threads", fourThreads, trackWithProperties,
                 {0.25, {}});
  comparison.run("`track`, 5 properties, one call every 20 µs", paced, trackWithProperties,
                 {0.04, {}});
  comparison.run("`track`, no properties, back to back, 1 thread", backToBack,
                 trackWithoutProperties, {});
  comparison.run("`track`, no properties, one call every 20 µs", paced, trackWithoutProperties, {});
  Veltrano::isLoggerEnabled = true;
  comparison.run("`track`, 5 properties, log on, back to back, 1 thread", backToBack,
                 trackWithProperties, {});
  comparison.run("`track`, 5 properties, log on, one call every 20 µs", paced, trackWithProperties,
                 {});
  std::_Exit(0);
}
