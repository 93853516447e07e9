// Format codes both ways, their deliberate non-inverses, header completion and error reports;
// per-frame cadences (each cycle, unknown codes) and frame-size bounds.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "kvaudio/cadence.h"
#include "kvaudio/format.h"

namespace {

constexpr uint32_t kNull = KVAUDIO_ERR_NULL_ARGUMENT, kUnsupported = KVAUDIO_ERR_UNSUPPORTED;

WAVEFORMATEX Record(uint16_t channels, uint32_t rate, uint16_t bits) { return {1, channels, rate, 0, 0, bits, 0}; }

TEST(GetFormatType, CodesAndErrors) {
  const uint32_t cases[][4] = {  // channels, rate, bits, code
      {1, 48000, 8, 0x50001000},  {2, 48000, 16, 0x8000},      {2, 96000, 24, 0xA0000},     {1, 24000, 16, 0x50000090},
      {1, 24000, 8, kUnsupported}, {2, 48000, 12, 0x8000},     {6, 48000, 20, 0x9000},      {0, 48000, 32, 0xC000},
      {1, 48000, 20, 0x5000E000}, {1, 44100, 24, 0xE00},       {2, 88200, 16, 0xC0},        {2, 88200, 24, 0xD0},
      {1, 88200, 16, kUnsupported}, {2, 76800, 8, kUnsupported}, {2, 11127, 16, 0x8},       {1, 7418, 8, 0x50100000},
      {1, 32000, 8, 0x51000000},  {2, 44000, 16, kUnsupported}, {2, 44100, 8, 0x200},      {1, 96000, 24, 0x500E0000},
  };
  testing::internal::CaptureStderr();
  for (const auto &c : cases) {
    const WAVEFORMATEX f = Record(uint16_t(c[0]), c[1], uint16_t(c[2]));
    EXPECT_EQ(audGetFormatType(&f), c[3]) << c[0] << " ch " << c[1] << " Hz " << c[2] << " bits";
  }
  EXPECT_EQ(audGetFormatType(nullptr), kNull);
  // Failures are reported through the error output as well as returned.
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_NE(log.find("audioUtil(0xA80A8003)"), std::string::npos) << log;
  EXPECT_NE(log.find("audioUtil(0xA80A2005)"), std::string::npos) << log;
}

// Every combination with a code: setting the code (its top four bits ignored) and reading it back
// gives the same code, only 0xC0 (which sets 32 bits) reads back as 0xD0.
TEST(SetFormat, CodesRoundTripOverBothTables) {
  for (uint32_t rate : {5563, 7418, 8000, 11025, 11127, 16000, 22050, 22254, 24000, 32000, 44100, 48000, 76800,
                        88200, 96000, 12345}) {
    for (uint16_t channels : {1, 2, 5}) {
      for (uint16_t bits : {8, 12, 16, 20, 24, 32}) {
        const WAVEFORMATEX in = Record(channels, rate, bits);
        const uint32_t code = audGetFormatType(&in);
        if (code == kUnsupported) continue;
        WAVEFORMATEX out{};
        out.cbSize = 9;
        ASSERT_EQ(audSetFormat(code | 0xF0000000u, &out), 0u) << std::hex << code;
        EXPECT_TRUE(out.wFormatTag == 1 && out.cbSize == 0 && (out.nChannels == 1) == (channels == 1)) << std::hex << code;
        EXPECT_EQ(audGetFormatType(&out), code == 0xC0 ? 0xD0u : code) << std::hex << code;
      }
    }
  }
}

TEST(SetFormat, DeliberateNonInversesAndFailures) {
  WAVEFORMATEX f = Record(1, 48000, 20);  // wide mono reads as the 24-bit code
  ASSERT_EQ(audSetFormat(audGetFormatType(&f), &f), 0u);
  EXPECT_EQ(f.wBitsPerSample, 24);
  f = Record(2, 22254, 16);  // a nearby rate reads as the common one
  ASSERT_EQ(audSetFormat(audGetFormatType(&f), &f), 0u);
  EXPECT_EQ(f.nSamplesPerSec, 22050u);
  EXPECT_EQ(f.nAvgBytesPerSec, 0u) << "left to audUpdateHeader";
  f.cbSize = 7;
  for (uint32_t code : {0u, 0x3u, 0xE0u, 0x10000000u, 0x0FFFFFFFu}) {
    EXPECT_EQ(audSetFormat(code, &f), kUnsupported) << std::hex << code;
    EXPECT_EQ(f.cbSize, 0) << "cleared whatever the outcome";
  }
  EXPECT_EQ(f.nSamplesPerSec, 22050u);
  EXPECT_EQ(audSetFormat(0x8000, nullptr), kNull);
}

TEST(UpdateHeader, ByteRateAndBlockAlign) {
  const uint32_t cases[][4] = {{2, 24, 288000, 8}, {2, 16, 192000, 4}, {1, 8, 48000, 1},   {1, 24, 144000, 4},
                               {0, 32, 0, 4},      {6, 20, 864000, 24}, {2, 12, 192000, 4}};  // channels, bits, avg, align
  for (const auto &c : cases) {
    WAVEFORMATEX f = Record(uint16_t(c[0]), 48000, uint16_t(c[1]));
    ASSERT_EQ(audUpdateHeader(&f), 0u);
    EXPECT_EQ(f.nAvgBytesPerSec, c[2]) << c[0] << " ch " << c[1] << " bits";
    EXPECT_EQ(f.nBlockAlign, c[3]) << c[0] << " ch " << c[1] << " bits";
  }
  EXPECT_EQ(audUpdateHeader(nullptr), kNull);
}

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
