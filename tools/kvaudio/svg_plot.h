// A small SVG writer: loudness curves over time above a timeline of QC events.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace kvtool {

// Text safe inside XML and HTML elements and attributes.
std::string Escape(const std::string &text);

class SvgPlot {
 public:
  // `duration` in seconds sets the time axis.
  SvgPlot(std::string title, double duration);

  // A curve of (seconds, LUFS) points; points at or below -199 (not measured) break the curve.
  void AddCurve(const std::string &name, const std::string &color, double width,
                std::vector<std::pair<double, double>> points);
  // A horizontal line at `level` LUFS across the whole time axis.
  void AddLevel(const std::string &name, const std::string &color, double level);
  // A shaded band between two levels (e.g. target +- tolerance).
  void AddBand(const std::string &name, double low, double high);
  // An event from `start` to `end` seconds on the timeline lane `lane` (one lane per name).
  void AddEvent(const std::string &lane, double start, double end, const std::string &tooltip);

  // Writes the document; throws a ToolError naming the path on failure.
  void Write(const std::string &path) const;

 private:
  struct Curve {
    std::string name, color;
    double width;
    std::vector<std::pair<double, double>> points;
  };
  struct Line {
    std::string name, color;
    double low, high;  // equal for a line
  };
  struct Event {
    size_t lane;
    double start, end;
    std::string tooltip;
  };

  std::string title_;
  double duration_;
  std::vector<Curve> curves_;
  std::vector<Line> lines_;
  std::vector<std::string> lanes_;
  std::vector<Event> events_;
};

}  // namespace kvtool
