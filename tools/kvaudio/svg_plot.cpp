// SVG rendering of loudness curves and an event timeline.
#include "svg_plot.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "tool.h"

namespace kvtool {
namespace {

constexpr double kWidth = 960, kLeft = 70, kRight = 20, kTop = 40, kPlotHeight = 280;
constexpr double kLaneHeight = 20, kAxisGap = 40, kLegendHeight = 24;
constexpr double kTopLevel = 0.0, kBottomLevel = -60.0;  // LUFS range of the curve panel
constexpr size_t kMaxPoints = 3000;                       // per curve, after thinning


std::string Clock(double seconds) {
  long s = std::lround(seconds);
  char text[32];
  if (s >= 3600)
    std::snprintf(text, sizeof(text), "%ld:%02ld:%02ld", s / 3600, s / 60 % 60, s % 60);
  else if (s >= 60)
    std::snprintf(text, sizeof(text), "%ld:%02ld", s / 60, s % 60);
  else
    std::snprintf(text, sizeof(text), "%gs", seconds);
  return text;
}

// Tick spacing that gives at most ten ticks over the duration.
double TickStep(double duration) {
  static const double steps[] = {0.1, 0.2, 0.5, 1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200};
  for (double s : steps)
    if (duration / s <= 10) return s;
  return 14400;
}

// Keeps the loudest point of each bucket, so peaks survive the thinning.
std::vector<std::pair<double, double>> Thin(const std::vector<std::pair<double, double>> &points) {
  if (points.size() <= kMaxPoints) return points;
  std::vector<std::pair<double, double>> out;
  size_t bucket = (points.size() + kMaxPoints - 1) / kMaxPoints;
  for (size_t i = 0; i < points.size(); i += bucket) {
    auto end = points.begin() + std::min(points.size(), i + bucket);
    out.push_back(*std::max_element(points.begin() + i, end,
                                    [](auto &a, auto &b) { return a.second < b.second; }));
  }
  return out;
}

}  // namespace

std::string Escape(const std::string &text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      default: out += c;
    }
  }
  return out;
}

SvgPlot::SvgPlot(std::string title, double duration)
    : title_(std::move(title)), duration_(duration > 0 ? duration : 1.0) {}

void SvgPlot::AddCurve(const std::string &name, const std::string &color, double width,
                       std::vector<std::pair<double, double>> points) {
  curves_.push_back({name, color, width, Thin(points)});
}

void SvgPlot::AddLevel(const std::string &name, const std::string &color, double level) {
  lines_.push_back({name, color, level, level});
}

void SvgPlot::AddBand(const std::string &name, double low, double high) {
  lines_.push_back({name, "#2a9d8f", low, high});
}

void SvgPlot::AddEvent(const std::string &lane, double start, double end, const std::string &tooltip) {
  auto it = std::find(lanes_.begin(), lanes_.end(), lane);
  size_t index = size_t(it - lanes_.begin());
  if (it == lanes_.end()) lanes_.push_back(lane);
  events_.push_back({index, start, end, tooltip});
}

void SvgPlot::Write(const std::string &path) const {
  const double plotWidth = kWidth - kLeft - kRight;
  const double timelineTop = kTop + kPlotHeight + kAxisGap;
  const double height = timelineTop + lanes_.size() * kLaneHeight + kLegendHeight + 10;
  auto x = [&](double t) { return kLeft + plotWidth * std::clamp(t / duration_, 0.0, 1.0); };
  auto y = [&](double lufs) {
    double v = std::clamp(lufs, kBottomLevel, kTopLevel);
    return kTop + kPlotHeight * (kTopLevel - v) / (kTopLevel - kBottomLevel);
  };

  std::ostringstream svg;
  svg.setf(std::ios::fixed);
  svg.precision(1);
  svg << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << kWidth << "\" height=\"" << height
      << "\" viewBox=\"0 0 " << kWidth << ' ' << height << "\" font-family=\"sans-serif\" font-size=\"11\">\n"
      << "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n"
      << "<text x=\"" << kLeft << "\" y=\"22\" font-size=\"14\">" << Escape(title_) << "</text>\n";
  // Grid and axes of the curve panel.
  for (double level = kTopLevel; level >= kBottomLevel; level -= 10)
    svg << "<line x1=\"" << kLeft << "\" y1=\"" << y(level) << "\" x2=\"" << kLeft + plotWidth
        << "\" y2=\"" << y(level) << "\" stroke=\"#ddd\"/><text x=\"" << kLeft - 6 << "\" y=\""
        << y(level) + 4 << "\" text-anchor=\"end\">" << int(level) << "</text>\n";
  svg << "<text transform=\"translate(18," << kTop + kPlotHeight / 2 << ") rotate(-90)\" "
      << "text-anchor=\"middle\">LUFS</text>\n";
  const double step = TickStep(duration_);
  for (double t = 0; t <= duration_ + 1e-9; t += step)
    svg << "<line x1=\"" << x(t) << "\" y1=\"" << kTop << "\" x2=\"" << x(t) << "\" y2=\""
        << kTop + kPlotHeight << "\" stroke=\"#eee\"/><text x=\"" << x(t) << "\" y=\""
        << kTop + kPlotHeight + 16 << "\" text-anchor=\"middle\">" << Clock(t) << "</text>\n";
  svg << "<rect x=\"" << kLeft << "\" y=\"" << kTop << "\" width=\"" << plotWidth << "\" height=\""
      << kPlotHeight << "\" fill=\"none\" stroke=\"#888\"/>\n";
  // Target bands and level lines, then the curves.
  for (const Line &l : lines_) {
    if (l.low != l.high)
      svg << "<rect x=\"" << kLeft << "\" y=\"" << y(l.high) << "\" width=\"" << plotWidth
          << "\" height=\"" << y(l.low) - y(l.high) << "\" fill=\"" << l.color
          << "\" fill-opacity=\"0.15\"><title>" << Escape(l.name) << "</title></rect>\n";
    else
      svg << "<line x1=\"" << kLeft << "\" y1=\"" << y(l.low) << "\" x2=\"" << kLeft + plotWidth
          << "\" y2=\"" << y(l.low) << "\" stroke=\"" << l.color
          << "\" stroke-dasharray=\"6 4\"><title>" << Escape(l.name) << "</title></line>\n";
  }
  for (const Curve &c : curves_) {
    std::ostringstream d;
    d.setf(std::ios::fixed);
    d.precision(1);
    bool pen = false;
    for (const auto &[t, v] : c.points) {
      if (v <= -199.0 || !std::isfinite(v)) {
        pen = false;
        continue;
      }
      d << (pen ? 'L' : 'M') << x(t) << ',' << y(v) << ' ';
      pen = true;
    }
    svg << "<path d=\"" << d.str() << "\" fill=\"none\" stroke=\"" << c.color << "\" stroke-width=\""
        << c.width << "\"><title>" << Escape(c.name) << "</title></path>\n";
  }
  // Event timeline: one lane per rule.
  for (size_t i = 0; i < lanes_.size(); ++i) {
    double top = timelineTop + i * kLaneHeight;
    svg << "<text x=\"" << kLeft - 6 << "\" y=\"" << top + 14 << "\" text-anchor=\"end\">"
        << Escape(lanes_[i]) << "</text><rect x=\"" << kLeft << "\" y=\"" << top + 2 << "\" width=\""
        << plotWidth << "\" height=\"" << kLaneHeight - 4 << "\" fill=\"#f4f4f4\"/>\n";
  }
  for (const Event &e : events_) {
    double left = x(e.start), width = std::max(2.0, x(e.end) - left);
    svg << "<rect x=\"" << left << "\" y=\"" << timelineTop + e.lane * kLaneHeight + 2 << "\" width=\""
        << width << "\" height=\"" << kLaneHeight - 4 << "\" fill=\"#d62828\"><title>"
        << Escape(e.tooltip) << "</title></rect>\n";
  }
  // Legend.
  double lx = kLeft, ly = height - 12;
  auto legend = [&](const std::string &name, const std::string &color) {
    svg << "<rect x=\"" << lx << "\" y=\"" << ly - 9 << "\" width=\"14\" height=\"10\" fill=\"" << color
        << "\"/><text x=\"" << lx + 18 << "\" y=\"" << ly << "\">" << Escape(name) << "</text>\n";
    lx += 30 + 6.5 * name.size();
  };
  for (const Curve &c : curves_) legend(c.name, c.color);
  for (const Line &l : lines_) legend(l.name, l.color);
  if (!events_.empty()) legend("events", "#d62828");
  svg << "</svg>\n";

  std::ofstream out(path, std::ios::binary);
  out << svg.str();
  out.close();
  if (!out) throw FileError(path, "cannot write the plot");
}

}  // namespace kvtool
