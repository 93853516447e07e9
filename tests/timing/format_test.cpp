// Format codes both ways, their deliberate non-inverses, header completion and error reports.
#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "kvaudio/format.h"

namespace {

constexpr uint32_t kNull = 0xA80A2005;
constexpr uint32_t kUnsupported = 0xA80A8003;

WAVEFORMATEX Record(uint16_t channels, uint32_t rate, uint16_t bits) {
  WAVEFORMATEX f{};
  f.wFormatTag = 1;
  f.nChannels = channels;
  f.nSamplesPerSec = rate;
  f.wBitsPerSample = bits;
  return f;
}

TEST(FormatRecord, FieldOffsetsFollowTheRiffLayout) {
  EXPECT_EQ(offsetof(WAVEFORMATEX, nChannels), 2u);
  EXPECT_EQ(offsetof(WAVEFORMATEX, nSamplesPerSec), 4u);
  EXPECT_EQ(offsetof(WAVEFORMATEX, nAvgBytesPerSec), 8u);
  EXPECT_EQ(offsetof(WAVEFORMATEX, nBlockAlign), 12u);
  EXPECT_EQ(offsetof(WAVEFORMATEX, wBitsPerSample), 14u);
  EXPECT_EQ(offsetof(WAVEFORMATEX, cbSize), 16u);
}

TEST(GetFormatType, CodesAndErrors) {
  struct Case {
    uint16_t channels;
    uint32_t rate;
    uint16_t bits;
    uint32_t code;
  };
  const Case cases[] = {
      {1, 48000, 8, 0x50001000},  {2, 48000, 16, 0x00008000}, {2, 96000, 24, 0x000A0000},
      {1, 24000, 16, 0x50000090}, {1, 24000, 8, kUnsupported}, {2, 48000, 12, 0x00008000},
      {6, 48000, 20, 0x00009000}, {0, 48000, 32, 0x0000C000}, {1, 48000, 20, 0x5000E000},
      {1, 44100, 24, 0x00000E00}, {1, 44100, 16, 0x50000400}, {2, 44100, 18, 0x00000800},
      {2, 88200, 16, 0x000000C0}, {2, 88200, 24, 0x000000D0}, {1, 88200, 16, kUnsupported},
      {2, 76800, 16, 0x00010000}, {2, 76800, 8, kUnsupported}, {1, 76800, 24, kUnsupported},
      {1, 96000, 8, kUnsupported}, {2, 11127, 16, 0x00000008}, {1, 5563, 8, 0x50100000},
      {2, 7418, 24, 0x00800000},  {2, 32000, 16, 0x08000000}, {1, 32000, 8, 0x51000000},
      {2, 22254, 8, 0x00000020},  {1, 16000, 12, 0x5000000B}, {2, 44000, 16, kUnsupported},
  };
  for (const Case &c : cases) {
    const WAVEFORMATEX f = Record(c.channels, c.rate, c.bits);
    EXPECT_EQ(audGetFormatType(&f), c.code) << c.channels << " ch " << c.rate << " Hz " << c.bits << " bits";
  }
  EXPECT_EQ(audGetFormatType(nullptr), kNull);
}

TEST(SetFormat, EveryCodeReadsBackExceptTheDeliberateOnes) {
  const uint32_t codes[] = {
      0x1,     0x2,     0x4,      0x8,      0x9,      0xA,      0xB,       0xC,       0x10,
      0x20,    0x40,    0x80,     0x90,     0xA0,     0xC0,     0xD0,      0x100,     0x200,
      0x400,   0x800,   0x900,    0xA00,    0xC00,    0xE00,    0x1000,    0x2000,    0x4000,
      0x8000,  0x9000,  0xA000,   0xC000,   0xE000,   0x10000,  0x20000,   0x40000,   0x80000,
      0x90000, 0xA0000, 0xC0000,  0xE0000,  0x100000, 0x200000, 0x400000,  0x800000,  0x1000000,
      0x2000000, 0x4000000, 0x8000000};
  for (uint32_t code : codes) {
    WAVEFORMATEX f{};
    f.cbSize = 22;
    // The top nibble (the mono marker) is ignored on the way in.
    ASSERT_EQ(audSetFormat(code | 0x50000000, &f), 0u) << std::hex << code;
    EXPECT_EQ(f.wFormatTag, 1);
    EXPECT_EQ(f.cbSize, 0);
    EXPECT_EQ(f.nAvgBytesPerSec, 0u) << "left to audUpdateHeader";
    const uint32_t back = audGetFormatType(&f);
    // 0xC0 sets 32 bits, which reads as 0xD0.
    EXPECT_EQ(back & 0x0FFFFFFF, code == 0xC0 ? 0xD0u : code) << std::hex << code;
    EXPECT_EQ((back & 0xF0000000) != 0, f.nChannels == 1 && code != 0xE00) << std::hex << code;
  }
}

TEST(SetFormat, SpecificCodesAndFailures) {
  WAVEFORMATEX f{};
  ASSERT_EQ(audSetFormat(0x50001000, &f), 0u);
  EXPECT_EQ(f.nChannels, 1);
  EXPECT_EQ(f.nSamplesPerSec, 48000u);
  EXPECT_EQ(f.wBitsPerSample, 8);
  // A 20-bit mono record reads as the wide mono code, which sets 24 bits.
  WAVEFORMATEX m = Record(1, 48000, 20);
  ASSERT_EQ(audSetFormat(audGetFormatType(&m), &m), 0u);
  EXPECT_EQ(m.wBitsPerSample, 24);
  // Nearby rates read as the common rate's code.
  WAVEFORMATEX r = Record(2, 22254, 16);
  ASSERT_EQ(audSetFormat(audGetFormatType(&r), &r), 0u);
  EXPECT_EQ(r.nSamplesPerSec, 22050u);

  WAVEFORMATEX bad = Record(2, 48000, 16);
  bad.cbSize = 7;
  for (uint32_t code : {0u, 0x3u, 0xE0u, 0x10000000u, 0x0FFFFFFFu}) {
    EXPECT_EQ(audSetFormat(code, &bad), kUnsupported) << std::hex << code;
    EXPECT_EQ(bad.cbSize, 0) << "cleared whatever the outcome";
    EXPECT_EQ(bad.nSamplesPerSec, 48000u);
  }
  EXPECT_EQ(audSetFormat(0x8000, nullptr), kNull);
}

TEST(UpdateHeader, ByteRateAndBlockAlign) {
  struct Case {
    uint16_t channels;
    uint32_t rate;
    uint16_t bits;
    uint32_t avg;
    uint16_t align;
  };
  const Case cases[] = {
      {2, 48000, 24, 288000, 8}, {2, 48000, 16, 192000, 4}, {1, 44100, 8, 44100, 1},
      {1, 48000, 24, 144000, 4}, {0, 48000, 32, 0, 4},      {6, 48000, 20, 864000, 24},
      {2, 48000, 12, 192000, 4}, {8, 96000, 32, 3072000, 32},
  };
  for (const Case &c : cases) {
    WAVEFORMATEX f = Record(c.channels, c.rate, c.bits);
    ASSERT_EQ(audUpdateHeader(&f), 0u);
    EXPECT_EQ(f.nAvgBytesPerSec, c.avg) << c.channels << " ch " << c.bits << " bits";
    EXPECT_EQ(f.nBlockAlign, c.align) << c.channels << " ch " << c.bits << " bits";
  }
  EXPECT_EQ(audUpdateHeader(nullptr), kNull);
}

TEST(FormatErrors, ReportedThroughTheErrorOutput) {
  const WAVEFORMATEX f = Record(1, 24000, 8);
  testing::internal::CaptureStderr();
  audGetFormatType(&f);
  audGetFormatType(nullptr);
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_NE(log.find("audioUtil(0xA80A8003)"), std::string::npos) << log;
  EXPECT_NE(log.find("audioUtil(0xA80A2005)"), std::string::npos) << log;
}

}  // namespace
