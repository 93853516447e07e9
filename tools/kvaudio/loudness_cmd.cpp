// kvaudio loudness: R128 meter readings, the stand-alone analysis, true peak and violations.
#include <CLI/CLI.hpp>

#include <cmath>
#include <cstdio>
#include <functional>
#include <memory>
#include <thread>

#include "analyses.h"
#include "kvaudio/loudness.h"
#include "progress.h"
#include "svg_plot.h"
#include "targets.h"
#include "tool.h"

namespace kvtool {
namespace {

// An initialised meter record, released on scope exit.
class Meter {
 public:
  Meter(const Pcm &pcm, uint32_t rate, uint8_t mode, const kvaudqcLayout &layout) {
    if (ebu_r128_init(&m_, 1, uint8_t(pcm.bits), rate, mode, uint8_t(pcm.channels)) != EBU_R128_OK)
      throw ToolError("the loudness meter cannot be set up for this file");
    // Layout weights are amplitude factors; the meter takes them as dB.
    if (layout.id != 0)
      for (uint32_t c = 0; c < pcm.channels; ++c) {
        double w = layout.weights[c];
        ebu_r128_adjust_gain(&m_, uint8_t(c), w > 0 ? float(20.0 * std::log10(w)) : -INFINITY);
      }
  }
  ~Meter() { ebu_r128_destroy(&m_); }
  Meter(const Meter &) = delete;
  Meter &operator=(const Meter &) = delete;

  void Feed(const uint8_t *samples, size_t frames) {
    ebu_r128_process_samples(&m_, samples, frames);
    // A zeroed record reads 0.0 until a step with signal closes.
    if (m_.currentLoudness != 0.0f) measured_ = true;
  }
  double Current() const { return measured_ ? m_.currentLoudness : -200.0; }
  double Integrated() {
    ebu_r128_get_integrated_lufs(&m_);
    return m_.integratorCount && m_.integratedLoudness != 0.0f ? m_.integratedLoudness : -200.0;
  }

 private:
  s_ebu_r128 m_{};
  bool measured_ = false;
};

struct LoudnessOptions {
  std::vector<std::string> files;
  std::string layout, plot;
  uint32_t standard = 0;
  bool json = false;
};

int RunLoudness(const LoudnessOptions &opt) {
  if (!opt.plot.empty() && opt.files.size() != 1) throw ToolError("--plot takes a single FILE");
  const kvaudqcTargets targets = TargetsFor(opt.standard);
  int exitCode = kExitClean;
  Json reports = Json::array();
  for (const std::string &path : opt.files) {
    try {
      AudioReader reader(path);
      reader.Require(32, 8000);
      const AudioInfo &info = reader.info();
      if (info.frames > UINT32_MAX) throw FileError(path, "too long for one analysis");
      kvaudqcLayout layout = LayoutFor(opt.layout, info.channels, path);
      Progress progress("loudness", 2 * info.frames, info.Seconds());
      Pcm pcm = ReadPcm(reader, [&](uint64_t done) { progress.Update(done); });
      LoudnessResult result = MeasureLoudness(pcm, info.rate, layout, targets, &progress);
      progress.Done();
      if (!result.violations.empty()) exitCode = std::max(exitCode, int(kExitFindings));
      if (!opt.plot.empty()) PlotLoudness(result, path, info.Seconds(), opt.plot);
      Json doc{{"file", path},          {"format", info.format},
               {"sampleRate", info.rate}, {"channels", info.channels},
               {"frames", info.frames},   {"duration", info.Seconds()},
               {"layout", layout.id ? Json{{"name", layout.name}, {"id", layout.id}} : Json()}};
      if (opt.json) {
        doc.update(LoudnessJson(result));
        reports.push_back(doc);
        continue;
      }
      std::printf("%s: %s, %u Hz, %u channels, %s\n", path.c_str(), info.format.c_str(), info.rate,
                  info.channels, FormatSeconds(info.Seconds()).c_str());
      if (layout.id) std::printf("  layout                %s\n", layout.name);
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

// Feeds the whole buffer to a meter in 100 ms steps and keeps its reading after each.
void Sweep(Meter &meter, const Pcm &pcm, uint32_t rate, std::vector<std::pair<double, double>> *readings,
           Progress *progress) {
  const uint64_t frames = pcm.Frames();
  const size_t chunk = rate / 10;  // the short-term meter's step
  for (uint64_t at = 0; at < frames; at += chunk) {
    size_t n = size_t(std::min<uint64_t>(chunk, frames - at));
    meter.Feed(pcm.At(at), n);
    if (readings) readings->emplace_back(double(at + n) / rate, meter.Current());
    if (progress) progress->Update(frames + at + n);
  }
}

double Max(const std::vector<std::pair<double, double>> &readings) {
  double max = -200.0;
  for (const auto &r : readings) max = std::max(max, r.second);
  return max;
}

}  // namespace

LoudnessResult MeasureLoudness(const Pcm &pcm, uint32_t rate, const kvaudqcLayout &layout,
                               const kvaudqcTargets &targets, Progress *progress) {
  LoudnessResult r;
  r.targets = targets;
  const uint64_t frames = pcm.Frames();
  // The three meters filter the same samples independently: each runs on its own thread.
  Meter integrated(pcm, rate, 3, layout), momentary(pcm, rate, 1, layout), shortTerm(pcm, rate, 2, layout);
  std::thread integratedThread(Sweep, std::ref(integrated), std::cref(pcm), rate, nullptr, nullptr);
  std::thread momentaryThread(Sweep, std::ref(momentary), std::cref(pcm), rate, &r.momentary, nullptr);
  const char *layoutName = layout.id ? layout.name : nullptr;
  int32_t analysed = kvqcAudioAnalyzeLoudness(pcm.At(0), uint32_t(frames), pcm.channels, pcm.bits, rate,
                                              layoutName, targets.standard, &r.analysis);
  int32_t peaked = kvqcAudioAnalyzeTruePeak(pcm.At(0), uint32_t(frames), pcm.channels, pcm.bits, rate,
                                            layout.channelMask, &r.peaks);
  Sweep(shortTerm, pcm, rate, &r.shortTerm, progress);
  integratedThread.join();
  momentaryThread.join();
  if (analysed != KVQC_OK || peaked != KVQC_OK) throw ToolError("the loudness analysis refused the audio");

  r.integrated = integrated.Integrated();
  r.momentaryLast = momentary.Current();
  r.shortTermLast = shortTerm.Current();
  r.momentaryMax = Max(r.momentary);
  r.shortTermMax = Max(r.shortTerm);
  r.violations = ViolationNames(r.analysis.violations);
  // The meter's gated, K-weighted integrated loudness is held to the same target.
  if (targets.tolerance > 0 && r.integrated > -199.0) {
    if (r.integrated < targets.target - targets.tolerance) r.violations.push_back("meter-integrated-below-target");
    if (r.integrated > targets.target + targets.tolerance) r.violations.push_back("meter-integrated-above-target");
  }
  return r;
}

Json LoudnessJson(const LoudnessResult &r) {
  Json peaks = Json::array();
  for (uint32_t c = 0; c < r.peaks.channels; ++c)
    peaks.push_back(r.peaks.channelMask >> c & 1 ? Level(r.peaks.peakDb[c]) : Json());
  return Json{
      {"meter", {{"integrated", Level(r.integrated)},
                 {"momentary", {{"last", Level(r.momentaryLast)}, {"max", Level(r.momentaryMax)}}},
                 {"shortTerm", {{"last", Level(r.shortTermLast)}, {"max", Level(r.shortTermMax)}}}}},
      {"analysis", {{"integrated", Level(r.analysis.integrated)},
                    {"momentary", Level(r.analysis.momentary)},
                    {"shortTerm", Level(r.analysis.shortTerm)},
                    {"range", r.analysis.range},
                    {"truePeak", Level(r.analysis.truePeak)},
                    {"channelPeaks", peaks}}},
      {"standard", r.targets.standard ? TargetsJson(r.targets) : Json()},
      {"violations", r.violations}};
}

void PrintLoudness(const LoudnessResult &r) {
  std::printf("  R128 meter (BS.1770 K-weighted, gated)\n");
  std::printf("    integrated          %s LUFS\n", LevelText(r.integrated).c_str());
  std::printf("    momentary           last %s, max %s LUFS\n", LevelText(r.momentaryLast).c_str(),
              LevelText(r.momentaryMax).c_str());
  std::printf("    short-term          last %s, max %s LUFS\n", LevelText(r.shortTermLast).c_str(),
              LevelText(r.shortTermMax).c_str());
  std::printf("  analysis (unweighted, ungated)\n");
  std::printf("    integrated          %s LUFS\n", LevelText(r.analysis.integrated).c_str());
  std::printf("    momentary (400 ms)  %s LUFS\n", LevelText(r.analysis.momentary).c_str());
  std::printf("    short-term (3 s)    %s LUFS\n", LevelText(r.analysis.shortTerm).c_str());
  std::printf("    loudness range      %.1f LU\n", r.analysis.range);
  std::printf("    true peak           %s dBFS  (", LevelText(r.analysis.truePeak).c_str());
  for (uint32_t c = 0; c < r.peaks.channels; ++c)
    if (r.peaks.channelMask >> c & 1) std::printf("%sch%u %s", c ? ", " : "", c + 1, LevelText(r.peaks.peakDb[c]).c_str());
  std::printf(")\n");
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
  if (r.integrated > -199.0) plot.AddLevel("integrated", "#264653", r.integrated);
  plot.AddCurve("momentary", "#8ecae6", 1.0, r.momentary);
  plot.AddCurve("short-term", "#e76f51", 2.0, r.shortTerm);
  plot.Write(path);
}

void AddLoudnessCommand(CLI::App &app, int *exitCode) {
  auto opt = std::make_shared<LoudnessOptions>();
  CLI::App *cmd = app.add_subcommand("loudness", "Loudness of audio files: R128 meter (momentary, "
                                                 "short-term, integrated), stand-alone analysis, "
                                                 "range, true peak, violations");
  cmd->add_option("FILE", opt->files, "audio files (WAV, BWF/RF64, AIFF, FLAC)")->required();
  cmd->add_option("--layout", opt->layout, "channel layout: stereo1..stereo8, 5.1[-smpte|-protools|-aac|"
                                           "-dts], 7.1[-smpte|-protools|-ext|-dolby]");
  cmd->add_option("--standard", opt->standard, "delivery standard to check: 1 EBU R128, 2-7, 100; "
                                               "0 none (default)");
  cmd->add_flag("--json", opt->json, "print JSON (see docs/cli.md)");
  cmd->add_option("--plot", opt->plot, "write loudness over time as an SVG file (single FILE)");
  cmd->callback([opt, exitCode] { *exitCode = RunLoudness(*opt); });
}

}  // namespace kvtool
