// Self-contained HTML QC reports: one page per programme and an index page for a batch.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kvtool {

constexpr double kReportStep = 0.1;  // seconds between the points of the report's curves

// One event as the report shows it.
struct ReportEvent {
  uint32_t rule = 0;       // 1-18
  std::string name;        // rule name
  std::string in, out;     // timecode of the first and last frame
  double start = 0, end = 0;  // seconds from the start of the file
  uint32_t frames = 0;
  std::string channels;    // "1,2"
  double value = 0;
};

// A loudness figure beside its target; value -200 is "not measured", empty target "no target".
struct ReportFigure {
  std::string name, unit;
  double value = -200;
  std::string target;
  bool ok = true;
};

// Levels of one channel over the whole programme, dB; -200 for silence or not measured.
struct ReportChannel {
  double peak = -200, truePeak = -200, rms = -200, loudness = -200;
};

struct ReportData {
  std::string file, format, layout, startTimecode, fps, standard;
  uint32_t rate = 0, channels = 0;
  double seconds = 0;
  bool passed = false;
  std::vector<std::string> reasons;  // why it failed; empty when it passed
  std::vector<ReportFigure> figures;
  double target = -200, tolerance = 0, truePeakMax = -200;  // -200: the standard has none
  std::vector<double> momentary, shortTerm, peak;  // one value per kReportStep, -200 none
  std::vector<ReportEvent> events;
  std::vector<ReportChannel> perChannel;
  bool channelMeters = false;  // perChannel holds true peak and loudness
};

// One line of the batch index.
struct IndexEntry {
  std::string file, link, error;  // error: the file could not be analysed
  bool passed = false;
  double integrated = -200, range = 0, truePeak = -200;
  uint32_t events = 0;
  std::vector<std::pair<std::string, uint32_t>> perRule;
};

std::string HtmlReport(const ReportData &data);
std::string HtmlIndex(const std::vector<IndexEntry> &entries);
// Writes `text` to `path`; throws a ToolError naming the path on failure.
void WriteTextFile(const std::string &path, const std::string &text);

}  // namespace kvtool
