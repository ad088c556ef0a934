// Measures what `track` costs the calling thread, against two references: handing a formatted line
// to an asynchronous spdlog logger (a queue of 8192 lines that blocks when full, one thread, a sink
// that drops everything), and the floor, the least work that such a call can do.
#include <spdlog/async.h>
#include <spdlog/sinks/base_sink.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <optional>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include "bench/bought.h"
#include "benchmarks/bench_platform.h"
#include "benchmarks/call_times.h"
#include "benchmarks/figures.h"
#include "benchmarks/scripted_url_session.h"
#include "veltrano/veltrano.h"

namespace {

// Drops lines and signals when it is flushed.
class NullSink final : public spdlog::sinks::base_sink<std::mutex> {
 public:
  std::counting_semaphore<> flushed{0};

 private:
  void sink_it_(const spdlog::details::log_msg&) override {}
  void flush_() override { flushed.release(); }
};

class Logger {
 public:
  void call() {
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

// Reads the clock, copies as many bytes as a call with five properties to memory that no recent
// call has written, and does one atomic exchange. Not thread-safe.
class Floor {
 public:
  void call() {
    record_.time = std::chrono::system_clock::now();
    place_ = place_ + 1 < ring_.size() ? place_ + 1 : 0;
    ring_[place_] = record_;
    newest_.exchange(&ring_[place_], std::memory_order_acq_rel);
  }

  void drain() {}

 private:
  struct Record {
    std::chrono::system_clock::time_point time;
    std::array<char, 192> bytes = {};
  };
  static_assert(sizeof(Record) == 200);

  Record record_;
  std::vector<Record> ring_{4000};
  std::size_t place_ = 0;
  std::atomic<Record*> newest_ = nullptr;
};

struct Goal {
  double bench::CallTimes::*statistic;
  enum Reference { logger, floor } reference;
  std::optional<double> atMost;
  bench::Turns turns = {};
};

class Comparison {
 public:
  explicit Comparison(int rounds) : rounds_(rounds) {}

  template <class Call>
  void run(const std::string& what, const bench::Load& load, Call call, std::vector<Goal> goals) {
    for (int round = -1; round < rounds_; ++round) {
      const bench::CallTimes own = bench::timeCalls(load, call, bench::drainTracker);
      // Long enough for the work queue's thread to fall asleep.
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      bench::CallTimes references[2];
      if (isNeeded(Goal::logger, goals)) references[Goal::logger] = measureReference(load, logger_);
      if (isNeeded(Goal::floor, goals)) references[Goal::floor] = measureReference(load, floor_);
      if (round < 0) continue;  // warm-up
      for (Goal& goal : goals)
        goal.turns.add(own.*goal.statistic, references[goal.reference].*goal.statistic);
    }
    for (const Goal& goal : goals)
      goal.turns.print(
          what + (goal.statistic == &bench::CallTimes::p99 ? ": 99th percentile" : ": median"),
          goal.reference == Goal::logger ? "spdlog" : "floor", goal.atMost);
  }

 private:
  static bool isNeeded(Goal::Reference reference, const std::vector<Goal>& goals) {
    return std::any_of(goals.begin(), goals.end(),
                       [&](const Goal& goal) { return goal.reference == reference; });
  }

  template <class Side>
  static bench::CallTimes measureReference(const bench::Load& load, Side& side) {
    return bench::timeCalls(
        load, [&] { side.call(); }, [&] { side.drain(); });
  }

  const int rounds_;
  Logger logger_;
  Floor floor_;
};

void trackWithProperties() {
  Veltrano::shared().track(
      "Bought",
      {{"plan", "pro"}, {"items", 3}, {"price", 9.5}, {"first", true}, {"store", "north"}});
}

void trackTyped() {
  bench::track(
      bench::Bought{.plan = "pro", .items = 3, .price = 9.5, .first = true, .store = "north"});
}

void compareTypedCalls(int rounds) {
  bench::Turns turns;
  for (int round = -1; round < rounds; ++round) {
    const double typed = bench::timeCalls({}, trackTyped, bench::drainTracker).median;
    const double braced = bench::timeCalls({}, trackWithProperties, bench::drainTracker).median;
    if (round >= 0) turns.add(typed, braced);
  }
  turns.print("typed `track`, 5 properties, 1 thread: median", "braced list", 1);
}

void trackWithoutProperties() {
  Veltrano::shared().track("Bought");
}

void trackWithMap() {
  Veltrano::shared().track("Bought", {{"address", {{"city", "Oslo"}, {"zip", 150}}}});
}

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::atoi(argv[1]) : 40;
  auto& session = *new bench::ScriptedURLSession(bench::ScriptedURLSession::Answer::accept);
  bench::installBenchPlatform(session);
  Comparison comparison(rounds);
  const veltrano::HostMap properties{
      {"plan", "pro"}, {"items", 3}, {"price", 9.5}, {"first", true}, {"store", "north"}};
  const auto trackWithGivenProperties = [&] { Veltrano::shared().track("Bought", properties); };

  const bench::Load oneThread;
  const bench::Load fourThreads{.threads = 4};
  const bench::Load paced{.isPaced = true};
  const auto median = &bench::CallTimes::median;
  const auto p99 = &bench::CallTimes::p99;
  comparison.run(
      "`track`, 5 properties, 1 thread", oneThread, trackWithProperties,
      {{median, Goal::logger, 0.33}, {median, Goal::floor, 2}, {p99, Goal::logger, 0.1}});
  comparison.run("`track`, 5 properties, 4 threads", fourThreads, trackWithProperties,
                 {{median, Goal::logger, 0.3}, {p99, Goal::logger, 0.05}});
  comparison.run("`track`, 5 properties, one call every 20 µs", paced, trackWithProperties,
                 {{median, Goal::floor, 2.5}, {p99, Goal::logger, 0.1}});
  comparison.run("`track`, no properties, 1 thread", oneThread, trackWithoutProperties,
                 {{median, Goal::floor, 1.5}});
  comparison.run("`track`, one property that is a map of two, 1 thread", oneThread, trackWithMap,
                 {{median, Goal::floor, 3}});
  comparison.run("`track`, 5 properties in a map built before, 1 thread", oneThread,
                 trackWithGivenProperties, {{median, Goal::floor, 2}});
  compareTypedCalls(rounds);
  Veltrano::isLoggerEnabled = true;
  comparison.run("`track`, 5 properties, log on, 1 thread", oneThread, trackWithProperties,
                 {{median, Goal::logger, {}}, {p99, Goal::logger, {}}});
  std::_Exit(0);
}
