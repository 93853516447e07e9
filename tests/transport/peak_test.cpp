// Peak meters: packed doubled stereo peaks with their lossy extremes, and the raw-pattern mono rule.
#include <gtest/gtest.h>

#include <vector>

#include "kvaudio/peak.h"

namespace {

TEST(Peak, StereoPackingAndMonoRawPattern) {
  const auto S = audTestPeak16S, M = audTestPeak16M;
  struct Case { uint32_t (*peak)(const int16_t *, uint32_t); std::vector<int16_t> words; uint32_t expect; };
  const Case cases[] = {
      {S, {}, 0},
      {S, {-32768, 0}, 0x00010000},  // left 32768 sets bit 16 only
      {S, {0, -32768}, 0},           // right 32768 is shifted out
      {S, {100, -200}, 0x019000C8},
      {S, {32767, -32767}, 0xFFFEFFFE},
      {S, {1, 2, -3}, 6 | 2u << 17},  // the unpaired last word is left
      {M, {}, 0}, {M, {1, -3, 5}, 65533}, {M, {3, -1}, 3}, {M, {0, 0}, 0}, {M, {-1}, 65535},
      {M, {-5, 32767, -32768}, 65531}, {M, {7, 300, 12}, 300},
  };
  for (const Case &c : cases)
    EXPECT_EQ(c.peak(c.words.data(), static_cast<uint32_t>(c.words.size())), c.expect) << (c.peak == S) << " " << c.expect;
  EXPECT_EQ(audTestPeak16S(nullptr, 4), 0u);
}

}  // namespace
