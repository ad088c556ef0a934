// Formats figures and prints the rows of the table.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace bench {

using Clock = std::chrono::steady_clock;

/// The nanoseconds that `work` takes.
template <class Work>
double timeOf(Work&& work) {
  const auto start = Clock::now();
  work();
  return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

/// The percentile at `share`: 0.5 is the median. Interpolates between the ticks of a coarse clock.
/// `values` must not be empty.
double percentile(std::vector<double> values, double share);

inline double median(std::vector<double> values) {
  return percentile(std::move(values), 0.5);
}

/// With three digits and a suitable unit.
std::string timeText(double nanoseconds);
std::string sizeText(double bytes);

/// Prints one row of the table, as Markdown.
void print(const std::string& what, const std::string& measured, const std::string& goal,
           const std::string& reference = "", const std::string& ratio = "");

/// A row whose goal is a ratio of at most `atMost`; without one, `otherGoal` is printed.
void printRatio(const std::string& what, const std::string& measured, const std::string& reference,
                double ratio, std::optional<double> atMost = std::nullopt,
                const std::string& otherGoal = "reported");

/// Times measured alternately with a reference. Ratios are taken of adjacent turns, because
/// whatever slows the machine down slows both.
class Turns {
 public:
  void add(double time, double reference);

  /// Prints a row with the medians, in nanoseconds, and the median of the ratios. The goal is a
  /// ratio or a time.
  void print(const std::string& what, const std::string& referenceName,
             std::optional<double> atMost,
             std::optional<double> atMostNanoseconds = std::nullopt) const;

 private:
  std::vector<double> times_, references_, ratios_;
};

/// `goal`, marked if it was missed.
std::string goalText(const std::string& goal, bool isMet);

}  // namespace bench
