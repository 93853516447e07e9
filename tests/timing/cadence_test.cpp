// Per-frame cadences (each cycle, unknown codes) and frame-size bounds.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "kvaudio/cadence.h"

namespace {

using PerFrame = uint32_t (*)(uint32_t, uint32_t, uint32_t, uint32_t *, uint32_t *);

// The published cycles, at their start, later and at the end of the 32-bit frame count.
TEST(SamplesPerFrame, CyclesAndUnknownCodes) {
  const PerFrame k48 = audSamplesPerFrame48kHz, k441 = audSamplesPerFrame441kHz;
  const struct {
    PerFrame fn;
    uint32_t code;
    std::vector<uint32_t> cycle;
  } cases[] = {
      {k48, 23, {2002}}, {k48, 24, {2000}}, {k48, 25, {1920}},
      {k48, 29, {1602, 1601, 1602, 1601, 1602}}, {k48, 30, {1602, 1601, 1602, 1601, 1602}},
      {k48, 50, {960}}, {k48, 59, {801, 801, 801, 801, 800}}, {k48, 60, {801, 801, 801, 801, 800}},
      {k441, 23, {1837, 1838}}, {k441, 24, {1837, 1838}}, {k441, 25, {1764}},
      {k441, 29, {1471, 1472, 1471, 1472, 1471, 1472}}, {k441, 30, {1471, 1472, 1471, 1472, 1471, 1472}},
      {k441, 50, {882}}, {k441, 59, {736, 736, 736, 736, 735, 735}},
      {k441, 60, {736, 736, 736, 736, 735, 735}},
  };
  for (const auto &c : cases) {
    const uint32_t n = static_cast<uint32_t>(c.cycle.size());
    for (uint32_t first : {0u, 7 * n, 0xFFFFFFFFu / n * n - n}) {  // the cycle repeats up to the 32-bit end
      for (uint32_t k = 0; k < n; ++k) {
        uint32_t samples = 0, bytes = 0;
        ASSERT_EQ(c.fn(first + k, c.code, 6, &samples, &bytes), 0u);
        EXPECT_EQ(samples, c.cycle[k]) << "code " << c.code << " frame " << first + k;
        EXPECT_EQ(bytes, 6 * samples);
      }
    }
  }
  for (PerFrame fn : {k48, k441}) {
    for (uint32_t code = 0; code <= 100; ++code) {
      const bool known = std::any_of(std::begin(cases), std::end(cases), [&](const auto &c) { return c.code == code; });
      uint32_t samples = 0xAB, bytes = 0xAB;
      EXPECT_EQ(fn(0, code, 4, &samples, &bytes), known ? 0u : KVAUDIO_CADENCE_UNKNOWN_RATE) << code;
      EXPECT_EQ(samples == 0xAB && bytes == 0xAB, !known) << code;
    }
  }
}

TEST(MinMaxSamplesPerFrame, FixedValuesAt48kAndDefaultsElsewhere) {
  const uint32_t cases[][4] = {  // code, rate, minimum, maximum
      {23, 48000, 2000, 2000}, {24, 48000, 2000, 2000}, {25, 48000, 1920, 1920}, {29, 48000, 1601, 1602},
      {30, 48000, 1600, 1600}, {50, 48000, 960, 960},   {59, 48000, 800, 801},   {60, 48000, 800, 800},
      {26, 48000, 1846, 1846}, {49, 48000, 1000, 979},  {29, 44100, 1575, 1520}, {59, 44100, 760, 747},
      {24, 96000, 4000, 4000},
  };
  for (const auto &c : cases) {
    uint32_t lo = 0, hi = 0;
    EXPECT_EQ(audMinMaxSamplesPerFrame(&lo, &hi, c[0], c[1]), 0u);
    EXPECT_EQ(lo, c[2]) << c[0] << " at " << c[1];
    EXPECT_EQ(hi, c[3]) << c[0] << " at " << c[1];
  }
  uint32_t lo = 7;
  EXPECT_EQ(audMinMaxSamplesPerFrame(&lo, nullptr, 0, 48000), 0u);
  EXPECT_EQ(lo, 7u) << "code 0 stores nothing";
}

}  // namespace
