// kvaudio demo: a clip made in memory runs through every analysis; no files needed.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>

#include "analyses.h"
#include "html_report.h"
#include "kvaudio/avsync.h"
#include "kvaudio/generator.h"
#include "kvaudio/interleave.h"
#include "qc_report.h"
#include "targets.h"
#include "tool.h"

namespace kvtool {
namespace {

constexpr uint32_t kRate = 48000, kChannels = 4, kSeconds = 20;
constexpr uint64_t kBurstFrame = 100;               // 4 s at 25 fps
constexpr const char *kLtcStart = "10:00:00:00";

double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// Serves a clip held in memory to the QC engine.
class MemorySource : public PcmSource {
 public:
  explicit MemorySource(const Pcm &pcm) : pcm_(pcm) {}
  size_t Read(uint8_t *out, size_t frames) override {
    size_t n = size_t(std::min<uint64_t>(frames, pcm_.Frames() - at_));
    std::memcpy(out, pcm_.At(at_), n * pcm_.channels * sizeof(int16_t));
    at_ += n;
    return n;
  }

 private:
  const Pcm &pcm_;
  uint64_t at_ = 0;
};

// The 16-channel split into eight stereo pairs and the join back, timed.
bool InterleaveRoundTrip() {
  constexpr uint32_t kWide = 16, kPairs = 8, kSamples = 48000, kRounds = 200;
  std::vector<uint16_t> in(kWide * kSamples), back(kWide * kSamples);
  std::vector<std::vector<uint32_t>> pairs(kPairs, std::vector<uint32_t>(kSamples));
  // Channel number in the top nibble, sample index below: any misplaced word shows.
  for (uint32_t i = 0; i < kSamples; ++i)
    for (uint32_t c = 0; c < kWide; ++c) in[i * kWide + c] = uint16_t(c << 12 | (i & 0xFFF));
  auto p16 = [&](int k) { return reinterpret_cast<const uint16_t *>(pairs[k].data()); };
  double start = Now();
  for (uint32_t r = 0; r < kRounds; ++r) {
    AudioDeinterleave16to16_16(reinterpret_cast<const uint32_t *>(in.data()), pairs[0].data(), pairs[1].data(),
                               pairs[2].data(), pairs[3].data(), pairs[4].data(), pairs[5].data(),
                               pairs[6].data(), pairs[7].data(), kSamples);
    AudioInterleave16to16_16(back.data(), p16(0), p16(1), p16(2), p16(3), p16(4), p16(5), p16(6), p16(7),
                             kSamples, kWide);
  }
  double elapsed = Now() - start;
  bool same = in == back;
  double bytes = 2.0 * kRounds * sizeof(uint16_t) * kWide * kSamples;
  std::printf("interleave   16 channels x %u samples split into 8 pairs and joined %u times: %s, "
              "%.1f GB/s (%.3f s)\n", kSamples, kRounds, same ? "identical" : "MISMATCH",
              bytes / elapsed / 1e9, elapsed);
  return same;
}

// Programme tone on channels 1-2 with the burst and faults, LTC on channel 3, channel 4 silent.
Pcm MakeClip(const FrameRate &fps, std::vector<std::string> &faults) {
  const uint64_t frames = uint64_t(kRate) * kSeconds;
  std::vector<int16_t> stereo(frames * 2);
  WAVEFORMATEX format{1, 2, kRate, kRate * 4, 4, 16, 0};
  // -23 dBFS peaks read -23 LUFS in stereo; the right channel runs a quarter cycle ahead, so the
  // pair is not dual mono.
  double amplitude = std::pow(10.0, -23.0 / 20);
  tagAUDGENHANDLE *gen = audGenOpen(AUDGEN_TONE | AUDGEN_RIGHT_QUARTER, 1000, 0, 0, 0, AUDGEN_SHAPE_SINE, AUDGEN_SHAPE_SINE, &format,
                                    amplitude, amplitude, 0.0);
  audGenFillBuffer(gen, stereo.data(), uint32_t(stereo.size() * sizeof(int16_t)));
  audGenClose(gen);
  KVAudioAVSyncPulseGenerate(stereo.data(), uint32_t(frames), 2, 16, kRate,
                             uint32_t(kBurstFrame * kRate / 25), 0);
  // Faults: a clipped stretch, a muted stretch, and a single-sample click.
  // apply(samples, distance to the nearer end of the stretch) for each period of the stretch.
  auto span = [&](double from, double seconds, const char *what, auto apply) {
    const uint64_t begin = uint64_t(from * kRate), end = uint64_t((from + seconds) * kRate);
    for (uint64_t i = begin; i < end; ++i) apply(&stereo[i * 2], std::min(i - begin, end - 1 - i));
    faults.push_back(std::string(what) + " at " + FormatTimecode(uint64_t(from * fps.Fps()), fps));
  };
  // Overdriven by 24 dB and clipped at full scale; the gain ramps over a cycle at both ends.
  span(8.0, 0.2, "clipping", [](int16_t *s, uint64_t edge) {
    double gain = 1 + 15 * std::min(1.0, edge / 48.0);
    for (int c = 0; c < 2; ++c) s[c] = int16_t(std::clamp(std::lround(s[c] * gain), -32767L, 32767L));
  });
  span(12.0, 2.5, "silence", [](int16_t *s, uint64_t) { s[0] = s[1] = 0; });
  span(16.0, 1.0 / kRate, "click", [](int16_t *s, uint64_t) { s[0] = 30000; });

  std::vector<int16_t> ltc = EncodeLtc(kRate, fps, ParseTimecode(kLtcStart, fps), 0, kSeconds * 25, 0);
  Pcm pcm;
  pcm.channels = kChannels;
  pcm.s16.assign(frames * kChannels, 0);
  for (uint64_t i = 0; i < frames; ++i) {
    pcm.s16[i * kChannels] = stereo[i * 2];
    pcm.s16[i * kChannels + 1] = stereo[i * 2 + 1];
    pcm.s16[i * kChannels + 2] = i < ltc.size() ? ltc[i] : 0;
  }
  return pcm;
}

Pcm Programme(const Pcm &clip) {
  Pcm out;
  out.channels = 2;
  out.s16.resize(size_t(clip.Frames()) * 2);
  for (size_t i = 0; i < clip.Frames(); ++i) {
    out.s16[i * 2] = clip.s16[i * kChannels];
    out.s16[i * 2 + 1] = clip.s16[i * kChannels + 1];
  }
  return out;
}

int RunDemo(const std::string &reportPath) {
  __builtin_cpu_init();
  const bool avx2 = __builtin_cpu_supports("avx2");
  std::printf("kvaudio demo: a %u s clip at %u Hz made in memory (tone on channels 1-2, LTC on 3)\n",
              kSeconds, kRate);
  std::printf("dispatch     %s (this CPU %s AVX2; the library makes the same test once)\n",
              avx2 ? "AVX2 kernels" : "plain loops", avx2 ? "has" : "lacks");
  bool ok = InterleaveRoundTrip();

  const FrameRate fps = ParseFrameRate("25");
  std::vector<std::string> faults;
  double start = Now();
  Pcm clip = MakeClip(fps, faults);
  Pcm programme = Programme(clip);
  std::printf("clip         built in %.3f s; burst at frame %llu; faults: ", Now() - start,
              (unsigned long long)kBurstFrame);
  for (size_t i = 0; i < faults.size(); ++i) std::printf("%s%s", i ? ", " : "", faults[i].c_str());
  std::printf("\n");

  start = Now();
  MemorySource loudSource(programme);
  LoudnessInput input;
  input.rate = kRate;
  input.frames = programme.Frames();
  LoudnessResult loud = MeasureLoudness(loudSource, input, LayoutFor("", 2, "demo"), TargetsFor(1), nullptr);
  const kvAudioLoudnessReading &m = loud.reading;
  std::printf("loudness     integrated %s LUFS, range %.1f LU, true peak %s dBTP, max momentary %s LUFS, "
              "max short-term %s LUFS, sample peak %s dBFS (%.3f s)\n", LevelText(m.integrated).c_str(),
              m.loudnessRange, LevelText(m.truePeak).c_str(), LevelText(m.momentaryMax).c_str(),
              LevelText(m.shortTermMax).c_str(), LevelText(m.samplePeak).c_str(), Now() - start);

  start = Now();
  std::vector<int16_t> ltc(size_t(clip.Frames()));
  for (size_t i = 0; i < ltc.size(); ++i) ltc[i] = clip.s16[i * kChannels + 2];
  std::vector<LtcFrame> decoded = DecodeLtc(ltc.data(), ltc.size(), kRate, fps, nullptr);
  size_t right = 0;
  const uint64_t first = ParseTimecode(kLtcStart, fps);
  for (const LtcFrame &f : decoded) right += f.valid && f.frameCount + 1 == first + f.endSample * 25 / kRate;
  std::printf("LTC          %zu frames decoded from channel 3, %zu at their own position, first %s (%.3f s)\n",
              decoded.size(), right, decoded.empty() ? "-" : LtcTimecode(decoded.front()).c_str(), Now() - start);
  ok = ok && !decoded.empty() && right == decoded.size();

  start = Now();
  BurstResult burst = DetectBurst(programme, kRate, 0, programme.Frames(), 0, nullptr);
  uint64_t burstFrame = burst.position * 25 / kRate;
  std::printf("AV-sync      burst found at sample %llu (frame %llu, expected %llu), score %.3f (%.3f s)\n",
              (unsigned long long)burst.position, (unsigned long long)burstFrame,
              (unsigned long long)kBurstFrame, burst.score, Now() - start);
  ok = ok && burst.found && burstFrame == kBurstFrame;

  start = Now();
  QcSettings qc;
  qc.fps = fps;
  qc.channels = kChannels;
  qc.layout = "stereo1";
  // The rules of the injected faults: clipping, programme silence, click. The AV-sync burst is
  // a test signal, and the loudness of a tone with a burst in it is not a fault of the clip.
  const uint32_t injected[] = {3, 1, 9};
  for (uint32_t rule : injected) qc.rules |= 1u << (rule - 1);
  MemorySource source(clip);
  ReportCollector collector(kRate, kChannels, 16, true);
  QcResult result = RunQc(qc, source, clip.Frames(), nullptr, &collector);
  std::printf("QC           %llu frames of channels 1-2, rules %s, %s, %s: %u events (%.3f s):\n",
              (unsigned long long)result.report.frames, RuleName(3), RuleName(1), RuleName(9),
              result.report.totalEvents, Now() - start);
  // Each fault is found once, at the frame it was injected (8 s, 12 s and 16 s).
  bool found = result.events.size() == std::size(injected);
  for (size_t i = 0; found && i < result.events.size(); ++i)
    found = result.events[i].rule == injected[i] && result.events[i].startA == uint64_t((8 + 4 * i) * fps.Fps());
  ok = ok && found;
  for (const kvaudqcEvent &e : result.events)
    std::printf("             %-19s %s - %s  channels %s\n", RuleName(e.rule),
                FormatTimecode(e.startA, fps).c_str(), FormatTimecode(e.endA, fps).c_str(),
                ChannelText(e.channelMask).c_str());
  if (!reportPath.empty()) {
    WriteTextFile(reportPath, HtmlReport(QcReport(result, qc, collector, "demo clip (made in memory)",
                                                  "16-bit PCM in memory", double(clip.Frames()) / kRate)));
    std::printf("QC report    %s\n", reportPath.c_str());
  }
  std::printf("%s\n", ok ? "demo: every check passed" : "demo: a check FAILED");
  return ok ? kExitClean : kExitFindings;
}

}  // namespace

void AddDemoCommand(CLI::App &app, int *exitCode) {
  auto report = std::make_shared<std::string>("kvaudio-demo-report.html");
  CLI::App *cmd = app.add_subcommand("demo", "Build a clip in memory (tone, LTC, AV-sync burst, faults), "
                                             "run every analysis on it and write its QC report");
  cmd->add_option("--report", *report, "HTML report of the QC run (default kvaudio-demo-report.html; "
                                       "empty: none)");
  cmd->callback([report, exitCode] { *exitCode = RunDemo(*report); });
}

}  // namespace kvtool
