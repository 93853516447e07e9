// kvaudio qc: the QC engine run frame by frame over a file, with events in timecode and a report.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <set>

#include "analyses.h"
#include "batch.h"
#include "progress.h"
#include "qc_report.h"
#include "svg_plot.h"
#include "targets.h"
#include "tool.h"

namespace kvtool {
namespace {

constexpr uint32_t kRules = 18;

struct QcOptions {
  std::vector<std::string> files;
  std::string fps, layout, loudnessLayout, startTimecode, plot, standard = "0", report;  // fps, start: the file's
  std::vector<std::string> rules, minimums;
  std::string profile = "broadcast";
  bool json = false, channelLevels = false;
  unsigned jobs = 0;  // 0: every core
  InputSelection input;
};

// One file's run, made on a worker thread and printed on the main one.
struct QcRun {
  AudioInfo info;
  QcSettings settings;
  QcResult result;
  std::string error, reportName;
};

// Reads the file's periods straight into the engine's frame buffer.
class FileSource : public PcmSource {
 public:
  explicit FileSource(AudioReader &reader) : reader_(reader) {}
  size_t Read(uint8_t *out, size_t frames) override {
    return reader_.info().Wide() ? reader_.Read(reinterpret_cast<int32_t *>(out), frames)
                                 : reader_.Read(reinterpret_cast<int16_t *>(out), frames);
  }

 private:
  AudioReader &reader_;
};

// Bit r-1 for each rule given by number or name; 0 (all rules) for an empty list.
uint32_t RuleMask(const std::vector<std::string> &rules) {
  uint32_t mask = 0;
  for (const std::string &rule : rules) {
    uint32_t r = 0;
    for (uint32_t n = 1; n <= kRules; ++n)
      if (rule == RuleName(n) || rule == std::to_string(n)) r = n;
    if (!r) throw ToolError("unknown rule '" + rule + "' (use 1-18 or a name from docs/cli.md)");
    mask |= 1u << (r - 1);
  }
  return mask;
}

// RULE=SECONDS pairs of --min.
std::vector<std::pair<uint32_t, double>> Minimums(const std::vector<std::string> &items) {
  std::vector<std::pair<uint32_t, double>> out;
  for (const std::string &item : items) {
    const size_t eq = item.find('=');
    if (eq == std::string::npos) throw ToolError("--min takes RULE=SECONDS, not '" + item + "'");
    const uint32_t mask = RuleMask({item.substr(0, eq)});
    double seconds = 0.0;
    try {
      seconds = std::stod(item.substr(eq + 1));
    } catch (const std::exception &) {
      throw ToolError("--min: '" + item.substr(eq + 1) + "' is not a number of seconds");
    }
    if (!(seconds >= 0.0 && seconds <= 3600.0)) throw ToolError("--min: seconds must be 0 to 3600");
    out.emplace_back(static_cast<uint32_t>(std::countr_zero(mask)) + 1, seconds);
  }
  return out;
}

// The broadcast profile: minimum durations that pass speech pauses and panned notes, and levels
// that tell room tone from lost signal. Rules not listed keep the engine's defaults.
struct ProfileEntry {
  uint32_t rule;
  double seconds;  // minimum duration
};
constexpr ProfileEntry kBroadcastMinimums[] = {
    {1, 2.0},   // programme silence: longer than a pause between items
    {2, 5.0},   // channel silence
    {4, 0.2},   // phase inversion
    {11, 10.0}, // level imbalance: a mix leaning one way for ten seconds, not a panned note
    {12, 1.0},  // DC offset
    {14, 10.0}, // dual mono
    {15, 10.0}, // low level
    {17, 1.0},  // missing channel
};

void ApplyProfile(const QcSettings &s, kvaudqcConfig &config) {
  const double fps = s.fps.Fps();
  auto frames = [fps](double seconds) { return std::max<uint32_t>(1, uint32_t(std::ceil(seconds * fps - 1e-9))); };
  if (s.profile == "broadcast") {
    for (const ProfileEntry &e : kBroadcastMinimums) config.ruleSettings[e.rule] = frames(e.seconds);
    config.limits[1] = -70.0;    // programme silence: below room tone
    config.limits[9] = -70.0;    // channel silence
    config.limits[16] = -70.0;   // low level covers -70 to -40 dBFS
    config.limits[11] = 0.2;     // click: second difference of 0.2 FS, a 0.1 FS single-sample step
    config.limits[13] = 0.005;   // DC offset: -46 dBFS
    config.limits[22] = -100.0;  // missing channel: below any room tone, above dither
  } else if (s.profile != "engine") {
    throw ToolError("unknown profile '" + s.profile + "' (broadcast or engine)");
  }
  for (const auto &[rule, seconds] : s.minSeconds) config.ruleSettings[rule] = frames(seconds);
}

void CopyName(char (&field)[64], const std::string &name) {
  std::strncpy(field, name.c_str(), sizeof(field) - 1);
}

// Report file names: the file's own name with .html, numbered when two files share a name.
std::vector<std::string> ReportNames(const std::vector<std::string> &files) {
  std::vector<std::string> names;
  std::set<std::string> used = {"index.html"};
  for (const std::string &file : files) {
    std::string stem = std::filesystem::path(file).filename().string(), name = stem + ".html";
    for (int n = 2; used.count(name); ++n) name = stem + "-" + std::to_string(n) + ".html";
    used.insert(name);
    names.push_back(name);
  }
  return names;
}

// Reads, measures and (with --report) writes the report of one file, all on the calling thread.
void MeasureFile(const QcOptions &opt, const QcSettings &common, const std::string &path, bool showProgress,
                 QcRun &run) {
  QcSettings s = common;
  AudioReader reader(path, opt.input);
  reader.Require(64, 8000);
  run.info = reader.info();
  const AudioInfo &info = run.info;
  const ProgrammeTime time = ProgrammeTimeOf(info, opt.fps, opt.startTimecode);
  s.fps = ParseFrameRate(time.fps);
  s.startFrame = time.startFrame;
  s.rate = info.rate;
  s.channels = info.channels;
  s.bits = info.Wide() ? 32 : 16;
  const std::string layout = opt.layout.empty() ? info.layout : opt.layout;
  s.layout = layout.empty() ? "" : LayoutFor(layout, info.channels, path).name;
  s.loudnessLayout = opt.loudnessLayout.empty() ? "" : LayoutFor(opt.loudnessLayout, info.channels, path).name;
  run.settings = s;

  FileSource source(reader);
  std::unique_ptr<ReportCollector> collector;
  if (!opt.report.empty()) collector = std::make_unique<ReportCollector>(s.rate, s.channels, s.bits, opt.channelLevels);
  Progress progress("qc", info.frames, showProgress ? info.Seconds() : 0.0);
  run.result = RunQc(s, source, info.frames, &progress, collector.get());
  progress.Done();
  if (collector)
    WriteTextFile((std::filesystem::path(opt.report) / run.reportName).string(),
                  HtmlReport(QcReport(run.result, s, *collector, path, info.format + ", " + info.taken,
                                      info.Seconds())));
}

int RunQcCommand(const QcOptions &opt) {
  QcSettings common;
  if (!opt.fps.empty()) ParseFrameRate(opt.fps);
  common.standard = ParseStandard(opt.standard);
  common.rules = RuleMask(opt.rules);
  common.profile = opt.profile;
  common.minSeconds = Minimums(opt.minimums);
  const size_t count = opt.files.size();
  if (!opt.plot.empty() && count != 1) throw ToolError("--plot takes a single FILE");
  if (!opt.report.empty()) {
    std::error_code ec;
    std::filesystem::create_directories(opt.report, ec);
    if (!std::filesystem::is_directory(opt.report)) throw FileError(opt.report, "cannot be made a directory");
  }

  std::vector<QcRun> runs(count);
  std::vector<std::string> names = ReportNames(opt.files);
  for (size_t i = 0; i < count; ++i) runs[i].reportName = names[i];
  BatchProgress batch("qc", opt.files);
  Json documents = Json::array();
  std::vector<IndexEntry> index;
  int exitCode = kExitClean;
  auto work = [&](size_t i) {
    batch.Started(i);
    try {
      MeasureFile(opt, common, opt.files[i], count == 1, runs[i]);
    } catch (const ToolError &e) {
      runs[i].error = e.what();
    }
    batch.Finished(i);
  };
  auto done = [&](size_t i) {
    QcRun &run = runs[i];
    const std::string &file = opt.files[i];
    if (!run.error.empty()) {
      // One bad file does not stop the others; it decides the exit code.
      std::fflush(stdout);
      std::fprintf(stderr, "kvaudio: %s\n", run.error.c_str());
      exitCode = kExitError;
      if (opt.json) documents.push_back(Json{{"file", file}, {"error", run.error}});
      IndexEntry e;
      e.file = file;
      e.error = run.error;
      index.push_back(e);
      return;
    }
    const QcSettings &s = run.settings;
    const AudioInfo &info = run.info;
    if (!opt.plot.empty()) PlotQc(run.result, s, file, info.Seconds(), opt.plot);
    if (opt.json) {
      Json doc{{"file", file}, {"format", info.format}, {"input", info.taken}};
      doc.update(QcJson(run.result, s));
      doc["startTimecode"] = FormatTimecode(s.startFrame, s.fps);
      documents.push_back(doc);
    } else {
      std::printf("%s: %s, %u Hz, %s (%s), %s fps from %s, %s\n", file.c_str(), info.format.c_str(), info.rate,
                  ChannelsText(info.channels).c_str(), info.taken.c_str(), s.fps.name.c_str(),
                  FormatTimecode(s.startFrame, s.fps).c_str(), FormatSeconds(info.Seconds()).c_str());
      PrintQc(run.result, s);
      std::fflush(stdout);
    }
    if (!(run.result.report.passed && run.result.events.empty()) && exitCode == kExitClean) exitCode = kExitFindings;
    index.push_back(QcIndexEntry(run.result, file, run.reportName));
    run.result = QcResult{};  // printed: its curves are not needed any more
  };
  RunOrdered(count, opt.jobs ? opt.jobs : DefaultJobs(), work, done);
  // A single file prints its own document, or nothing but the error line.
  if (opt.json && count > 1) PrintJson(Json{{"files", documents}});
  if (opt.json && count == 1 && runs[0].error.empty()) PrintJson(documents[0]);
  if (!opt.report.empty() && count > 1)
    WriteTextFile((std::filesystem::path(opt.report) / "index.html").string(), HtmlIndex(index));
  return exitCode;
}

}  // namespace

const char *RuleName(uint32_t rule) {
  static const char *const kNames[kRules] = {
      "programme-silence", "channel-silence", "clipping",        "phase-inversion", "loudness-off-target",
      "true-peak",         "momentary-max",   "short-term-max",  "click",           "crackle",
      "level-imbalance",   "dc-offset",       "dropout",         "dual-mono",       "low-level",
      "near-clip",         "missing-channel", "loudness-range"};
  return rule >= 1 && rule <= kRules ? kNames[rule - 1] : "unknown";
}

QcResult RunQc(const QcSettings &s, PcmSource &source, uint64_t totalFrames, Progress *progress,
               ReportCollector *collector) {
  kvaudqcConfig config{};
  config.sampleRate = s.rate;
  config.channels = s.channels;
  config.bitsPerSample = s.bits;
  config.standard = s.standard;
  config.reservedA[0] = s.rules;  // the engine's rule selection; 0 runs every rule
  ApplyProfile(s, config);
  CopyName(config.layoutName, s.layout);
  CopyName(config.loudnessLayoutName, s.loudnessLayout);
  std::unique_ptr<kvqcAudioEngine, int32_t (*)(kvqcAudioEngine *)> engine(kvqcAudioOpen(&config),
                                                                         kvqcAudioClose);
  if (!engine) throw ToolError("the QC engine cannot be opened");

  QcResult r;
  FrameCutter cutter(s.fps, s.rate);
  r.libraryCadence = cutter.UsesLibraryCadence();
  std::vector<uint8_t> buffer(size_t(cutter.MaxSamples()) * s.channels * (s.bits / 8));
  auto analysis = std::make_unique<kvaudqcFrameAnalyze>();
  uint64_t done = 0;
  for (uint64_t frame = 0;; ++frame) {
    size_t got = source.Read(buffer.data(), cutter.Samples(frame));
    if (got == 0) break;
    if (kvqcAudioFrame(engine.get(), buffer.data(), uint32_t(got), analysis.get()) != KVQC_OK)
      throw ToolError("the QC engine refused frame " + std::to_string(frame));
    if (collector) collector->Add(buffer.data(), uint32_t(got), *analysis);
    done += got;
    double t = double(done) / s.rate;
    r.momentary.emplace_back(t, analysis->momentary);
    r.shortTerm.emplace_back(t, analysis->shortTerm);
    if (progress) progress->Update(std::min(done, totalFrames));
  }
  if (kvqcAudioFinish(engine.get(), &r.report) != KVQC_OK) throw ToolError("the QC engine cannot finish the run");
  if (collector) collector->Finish();
  uint32_t count = 0, copied = 0;
  kvqcAudioGetEventCount(engine.get(), &count);
  r.events.resize(count);
  if (count) kvqcAudioGetEvents(engine.get(), 0, count, r.events.data(), &copied);
  r.events.resize(copied);
  return r;
}

Json QcJson(const QcResult &r, const QcSettings &s) {
  const kvaudqcReport &rep = r.report;
  Json perRule = Json::object();
  for (uint32_t rule = 1; rule <= kRules; ++rule)
    if (rep.eventsPerRule[rule - 1]) perRule[RuleName(rule)] = rep.eventsPerRule[rule - 1];
  Json events = Json::array();
  for (const kvaudqcEvent &e : r.events)
    events.push_back(Json{{"rule", e.rule},
                          {"name", RuleName(e.rule)},
                          {"startFrame", e.startA},
                          {"endFrame", e.endA},
                          {"startTimecode", FormatTimecode(s.startFrame + e.startA, s.fps)},
                          {"endTimecode", FormatTimecode(s.startFrame + e.endA, s.fps)},
                          {"startSample", e.startB},
                          {"endSample", e.endB},
                          {"startSeconds", double(e.startB) / s.rate},
                          {"endSeconds", double(e.endB) / s.rate},
                          {"frames", e.frames},
                          {"samples", e.samples},
                          {"channels", ChannelList(e.channelMask)},
                          {"maxValue", e.maxValue},
                          {"reference", e.reference},
                          {"maxAuxA", Level(e.maxAuxA)},
                          {"maxAuxB", Level(e.maxAuxB)},
                          {"ratio", e.ratio}});
  return Json{{"sampleRate", s.rate},
              {"channels", s.channels},
              {"fps", s.fps.name},
              {"libraryCadence", r.libraryCadence},
              {"report", {{"frames", rep.frames},
                          {"samples", rep.samples},
                          {"integrated", Level(rep.integrated)},
                          {"range", rep.range},
                          {"truePeak", Level(rep.truePeak)},
                          {"maxMomentary", Level(rep.maxMomentary)},
                          {"maxShortTerm", Level(rep.maxShortTerm)},
                          {"eventsPerRule", perRule},
                          {"totalEvents", rep.totalEvents},
                          {"standard", rep.standard},
                          {"violations", ViolationNames(rep.violations)},
                          {"passed", rep.passed != 0}}},
              {"events", events}};
}

void PrintQc(const QcResult &r, const QcSettings &s) {
  const kvaudqcReport &rep = r.report;
  std::printf("  analysed            %llu frames, %llu samples\n", (unsigned long long)rep.frames,
              (unsigned long long)rep.samples);
  std::printf("  integrated          %s LUFS, range %.1f LU\n", LevelText(rep.integrated).c_str(), rep.range);
  std::printf("  true peak           %s dBTP\n", LevelText(rep.truePeak).c_str());
  std::printf("  max momentary       %s LUFS, max short-term %s LUFS\n", LevelText(rep.maxMomentary).c_str(),
              LevelText(rep.maxShortTerm).c_str());
  if (rep.standard) {
    std::printf("  %s\n    violations        ", TargetsText(TargetsFor(rep.standard)).c_str());
    std::vector<std::string> names = ViolationNames(rep.violations);
    if (names.empty()) std::printf("none");
    for (size_t i = 0; i < names.size(); ++i) std::printf("%s%s", i ? ", " : "", names[i].c_str());
    std::printf("\n");
  }
  std::printf("  events              %u%s\n", rep.totalEvents, rep.passed ? " (passed)" : " (failed)");
  if (r.events.empty()) return;
  std::printf("    %-22s %-12s %-12s %7s  %-9s %s\n", "rule", "start", "end", "frames", "channels", "value");
  for (const kvaudqcEvent &e : r.events)
    std::printf("    %2u %-19s %-12s %-12s %7u  %-9s %.3f\n", e.rule, RuleName(e.rule),
                FormatTimecode(s.startFrame + e.startA, s.fps).c_str(),
                FormatTimecode(s.startFrame + e.endA, s.fps).c_str(), e.frames, ChannelText(e.channelMask).c_str(),
                e.maxValue);
}

void PlotQc(const QcResult &r, const QcSettings &s, const std::string &title, double seconds,
            const std::string &path) {
  SvgPlot plot("QC: " + title, seconds);
  plot.AddCurve("momentary", "#8ecae6", 1.0, r.momentary);
  plot.AddCurve("short-term", "#e76f51", 2.0, r.shortTerm);
  if (r.report.integrated > -199.0) plot.AddLevel("integrated", "#264653", r.report.integrated);
  for (const kvaudqcEvent &e : r.events)
    plot.AddEvent(RuleName(e.rule), double(e.startB) / s.rate, double(e.endB) / s.rate,
                  std::string(RuleName(e.rule)) + " " + FormatTimecode(s.startFrame + e.startA, s.fps) + " - " +
                      FormatTimecode(s.startFrame + e.endA, s.fps) + ", channels " + ChannelText(e.channelMask));
  plot.Write(path);
}

void AddQcCommand(CLI::App &app, int *exitCode) {
  auto opt = std::make_shared<QcOptions>();
  CLI::App *cmd = app.add_subcommand("qc", "Run the QC engine frame by frame: events with timecode "
                                           "and a report; exit 1 when anything is found");
  cmd->add_option("FILE", opt->files, "audio or media files (WAV, MXF, MOV/MP4, MKV, MPEG-TS ...)")->required();
  cmd->add_option("--fps", opt->fps, std::string("video frame rate: ") + FrameRateNames() +
                                  " (default: the file's video, else 25)");
  cmd->add_option("--layout", opt->layout, "programme layout (stereo1..8, 5.1..., 7.1...)");
  cmd->add_option("--loudness-layout", opt->loudnessLayout, "layout the loudness is measured on");
  cmd->add_option("--standard", opt->standard, "delivery standard: " + StandardHelp() + " (default)");
  cmd->add_option("--profile", opt->profile, "rule settings: broadcast (default) or engine (see docs/qc.md)");
  cmd->add_option("--min", opt->minimums, "minimum duration of a rule, RULE=SECONDS (repeatable)")
      ->delimiter(',');
  cmd->add_option("--rules", opt->rules, "only these rules, by number or name (default all)")->delimiter(',');
  cmd->add_option("--start", opt->startTimecode, "timecode of the first frame (default: the file's, else 00:00:00:00)");
  AddInputOptions(cmd, &opt->input);
  cmd->add_flag("--json", opt->json, "print JSON (see docs/cli.md)");
  cmd->add_option("--plot", opt->plot, "write loudness and the events on a timeline as an SVG file");
  cmd->add_option("--report", opt->report, "write an HTML report per file into this directory (and index.html "
                                           "for several files)");
  cmd->add_flag("--channel-loudness", opt->channelLevels, "the report also meters true peak and loudness per "
                                                         "channel (about twice the run time)");
  cmd->add_option("-j,--jobs", opt->jobs, "files measured at once (default: every core)");
  cmd->callback([opt, exitCode] { *exitCode = RunQcCommand(*opt); });
}

}  // namespace kvtool
