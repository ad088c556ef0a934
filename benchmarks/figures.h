// Figures and the rows of the table that they make.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace bench {

using Clock = std::chrono::steady_clock;

/// How many nanoseconds `work` takes.
template <class Work>
double timeOf(Work&& work) {
  const auto start = Clock::now();
  work();
  return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

/// The value that a `share` of all values is at most: 0.5 for the median. Between the steps of a
/// coarse clock it is interpolated. `values` is not empty.
double percentile(std::vector<double> values, double share);

inline double median(std::vector<double> values) {
  return percentile(std::move(values), 0.5);
}

/// With a unit that suits it, and three digits.
std::string timeText(double nanoseconds);
std::string sizeText(double bytes);

/// One row of the table, a line of Markdown on the standard output. What is not there stays empty.
struct Row {
  std::string what;
  std::string measured;
  std::string reference;
  std::string ratio;
  std::string goal;
};
void print(const Row& row);

/// A row whose goal is that the ratio be no more than `atMost`; without one it is just reported.
void printRatio(const std::string& what, const std::string& measured, const std::string& reference,
                double ratio, std::optional<double> atMost = std::nullopt);

/// Times that were measured in turns with a reference. Each ratio is of neighbouring turns: what
/// slows the machine down for a while slows both.
class Turns {
 public:
  void add(double time, double reference);

  /// A row of the medians, in nanoseconds, and of the ratios' median.
  void print(const std::string& what, const std::string& referenceName,
             std::optional<double> atMost) const;

 private:
  std::vector<double> times_, references_, ratios_;
};

/// The text of a goal, and whether it was met.
std::string goalText(const std::string& goal, bool isMet);

}  // namespace bench
