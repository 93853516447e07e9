// What a QC report needs beyond the engine's summary, gathered frame by frame, and its assembly.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "analyses.h"
#include "html_report.h"

namespace kvtool {

// Gathers the report's 100 ms curves and per-channel levels during a QC run. Peak and RMS come from
// the engine; with `channelMeters` one loudness meter per channel adds true peak and loudness (it
// roughly doubles the time of a run). Lives and dies on the run's thread.
class ReportCollector {
 public:
  ReportCollector(uint32_t rate, uint32_t channels, uint32_t bits, bool channelMeters);
  ~ReportCollector();
  ReportCollector(const ReportCollector &) = delete;
  ReportCollector &operator=(const ReportCollector &) = delete;
  // One video frame: its interleaved samples (16- or 32-bit as configured) and the engine's analysis.
  void Add(const uint8_t *pcm, uint32_t frames, const kvaudqcFrameAnalyze &analysis);
  // Closes the meters; the curves and channels are final.
  void Finish();
  bool Metered() const;

  std::vector<double> momentary, shortTerm, peak;  // one value per kReportStep
  std::vector<ReportChannel> channels;

 private:
  struct Meters;
  uint32_t rate_, channels_, bits_;
  uint64_t done_ = 0;
  std::vector<double> power_;  // sum of squares per channel, for the RMS
  std::unique_ptr<Meters> meters_;
};

// The report of one run; `format` and `seconds` describe the file.
ReportData QcReport(const QcResult &result, const QcSettings &settings, const ReportCollector &collector,
                    const std::string &file, const std::string &format, double seconds);
IndexEntry QcIndexEntry(const QcResult &result, const std::string &file, const std::string &link);

}  // namespace kvtool
