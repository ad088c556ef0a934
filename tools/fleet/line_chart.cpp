#include "tools/fleet/line_chart.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <ostream>
#include <span>

namespace fleet {
namespace {

constexpr double kWidth = 860, kHeight = 380;
constexpr double kLeft = 76, kRight = 840, kTop = 66, kBottom = 334;
constexpr double kLetter = 7;  // average width of a letter in the legend

std::string fixed(double value, int digits) {
  std::array<char, 48> buffer{};
  std::snprintf(buffer.data(), buffer.size(), "%.*f", digits, value);
  std::string text(buffer.data());
  if (text.find('.') != text.npos) {
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') text.pop_back();
  }
  return text == "-0" ? "0" : text;
}

struct Scale {
  double size;
  const char* name;
};

// Uses the largest scale that leaves at least 1. Scales are in ascending order.
std::string scaled(double value, std::span<const Scale> scales) {
  if (value == 0) return "0";
  Scale best = scales.front();
  for (const Scale& scale : scales)
    if (std::abs(value) >= scale.size * 0.9999) best = scale;
  return fixed(value / best.size, 3) + best.name;
}

std::string labelOf(double value, LineChart::Unit unit) {
  static constexpr Scale kNumbers[] = {{1, ""}, {1e3, " k"}, {1e6, " M"}, {1e9, " G"}};
  static constexpr Scale kBytes[] = {{1, " B"}, {1e3, " kB"}, {1e6, " MB"}, {1e9, " GB"}};
  static constexpr Scale kSeconds[] = {
      {1e-3, " ms"}, {1, " s"}, {60, " min"}, {3600, " h"}, {86'400, " d"}};
  switch (unit) {
    case LineChart::Unit::bytes:
      return scaled(value, kBytes);
    case LineChart::Unit::seconds:
      return scaled(value, kSeconds);
    default:
      return scaled(value, kNumbers);
  }
}

std::string timeLabel(double seconds) {
  const auto whole = std::lround(seconds);
  std::array<char, 48> text{};
  if (whole % 60 != 0)
    std::snprintf(text.data(), text.size(), "%ld:%02ld:%02ld", whole / 3600, whole / 60 % 60,
                  whole % 60);
  else
    std::snprintf(text.data(), text.size(), "%ld:%02ld", whole / 3600, whole / 60 % 60);
  return text.data();
}

// The range of an axis and its ticks.
struct Axis {
  double low = 0, high = 1;
  std::vector<double> ticks;
};

Axis linearAxis(double highest) {
  if (!(highest > 0)) highest = 1;
  const double power = std::pow(10, std::floor(std::log10(highest / 5)));
  double step = power;
  for (const double multiple : {2, 5, 10})
    if (highest / step > 6) step = multiple * power;
  Axis axis;
  const int steps = static_cast<int>(std::ceil(highest / step - 1e-9));
  axis.high = steps * step;
  for (int i = 0; i <= steps; ++i) axis.ticks.push_back(i * step);
  return axis;
}

Axis logarithmicAxis(double lowest, double highest) {
  if (!(lowest <= highest)) lowest = highest = 1;
  constexpr double kMarks[] = {1e-3, 1e-2,   0.1,    1,       10,     60,    600,
                               3600, 36'000, 86'400, 864'000, 8.64e6, 8.64e7};
  Axis axis;
  for (std::size_t i = 0; i + 1 < std::size(kMarks); ++i)
    if (kMarks[i + 1] > lowest && (kMarks[i] < highest || axis.ticks.empty()))
      axis.ticks.insert(axis.ticks.end(), {kMarks[i], kMarks[i + 1]});
  axis.ticks.erase(std::unique(axis.ticks.begin(), axis.ticks.end()), axis.ticks.end());
  axis.low = axis.ticks.front();
  axis.high = axis.ticks.back();
  return axis;
}

std::vector<double> timeTicks(double end) {
  constexpr double kMaxTicks = 12;
  double step = 86'400;
  for (const double candidate :
       {43'200, 21'600, 14'400, 10'800, 7200, 3600, 1800, 1200, 600, 300, 120, 60, 30, 10, 5, 2, 1})
    if (end / candidate <= kMaxTicks) step = candidate;
  std::vector<double> ticks;
  for (double at = 0; at <= end; at += step) ticks.push_back(at);
  return ticks;
}

class Writer {
 public:
  Writer(std::ostream& output, const LineChart& chart) : output_(output), chart_(chart) {
    double lowest = INFINITY, highest = -INFINITY;
    for (const auto& line : chart.lines)
      for (const double value : line.values) {
        if (!isDrawn(value)) continue;
        lowest = std::min(lowest, value);
        highest = std::max(highest, value);
      }
    axis_ = isLogarithmic_ ? logarithmicAxis(lowest, highest) : linearAxis(highest);
  }

  void write() {
    output_ << "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " << kWidth << ' '
            << kHeight << "\" font-family=\"Helvetica, Arial, sans-serif\" font-size=\"12\" "
            << "fill=\"#333\">\n"
            << "<rect width=\"100%\" height=\"100%\" fill=\"#fff\"/>\n";
    text(kLeft, 24, "start", chart_.title, " font-size=\"15\" font-weight=\"bold\"");
    shades();
    axes();
    for (const auto& line : chart_.lines) draw(line);
    legend();
    output_ << "</svg>\n";
  }

 private:
  bool isDrawn(double value) const {
    return std::isfinite(value) && !(isLogarithmic_ && value <= 0);
  }

  double x(double time) const { return kLeft + time / chart_.end * (kRight - kLeft); }

  double y(double value) const {
    const double share = isLogarithmic_
                             ? std::log(value / axis_.low) / std::log(axis_.high / axis_.low)
                             : (value - axis_.low) / (axis_.high - axis_.low);
    return kBottom - std::clamp(share, 0.0, 1.0) * (kBottom - kTop);
  }

  void text(double atX, double atY, const char* anchor, const std::string& what,
            const char* attributes = "") {
    output_ << "<text x=\"" << fixed(atX, 1) << "\" y=\"" << fixed(atY, 1) << "\" text-anchor=\""
            << anchor << '"' << attributes << '>';
    for (const char c : what) {
      if (c == '&' || c == '<')
        output_ << (c == '&' ? "&amp;" : "&lt;");
      else
        output_ << c;
    }
    output_ << "</text>\n";
  }

  void path(const std::string& points, const char* colour, double width) {
    output_ << "<path d=\"" << points << "\" fill=\"none\" stroke=\"" << colour
            << "\" stroke-width=\"" << width << "\" stroke-linejoin=\"round\"/>\n";
  }

  void shades() {
    for (const auto& [from, to] : chart_.shades) {
      const double left = x(from), right = x(std::min(to, chart_.end));
      if (left >= right) continue;
      output_ << "<rect x=\"" << fixed(left, 1) << "\" y=\"" << kTop << "\" width=\""
              << fixed(right - left, 1) << "\" height=\"" << kBottom - kTop
              << "\" fill=\"#fbe3d6\"/>\n";
    }
  }

  void axes() {
    for (const double value : axis_.ticks) {
      const std::string at = fixed(y(value), 1);
      path("M" + fixed(kLeft, 0) + ' ' + at + 'H' + fixed(kRight, 0), "#ddd", 1);
      text(kLeft - 8, y(value) + 4, "end", labelOf(value, chart_.unit));
    }
    for (const double time : timeTicks(chart_.end)) {
      path('M' + fixed(x(time), 1) + ' ' + fixed(kBottom, 0) + "v5", "#333", 1);
      text(x(time), kBottom + 19, "middle", timeLabel(time));
    }
    path('M' + fixed(kLeft, 0) + ' ' + fixed(kBottom, 0) + 'H' + fixed(kRight, 0), "#333", 1);
    text(kRight, kBottom + 38, "end", "time since the start, hours:minutes");
  }

  // A line with gaps is one path with several segments.
  void draw(const LineChart::Line& line) {
    std::string points;
    bool isDown = false;
    for (std::size_t i = 0; i < line.values.size(); ++i) {
      const bool isGap = !isDrawn(line.values[i]);
      if (!isGap) {
        points += isDown ? 'L' : 'M';
        points += fixed(x(chart_.times[i]), 1) + ' ' + fixed(y(line.values[i]), 1);
      }
      isDown = !isGap;
    }
    if (!points.empty()) path(points, line.colour.c_str(), 1.5);
  }

  void legend() {
    double at = kLeft;
    const auto entry = [&](const std::string& name, const char* colour, double thickness) {
      output_ << "<rect x=\"" << fixed(at, 1) << "\" y=\"" << fixed(44 - thickness / 2, 1)
              << "\" width=\"18\" height=\"" << thickness << "\" fill=\"" << colour << "\"/>\n";
      text(at + 24, 48, "start", name);
      at += 24 + kLetter * static_cast<double>(name.size()) + 18;
    };
    for (const auto& line : chart_.lines) entry(line.name, line.colour.c_str(), 3);
    if (!chart_.shades.empty()) entry(chart_.shadesName, "#fbe3d6", 12);
  }

  std::ostream& output_;
  const LineChart& chart_;
  const bool isLogarithmic_ = chart_.unit == LineChart::Unit::seconds;
  Axis axis_;
};

}  // namespace

void writeSVG(std::ostream& output, const LineChart& chart) {
  Writer(output, chart).write();
}

}  // namespace fleet
