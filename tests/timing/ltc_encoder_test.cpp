// LTC encoder: waveform read back bit by bit, frame and bit lengths, speed, set-up and truncation.
#include <gtest/gtest.h>

#include <string>

#include "ltc_signal.h"

namespace {

int SampleAt(const std::vector<uint8_t> &buf, size_t width, size_t i) {
  int16_t s = buf[i];
  if (width == 2) std::memcpy(&s, &buf[2 * i], 2);
  return s;
}

// Lengths of the runs of equal samples in a mono buffer of 1- or 2-byte samples.
std::vector<uint32_t> Runs(const std::vector<uint8_t> &buf, size_t width) {
  std::vector<uint32_t> runs;
  for (size_t i = 0; i < buf.size() / width; ++i) {
    if (i == 0 || SampleAt(buf, width, i) != SampleAt(buf, width, i - 1)) runs.push_back(0);
    ++runs.back();
  }
  return runs;
}

// Every configuration: the waveform holds exactly the frame's 80 bits as biphase mark at the
// two output levels, the bit lengths follow sampleRate / bitsPerSecond exactly, and the frame has
// the size smpteRequiredBuffer announces (the last sample repeated to fill it).
TEST(LtcEncoder, WaveformCarriesTheFrameBitsAtExactLengths) {
  for (const ltctest::Rate &r : ltctest::kRates) {
    for (uint32_t sampleRate : {44100u, 48000u, 32000u}) {
      for (uint32_t bits : {8u, 16u}) {
        SCOPED_TRACE(std::string(r.name) + " " + std::to_string(sampleRate) + " " + std::to_string(bits));
        kvaudio::ltc::ResetEncoderForTesting();
        ASSERT_EQ(smpteSetup(static_cast<int32_t>(sampleRate), bits, 0, 0, r.flags, 0), 0u);
        const size_t width = bits / 8;
        const uint64_t num = uint64_t(sampleRate) * r.per, perBit = uint64_t(r.fps) * 80;
        const uint32_t required = static_cast<uint32_t>((num + r.fps - 1) / r.fps);
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
          uint32_t got = runs[run++];
          if ((f.bytes[i / 8] >> (i % 8)) & 1) {  // a one has a transition in the middle
            ASSERT_EQ(got, len / 2) << "bit " << i;
            ASSERT_LT(run, runs.size());
            got += runs[run++];
          }
          sum += got;
          if (i < 79) ASSERT_EQ(got, len) << "bit " << i;
          else ASSERT_EQ(sum, required) << "frame end";  // the repeat sample joins the last run
        }
        for (size_t i = 0; i < required; ++i) {
          const int v = SampleAt(buf, width, i);
          ASSERT_TRUE(width == 2 ? v == 12288 || v == -12289 : v == 0 || v == 0xFF) << v;
        }
        // An even number of transitions per frame: the next one starts at the same level, with a
        // transition at the boundary.
        std::vector<uint8_t> next(required * width);
        smpteEncode(1235, 0, next.data(), 0xFFFFFFFF);
        ASSERT_EQ(SampleAt(next, width, 0), SampleAt(buf, width, 0));
        ASSERT_NE(SampleAt(next, width, 0), SampleAt(buf, width, required - 1));
      }
    }
  }
}

// Sizes announced for the rate byte (other values run at 30 fps), at load time (44100 Hz, 16-bit,
// 29.97), after rejected widths, for a rate whose low 16 bits are kept, and with speed.
TEST(LtcEncoder, SetupRateBytesWidthsAndSpeed) {
  kvaudio::ltc::ResetEncoderForTesting();
  EXPECT_EQ(smpteRequiredBuffer(), 2 * 1472u);
  const uint32_t cases[][2] = {{0x80, 2000}, {0x88, 1600}, {0x10, 1920}, {0x20, 1602},
                               {0x40, 1602}, {0x03, 1600}, {0x0C, 1600}, {0xFF, 1600}, {0x08, 1920}};
  for (const auto &c : cases) {
    ASSERT_EQ(smpteSetup(48000, 8, 0, 0, c[0], 0), 0u);
    EXPECT_EQ(smpteRequiredBuffer(), c[1]) << c[0];
  }
  for (uint32_t bits : {0u, 7u, 9u, 12u, 24u, 32u, 0xFFFFFFFFu})
    EXPECT_EQ(smpteSetup(44100, bits, 0, 0, 0x00, 0), SMPTE_BAD_WIDTH) << bits;
  EXPECT_EQ(smpteRequiredBuffer(), 1920u) << "nothing changed";
  EXPECT_EQ(decoder.sampleRate, 48000u);
  ASSERT_EQ(smpteSetup(96000, 16, 0, 0, 0x08, 0), 0u);
  EXPECT_EQ(decoder.sampleRate, 30464u);
  EXPECT_EQ(smpteRequiredBuffer(), 2 * 1219u);
  // Speed only enlarges the announced size; the waveform stays at nominal speed and the speed is
  // back to 0 after each frame.
  ASSERT_EQ(smpteSetup(48000, 16, 0, 0, 0x04, 0), 0u);
  std::vector<uint8_t> buf(2 * 2002);
  const int64_t speeds[][4] = {{9, 5, 2 * 2002, 2 * 1601}, {-100, -5, 2 * 1602, 2 * 1602}};  // set, kept, size, written
  for (const auto &s : speeds) {
    smpteEncodeSetSpeed(s[0]);
    EXPECT_EQ(smpteEncodeGetSpeed(), s[1]);
    EXPECT_EQ(smpteRequiredBuffer(), s[2]);
    EXPECT_EQ(smpteEncode(0, 0, buf.data(), 0xFFFFFFFF), s[3]);  // room left after a frame is not one sample
    EXPECT_EQ(smpteEncodeGetSpeed(), 0);
  }
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
  EXPECT_EQ(Runs(buf, 1)[0], encoder.writer8.frame.bytes[0] & 1 ? 12u : 24u);
}

}  // namespace
