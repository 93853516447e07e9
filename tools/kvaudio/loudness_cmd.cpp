// kvaudio loudness: BS.1770-4 / R128 readings streamed from each file, the compatibility readings
// beside them, and violations of a delivery standard.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <future>
#include <memory>

#include "analyses.h"
#include "kvaudio/loudness.h"
#include "progress.h"
#include "svg_plot.h"
#include "targets.h"
#include "tool.h"

namespace kvtool {
namespace {

// The compatibility analysis holds the whole file; beyond this many bytes of samples it is skipped.
constexpr uint64_t kCompatAnalysisBytes = uint64_t{128} << 20;
constexpr double kNone = KVAUDIO_LOUDNESS_NONE;
constexpr size_t kBlockBytes = size_t{4} << 20;

// An initialised ebu_r128 record, released on scope exit.
class CompatMeter {
 public:
  CompatMeter(uint32_t bits, uint32_t channels, uint32_t rate, uint8_t mode, const kvaudqcLayout &layout) {
    if (ebu_r128_init(&m_, 1, uint8_t(bits), rate, mode, uint8_t(channels)) != EBU_R128_OK)
      throw ToolError("the compatibility meter cannot be set up for this file");
    // Layout weights are amplitude factors; the meter takes them as dB.
    if (layout.id != 0)
      for (uint32_t c = 0; c < channels; ++c) {
        double w = c < 32 ? layout.weights[c] : 0.0;
        ebu_r128_adjust_gain(&m_, uint8_t(c), w > 0 ? float(20.0 * std::log10(w)) : -INFINITY);
      }
  }
  ~CompatMeter() { ebu_r128_destroy(&m_); }
  CompatMeter(const CompatMeter &) = delete;
  CompatMeter &operator=(const CompatMeter &) = delete;

  // Feeds one step of at most 100 ms and keeps the highest reading.
  void Feed(const uint8_t *samples, size_t frames) {
    ebu_r128_process_samples(&m_, samples, frames);
    // A zeroed record reads 0.0 until a step with signal closes.
    if (m_.currentLoudness != 0.0f) measured_ = true;
    max_ = std::max(max_, Current());
  }
  double Current() const { return measured_ ? m_.currentLoudness : kNone; }
  double Max() const { return max_; }
  double Integrated() {
    ebu_r128_get_integrated_lufs(&m_);
    return m_.integratorCount && m_.integratedLoudness != 0.0f ? m_.integratedLoudness : kNone;
  }

 private:
  s_ebu_r128 m_{};
  bool measured_ = false;
  double max_ = kNone;
};

using MeterHandle = std::unique_ptr<kvAudioLoudness, void (*)(kvAudioLoudness *)>;

size_t SampleBytes(uint32_t format) { return format == KVAUDIO_SAMPLES_S16 ? 2 : 4; }

// Violation bits (as kvaudqcLoudness::violations) of the standard readings against `t`.
uint32_t Violations(const kvAudioLoudnessReading &m, const kvaudqcTargets &t) {
  if (!t.standard) return 0;
  uint32_t v = 0;
  if (t.tolerance > 0.0 && m.integrated > kNone) {
    if (m.integrated < t.target - t.tolerance) v |= 1;
    if (m.integrated > t.target + t.tolerance) v |= 2;
  }
  if (t.truePeakMax < 0.0 && m.truePeak > t.truePeakMax) v |= 4;
  if (t.rangeMax > 0.0 && m.loudnessRange > t.rangeMax) v |= 8;
  if (t.momentaryMax < 0.0 && m.momentaryMax > t.momentaryMax) v |= 16;
  if (t.shortTermMax < 0.0 && m.shortTermMax > t.shortTermMax) v |= 32;
  return v;
}

// Reads a whole file's blocks into the engine's format.
class FileBlocks : public PcmSource {
 public:
  FileBlocks(AudioReader &reader, uint32_t format) : reader_(reader), format_(format) {}
  size_t Read(uint8_t *out, size_t frames) override {
    if (format_ == KVAUDIO_SAMPLES_F32) return reader_.Read(reinterpret_cast<float *>(out), frames);
    if (format_ == KVAUDIO_SAMPLES_S32) return reader_.Read(reinterpret_cast<int32_t *>(out), frames);
    return reader_.Read(reinterpret_cast<int16_t *>(out), frames);
  }

 private:
  AudioReader &reader_;
  uint32_t format_;
};

struct LoudnessOptions {
  std::vector<std::string> files;
  std::string layout, plot, standard = "0";
  bool json = false;
  InputSelection input;
};

int RunLoudness(const LoudnessOptions &opt) {
  if (!opt.plot.empty() && opt.files.size() != 1) throw ToolError("--plot takes a single FILE");
  const kvaudqcTargets targets = TargetsFor(ParseStandard(opt.standard));
  int exitCode = kExitClean;
  Json reports = Json::array();
  for (const std::string &path : opt.files) {
    try {
      AudioReader reader(path, opt.input);
      reader.Require(KVAUDIO_LOUDNESS_MAX_CHANNELS, 8000, 192000);
      const AudioInfo &info = reader.info();
      kvaudqcLayout layout = LayoutFor(opt.layout, info.channels, path);
      LoudnessInput input;
      input.rate = info.rate;
      input.channels = info.channels;
      input.format = info.floating ? KVAUDIO_SAMPLES_F32 : info.Wide() ? KVAUDIO_SAMPLES_S32 : KVAUDIO_SAMPLES_S16;
      input.frames = info.frames;
      input.curves = !opt.plot.empty();
      Progress progress("loudness", info.frames, info.Seconds());
      FileBlocks blocks(reader, input.format);
      LoudnessResult result = MeasureLoudness(blocks, input, layout, targets, &progress);
      progress.Done();
      if (!result.violations.empty()) exitCode = std::max(exitCode, int(kExitFindings));
      if (!opt.plot.empty()) PlotLoudness(result, path, info.Seconds(), opt.plot);
      Json doc{{"file", path},          {"format", info.format}, {"input", info.taken},
               {"sampleRate", info.rate}, {"channels", info.channels},
               {"frames", info.frames},   {"duration", info.Seconds()},
               {"layout", layout.id ? Json{{"name", layout.name}, {"id", layout.id}} : Json()}};
      if (opt.json) {
        doc.update(LoudnessJson(result));
        reports.push_back(doc);
        continue;
      }
      std::printf("%s: %s, %u Hz, %s (%s), %s\n", path.c_str(), info.format.c_str(), info.rate,
                  ChannelsText(info.channels).c_str(), info.taken.c_str(), FormatSeconds(info.Seconds()).c_str());
      if (layout.id) std::printf("  Layout:               %s\n", layout.name);
      PrintLoudness(result);
    } catch (const ToolError &e) {
      // One bad file does not stop the others; it decides the exit code.
      std::fflush(stdout);
      std::fprintf(stderr, "kvaudio: %s\n", e.what());
      exitCode = kExitError;
      if (opt.json) reports.push_back(Json{{"file", path}, {"error", e.what()}});
    }
  }
  if (opt.json) PrintJson(Json{{"files", reports}});
  return exitCode;
}

Json PeakList(const double *db, uint32_t channels) {
  Json list = Json::array();
  for (uint32_t c = 0; c < channels; ++c) list.push_back(Level(db[c]));
  return list;
}

}  // namespace

LoudnessResult MeasureLoudness(PcmSource &source, const LoudnessInput &in, const kvaudqcLayout &layout,
                               const kvaudqcTargets &targets, Progress *progress) {
  LoudnessResult r;
  r.targets = targets;
  MeterHandle meter(kvAudioLoudnessOpen(in.rate, in.channels, KVAUDIO_LOUDNESS_ALL), kvAudioLoudnessClose);
  if (!meter) throw ToolError("the loudness meter cannot be set up for this file");
  if (layout.id && kvAudioLoudnessSetLayout(meter.get(), layout.name) != KVAUDIO_LOUDNESS_OK)
    throw ToolError(std::string("the loudness meter does not know the layout ") + layout.name);

  // The compatibility interfaces take 16- or 32-bit integers; float is converted for them.
  const uint32_t compatBits = in.format == KVAUDIO_SAMPLES_S16 ? 16 : 32;
  CompatMeter integrated(compatBits, in.channels, in.rate, 3, layout), momentary(compatBits, in.channels, in.rate, 1, layout),
      shortTerm(compatBits, in.channels, in.rate, 2, layout);
  const uint64_t analysisBytes = in.frames * in.channels * (compatBits / 8);
  CompatLoudness &compat = r.compat;
  Pcm whole;  // the compatibility analysis's copy of the file, when it is small enough
  const bool analyse = in.channels <= 32 && in.frames <= UINT32_MAX && analysisBytes <= kCompatAnalysisBytes;
  if (!analyse)
    compat.analysisSkipped = in.channels > 32 ? "more than 32 channels"
                                              : "the file's samples exceed 128 MiB; the analysis holds the whole file";
  whole.bits = compatBits;
  whole.channels = in.channels;
  if (analyse && compatBits == 16) whole.s16.reserve(in.frames * in.channels);
  if (analyse && compatBits == 32) whole.s32.reserve(in.frames * in.channels);

  // Blocks of whole 100 ms steps (the step of both meters' readings), up to 10 s or about 4 MiB.
  const size_t periodBytes = in.channels * SampleBytes(in.format);
  const size_t step = std::max<uint32_t>(1, in.rate / 10);
  const size_t block = step * std::clamp<size_t>(kBlockBytes / (step * periodBytes), 1, 100);
  std::vector<uint8_t> buffer(block * periodBytes);
  std::vector<int32_t> converted(in.format == KVAUDIO_SAMPLES_F32 ? block * in.channels : 0);
  const size_t compatPeriod = in.channels * (compatBits / 8);
  uint64_t done = 0, steps = 0;
  kvAudioLoudnessReading reading{};
  reading.size = sizeof reading;
  for (;;) {
    const size_t got = source.Read(buffer.data(), block);
    if (got == 0) break;
    const uint8_t *ints = buffer.data();
    if (!converted.empty()) {
      FloatToInt32(reinterpret_cast<const float *>(buffer.data()), got * in.channels, converted.data());
      ints = reinterpret_cast<const uint8_t *>(converted.data());
    }
    // The compatibility meters run on a second thread while the standard meter measures.
    auto compatJob = std::async(std::launch::async, [&] {
      for (size_t at = 0; at < got; at += step) {
        const size_t n = std::min(step, got - at);
        for (CompatMeter *m : {&integrated, &momentary, &shortTerm}) m->Feed(ints + at * compatPeriod, n);
      }
    });
    for (size_t at = 0; at < got; at += in.curves ? step : got) {
      const size_t n = in.curves ? std::min(step, got - at) : got;
      kvAudioLoudnessAdd(meter.get(), buffer.data() + at * periodBytes, in.format, n);
      if (!in.curves) continue;
      kvAudioLoudnessRead(meter.get(), &reading);
      if (reading.steps == steps) continue;
      steps = reading.steps;
      r.momentary.emplace_back(double(steps) / 10.0, reading.momentary);
      r.shortTerm.emplace_back(double(steps) / 10.0, reading.shortTerm);
    }
    compatJob.get();
    if (analyse) {
      std::vector<int16_t> &s16 = whole.s16;
      std::vector<int32_t> &s32 = whole.s32;
      if (compatBits == 16)
        s16.insert(s16.end(), reinterpret_cast<const int16_t *>(ints), reinterpret_cast<const int16_t *>(ints) + got * in.channels);
      else
        s32.insert(s32.end(), reinterpret_cast<const int32_t *>(ints), reinterpret_cast<const int32_t *>(ints) + got * in.channels);
    }
    done += got;
    if (progress) progress->Update(std::min(done, in.frames));
  }
  r.reading.size = sizeof r.reading;
  kvAudioLoudnessRead(meter.get(), &r.reading);

  compat.integrated = integrated.Integrated();
  compat.momentaryLast = momentary.Current();
  compat.momentaryMax = momentary.Max();
  compat.shortTermLast = shortTerm.Current();
  compat.shortTermMax = shortTerm.Max();
  if (analyse && done > 0) {
    const char *layoutName = layout.id ? layout.name : nullptr;
    const uint32_t frames = uint32_t(whole.Frames());
    compat.analysed = kvqcAudioAnalyzeLoudness(whole.At(0), frames, in.channels, compatBits, in.rate, layoutName,
                                               targets.standard, &compat.analysis) == KVQC_OK &&
                      kvqcAudioAnalyzeTruePeak(whole.At(0), frames, in.channels, compatBits, in.rate,
                                               layout.channelMask, &compat.peaks) == KVQC_OK;
    if (!compat.analysed) compat.analysisSkipped = "the analysis refused the audio";
  }
  r.violations = ViolationNames(Violations(r.reading, targets));
  return r;
}

Json LoudnessJson(const LoudnessResult &r) {
  const kvAudioLoudnessReading &m = r.reading;
  const CompatLoudness &c = r.compat;
  Json analysis;  // null when skipped
  if (c.analysed) {
    Json peaks = Json::array();
    for (uint32_t ch = 0; ch < c.peaks.channels; ++ch)
      peaks.push_back(c.peaks.channelMask >> ch & 1 ? Level(c.peaks.peakDb[ch]) : Json());
    analysis = Json{{"integrated", Level(c.analysis.integrated)},
                    {"momentary", Level(c.analysis.momentary)},
                    {"shortTerm", Level(c.analysis.shortTerm)},
                    {"range", c.analysis.range},
                    {"truePeak", Level(c.analysis.truePeak)},
                    {"channelPeaks", peaks}};
  }
  Json compat{{"meter", {{"integrated", Level(c.integrated)},
                         {"momentary", {{"last", Level(c.momentaryLast)}, {"max", Level(c.momentaryMax)}}},
                         {"shortTerm", {{"last", Level(c.shortTermLast)}, {"max", Level(c.shortTermMax)}}}}},
              {"analysis", analysis}};
  if (!c.analysed) compat["analysisSkipped"] = c.analysisSkipped;
  return Json{{"integrated", Level(m.integrated)},
              {"loudnessRange", m.loudnessRange},
              {"truePeak", Level(m.truePeak)},
              {"samplePeak", Level(m.samplePeak)},
              {"momentaryMax", Level(m.momentaryMax)},
              {"shortTermMax", Level(m.shortTermMax)},
              {"channelTruePeak", PeakList(m.channelTruePeak, m.channels)},
              {"channelSamplePeak", PeakList(m.channelSamplePeak, m.channels)},
              {"invalidSamples", m.invalidSamples},
              {"compat", compat},
              {"standard", r.targets.standard ? TargetsJson(r.targets) : Json()},
              {"violations", r.violations}};
}

void PrintLoudness(const LoudnessResult &r) {
  const kvAudioLoudnessReading &m = r.reading;
  std::printf("  Integrated loudness:  %s LUFS\n", LevelText(m.integrated).c_str());
  std::printf("  Loudness range:       %.1f LU\n", m.loudnessRange);
  std::printf("  True peak:            %s dBTP  (", LevelText(m.truePeak).c_str());
  for (uint32_t c = 0; c < m.channels; ++c) std::printf("%sch%u %s", c ? ", " : "", c + 1, LevelText(m.channelTruePeak[c]).c_str());
  std::printf(")\n");
  std::printf("  Max momentary:        %s LUFS\n", LevelText(m.momentaryMax).c_str());
  std::printf("  Max short-term:       %s LUFS\n", LevelText(m.shortTermMax).c_str());
  std::printf("  Sample peak:          %s dBFS\n", LevelText(m.samplePeak).c_str());
  if (m.invalidSamples) std::printf("  Invalid samples:      %llu (NaN or infinite, measured as 0)\n", (unsigned long long)m.invalidSamples);
  const CompatLoudness &c = r.compat;
  std::printf("  compatibility readings (not BS.1770; see docs/loudness.md)\n");
  std::printf("    ebu_r128 meter      integrated %s, max momentary %s, max short-term %s LUFS\n",
              LevelText(c.integrated).c_str(), LevelText(c.momentaryMax).c_str(), LevelText(c.shortTermMax).c_str());
  if (c.analysed)
    std::printf("    analysis            unweighted %s LUFS, range %.1f LU, peak %s dBFS\n",
                LevelText(c.analysis.integrated).c_str(), c.analysis.range, LevelText(c.analysis.truePeak).c_str());
  else
    std::printf("    analysis            skipped: %s\n", c.analysisSkipped.c_str());
  if (!r.targets.standard) return;
  std::printf("  %s\n    violations          ", TargetsText(r.targets).c_str());
  if (r.violations.empty()) std::printf("none");
  for (size_t i = 0; i < r.violations.size(); ++i) std::printf("%s%s", i ? ", " : "", r.violations[i].c_str());
  std::printf("\n");
}

void PlotLoudness(const LoudnessResult &r, const std::string &title, double seconds, const std::string &path) {
  SvgPlot plot("Loudness: " + title, seconds);
  if (r.targets.standard && r.targets.tolerance > 0)
    plot.AddBand("target", r.targets.target - r.targets.tolerance, r.targets.target + r.targets.tolerance);
  if (r.reading.integrated > kNone) plot.AddLevel("integrated", "#264653", r.reading.integrated);
  plot.AddCurve("momentary", "#8ecae6", 1.0, r.momentary);
  plot.AddCurve("short-term", "#e76f51", 2.0, r.shortTerm);
  plot.Write(path);
}

void AddLoudnessCommand(CLI::App &app, int *exitCode) {
  auto opt = std::make_shared<LoudnessOptions>();
  CLI::App *cmd = app.add_subcommand("loudness", "Loudness of audio files by BS.1770-4 / EBU R128: integrated, "
                                                 "loudness range, true peak, max momentary and short-term, "
                                                 "sample peak; compatibility readings; violations");
  cmd->add_option("FILE", opt->files, "audio or media files (WAV/BWF, FLAC, MXF, MOV/MP4, MKV, MPEG-TS ...)")->required();
  AddInputOptions(cmd, &opt->input);
  cmd->add_option("--layout", opt->layout, "channel layout: stereo1..stereo8, 5.1[-smpte|-protools|-aac|"
                                           "-dts], 7.1[-smpte|-protools|-ext|-dolby]");
  cmd->add_option("--standard", opt->standard, "delivery standard to check: " + StandardHelp() + " (default)");
  cmd->add_flag("--json", opt->json, "print JSON (see docs/cli.md)");
  cmd->add_option("--plot", opt->plot, "write momentary and short-term loudness over time as an SVG file "
                                       "(single FILE)");
  cmd->callback([opt, exitCode] { *exitCode = RunLoudness(*opt); });
}

}  // namespace kvtool
