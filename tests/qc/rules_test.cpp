// Rule trackers through the internal engine: runs, minimum lengths, detect records, maxima and events.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "qc/engine.h"

namespace {

using kvaudio::qc::RuleFrame;

constexpr uint64_t kFrameSamples = 1600;

struct Engine {
  std::unique_ptr<kvaudio::qc::AudioQcEngine> e = std::make_unique<kvaudio::qc::AudioQcEngine>(nullptr);
  // Feeds rule `rule` a frame per character of `pattern` ('#' holds, '.' clear) at i and i * kFrameSamples.
  kvaudqcDetect Run(uint32_t rule, const std::string &pattern, uint32_t minFrames) {
    kvaudqcDetect d{};
    for (size_t i = 0; i < pattern.size(); ++i) {
      e->positionA = i;
      e->positionB = i * kFrameSamples;
      const bool on = pattern[i] == '#';
      const RuleFrame f{on, on ? uint64_t{1} << (i % 3) : 0, 0, 0, double(i), 100.0, -50.0 + double(i), -300.0};
      e->UpdateTracker(rule, e->Tracker(rule), f, minFrames, kFrameSamples, &d);
    }
    return d;
  }
};

// Runs shorter than the minimum vanish; longer ones close on the first clear frame, or when finished (twice adds
// nothing). The detect record after the last frame: state 1 below the minimum and when clear, 2 from then on.
TEST(RuleTracker, MinimumRunsClosingFrameAndDetectState) {
  struct {
    std::string pattern;
    uint32_t minFrames;
    bool finish;
    std::vector<std::pair<uint64_t, uint64_t>> runs;  // (first frame, closing frame)
    uint32_t state, runFrames;
  } cases[] = {
      {"..........##......", 3, false, {}, 1, 0}, {"..........###.....", 3, false, {{10, 13}}, 1, 0},
      {"###.###.", 3, false, {{0, 3}, {4, 7}}, 1, 0}, {"##.##.", 3, false, {}, 1, 0},
      {"....###", 3, false, {}, 2, 3}, {"....###", 3, true, {{4, 7}}, 2, 3}, {"...##", 3, true, {}, 1, 2},
  };
  for (const auto &k : cases) {
    SCOPED_TRACE(k.pattern);
    Engine en;
    const kvaudqcDetect d = en.Run(4, k.pattern, k.minFrames);
    const size_t last = k.pattern.size() - 1;  // its mask bit is last % 3 while the run holds
    EXPECT_EQ(std::tie(d.state, d.runFrames, d.runSamples, d.channelMask32, d.value, d.reference),
              std::make_tuple(k.state, k.runFrames, k.runFrames * uint32_t{kFrameSamples},
                              k.runFrames ? 1u << (last % 3) : 0u, double(last), 100.0));
    if (k.finish)
      for (int i = 0; i < 2; ++i) en.e->Tracker(4).Finish(4, k.pattern.size(), k.pattern.size() * kFrameSamples, k.minFrames, en.e->Events());
    const auto &ev = en.e->Events();
    ASSERT_EQ(ev.size(), k.runs.size());
    for (size_t i = 0; i < ev.size(); ++i) {
      const auto [first, closing] = k.runs[i];
      EXPECT_EQ(std::tie(ev[i].rule, ev[i].startA, ev[i].endA, ev[i].startB, ev[i].endB, ev[i].reserved),
                std::make_tuple(4u, first, closing - 1, first * kFrameSamples, closing * kFrameSamples, 0u));
    }
  }
}

// A run keeps the union of its frames' masks and the maxima of their values (never below 0) and
// aux figures; the detect record clamps runSamples at 32 bits and passes info through.
TEST(RuleTracker, RunMaximaRatioAndClamps) {
  Engine en;
  en.Run(7, ".####.", 1);
  ASSERT_EQ(en.e->Events().size(), 1u);
  const kvaudqcEvent &e = en.e->Events()[0];
  // Frames 1..4 set mask bits 1, 2, 0, 1; auxB starts at -200 and never rises.
  EXPECT_EQ(std::tie(e.channelMask, e.channelMask32), std::make_tuple(0b111ull, 0b111u));
  EXPECT_EQ(std::tie(e.maxValue, e.reference, e.maxAuxA, e.maxAuxB), std::make_tuple(4.0, 100.0, -46.0, -200.0));
  EXPECT_DOUBLE_EQ(e.ratio, 0.04);
  RuleFrame f{1, 0, 0, 0, -5.0, -10.0, 0, 0};
  for (int i = 0; i < 2; ++i) en.e->UpdateTracker(3, en.e->Tracker(3), f, 1, 10, nullptr);
  f.active = 0;
  en.e->UpdateTracker(3, en.e->Tracker(3), f, 1, 10, nullptr);
  ASSERT_EQ(en.e->Events().size(), 2u);
  EXPECT_EQ(std::tie(en.e->Events()[1].maxValue, en.e->Events()[1].ratio), std::make_tuple(0.0, 0.0));

  const RuleFrame big{1, 0, 0, 42, 0, 0, 0, 0};
  kvaudqcDetect d{};
  for (int i = 0; i < 2; ++i) en.e->UpdateTracker(9, en.e->Tracker(9), big, 1, 3000000000ull, &d);
  EXPECT_EQ(std::tie(d.runSamples, d.info), std::make_tuple(0xFFFFFFFFu, 42ull));

  struct { double value, reference, ratio; } cases[] = {
      {5, 0, 1}, {0, 0, 0}, {-3, 0, 0}, {5, 10, 0.5}, {-5, 10, 0.5}, {30, -10, 1}, {-2, -8, 0.25}};
  for (const auto &k : cases) EXPECT_EQ(kvaudio::qc::Ratio(k.value, k.reference), k.ratio) << k.value << "/" << k.reference;
}

}  // namespace
