// QC engine rules: per rule a fault that must raise exactly one event where the signal puts it,
// and a near miss that must raise none; and the enabling bits.
#include <gtest/gtest.h>

#include <set>

#include "engine_signal.h"

namespace {

using namespace qctest;

// A change to frame k of a fault (k = 0 for its first frame).
using Change = std::function<void(uint64_t k, Frame &f)>;

Change Scale(double left, double right) {
  return [=](uint64_t, Frame &f) {
    for (double &x : f.l) x *= left;
    for (double &x : f.r) x *= right;
  };
}
Change AddLeft(std::vector<size_t> at, double delta) {
  return [=](uint64_t, Frame &f) {
    for (size_t i : at) f.l[i] += delta;
  };
}
Change SetLeft(size_t from, size_t count, double value) {
  return [=](uint64_t, Frame &f) { std::fill(f.l.begin() + from, f.l.begin() + from + count, value); };
}
Change RightFromLeft(double gain, double ownGain = 0.0) {
  return [=](uint64_t, Frame &f) {
    for (size_t i = 0; i < f.l.size(); ++i) f.r[i] = gain * f.l[i] + ownGain * f.r[i];
  };
}
// A 12 kHz tone of peak `peak` whose samples sit at 45 degrees, 3 dB under its peak.
Change QuarterRateTone(double peak) {
  return [=](uint64_t, Frame &f) {
    for (size_t i = 0; i < f.l.size(); ++i) f.l[i] = peak * std::sin(M_PI / 2 * double(i) + M_PI / 4);
  };
}
Change Dc(double offset) {
  return [=](uint64_t, Frame &f) {
    for (double &x : f.l) x += offset;
  };
}
// Every other 5 s both channels take `gain`.
Change Alternate(double gain) {
  return [=](uint64_t k, Frame &f) {
    if (k / 125 % 2 == 0) Scale(gain, gain)(k, f);
  };
}

struct Case {
  const char *name;
  uint32_t rule;
  uint64_t first, count;  // frames of the fault
  Change hit, miss;
  std::function<void(kvaudqcConfig &)> setup = [](kvaudqcConfig &) {};
  uint64_t total = 40;  // frames in the clip
  uint64_t lag = 0;     // 0: exact; else a reading over a window: start and end up to lag frames late
  uint64_t tail = 0;    // frames a bridged rule's event runs on past the fault (to the clip's end)

  Outcome Run(const Change &change, uint32_t bits = 16) const {
    kvaudqcConfig config{};
    config.bitsPerSample = bits;
    setup(config);
    return Analyse(config, total, [&](uint64_t i, Frame &f) {
      if (i >= first && i < first + count) change(i - first, f);
    });
  }
};

const Case kCases[] = {
    {"ProgrammeSilence", 1, 10, 10, Scale(0, 0), Scale(0.025, 0.025)},
    {"ChannelSilence", 2, 10, 5, Scale(1, 0), Scale(1, 0.025)},
    {"Clipping", 3, 10, 1, SetLeft(100, 4, 1.0), SetLeft(100, 1, 1.0), [](kvaudqcConfig &) {}, 40, 0, 25},
    {"PhaseInversion", 4, 10, 5, RightFromLeft(-1.0), RightFromLeft(-0.05), [](kvaudqcConfig &) {}, 40, 0, 25},
    {"LoudnessTarget", 5, 200, 100, Scale(4, 4), Scale(1.12, 1.12),
     [](kvaudqcConfig &c) { c.limits[4] = -20.0, c.limits[5] = 2.0; }, 500, 75},
    {"TruePeak", 6, 10, 1, SetLeft(100, 1, 0.95), SetLeft(100, 1, 0.85), [](kvaudqcConfig &c) { c.flags = 15 | 32; }},
    {"TruePeakBetweenSamples", 6, 10, 5, QuarterRateTone(0.95), QuarterRateTone(0.75),
     [](kvaudqcConfig &c) { c.flags = 15 | 32; }, 40, 1},
    {"MomentaryMax", 7, 200, 100, Scale(4, 4), Scale(1.41, 1.41), [](kvaudqcConfig &c) { c.limits[7] = -15.0; }, 500, 75},
    {"ShortTermMax", 8, 200, 100, Scale(4, 4), Scale(1.41, 1.41), [](kvaudqcConfig &c) { c.limits[8] = -15.0; }, 500, 75},
    // A single-sample step of a makes second differences a, -2a, a.
    {"Click", 9, 10, 1, AddLeft({200}, 0.78), AddLeft({200}, 0.3)},
    {"Crackle", 10, 10, 1, AddLeft({100, 300, 500, 700}, 0.6), AddLeft({100}, 0.4)},
    {"LevelImbalance", 11, 10, 5, Scale(1, 0.316), Scale(1, 0.56)},
    {"DcOffset", 12, 10, 1, Dc(0.25), Dc(0.15)},
    {"Dropout", 13, 10, 1, SetLeft(500, 30, 0.0), SetLeft(500, 10, 0.0)},
    {"DropoutToNoise", 13, 10, 1, Scale(1e-5, 1), Scale(0.01, 1)},  // to -120 dBFS, not to -60
    {"DualMono", 14, 10, 5, RightFromLeft(1.0), RightFromLeft(0.9, 0.3), [](kvaudqcConfig &) {}, 40, 0, 25},
    {"LowLevel", 15, 10, 5, Scale(0.05, 0.05), Scale(0.3, 0.3)},
    {"NearClip", 16, 10, 1, SetLeft(100, 1, 0.97), SetLeft(100, 1, 0.9)},
    {"MissingChannel", 17, 10, 5, Scale(1, 0.005), Scale(1, 0.025), [](kvaudqcConfig &) {}, 40, 0, 25},
    {"LoudnessRange", 18, 250, 500, Alternate(0.1), Alternate(0.8), [](kvaudqcConfig &c) { c.limits[6] = 5.0; }, 750, 150},
};

class EngineRule : public ::testing::TestWithParam<Case> {};

TEST_P(EngineRule, FaultRaisesOneEventWhereItIs) {
  const Case &c = GetParam();
  const Outcome run = c.Run(c.hit);
  const auto events = OfRule(run, c.rule);
  ASSERT_EQ(events.size(), 1u);
  const kvaudqcEvent &e = events[0];
  EXPECT_EQ(e.frames, e.endA - e.startA + 1);
  EXPECT_EQ(e.samples, e.endB - e.startB);
  EXPECT_EQ(e.startB, e.startA * kFrame);
  EXPECT_EQ(e.endB, (e.endA + 1) * kFrame);
  EXPECT_GT(e.channelMask, 0u);
  if (c.lag == 0) {
    EXPECT_EQ(e.startA, c.first);
    EXPECT_EQ(e.frames, c.count + c.tail);
  } else {
    EXPECT_GE(e.startA, c.first);
    EXPECT_LE(e.startA, c.first + c.lag);
    EXPECT_GE(e.endA + 1, std::min(c.first + c.count, c.total));
    EXPECT_LE(e.endA + 1, std::min(c.first + c.count + c.lag, c.total));
  }
  EXPECT_EQ(run.report.eventsPerRule[c.rule - 1], 1u);
  EXPECT_EQ(run.report.passed, 0u);
  // The same audio left-justified in 32 bits gives the same events.
  const Outcome wide = c.Run(c.hit, 32);
  ASSERT_EQ(wide.events.size(), run.events.size());
  for (size_t i = 0; i < run.events.size(); ++i)
    EXPECT_EQ(std::tie(wide.events[i].rule, wide.events[i].startA, wide.events[i].frames, wide.events[i].channelMask),
              std::tie(run.events[i].rule, run.events[i].startA, run.events[i].frames, run.events[i].channelMask));
}

TEST_P(EngineRule, NearMissRaisesNone) {
  const Case &c = GetParam();
  EXPECT_TRUE(OfRule(c.Run(c.miss), c.rule).empty());
}

INSTANTIATE_TEST_SUITE_P(All, EngineRule, ::testing::ValuesIn(kCases),
                         [](const auto &info) { return std::string(info.param.name); });

// flags bit 0: rule 1; bit 1: channel and level rules; bit 3: sample-error rules; reservedA[0]
// narrows to single rules.
TEST(EngineRule, FlagsAndRuleMaskSelectRules) {
  const Fault faults = [](uint64_t i, Frame &f) {
    if (i >= 10 && i < 20) Scale(0, 0)(0, f);  // programme silence, its start a dropout
    if (i == 30) AddLeft({200}, 0.78)(0, f);
  };
  auto bits = [](std::initializer_list<uint32_t> rules) {
    uint32_t m = 0;
    for (uint32_t r : rules) m |= 1u << (r - 1);
    return m;
  };
  const uint32_t level = bits({2, 4, 11, 12, 14, 15, 17}), loudness = bits({5, 6, 7, 8, 18});
  const uint32_t samples = bits({3, 9, 10, 13, 16});
  struct {
    uint32_t flags, mask;
    std::set<uint32_t> rules;  // rules with events
    uint32_t enabled;          // rules whose detect record is live
  } cases[] = {{15, 0, {1, 9, 13}, 0x3FFFF}, {1, 0, {1}, 1},          {8, 0, {9, 13}, samples},
               {15, 1u << 8, {9}, 1u << 8}, {6, 0, {}, level | loudness}, {2, 1, {}, 0}};
  for (const auto &c : cases) {
    kvaudqcConfig config{};
    config.flags = c.flags;
    config.reservedA[0] = c.mask;
    const Outcome run = Analyse(config, 40, faults, true);
    std::set<uint32_t> rules;
    for (const kvaudqcEvent &e : run.events) rules.insert(e.rule);
    EXPECT_EQ(rules, c.rules) << "flags " << c.flags << " mask " << c.mask;
    uint32_t live = 0;
    for (uint32_t r = 1; r <= 18; ++r) live |= (run.records.back().detect[r - 1].state != 0) << (r - 1);
    EXPECT_EQ(live, c.enabled) << "flags " << c.flags << " mask " << c.mask;
  }
}

}  // namespace
