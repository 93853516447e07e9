// Rule trackers through the internal engine: runs, minimum lengths, windows, detect records, events.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "qc/engine.h"

namespace {

using kvaudio::qc::AudioQcEngine;
using kvaudio::qc::RuleFrame;

constexpr uint64_t kFrameSamples = 1600;

struct Engine {
  std::unique_ptr<AudioQcEngine> e;
  explicit Engine(uint32_t window = 0) {
    kvaudqcConfig c{};
    c.ruleSettings[0] = window;
    e = std::make_unique<AudioQcEngine>(&c);
  }
  // Feeds rule `rule` one frame per character of `pattern` ('#' holds, '.' clear); frame i has
  // position counters i and i * kFrameSamples.
  kvaudqcDetect Run(uint32_t rule, const std::string &pattern, uint32_t minFrames, uint64_t first = 0) {
    kvaudqcDetect d{};
    for (size_t i = 0; i < pattern.size(); ++i) {
      e->positionA = first + i;
      e->positionB = (first + i) * kFrameSamples;
      RuleFrame f{};
      f.active = pattern[i] == '#';
      f.channelMask = f.active ? uint64_t{1} << (i % 3) : 0;
      f.value = static_cast<double>(i);
      f.reference = 100.0;
      f.auxA = -50.0 + static_cast<double>(i);
      f.auxB = -300.0;
      e->UpdateTracker(rule, e->Tracker(rule), f, minFrames, kFrameSamples, &d);
    }
    return d;
  }
  void Finish(uint32_t rule, uint32_t minFrames) {
    e->Tracker(rule).Finish(rule, e->positionA + 1, (e->positionA + 1) * kFrameSamples, minFrames, e->Events());
  }
};

// Runs shorter than the minimum vanish; a run of at least the minimum closes on the first clear
// frame; two runs separated by one clear frame are two events.
TEST(RuleTracker, MinimumRunsAndClosingFrame) {
  struct Case {
    std::string pattern;
    uint32_t minFrames;
    std::vector<std::pair<uint64_t, uint64_t>> runs;  // (first frame, closing frame)
  } cases[] = {
      {"..........##......", 3, {}},
      {"..........###.....", 3, {{10, 13}}},
      {"#.#", 1, {{0, 1}}},  // the last run is still open
      {"###.###.", 3, {{0, 3}, {4, 7}}},
      {"##.##.", 3, {}},
      {"#####.", 0, {{0, 5}}},
  };
  for (const Case &k : cases) {
    Engine en;
    en.Run(4, k.pattern, k.minFrames);
    const auto &ev = en.e->Events();
    ASSERT_EQ(ev.size(), k.runs.size()) << k.pattern;
    for (size_t i = 0; i < ev.size(); ++i) {
      const auto [first, closing] = k.runs[i];
      EXPECT_EQ(ev[i].rule, 4u);
      EXPECT_EQ(ev[i].startA, first) << k.pattern;
      EXPECT_EQ(ev[i].endA, closing - 1) << k.pattern;
      EXPECT_EQ(ev[i].startB, first * kFrameSamples);
      EXPECT_EQ(ev[i].endB, closing * kFrameSamples);
      EXPECT_EQ(ev[i].frames, closing - first);
      EXPECT_EQ(ev[i].samples, (closing - first) * kFrameSamples);
      EXPECT_EQ(ev[i].reserved, 0u);
    }
    EXPECT_EQ(en.e->Tracker(4).detect.eventCount, k.runs.size());
  }
}

TEST(RuleTracker, FinishClosesOpenRun) {
  Engine en;
  en.Run(2, "....####", 3);
  EXPECT_TRUE(en.e->Events().empty());
  en.Finish(2, 3);
  ASSERT_EQ(en.e->Events().size(), 1u);
  const kvaudqcEvent &e = en.e->Events()[0];
  EXPECT_EQ(e.startA, 4u);
  EXPECT_EQ(e.endA, 7u);
  EXPECT_EQ(e.endB, 8 * kFrameSamples);
  EXPECT_EQ(e.frames, 4u);
  EXPECT_EQ(en.e->Tracker(2).open, 0);
  // A short open run is dropped, and finishing twice adds nothing.
  Engine shortRun;
  shortRun.Run(2, "...##", 3);
  shortRun.Finish(2, 3);
  shortRun.Finish(2, 3);
  EXPECT_TRUE(shortRun.e->Events().empty());
  EXPECT_EQ(shortRun.e->Tracker(2).runFrames, 0u);
  // endA is 0 when the first counter is 0.
  Engine atZero;
  atZero.e->Tracker(1).open = 1;
  atZero.e->Tracker(1).runFrames = 5;
  atZero.e->Tracker(1).Finish(1, 0, 0, 3, atZero.e->Events());
  EXPECT_EQ(atZero.e->Events().at(0).endA, 0u);
}

TEST(RuleTracker, RunMaximaMasksAndRatio) {
  Engine en;
  en.Run(7, ".####.", 1);
  ASSERT_EQ(en.e->Events().size(), 1u);
  const kvaudqcEvent &e = en.e->Events()[0];
  EXPECT_EQ(e.channelMask, 0b111u);  // frames 1..4 set bits 1, 2, 0, 1
  EXPECT_EQ(e.channelMask32, 0b111u);
  EXPECT_EQ(e.maxValue, 4.0);
  EXPECT_EQ(e.reference, 100.0);
  EXPECT_EQ(e.maxAuxA, -46.0);
  EXPECT_EQ(e.maxAuxB, -200.0);  // starts at -200 and never rises
  EXPECT_DOUBLE_EQ(e.ratio, 0.04);
}

TEST(RuleTracker, NegativeValuesRecordZeroMaximum) {
  Engine en;
  RuleFrame f{};
  f.active = 1;
  f.value = -5.0;
  f.reference = -10.0;
  for (int i = 0; i < 2; ++i) en.e->UpdateTracker(3, en.e->Tracker(3), f, 1, 10, nullptr);
  f.active = 0;
  en.e->UpdateTracker(3, en.e->Tracker(3), f, 1, 10, nullptr);
  ASSERT_EQ(en.e->Events().size(), 1u);
  EXPECT_EQ(en.e->Events()[0].maxValue, 0.0);
  EXPECT_EQ(en.e->Events()[0].ratio, 0.0);
}

TEST(RuleTracker, Ratio) {
  struct Case {
    double value, reference, ratio;
  } cases[] = {{5, 0, 1}, {0, 0, 0}, {-3, 0, 0}, {5, 10, 0.5}, {-5, 10, 0.5}, {30, -10, 1}, {-2, -8, 0.25}};
  for (const Case &k : cases) EXPECT_EQ(kvaudio::qc::Ratio(k.value, k.reference), k.ratio) << k.value << "/" << k.reference;
}

// state: 1 below the minimum, 2 from the minFrames-th frame on, 1 with zero counts when clear.
TEST(RuleTracker, DetectState) {
  Engine en;
  EXPECT_EQ(en.e->Tracker(5).detect.state, 0u);
  const uint32_t expected[] = {1, 1, 2, 2, 1};
  const std::string pattern = "####.";
  for (size_t i = 0; i < pattern.size(); ++i) {
    const kvaudqcDetect d = en.Run(5, pattern.substr(i, 1), 3, i);
    EXPECT_EQ(d.state, expected[i]) << i;
    EXPECT_EQ(d.runFrames, pattern[i] == '#' ? i + 1 : 0) << i;
    EXPECT_EQ(d.runSamples, pattern[i] == '#' ? (i + 1) * kFrameSamples : 0) << i;
    EXPECT_EQ(d.channelMask, pattern[i] == '#' ? 1u : 0u) << i;
    EXPECT_EQ(d.value, 0.0);
    EXPECT_EQ(d.reference, 100.0);
    EXPECT_EQ(d.eventCount, i == 4 ? 1u : 0u);
  }
}

TEST(RuleTracker, RunSamplesClamp) {
  Engine en;
  RuleFrame f{};
  f.active = 1;
  f.info = 42;
  kvaudqcDetect d{};
  en.e->UpdateTracker(9, en.e->Tracker(9), f, 1, 3000000000ull, &d);
  EXPECT_EQ(d.runSamples, 3000000000u);
  en.e->UpdateTracker(9, en.e->Tracker(9), f, 1, 3000000000ull, &d);
  EXPECT_EQ(d.runSamples, 0xFFFFFFFFu);
  EXPECT_EQ(en.e->Tracker(9).runSamples, 6000000000ull);
  EXPECT_EQ(d.info, 42u);
}

TEST(RuleTracker, SlidingWindowCounts) {
  Engine en(30);
  std::string alternating;
  for (int i = 0; i < 100; ++i) alternating += i % 2 ? '#' : '.';
  for (size_t i = 0; i < alternating.size(); ++i) {
    const kvaudqcDetect d = en.Run(6, alternating.substr(i, 1), 3, i);
    EXPECT_EQ(d.windowFill, std::min<uint32_t>(static_cast<uint32_t>(i) + 1, 30)) << i;
    if (i >= 29) {
      EXPECT_EQ(d.windowCount, 15u) << i;
    }
  }
  // A window of 4 over "#######...": the count drops once the ring forgets the run.
  Engine small(4);
  const std::string pattern = "#######....";
  const uint32_t counts[] = {1, 2, 3, 4, 4, 4, 4, 3, 2, 1, 0};
  for (size_t i = 0; i < pattern.size(); ++i)
    EXPECT_EQ(small.Run(6, pattern.substr(i, 1), 3, i).windowCount, counts[i]) << i;
}

TEST(RuleTracker, ClearAnalysisResetsEverything) {
  Engine en(8);
  en.Run(1, "###.##", 1);
  ASSERT_FALSE(en.e->Events().empty());
  en.e->ClearAnalysis();
  EXPECT_TRUE(en.e->Events().empty());
  EXPECT_EQ(en.e->positionA, 0u);
  for (uint32_t r = 1; r <= kvaudio::qc::kRuleCount; ++r) {
    EXPECT_EQ(en.e->Tracker(r).open, 0);
    EXPECT_TRUE(en.e->Tracker(r).window.empty());
    EXPECT_EQ(en.e->Tracker(r).detect.eventCount, 0u);
    EXPECT_EQ(en.e->Tracker(r).detect.state, 0u);
  }
}

}  // namespace
