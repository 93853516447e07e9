// QC report data: 100 ms curves, per-channel levels, and the mapping of a run to a report.
#include "qc_report.h"

#include <algorithm>
#include <cmath>

#include "kvaudio/r128.h"
#include "targets.h"
#include "tool.h"

namespace kvtool {

struct ReportCollector::Meters {
  std::vector<kvAudioLoudness *> perChannel;
  std::vector<float> plane;
  ~Meters() {
    for (kvAudioLoudness *m : perChannel) kvAudioLoudnessClose(m);
  }
};

ReportCollector::ReportCollector(uint32_t rate, uint32_t channels, uint32_t bits, bool channelMeters)
    : rate_(rate), channels_(channels), bits_(bits), power_(channels), meters_(std::make_unique<Meters>()) {
  this->channels.resize(channels);
  for (uint32_t c = 0; channelMeters && c < channels; ++c) {
    kvAudioLoudness *m = kvAudioLoudnessOpen(rate, 1, KVAUDIO_LOUDNESS_INTEGRATED | KVAUDIO_LOUDNESS_TRUE_PEAK);
    if (!m) throw ToolError("a loudness meter for the report cannot be opened");
    meters_->perChannel.push_back(m);
  }
}

ReportCollector::~ReportCollector() = default;

void ReportCollector::Add(const uint8_t *pcm, uint32_t frames, const kvaudqcFrameAnalyze &a) {
  for (uint32_t c = 0; c < channels_ && c < 32; ++c) {
    channels[c].peak = std::max(channels[c].peak, a.peakDb[c]);
    if (a.rmsDb[c] > -199.0) power_[c] += std::pow(10.0, a.rmsDb[c] / 10) * frames;
  }
  // The channel meters take one plane of float samples each.
  const double scale = bits_ == 16 ? 1.0 / 32768.0 : 1.0 / 2147483648.0;
  std::vector<float> &plane = meters_->plane;
  plane.resize(frames);
  for (size_t c = 0; c < meters_->perChannel.size(); ++c) {
    for (uint32_t i = 0; i < frames; ++i) {
      size_t at = size_t(i) * channels_ + c;
      plane[i] = float(bits_ == 16 ? reinterpret_cast<const int16_t *>(pcm)[at] * scale
                                   : reinterpret_cast<const int32_t *>(pcm)[at] * scale);
    }
    const float *planes[1] = {plane.data()};
    kvAudioLoudnessAddPlanar(meters_->perChannel[c], planes, frames);
  }
  // The frame's readings go to every 100 ms step that ends inside it; its peak to the step it ends in.
  uint64_t before = done_;
  done_ += frames;
  size_t steps = size_t(done_ * 10 / rate_);
  double framePeak = -200;
  for (uint32_t c = 0; c < channels_ && c < 32; ++c) framePeak = std::max(framePeak, a.peakDb[c]);
  size_t current = size_t(before * 10 / rate_);
  if (peak.size() <= current) peak.resize(current + 1, -200);
  peak[current] = std::max(peak[current], framePeak);
  while (momentary.size() < steps) {
    momentary.push_back(a.momentary);
    shortTerm.push_back(a.shortTerm);
  }
}

bool ReportCollector::Metered() const { return !meters_->perChannel.empty(); }

void ReportCollector::Finish() {
  if (peak.size() > momentary.size() + 1) peak.resize(momentary.size() + 1);
  for (uint32_t c = 0; c < channels_; ++c) {
    double mean = done_ ? power_[c] / double(done_) : 0;
    channels[c].rms = mean > 0 ? 10 * std::log10(mean) : -200;
    if (c >= meters_->perChannel.size()) continue;
    kvAudioLoudnessReading r{};
    r.size = sizeof(r);
    if (kvAudioLoudnessRead(meters_->perChannel[c], &r) == KVAUDIO_LOUDNESS_OK) {
      channels[c].truePeak = r.channelTruePeak[0];
      channels[c].loudness = r.integrated;
    }
  }
}

ReportData QcReport(const QcResult &r, const QcSettings &s, const ReportCollector &collector,
                    const std::string &file, const std::string &format, double seconds) {
  const kvaudqcReport &rep = r.report;
  ReportData d;
  d.file = file;
  d.format = format;
  d.layout = s.layout;
  d.startTimecode = FormatTimecode(s.startFrame, s.fps);
  d.fps = s.fps.name;
  d.rate = s.rate;
  d.channels = s.channels;
  d.seconds = seconds;
  d.passed = rep.passed != 0;
  for (const std::string &v : ViolationNames(rep.violations)) d.reasons.push_back(v);
  if (rep.totalEvents)
    d.reasons.push_back(std::to_string(rep.totalEvents) + (rep.totalEvents == 1 ? " event" : " events"));
  kvaudqcTargets t{};
  if (rep.standard) {
    t = TargetsFor(rep.standard);
    d.standard = TargetsText(t);
    d.target = t.target;
    d.tolerance = t.tolerance;
    d.truePeakMax = t.truePeakMax;
  }
  auto target = [&](double v, const char *suffix) {
    return rep.standard ? LevelText(v, 1) + suffix : std::string();
  };
  const uint32_t v = rep.violations;
  d.figures = {
      {"integrated", "LUFS", rep.integrated,
       rep.standard ? LevelText(t.target, 1) + " \xC2\xB1" + LevelText(t.tolerance, 1) + " LUFS" : "", !(v & 3)},
      {"loudness range", "LU", rep.range, rep.standard && t.rangeMax > 0 ? "\xE2\x89\xA4 " + target(t.rangeMax, " LU") : "",
       !(v & 8)},
      {"true peak", "dBTP", rep.truePeak, rep.standard ? "\xE2\x89\xA4 " + target(t.truePeakMax, " dBTP") : "", !(v & 4)},
      {"max momentary", "LUFS", rep.maxMomentary, "", !(v & 16)},
      {"max short-term", "LUFS", rep.maxShortTerm, "", !(v & 32)},
  };
  d.momentary = collector.momentary;
  d.shortTerm = collector.shortTerm;
  d.peak = collector.peak;
  d.perChannel = collector.channels;
  d.channelMeters = collector.Metered();
  for (const kvaudqcEvent &e : r.events)
    d.events.push_back(ReportEvent{e.rule, RuleName(e.rule), FormatTimecode(s.startFrame + e.startA, s.fps),
                                   FormatTimecode(s.startFrame + e.endA, s.fps), double(e.startB) / s.rate,
                                   double(e.endB) / s.rate, e.frames, ChannelText(e.channelMask), e.maxValue});
  return d;
}

IndexEntry QcIndexEntry(const QcResult &r, const std::string &file, const std::string &link) {
  const kvaudqcReport &rep = r.report;
  IndexEntry e;
  e.file = file;
  e.link = link;
  e.passed = rep.passed != 0;
  e.integrated = rep.integrated;
  e.range = rep.range;
  e.truePeak = rep.truePeak;
  e.events = rep.totalEvents;
  for (uint32_t rule = 1; rule <= 18; ++rule)
    if (rep.eventsPerRule[rule - 1]) e.perRule.emplace_back(RuleName(rule), rep.eventsPerRule[rule - 1]);
  return e;
}

}  // namespace kvtool
