// QC engine runs end to end: a ten-minute clip with injected faults, frame cadence, frame
// records, reset and reuse, and bad arguments.
#include <gtest/gtest.h>

#include <cstring>
#include <tuple>

#include "engine_signal.h"

namespace {

using namespace qctest;

void Add(Frame &f, size_t from, size_t count, double delta, bool left = true) {
  for (size_t i = from; i < from + count; ++i) (left ? f.l : f.r)[i] += delta;
}
void Gain(std::vector<double> &v, double g) {
  for (double &x : v) x *= g;
}

// One fault per listed frame of a 25 fps stereo programme.
void TenMinuteFaults(uint64_t i, Frame &f) {
  if (i >= 1000 && i < 1050) Gain(f.l, 0), Gain(f.r, 0);          // programme silence
  if (i >= 2000 && i < 2010) Gain(f.r, 0);                         // right channel gone
  if (i == 3000) std::fill(f.l.begin() + 100, f.l.begin() + 105, 1.0);  // clipped run
  if (i >= 4000 && i < 4005) f.r = f.l, Gain(f.r, -1);             // phase inverted
  if (i == 5000) Add(f, 200, 1, 0.78);                             // click
  if (i == 6000)                                                   // crackle
    for (size_t s : {100, 300, 500, 700}) Add(f, s, 1, 0.6);
  if (i >= 7000 && i < 7005) Gain(f.r, 0.316);                     // 10 dB imbalance
  if (i == 8000) Add(f, 0, f.l.size(), 0.25);                      // DC
  if (i == 9000) std::fill(f.l.begin() + 500, f.l.begin() + 530, 0.0);  // dropout
  if (i >= 10000 && i < 10010) f.r = f.l;                          // dual mono
  if (i >= 11000 && i < 11005) Gain(f.l, 0.05), Gain(f.r, 0.05);   // low level
  if (i == 12000) Add(f, 300, 2, 0.85);                            // near clip
  if (i >= 13000 && i < 13005) Gain(f.r, 0.005);                   // right channel missing
}

TEST(EngineRun, TenMinuteClipYieldsTheInjectedFaults) {
  kvaudqcConfig config{};
  config.flags = 15 | 32;  // every group; true-peak maximum -1 dBTP
  const Outcome run = Analyse(config, 15000, TenMinuteFaults);
  // (rule, first frame, frames), in the order the runs close. A cut to digital silence is also a
  // dropout; clipping, phase inversion, dual mono and a missing channel bridge 25 or 50 frames
  // past the fault; each crackle impulse stands alone, so it is a click too.
  const std::tuple<uint32_t, uint64_t, uint32_t> expected[] = {
      {13, 1000, 1},  {1, 1000, 50},  {13, 2000, 1},  {2, 2000, 10},   {17, 2000, 60},  {6, 3000, 1},
      {16, 3000, 1},  {3, 3000, 26},  {4, 4000, 55},  {9, 5000, 1},    {9, 6000, 1},    {10, 6000, 1},
      {11, 7000, 5},  {12, 8000, 1},  {13, 9000, 1},  {14, 10000, 60}, {15, 11000, 5},  {6, 12000, 1},
      {9, 12000, 1},  {16, 12000, 1}, {2, 13000, 5},  {17, 13000, 55},
  };
  ASSERT_EQ(run.events.size(), std::size(expected));
  for (size_t i = 0; i < run.events.size(); ++i) {
    const kvaudqcEvent &e = run.events[i];
    const auto [rule, first, frames] = expected[i];
    EXPECT_EQ(std::tie(e.rule, e.startA, e.frames, e.startB, e.endB),
              std::make_tuple(rule, first, frames, first * kFrame, (first + frames) * kFrame)) << "event " << i;
  }
  // The clipped run is above -1 dBTP: violation bit 2.
  const kvaudqcReport &r = run.report;
  EXPECT_EQ(std::tie(r.frames, r.samples, r.totalEvents, r.eventsPerRule[8], r.violations, r.passed),
            std::make_tuple(15000ull, 15000ull * kFrame, uint32_t{std::size(expected)}, 3u, 4u, 0u));
}

// Counter B advances by each frame's own length: the 29.97 fps cadence 1602, 1601, ...
TEST(EngineRun, CadenceMovesTheSamplePosition) {
  const std::vector<uint32_t> cadence = {1602, 1601, 1602, 1601, 1602};
  const Outcome run = Analyse(kvaudqcConfig{}, 40, [](uint64_t i, Frame &f) {
    if (i >= 22 && i < 27) Gain(f.l, 0), Gain(f.r, 0);
  }, true, cadence);
  uint64_t position = 0;
  for (size_t i = 0; i < run.records.size(); ++i) {
    EXPECT_EQ(std::tie(run.records[i].frameIndex, run.records[i].samplePosition), std::tie(i, position));
    position += cadence[i % 5];
  }
  EXPECT_EQ(run.report.samples, position);
  const auto silence = OfRule(run, 1);  // from four whole cadences and two frames, one cadence long
  ASSERT_EQ(silence.size(), 1u);
  EXPECT_EQ(std::tie(silence[0].startB, silence[0].samples, silence[0].endB),
            std::make_tuple(4ull * 8008 + 1602 + 1601, 8008ull, 5ull * 8008 + 1602 + 1601));
}

// Levels, counters and live rule state of one frame record.
TEST(EngineRun, FrameRecordCarriesLevelsAndRuleState) {
  kvaudqcConfig config{};
  config.channels = 4;
  config.checkMask = 0b0111;
  const std::vector<int16_t> pcm = [] {
    std::vector<int16_t> v(4 * kFrame, 0);
    for (uint32_t i = 0; i < kFrame; ++i) v[4 * i] = v[4 * i + 3] = (i / 48) % 2 ? 16384 : -16384;  // square, -6 dBFS
    return v;
  }();
  kvqcAudioEngine *e = kvqcAudioOpen(&config);
  kvaudqcFrameAnalyze rec;
  for (int i = 0; i < 12; ++i) ASSERT_EQ(kvqcAudioFrame(e, pcm.data(), kFrame, &rec), 0);
  EXPECT_EQ(std::tie(rec.size, rec.channels, rec.samples), std::make_tuple(1856u, 4u, kFrame));
  EXPECT_NEAR(rec.peakDb[0], -6.0206, 1e-4);
  EXPECT_NEAR(rec.rmsDb[0], -6.0206, 1e-4);
  // Channel 1 is checked and silent, channel 3 not checked; 480 ms in: a momentary reading, no short-term yet.
  EXPECT_EQ(std::tie(rec.peakDb[1], rec.rmsDb[3], rec.shortTerm), std::make_tuple(-200.0, -200.0, -200.0));
  EXPECT_GT(rec.momentary, -200.0);
  // Channels 1 and 2 are silent beside channel 0: rule 2 holds with mask 0b110 since frame 0; rule 1 is clear.
  EXPECT_EQ(rec.activeRules & 3u, 2u);
  EXPECT_EQ(std::tie(rec.detect[1].state, rec.detect[1].runFrames, rec.detect[1].channelMask, rec.detect[0].state),
            std::make_tuple(2u, 12u, 0b110ull, 1u));
  kvqcAudioClose(e);
}

TEST(EngineRun, ResetRunsTheSameAnalysisAgain) {
  kvaudqcConfig config{};
  config.flags = 15 | 32;
  kvqcAudioEngine *e = kvqcAudioOpen(&config);
  const auto faults = [](uint64_t i, Frame &f) { TenMinuteFaults(i + 900, f); };
  const Outcome first = Feed(e, 1200, faults, true);
  ASSERT_EQ(kvqcAudioReset(e), 0);
  const Outcome second = Feed(e, 1200, faults, true);
  kvqcAudioClose(e);
  ASSERT_EQ(first.events.size(), 5u);  // silence and right channel gone, each with its dropout
  ASSERT_EQ(second.events.size(), 5u);
  EXPECT_EQ(0, std::memcmp(first.events.data(), second.events.data(), 5 * sizeof(kvaudqcEvent)));
  EXPECT_EQ(0, std::memcmp(&first.report, &second.report, sizeof first.report));
  // Every frame record, with its rule windows and run state, is the same too.
  for (size_t i = 0; i < first.records.size(); ++i)
    ASSERT_EQ(0, std::memcmp(&first.records[i], &second.records[i], sizeof(kvaudqcFrameAnalyze))) << "frame " << i;
}

TEST(EngineRun, BadArgumentsAndSequence) {
  kvaudqcConfig config{};
  kvqcAudioEngine *e = kvqcAudioOpen(&config);
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
  EXPECT_EQ(std::tie(ev.rule, ev.startA, ev.endA, ev.endB), std::make_tuple(1u, 0u, 99u, 100u * kFrame));
  EXPECT_EQ(kvqcAudioReset(e), 0);
  EXPECT_TRUE(Events(e).empty());
  EXPECT_EQ(kvqcAudioFrame(e, pcm.data(), kFrame, nullptr), 0);
  EXPECT_EQ(kvqcAudioClose(e), 0);

  // Configurations the analysis does not take refuse frames but finish cleanly.
  for (auto change : {+[](kvaudqcConfig &c) { c.bitsPerSample = 24; }, +[](kvaudqcConfig &c) { c.channels = 65; },
                      +[](kvaudqcConfig &c) { c.sampleRate = 4000; }}) {
    kvaudqcConfig bad{};
    change(bad);
    kvqcAudioEngine *b = kvqcAudioOpen(&bad);
    kvaudqcReport report;
    EXPECT_EQ(kvqcAudioFrame(b, pcm.data(), 1, nullptr), KVQC_ERROR);
    EXPECT_EQ(kvqcAudioFinish(b, &report), 0);
    EXPECT_EQ(report.frames, 0u);
    kvqcAudioClose(b);
  }
}

}  // namespace
