#pragma once

#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

namespace fleet {

/// A line chart over time, in SVG. Seconds get a logarithmic axis, which omits values of 0 and
/// below.
struct LineChart {
  enum class Unit { number, bytes, seconds };
  struct Line {
    std::string name;
    std::string colour;
    std::vector<double> values = {};  // one per time; NaN leaves a gap
  };

  std::string title;
  Unit unit = Unit::number;
  double end = 1;  // of the time axis, which starts at 0; seconds
  std::vector<double> times = {};
  std::vector<Line> lines = {};
  std::vector<std::pair<double, double>> shades = {};  // highlighted spans of time
  std::string shadesName = {};
};

void writeSVG(std::ostream& output, const LineChart& chart);

}  // namespace fleet
