// Measures what `track` costs the calling thread, one call after the other, in a host that links
// the shared library: `scripts/with-collector veltrano-collector -- bench_track [ROUNDS]`. The
// references are handing a formatted line to an asynchronous spdlog logger (a queue of 8192 lines
// that blocks when full, one thread, a sink that drops everything), and a hand-off: a clock, a copy
// and an exchange.
#include <spdlog/async.h>
#include <spdlog/sinks/base_sink.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include "bench/bought.h"
#include "benchmarks/call_times.h"
#include "benchmarks/figures.h"
#include "benchmarks/handoff_reference.h"
#include "benchmarks/host.h"
#include "veltrano/veltrano.h"
#include "veltrano/veltrano_c.h"

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

struct Goal {
  double bench::CallTimes::*statistic;
  enum Reference { logger, handoff, other } reference;
  std::optional<double> atMost;
  std::optional<double> atMostNanoseconds = {};
  bench::Turns turns = {};
};

class Comparison {
 public:
  explicit Comparison(int rounds) : rounds_(rounds) {}

  /// Prints a row for each goal. `other` is another way to make the same call.
  template <class Call>
  void run(const std::string& what, const bench::Load& load, Call call, std::vector<Goal> goals,
           const std::string& otherName = "", const std::function<void()>& other = nullptr) {
    for (int round = -1; round < rounds_; ++round) {
      const bench::CallTimes own = bench::timeCalls(load, call, bench::drain);
      // Long enough for the work queue's thread to fall asleep.
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      bench::CallTimes references[3];
      if (isNeeded(Goal::logger, goals))
        references[Goal::logger] = bench::timeCalls(
            load, [&] { logger_.call(); }, [&] { logger_.drain(); });
      if (isNeeded(Goal::handoff, goals))
        references[Goal::handoff] = bench::timeCalls(
            load, [&] { handoff_.call(); }, [] {});
      if (isNeeded(Goal::other, goals))
        references[Goal::other] = bench::timeCalls({}, other, bench::drain);
      if (round < 0) continue;  // warm-up
      for (Goal& goal : goals)
        goal.turns.add(own.*goal.statistic, references[goal.reference].*goal.statistic);
    }
    const std::string names[] = {"spdlog", "hand-off", otherName};
    for (const Goal& goal : goals)
      goal.turns.print(what + ": " + nameOf(goal.statistic), names[goal.reference], goal.atMost,
                       goal.atMostNanoseconds);
  }

 private:
  static bool isNeeded(Goal::Reference reference, const std::vector<Goal>& goals) {
    return std::any_of(goals.begin(), goals.end(),
                       [&](const Goal& goal) { return goal.reference == reference; });
  }
  static const char* nameOf(double bench::CallTimes::*statistic) {
    return statistic == &bench::CallTimes::median ? "median"
           : statistic == &bench::CallTimes::p99  ? "99th percentile"
                                                  : "99.9th percentile";
  }

  const int rounds_;
  Logger logger_;
  bench::HandoffReference handoff_;
};

void trackTyped() {
  bench::track(
      bench::Bought{.plan = "pro", .items = 3, .price = 9.5, .first = true, .store = "north"});
}

void trackWithoutProperties() {
  Veltrano::shared().track("Bought");
}

void trackWithMap() {
  Veltrano::shared().track("Bought", {{"address", {{"city", "Oslo"}, {"zip", 150}}}});
}

void trackWithTwentyProperties() {
  Veltrano::shared().track(
      "Bought",
      {{"plan", "pro"},  {"items", 3},  {"price", 9.5},  {"first", true},  {"store", "north"},
       {"plan2", "pro"}, {"items2", 3}, {"price2", 9.5}, {"first2", true}, {"store2", "n"},
       {"plan3", "pro"}, {"items3", 3}, {"price3", 9.5}, {"first3", true}, {"store3", "n"},
       {"plan4", "pro"}, {"items4", 3}, {"price4", 9.5}, {"first4", true}, {"store4", "n"}});
}

void setProperties(veltrano_object* dictionary) {
  veltrano_dictionary_set_text(dictionary, "plan", "pro");
  veltrano_dictionary_set_int(dictionary, "items", 3);
  veltrano_dictionary_set_double(dictionary, "price", 9.5);
  veltrano_dictionary_set_bool(dictionary, "first", true);
  veltrano_dictionary_set_text(dictionary, "store", "north");
}

void trackNewDictionary() {
  veltrano_object* const properties = veltrano_dictionary();
  setProperties(properties);
  veltrano_track("Bought", properties, nullptr, nullptr);
  veltrano_release(properties);
}

void trackEntries() {
  const veltrano_entry properties[] = {{"plan", VELTRANO_TEXT, 0, {.text = "pro"}},
                                       {"items", VELTRANO_INT, 0, {.integer = 3}},
                                       {"price", VELTRANO_DOUBLE, 0, {.real = 9.5}},
                                       {"first", VELTRANO_BOOL, 0, {.boolean = true}},
                                       {"store", VELTRANO_TEXT, 0, {.text = "north"}}};
  veltrano_track_entries("Bought", properties, std::size(properties), sizeof *properties, nullptr,
                         nullptr);
}

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 3 ? std::atoi(argv[1]) : 40;
  bench::installCollectingHost(argc, argv);
  Comparison comparison(rounds);
  const veltrano::HostMap given{
      {"plan", "pro"}, {"items", 3}, {"price", 9.5}, {"first", true}, {"store", "north"}};
  const auto trackGiven = [&] { Veltrano::shared().track("Bought", given); };
  const std::map<std::string, int> map{{"first", 1}, {"items", 3}, {"plan", 7}, {"price", 9}};
  const auto trackStandardMap = [&] { Veltrano::shared().track("Bought", map); };
  veltrano_object* const dictionary = veltrano_dictionary();
  setProperties(dictionary);
  const auto trackDictionary = [&] { veltrano_track("Bought", dictionary, nullptr, nullptr); };

  const bench::Load one;
  const bench::Load fourThreads{.threads = 4};
  const bench::Load paced{.isPaced = true};
  const auto median = &bench::CallTimes::median;
  const auto p99 = &bench::CallTimes::p99;
  const auto p999 = &bench::CallTimes::p999;
  const auto handoff = Goal::handoff;
  const auto five = bench::trackWithProperties;
  comparison.run("`track`, 5 properties", one, five,
                 {{median, Goal::logger, {}},
                  {median, handoff, 1.65},
                  {p99, Goal::logger, 0.1},
                  {p999, Goal::logger, {}}});
  comparison.run("`track`, 20 properties", one, trackWithTwentyProperties,
                 {{median, handoff, 2.5}});
  comparison.run("`track`, 5 properties, 4 threads", fourThreads, five,
                 {{median, Goal::other, 1.3}}, "1 thread", five);
  comparison.run("`track`, 5 properties, 4 threads", fourThreads, five,
                 {{p99, Goal::logger, 0.05}});
  comparison.run("`track`, 5 properties, one call every 20 µs", paced, five,
                 {{median, handoff, {}}, {p99, Goal::logger, 0.1}});
  comparison.run("`track`, no properties", one, trackWithoutProperties, {{median, handoff, 1.5}});
  comparison.run("`track`, one property that is a map of two", one, trackWithMap,
                 {{median, handoff, 3}});
  comparison.run("`track`, 5 properties in a map built before", one, trackGiven,
                 {{median, handoff, 2}});
  comparison.run("`track`, a `std::map` of 4", one, trackStandardMap, {{median, handoff, {}}});
  comparison.run("`track` typed by a plan, 5 properties", one, trackTyped,
                 {{median, Goal::other, 1}}, "braced list", five);
  comparison.run("C: a dictionary of 5 built before", one, trackDictionary,
                 {{median, Goal::other, 1.3}}, "C++", trackGiven);
  comparison.run("C: a dictionary of 5 built, tracked and released", one, trackNewDictionary,
                 {{median, Goal::other, {}, 200}}, "C++", five);
  comparison.run("C: 5 entries on the stack", one, trackEntries, {{median, Goal::other, 1.15}},
                 "C++", five);
  Veltrano::isLoggerEnabled = true;
  comparison.run("`track`, 5 properties, log on", one, five,
                 {{median, Goal::logger, {}}, {p99, Goal::logger, {}}});
  std::_Exit(0);
}
