// Times single calls on the calling threads.
#pragma once

#include <barrier>
#include <chrono>
#include <cstddef>
#include <thread>
#include <vector>

#include "benchmarks/figures.h"

namespace bench {

constexpr int kBursts = 4;
constexpr std::chrono::microseconds kPace{20};

struct Load {
  int threads = 1;
  bool isPaced = false;
  std::size_t burst = 2000;  // calls before the other side may catch up
};

/// In nanoseconds, without the cost of reading the clock.
struct CallTimes {
  double median = 0;
  double p99 = 0;
  double p999 = 0;
};

/// The measured time of an empty call.
inline double clockCost() {
  static const double cost = [] {
    std::vector<double> times(100'000);
    for (double& time : times) time = timeOf([] {});
    return median(times);
  }();
  return cost;
}

/// Times each `call`, in bursts that the threads share. `drain` lets the other side catch up
/// between bursts, so that a growing backlog does not distort the times.
template <class Call, class Drain>
CallTimes timeCalls(const Load& load, Call call, Drain drain) {
  const std::size_t share = load.burst / static_cast<std::size_t>(load.threads);
  std::vector<std::vector<double>> times(static_cast<std::size_t>(load.threads));
  for (auto& own : times) own.reserve(kBursts * share);

  std::barrier burstEnd(load.threads, [&]() noexcept { drain(); });
  const auto makeCalls = [&](std::vector<double>& own) {
    for (int burst = 0; burst < kBursts; ++burst) {
      Clock::time_point due = Clock::now();
      for (std::size_t i = 0; i < share; ++i) {
        due += kPace;
        while (load.isPaced && Clock::now() < due) {
        }
        own.push_back(timeOf(call));
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
  return {percentile(all, 0.5) - clockCost(), percentile(all, 0.99) - clockCost(),
          percentile(all, 0.999) - clockCost()};
}

}  // namespace bench
