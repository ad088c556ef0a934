#include "benchmarks/figures.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace bench {

double percentile(std::vector<double> values, double share) {
  std::sort(values.begin(), values.end());
  const double place = share * static_cast<double>(values.size());
  const auto rank = static_cast<std::size_t>(std::ceil(place));
  const double value = values[std::max<std::size_t>(rank, 1) - 1];
  // Equal values represent the interval up to halfway to their neighbours.
  const auto [first, last] = std::equal_range(values.begin(), values.end(), value);
  const double low = first == values.begin() ? value : (first[-1] + value) / 2;
  const double high = last == values.end() ? value : (value + *last) / 2;
  const double before = static_cast<double>(first - values.begin());
  return low + (high - low) * (place - before) / static_cast<double>(last - first);
}

std::string timeText(double nanoseconds) {
  if (nanoseconds < 1e3) return fmt::format("{:.0f} ns", nanoseconds);
  if (nanoseconds < 1e6) return fmt::format("{:.3g} µs", nanoseconds / 1e3);
  return fmt::format("{:.3g} ms", nanoseconds / 1e6);
}

std::string sizeText(double bytes) {
  if (bytes < 1e4) return fmt::format("{:.0f} bytes", bytes);
  if (bytes < 1e6) return fmt::format("{:.0f} KB", bytes / 1e3);
  return fmt::format("{:.0f} MB", bytes / 1e6);
}

void print(const std::string& what, const std::string& measured, const std::string& goal,
           const std::string& reference, const std::string& ratio) {
  fmt::print("| {} | {} | {} | {} | {} |\n", what, measured, reference, ratio, goal);
  std::fflush(stdout);
}

void printRatio(const std::string& what, const std::string& measured, const std::string& reference,
                double ratio, std::optional<double> atMost, const std::string& otherGoal) {
  const std::string printed = fmt::format("{:.{}f}", ratio, ratio < 0.1 ? 3 : 2);
  print(what, measured,
        atMost ? goalText(fmt::format("at most {}", *atMost), std::stod(printed) <= *atMost)
               : otherGoal,
        reference, printed);
}

void Turns::add(double time, double reference) {
  times_.push_back(time);
  references_.push_back(reference);
  ratios_.push_back(time / reference);
}

void Turns::print(const std::string& what, const std::string& referenceName,
                  std::optional<double> atMost, std::optional<double> atMostNanoseconds) const {
  const double time = median(times_);
  printRatio(what, timeText(time), timeText(median(references_)) + " (" + referenceName + ")",
             median(ratios_), atMost,
             atMostNanoseconds
                 ? goalText("at most " + timeText(*atMostNanoseconds), time <= *atMostNanoseconds)
                 : "reported");
}

std::string goalText(const std::string& goal, bool isMet) {
  return goal + (isMet ? "" : " (**missed**)");
}

}  // namespace bench
