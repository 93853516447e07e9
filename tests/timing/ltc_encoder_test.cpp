// LTC encoder: waveform read back bit by bit, frame and bit lengths, speed, set-up and truncation.
#include <gtest/gtest.h>

#include <string>

#include "ltc_signal.h"

namespace {

using ltctest::Rate;

// Runs of equal samples in a mono buffer of 1- or 2-byte samples.
struct RunLength {
  int level;
  uint32_t length;
};

int SampleAt(const std::vector<uint8_t> &buf, size_t width, size_t i) {
  if (width == 1) return buf[i];
  int16_t s;
  std::memcpy(&s, &buf[2 * i], 2);
  return s;
}

std::vector<RunLength> Runs(const std::vector<uint8_t> &buf, size_t width) {
  std::vector<RunLength> runs;
  for (size_t i = 0; i < buf.size() / width; ++i) {
    const int s = SampleAt(buf, width, i);
    if (runs.empty() || runs.back().level != s) runs.push_back({s, 0});
    ++runs.back().length;
  }
  return runs;
}

// Every configuration: the waveform holds exactly the frame's 80 bits as biphase mark, the bit
// lengths follow sampleRate / bitsPerSecond exactly, and the frame has the size
// smpteRequiredBuffer announces (the last sample repeated to fill it).
TEST(LtcEncoder, WaveformCarriesTheFrameBitsAtExactLengths) {
  for (const Rate &r : ltctest::kRates) {
    for (uint32_t sampleRate : {44100u, 48000u, 32000u}) {
      for (uint32_t bits : {8u, 16u}) {
        SCOPED_TRACE(std::string(r.name) + " " + std::to_string(sampleRate) + " " + std::to_string(bits));
        kvaudio::ltc::ResetEncoderForTesting();
        ASSERT_EQ(smpteSetup(static_cast<int32_t>(sampleRate), bits, 0, 0, r.flags, 0), 0u);
        const size_t width = bits / 8;
        const uint64_t num = uint64_t(sampleRate) * r.per, perBit = uint64_t(r.fps) * 80;
        const uint32_t frameFloor = static_cast<uint32_t>(num / r.fps);
        const uint32_t required = frameFloor + (num % r.fps ? 1 : 0);
        ASSERT_EQ(smpteRequiredBuffer(), required * width);
        std::vector<uint8_t> buf(required * width + 64, 0x5A);
        const uint16_t written = smpteEncode(1234, 0xCAFEF00D, buf.data(), 0xFFFFFFFF);
        ASSERT_EQ(written, required * width);
        ASSERT_EQ(buf[written], 0x5A);
        buf.resize(written);
        const SMPTE_FRAME &f = bits == 16 ? encoder.writer16.frame : encoder.writer8.frame;
        const auto runs = Runs(buf, width);
        size_t run = 0, sum = 0;
        for (int i = 0; i < 80; ++i) {
          const uint32_t len = static_cast<uint32_t>((i + 1) * num / perBit - i * num / perBit);
          ASSERT_LT(run, runs.size());
          const bool one = (f.bytes[i / 8] >> (i % 8)) & 1;
          uint32_t got = runs[run++].length;
          if (one) {
            ASSERT_EQ(got, len / 2) << "bit " << i;
            ASSERT_LT(run, runs.size());
            got += runs[run++].length;
          }
          sum += got;
          if (i < 79) ASSERT_EQ(got, len) << "bit " << i;
          else ASSERT_EQ(sum, required) << "frame end";  // the repeat sample joins the last run
        }
        for (const auto &rl : runs) {
          const bool known = width == 2 ? (rl.level == 0x3000 || rl.level == -12289) : (rl.level == 0 || rl.level == 0xFF);
          ASSERT_TRUE(known) << rl.level;
        }
        // Every frame holds an even number of transitions: the next one starts at the same level
        // with a transition at the boundary.
        std::vector<uint8_t> next(required * width);
        smpteEncode(1235, 0, next.data(), 0xFFFFFFFF);
        ASSERT_EQ(SampleAt(next, width, 0), SampleAt(buf, width, 0));
        ASSERT_NE(SampleAt(next, width, 0), SampleAt(buf, width, required - 1));
      }
    }
  }
}

// The rate byte picks the frame length as a whole value; other values run at 30 fps. Load time:
// 44100 Hz, 16-bit, 29.97 (1471.47 samples a frame).
TEST(LtcEncoder, RateByteTableAndLoadTimeState) {
  kvaudio::ltc::ResetEncoderForTesting();
  EXPECT_EQ(smpteRequiredBuffer(), 2 * 1472u);
  EXPECT_EQ(encoder.writer16.bitIndex, 81);
  EXPECT_EQ(encoder.writer8.frame.bytes[9], 0xBF);
  const uint32_t cases[][2] = {{0x80, 2000}, {0x88, 1600}, {0x10, 1920}, {0x20, 1602},
                               {0x40, 1602}, {0x03, 1600}, {0x0C, 1600}, {0xFF, 1600}};
  for (const auto &c : cases) {
    ASSERT_EQ(smpteSetup(48000, 8, 0, 0, c[0], 0), 0u);
    EXPECT_EQ(smpteRequiredBuffer(), c[1]) << c[0];
  }
}

// Speed only enlarges the announced size; the waveform stays at nominal speed and the speed is
// back to 0 after each frame.
TEST(LtcEncoder, SpeedNeverReachesTheWaveform) {
  ASSERT_EQ(smpteSetup(48000, 16, 0, 0, 0x04, 0), 0u);
  smpteEncodeSetSpeed(9);
  EXPECT_EQ(smpteEncodeGetSpeed(), 5);
  EXPECT_EQ(smpteRequiredBuffer(), 2 * (1602u + 400u));
  std::vector<uint8_t> buf(2 * 2002);
  EXPECT_EQ(smpteEncode(0, 0, buf.data(), 0xFFFFFFFF), 2 * 1601);  // room left is not one sample
  EXPECT_EQ(smpteEncodeGetSpeed(), 0);
  smpteEncodeSetSpeed(-100);
  EXPECT_EQ(smpteEncodeGetSpeed(), -5);
  EXPECT_EQ(smpteRequiredBuffer(), 2 * 1602u);
  EXPECT_EQ(smpteEncode(1, 0, buf.data(), 0xFFFFFFFF), 2 * 1602);
}

TEST(LtcEncoder, SetupRejectsWidthsAndWrapsTheRate) {
  ASSERT_EQ(smpteSetup(48000, 8, 0, 0, 0x08, 0), 0u);
  for (uint32_t bits : {0u, 7u, 9u, 12u, 24u, 32u, 0xFFFFFFFFu}) {
    EXPECT_EQ(smpteSetup(44100, bits, 0, 0, 0x00, 0), SMPTE_BAD_WIDTH) << bits;
  }
  EXPECT_EQ(encoder.sampleRate, 48000u);
  EXPECT_EQ(encoder.sixteenBit, 0u);
  EXPECT_EQ(encoder.rateFlags, 0x08u);
  EXPECT_EQ(decoder.sampleRate, 48000u);
  ASSERT_EQ(smpteSetup(96000, 16, 0, 0, 0x08, 0), 0u);
  EXPECT_EQ(encoder.sampleRate, 30464u);
  EXPECT_EQ(decoder.sampleRate, 30464u);
  EXPECT_EQ(smpteRequiredBuffer(), 2 * 1219u);
}

// A short buffer truncates the frame; the next call starts a new frame from its first bit.
TEST(LtcEncoder, ShortBufferTruncatesAndNextFrameStartsFresh) {
  ASSERT_EQ(smpteSetup(48000, 8, 0, 0, 0x08, 0), 0u);
  std::vector<uint8_t> buf(1920, 0x77);
  EXPECT_EQ(smpteEncode(10, 0, buf.data(), 100), 100);
  EXPECT_EQ(buf[100], 0x77);
  EXPECT_EQ(smpteEncode(10, 0, buf.data(), 0), 0);
  EXPECT_EQ(smpteEncode(10, 0, nullptr, 1920), 0);
  EXPECT_EQ(smpteEncode(11, 0, buf.data(), 0xFFFFFFFF), 1920);
  const auto runs = Runs(buf, 1);
  const bool firstBitOne = encoder.writer8.frame.bytes[0] & 1;
  EXPECT_EQ(runs[0].length, firstBitOne ? 12u : 24u);
}

}  // namespace
