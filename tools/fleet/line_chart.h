#pragma once

#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

namespace fleet {

/// Lines over time, as a picture in SVG. Seconds get a logarithmic axis, on which only values above
/// 0 are drawn.
struct LineChart {
  enum class Unit { number, bytes, seconds };
  struct Line {
    std::string name;
    std::string colour;
    std::vector<double> values = {};  // one for each time; NaN leaves a gap
  };

  std::string title;
  Unit unit = Unit::number;
  double end = 1;  // of the time shown, which starts at 0; seconds
  std::vector<double> times = {};
  std::vector<Line> lines = {};
  std::vector<std::pair<double, double>> shades = {};  // spans of time that stand out
  std::string shadesName = {};
};

void writeSVG(std::ostream& output, const LineChart& chart);

}  // namespace fleet
