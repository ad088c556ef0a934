#include "benchmarks/figures.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace bench {

double percentile(std::vector<double> values, double share) {
  const auto rank = static_cast<std::size_t>(std::ceil(share * static_cast<double>(values.size())));
  const auto place =
      values.begin() + static_cast<std::ptrdiff_t>(std::max<std::size_t>(rank, 1)) - 1;
  std::nth_element(values.begin(), place, values.end());
  return *place;
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

void print(const Row& row) {
  fmt::print("| {} | {} | {} | {} | {} |\n", row.what, row.measured, row.reference, row.ratio,
             row.goal);
  std::fflush(stdout);
}

void printRatio(const std::string& what, const std::string& measured, const std::string& reference,
                double ratio, std::optional<double> atMost) {
  print({what, measured, reference, fmt::format("{:.{}f}", ratio, ratio < 0.1 ? 3 : 2),
         atMost ? goalText(fmt::format("at most {}", *atMost), ratio <= *atMost) : "reported"});
}

std::string goalText(const std::string& goal, bool isMet) {
  return goal + (isMet ? "" : " (**missed**)");
}

}  // namespace bench
