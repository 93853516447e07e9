// Peak meters: packed doubled stereo peaks with their lossy extremes, and the raw-pattern mono rule.
#include <gtest/gtest.h>

#include <vector>

#include "kvaudio/peak.h"
#include "test_util.h"

namespace {

TEST(PeakStereo, PackingOnBothPaths) {
  struct Case { std::vector<int16_t> words; uint32_t expect; };
  const Case cases[] = {
      {{}, 0},
      {{-32768, 0}, 0x00010000},             // left 32768 sets bit 16 only
      {{0, -32768}, 0},                      // right 32768 is shifted out
      {{100, -200}, 0x019000C8},
      {{32767, -32767}, 0xFFFEFFFE},
      {{1, 2, -3}, 6 | 2u << 17},            // the unpaired last word is left
  };
  for (int path = 0; path < 2; ++path) {
    kvtest::ScopedAvx2 force(path);
    for (const Case &c : cases)
      EXPECT_EQ(audTestPeak16S(c.words.data(), static_cast<uint32_t>(c.words.size())), c.expect) << path;
    EXPECT_EQ(audTestPeak16S(nullptr, 4), 0u);
  }
}

TEST(PeakMono, RawPatternOfWinningNegativeSample) {
  struct Case { std::vector<int16_t> samples; uint32_t expect; };
  const Case cases[] = {
      {{}, 0}, {{1, -3, 5}, 65533}, {{3, -1}, 3}, {{0, 0}, 0}, {{-1}, 65535},
      {{-5, 32767, -32768}, 65531}, {{7, 300, 12}, 300},
  };
  for (const Case &c : cases)
    EXPECT_EQ(audTestPeak16M(c.samples.data(), static_cast<uint32_t>(c.samples.size())), c.expect);
}

}  // namespace
