// Per-frame cadences (sums over each cycle, unknown codes) and the frame-size bounds.
#include <gtest/gtest.h>

#include <algorithm>

#include "kvaudio/cadence.h"

namespace {

using PerFrame = uint32_t (*)(uint32_t, uint32_t, uint32_t, uint32_t *, uint32_t *);

uint32_t SamplesOf(PerFrame fn, uint32_t frame, uint32_t code) {
  uint32_t samples = 0;
  EXPECT_EQ(fn(frame, code, 1, &samples, nullptr), 0u) << "code " << code;
  return samples;
}

TEST(SamplesPerFrame, CycleSumsAndFrameSizes) {
  struct Case {
    const char *name;
    PerFrame fn;
    uint32_t code, cycle, sum, smallest, largest;
  };
  const Case cases[] = {
      {"48k/23", audSamplesPerFrame48kHz, 23, 1, 2002, 2002, 2002},
      {"48k/24", audSamplesPerFrame48kHz, 24, 1, 2000, 2000, 2000},
      {"48k/25", audSamplesPerFrame48kHz, 25, 1, 1920, 1920, 1920},
      {"48k/29", audSamplesPerFrame48kHz, 29, 5, 8008, 1601, 1602},
      {"48k/30", audSamplesPerFrame48kHz, 30, 5, 8008, 1601, 1602},
      {"48k/50", audSamplesPerFrame48kHz, 50, 1, 960, 960, 960},
      {"48k/59", audSamplesPerFrame48kHz, 59, 5, 4004, 800, 801},
      {"48k/60", audSamplesPerFrame48kHz, 60, 5, 4004, 800, 801},
      {"44k/23", audSamplesPerFrame441kHz, 23, 2, 3675, 1837, 1838},
      {"44k/24", audSamplesPerFrame441kHz, 24, 2, 3675, 1837, 1838},
      {"44k/25", audSamplesPerFrame441kHz, 25, 1, 1764, 1764, 1764},
      {"44k/29", audSamplesPerFrame441kHz, 29, 6, 8829, 1471, 1472},
      {"44k/30", audSamplesPerFrame441kHz, 30, 6, 8829, 1471, 1472},
      {"44k/50", audSamplesPerFrame441kHz, 50, 1, 882, 882, 882},
      {"44k/59", audSamplesPerFrame441kHz, 59, 6, 4414, 735, 736},
      {"44k/60", audSamplesPerFrame441kHz, 60, 6, 4414, 735, 736},
  };
  for (const Case &c : cases) {
    // Every cycle, including one that straddles the 32-bit wrap of the frame number, sums alike.
    for (uint32_t first : {0u, c.cycle * 7, 0xFFFFFFFFu / c.cycle * c.cycle - c.cycle}) {
      uint32_t sum = 0, lo = ~0u, hi = 0;
      for (uint32_t k = 0; k < c.cycle; ++k) {
        const uint32_t s = SamplesOf(c.fn, first + k, c.code);
        sum += s;
        lo = std::min(lo, s);
        hi = std::max(hi, s);
      }
      EXPECT_EQ(sum, c.sum) << c.name << " from " << first;
      EXPECT_EQ(lo, c.smallest) << c.name;
      EXPECT_EQ(hi, c.largest) << c.name;
    }
  }
}

TEST(SamplesPerFrame, PositionsInTheCycle) {
  const uint32_t ntsc[] = {1602, 1601, 1602, 1601, 1602};
  for (uint32_t f = 0; f < 5; ++f) EXPECT_EQ(SamplesOf(audSamplesPerFrame48kHz, f, 29), ntsc[f]);
  EXPECT_EQ(SamplesOf(audSamplesPerFrame48kHz, 9, 59), 800u);
  EXPECT_EQ(SamplesOf(audSamplesPerFrame48kHz, 10, 59), 801u);
  EXPECT_EQ(SamplesOf(audSamplesPerFrame441kHz, 7, 23), 1838u);
  const uint32_t ntsc441[] = {1471, 1472, 1471, 1472, 1471, 1472};
  const uint32_t p60_441[] = {736, 736, 736, 736, 735, 735};
  for (uint32_t f = 0; f < 6; ++f) {
    EXPECT_EQ(SamplesOf(audSamplesPerFrame441kHz, f, 29), ntsc441[f]);
    EXPECT_EQ(SamplesOf(audSamplesPerFrame441kHz, f, 59), p60_441[f]);
  }
}

TEST(SamplesPerFrame, BytesAndUnknownCodes) {
  for (PerFrame fn : {audSamplesPerFrame48kHz, audSamplesPerFrame441kHz}) {
    uint32_t samples = 0, bytes = 0;
    ASSERT_EQ(fn(3, 25, 8, &samples, &bytes), 0u);
    EXPECT_EQ(bytes, 8 * samples);
    for (uint32_t code = 0; code <= 100; ++code) {
      const bool known = code == 23 || code == 24 || code == 25 || code == 29 || code == 30 ||
                         code == 50 || code == 59 || code == 60;
      samples = bytes = 0xAB;
      EXPECT_EQ(fn(0, code, 4, &samples, &bytes), known ? 0u : 0xFFFFFFFFu) << code;
      if (!known) {
        EXPECT_TRUE(samples == 0xAB && bytes == 0xAB) << "stores nothing, code " << code;
      }
    }
  }
}

TEST(MinMaxSamplesPerFrame, FixedValuesAt48kAndDefaultsElsewhere) {
  struct Case {
    uint32_t code, rate, minimum, maximum;
  };
  const Case cases[] = {
      {23, 48000, 2000, 2000}, {24, 48000, 2000, 2000}, {25, 48000, 1920, 1920},
      {29, 48000, 1601, 1602}, {30, 48000, 1600, 1600}, {50, 48000, 960, 960},
      {59, 48000, 800, 801},   {60, 48000, 800, 800},   {26, 48000, 1846, 1846},
      {49, 48000, 1000, 979},  {29, 44100, 1575, 1520}, {25, 44100, 1764, 1764},
      {59, 44100, 760, 747},   {24, 96000, 4000, 4000}, {9, 48000, 6000, 5333},
  };
  for (const Case &c : cases) {
    uint32_t lo = 0, hi = 0;
    EXPECT_EQ(audMinMaxSamplesPerFrame(&lo, &hi, c.code, c.rate), 0u);
    EXPECT_EQ(lo, c.minimum) << c.code << " at " << c.rate;
    EXPECT_EQ(hi, c.maximum) << c.code << " at " << c.rate;
  }
  uint32_t lo = 7;
  EXPECT_EQ(audMinMaxSamplesPerFrame(&lo, nullptr, 25, 48000), 0u);
  EXPECT_EQ(lo, 1920u);
  EXPECT_EQ(audMinMaxSamplesPerFrame(&lo, nullptr, 0, 48000), 0u);
  EXPECT_EQ(lo, 1920u) << "code 0 stores nothing";
}

}  // namespace
