// QC engine runs on a clean stereo tone per video frame with faults written into chosen frames.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <memory>
#include <tuple>
#include <vector>

#include "kvaudio/qc.h"

namespace {

constexpr uint32_t kFrame = 1920;  // 48 kHz at 25 fps

struct Frame { std::vector<double> l, r; };  // full-scale units

// 1000 Hz left, 1500 Hz right at -20 dBFS peak: uncorrelated over every 25 fps frame, and every
// frame (at most kFrame long) starts at phase 0.
Frame CleanFrame(uint32_t n) {
  static const Frame tone = [] {
    Frame f{std::vector<double>(kFrame), std::vector<double>(kFrame)};
    for (uint32_t i = 0; i < kFrame; ++i) f.l[i] = 0.1 * std::sin(2 * M_PI * i / 48.0), f.r[i] = 0.1 * std::sin(2 * M_PI * i / 32.0);
    return f;
  }();
  return {{tone.l.begin(), tone.l.begin() + n}, {tone.r.begin(), tone.r.begin() + n}};
}

// Interleaved 16-bit samples, or the same samples left-justified in 32 bits.
std::vector<uint8_t> Pcm(const Frame &f, bool wide) {
  std::vector<uint8_t> out;
  for (size_t i = 0; i < f.l.size(); ++i)
    for (double x : {f.l[i], f.r[i]}) {
      const int32_t s = static_cast<int32_t>(std::lround(std::fmin(x * 32768.0, 32767.0))) * (wide ? 65536 : 1);
      const auto *bytes = reinterpret_cast<const uint8_t *>(&s);  // little-endian: 16 bits are the low two bytes
      out.insert(out.end(), bytes, bytes + (wide ? 4 : 2));
    }
  return out;
}

using Change = std::function<void(uint64_t k, Frame &f)>;

Change Scale(double left, double right) {
  return [=](uint64_t, Frame &f) { for (size_t i = 0; i < f.l.size(); ++i) f.l[i] *= left, f.r[i] *= right; };
}
Change AddLeft(std::vector<size_t> at, double delta) {
  return [=](uint64_t, Frame &f) { for (size_t i : at) f.l[i] += delta; };
}
Change SetLeft(size_t from, size_t count, double value) {
  return [=](uint64_t, Frame &f) { std::fill(f.l.begin() + from, f.l.begin() + from + count, value); };
}
Change RightFromLeft(double gain, double ownGain = 0.0) {
  return [=](uint64_t, Frame &f) { for (size_t i = 0; i < f.l.size(); ++i) f.r[i] = gain * f.l[i] + ownGain * f.r[i]; };
}
// A 12 kHz tone of peak `peak` whose samples sit at 45 degrees, 3 dB under its peak.
Change QuarterRateTone(double peak) {
  return [=](uint64_t, Frame &f) { for (size_t i = 0; i < f.l.size(); ++i) f.l[i] = peak * std::sin(M_PI / 2 * double(i) + M_PI / 4); };
}
Change Dc(double offset) {
  return [=](uint64_t, Frame &f) { for (double &x : f.l) x += offset; };
}
// Every other 5 s both channels take `gain`.
Change Alternate(double gain) {
  return [=](uint64_t k, Frame &f) { if (k / 125 % 2 == 0) Scale(gain, gain)(k, f); };
}

struct Outcome {
  std::vector<kvaudqcEvent> events;
  std::vector<kvaudqcFrameAnalyze> records;  // when asked for
  kvaudqcReport report{};
};

// Feeds frames of length lengths[i % lengths.size()] changed by `fault`, finishes and reads the events.
Outcome Feed(kvqcAudioEngine *e, uint64_t frames, const Change &fault, bool keepRecords = false,
             const std::vector<uint32_t> &lengths = {kFrame}, bool wide = false) {
  Outcome run;
  kvaudqcFrameAnalyze rec;
  uint32_t count = 0, copied = 0;
  for (uint64_t i = 0; i < frames; ++i) {
    Frame f = CleanFrame(lengths[i % lengths.size()]);
    fault(i, f);
    EXPECT_EQ(kvqcAudioFrame(e, Pcm(f, wide).data(), static_cast<uint32_t>(f.l.size()), &rec), 0);
    if (keepRecords) run.records.push_back(rec);
  }
  EXPECT_EQ(kvqcAudioFinish(e, &run.report), 0);
  EXPECT_EQ(kvqcAudioGetEventCount(e, &count), 0);
  run.events.resize(count);
  EXPECT_EQ(kvqcAudioGetEvents(e, 0, count, run.events.data(), &copied), 0);
  return run;
}

struct Case {
  const char *name;
  uint32_t rule;
  uint64_t first, count;  // frames of the fault
  Change hit, miss;
  uint64_t tail = 0;  // frames a bridged rule's event runs on past the fault (to the clip's end)
  std::function<void(kvaudqcConfig &)> setup = [](kvaudqcConfig &) {};
  uint64_t total = 40;  // frames in the clip
  uint64_t lag = 0;     // 0: exact; else a reading over a window: start and end up to lag frames late

  Outcome Run(const Change &change, uint32_t bits = 16) const {
    kvaudqcConfig config{};
    config.bitsPerSample = bits;
    setup(config);
    std::unique_ptr<kvqcAudioEngine, int32_t (*)(kvqcAudioEngine *)> e(kvqcAudioOpen(&config), kvqcAudioClose);
    const Change fault = [&](uint64_t i, Frame &f) { if (i >= first && i < first + count) change(i - first, f); };
    return Feed(e.get(), total, fault, false, {kFrame}, bits == 32);
  }
};

const auto kTruePeak = [](kvaudqcConfig &c) { c.flags = 15 | 32; };
// Hits and near misses sit just either side of the default limits; a fault of 3 frames is the shortest run
// most rules report.
const Case kCases[] = {
    {"ProgrammeSilence", 1, 10, 3, Scale(0.012, 0.012), Scale(0.016, 0.016)},
    {"ChannelSilence", 2, 10, 3, Scale(1, 0.012), Scale(1, 0.016)},
    {"Clipping", 3, 10, 1, SetLeft(100, 2, 1.0), SetLeft(100, 1, 1.0), 25},
    {"PhaseInversion", 4, 10, 3, RightFromLeft(-0.3, 0.954), RightFromLeft(-0.2, 0.98), 27},  // correlation
    {"PhaseInversionLevel", 4, 10, 3, RightFromLeft(-1.0), RightFromLeft(-0.05), 27},
    {"LoudnessTarget", 5, 200, 100, Scale(4, 4), Scale(1.12, 1.12), 0,
     [](kvaudqcConfig &c) { c.limits[4] = -20.0, c.limits[5] = 2.0; }, 500, 75},
    {"TruePeak", 6, 10, 1, SetLeft(100, 1, 0.9), SetLeft(100, 1, 0.88), 0, kTruePeak},
    {"TruePeakBetweenSamples", 6, 10, 5, QuarterRateTone(0.95), QuarterRateTone(0.75), 0, kTruePeak, 40, 1},
    {"MomentaryMax", 7, 200, 100, Scale(4, 4), Scale(1.41, 1.41), 0, [](kvaudqcConfig &c) { c.limits[7] = -15.0; }, 500, 75},
    {"ShortTermMax", 8, 200, 100, Scale(4, 4), Scale(1.41, 1.41), 0, [](kvaudqcConfig &c) { c.limits[8] = -15.0; }, 500, 75},
    // A single-sample step of a makes second differences a, -2a, a.
    {"Click", 9, 10, 1, AddLeft({200}, 0.39), AddLeft({200}, 0.36)},
    {"ClickNotAlone", 9, 10, 1, AddLeft({200}, 0.39), AddLeft({200, 220}, 0.39)},  // an equal step 20 samples on
    {"Crackle", 10, 10, 1, AddLeft({100, 300, 500}, 0.6), AddLeft({100, 300}, 0.6)},
    {"LevelImbalance", 11, 10, 3, Scale(1, 0.48), Scale(1, 0.52)},
    {"DcOffset", 12, 10, 1, Dc(0.21), Dc(0.19)},
    {"Dropout", 13, 10, 1, SetLeft(500, 16, 0.0), SetLeft(500, 15, 0.0)},
    {"DropoutToNoise", 13, 10, 1, Scale(1e-5, 1), Scale(0.01, 1)},  // to -120 dBFS, not to -60
    {"DualMono", 14, 10, 3, RightFromLeft(1.0), RightFromLeft(0.9, 0.3), 27},
    {"LowLevel", 15, 10, 3, Scale(0.13, 0.13), Scale(0.15, 0.15)},
    {"NearClip", 16, 10, 1, SetLeft(100, 1, 0.95), SetLeft(100, 1, 0.94)},
    {"MissingChannel", 17, 10, 3, Scale(1, 0.012), Scale(1, 0.016), 27},
    {"LoudnessRange", 18, 250, 500, Alternate(0.1), Alternate(0.8), 0, [](kvaudqcConfig &c) { c.limits[6] = 5.0; }, 750, 150},
};

class EngineRule : public ::testing::TestWithParam<Case> {};

TEST_P(EngineRule, FaultRaisesOneEventWhereItIs) {
  const Case &c = GetParam();
  EXPECT_EQ(c.Run(c.miss).report.eventsPerRule[c.rule - 1], 0u);
  const Outcome run = c.Run(c.hit);
  ASSERT_EQ(run.report.eventsPerRule[c.rule - 1], 1u);
  const kvaudqcEvent &e =
      *std::find_if(run.events.begin(), run.events.end(), [&](const kvaudqcEvent &x) { return x.rule == c.rule; });
  EXPECT_EQ(std::tie(e.frames, e.samples, e.startB, e.endB),
            std::make_tuple(e.endA - e.startA + 1, e.endB - e.startB, e.startA * kFrame, (e.endA + 1) * kFrame));
  EXPECT_GT(e.channelMask, 0u);
  const uint64_t end = c.first + c.count + c.tail;  // one past the event's last frame, up to lag frames late
  EXPECT_GE(e.startA, c.first);
  EXPECT_LE(e.startA, c.first + c.lag);
  EXPECT_GE(e.endA + 1, std::min(end, c.total));
  EXPECT_LE(e.endA + 1, std::min(end + c.lag, c.total));
  EXPECT_EQ(run.report.passed, 0u);
  EXPECT_EQ(run.report.violations & 4u, c.rule == 6 ? 4u : 0u);  // over the true-peak maximum
  // The same audio left-justified in 32 bits gives the same events, byte for byte.
  const Outcome wide = c.Run(c.hit, 32);
  ASSERT_EQ(wide.events.size(), run.events.size());
  EXPECT_EQ(0, std::memcmp(wide.events.data(), run.events.data(), run.events.size() * sizeof(kvaudqcEvent)));
}

INSTANTIATE_TEST_SUITE_P(All, EngineRule, ::testing::ValuesIn(kCases),
                         [](const auto &info) { return std::string(info.param.name); });

// Rule r is bit r-1. flags bit 0 enables rule 1, bit 1 the channel and level rules 2 4 11 12 14 15 17, bit 2
// the loudness rules 5 6 7 8 18, bit 3 the sample-error rules 3 9 10 13 16; reservedA[0] narrows to single rules.
TEST(EngineRule, FlagsAndRuleMaskSelectRules) {
  const uint32_t level = 0x16C0A, loudness = 0x200F0, samples = 0x9304;
  const uint32_t cases[][3] = {{15, 0, 0x3FFFF},       {1, 0, 1},  {8, 0, samples},  // flags, mask, rules that run
                               {15, 1u << 8, 1u << 8}, {6, 0, level | loudness}, {2, 1, 0}};
  for (const auto &[flags, mask, enabled] : cases) {
    kvaudqcConfig config{};
    config.flags = flags;
    config.reservedA[0] = mask;
    std::unique_ptr<kvqcAudioEngine, int32_t (*)(kvqcAudioEngine *)> e(kvqcAudioOpen(&config), kvqcAudioClose);
    const Outcome run = Feed(e.get(), 2, [](uint64_t, Frame &) {}, true);
    uint32_t live = 0;  // rules whose detect record is live
    for (uint32_t r = 1; r <= 18; ++r) live |= (run.records.back().detect[r - 1].state != 0) << (r - 1);
    EXPECT_EQ(live, enabled) << "flags " << flags << " mask " << mask;
  }
}

// Counter B advances by each frame's own length (29.97 fps: 1602, 1601, ...) and events take their sample
// positions from it. After a reset the same audio gives the same events, report and frame records, byte for byte.
TEST(EngineRun, CadenceAndReset) {
  const std::vector<uint32_t> cadence = {1602, 1601, 1602, 1601, 1602};
  kvaudqcConfig config{};
  config.flags = 15 | 32;
  std::unique_ptr<kvqcAudioEngine, int32_t (*)(kvqcAudioEngine *)> e(kvqcAudioOpen(&config), kvqcAudioClose);
  const auto faults = [](uint64_t i, Frame &f) { if (i >= 102 && i < 152) Scale(0, i < 142)(i, f); };
  const Outcome first = Feed(e.get(), 300, faults, true, cadence);
  ASSERT_EQ(kvqcAudioReset(e.get()), 0);
  const Outcome second = Feed(e.get(), 300, faults, true, cadence);
  ASSERT_GE(first.events.size(), 4u);  // silence, then the right channel gone, each with its dropout
  ASSERT_EQ(second.events.size(), first.events.size());
  EXPECT_EQ(0, std::memcmp(first.events.data(), second.events.data(), first.events.size() * sizeof(kvaudqcEvent)));
  EXPECT_EQ(0, std::memcmp(&first.report, &second.report, sizeof first.report));
  uint64_t position = 0;
  for (size_t i = 0; i < first.records.size(); ++i) {
    EXPECT_EQ(std::tie(first.records[i].frameIndex, first.records[i].samplePosition), std::tie(i, position));
    ASSERT_EQ(0, std::memcmp(&first.records[i], &second.records[i], sizeof(kvaudqcFrameAnalyze))) << "frame " << i;
    position += cadence[i % 5];
  }
  EXPECT_EQ(std::tie(first.report.frames, first.report.samples), std::make_tuple(300ull, position));
  for (const kvaudqcEvent &ev : first.events)
    EXPECT_EQ(std::tie(ev.startB, ev.endB),
              std::tie(first.records[ev.startA].samplePosition, first.records[ev.endA + 1].samplePosition));
  // The default window spans the last 30 frames, the ten silent ones among them.
  const kvaudqcDetect &silence = first.records[161].detect[0];
  EXPECT_EQ(std::tie(silence.windowFill, silence.windowCount), std::make_tuple(30u, 10u));
}

TEST(EngineRun, BadArgumentsAndSequence) {
  kvqcAudioEngine *e = kvqcAudioOpen(nullptr);
  const std::vector<int16_t> pcm(2 * kFrame, 0);
  kvaudqcEvent ev;
  uint32_t n = 0;
  const int32_t refused[] = {
      kvqcAudioFrame(nullptr, pcm.data(), kFrame, nullptr), kvqcAudioFrame(e, nullptr, kFrame, nullptr),
      kvqcAudioFrame(e, pcm.data(), 0, nullptr),           kvqcAudioFinish(nullptr, nullptr),
      kvqcAudioGetEventCount(nullptr, &n),                 kvqcAudioGetEventCount(e, nullptr),
      kvqcAudioGetEvents(nullptr, 0, 1, &ev, &n),          kvqcAudioGetEvents(e, 0, 1, nullptr, &n),
      kvqcAudioGetEvents(e, 0, 1, &ev, nullptr),           kvqcAudioReset(nullptr),
      kvqcAudioClose(nullptr)};
  for (int32_t r : refused) EXPECT_EQ(r, KVQC_ERROR);

  // 100 frames of digital silence: one programme-silence event, read from any start index.
  for (int i = 0; i < 100; ++i) ASSERT_EQ(kvqcAudioFrame(e, pcm.data(), kFrame, nullptr), 0);
  EXPECT_EQ(kvqcAudioFinish(e, nullptr), 0);
  EXPECT_EQ(kvqcAudioFinish(e, nullptr), KVQC_ERROR);                     // already finished
  EXPECT_EQ(kvqcAudioFrame(e, pcm.data(), kFrame, nullptr), KVQC_ERROR);  // until reset
  const std::pair<uint32_t, uint32_t> reads[] = {{0, 0}, {5, 1}, {1, 1}, {0, 4}};  // (first, capacity)
  for (const auto &[first, capacity] : reads) {
    EXPECT_EQ(kvqcAudioGetEvents(e, first, capacity, capacity ? &ev : nullptr, &n), 0);
    EXPECT_EQ(n, first == 0 && capacity ? 1u : 0u);
  }
  EXPECT_EQ(kvqcAudioClose(e), 0);

  // Configurations the analysis does not take refuse frames but finish cleanly.
  kvaudqcConfig bad[3] = {};
  bad[0].bitsPerSample = 24, bad[1].channels = 65, bad[2].sampleRate = 4000;
  kvaudqcReport report;
  for (const kvaudqcConfig &config : bad) {
    kvqcAudioEngine *b = kvqcAudioOpen(&config);
    EXPECT_EQ(kvqcAudioFrame(b, pcm.data(), 1, nullptr), KVQC_ERROR);
    EXPECT_EQ(kvqcAudioFinish(b, &report), 0);
    kvqcAudioClose(b);
  }
}

}  // namespace
