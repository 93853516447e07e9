// SMPTE 302M: header fields, payload placement, the readers and the 24-bit reader's asymmetry.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "kvaudio/aes3.h"
#include "stream_bits.h"
#include "test_util.h"

namespace {

using kvtest::PutBits;

TEST(Smpte302Header, FieldsAndOrderOfWork) {
  struct Case { uint32_t channels; uint8_t id; uint8_t old1; uint8_t byte0, byte1; uint32_t frames; };
  const Case cases[] = {
      {2, 0, 0xFF, 0x10, 0x00, 2},   // 2 frames x 2 channels x 3 = 12 payload bytes
      {4, 0, 0x00, 0x10, 0x40, 1},
      {8, 5, 0x00, 0x50, 0xC1, 1},   // id 5: byte 0 bits 6-7 = 01, byte 1 bits 0-5 = 000001
      {3, 0, 0x80, 0x10, 0x80, 1},   // other counts keep the old channel-count bits
      {6, 0xFF, 0x00, 0xD0, 0xBF, 0},
  };
  for (const Case &c : cases) {
    std::vector<uint8_t> buf(4 + 4 * 255 + 8 * 3 * 4, 0xEE);
    buf[0] = 0xEF;
    buf[1] = c.old1;
    std::vector<int16_t> stereo(2 * c.frames + 2, 0);
    KVAudioInterleaveStereo16bitStereo_toAES_302_20bit(buf.data(), stereo.data(), c.channels, c.id, 0xDEAD, c.frames);
    const uint32_t size = c.frames * c.channels * 3;
    EXPECT_EQ(buf[0], c.byte0) << c.channels;
    EXPECT_EQ(buf[1], c.byte1) << c.channels;
    EXPECT_EQ(buf[2], size & 0xFF);
    EXPECT_EQ(buf[3], size >> 8);
  }
}

TEST(Smpte302Write, PlacementOfLeftAndRight) {
  // Left at channelId * sample size, right (channels / 2) * 3 bytes later, frames channels * 3 apart.
  for (uint32_t channels : {2u, 4u, 6u, 8u})
    for (uint8_t id : {uint8_t{0}, uint8_t{5}}) {
      const int16_t in16[] = {0x0001, -2, 0x7FFF, static_cast<int16_t>(0x8000)};
      const uint32_t in32[] = {0x12345FFFu, 0xFEDCBA98u, 0x00001000u, 0x80000000u};
      for (int width : {16, 32}) {
        std::vector<uint8_t> buf(4 + 4 * id + 2 * channels * 3, 0xEE), expect = buf;
        const size_t start = 4 + (width == 16 ? 2 : 4) * size_t{id};
        for (size_t f = 0; f < 2; ++f)
          for (size_t c = 0; c < 2; ++c) {
            uint8_t *at = &expect[start + f * channels * 3 + c * (channels / 2) * 3];
            at[0] = at[1] = at[2] = 0;
            PutBits(at, 0, width == 16 ? static_cast<uint16_t>(in16[2 * f + c]) << 4 : in32[2 * f + c] >> 12, 20);
          }
        if (width == 16) KVAudioInterleaveStereo16bitStereo_toAES_302_20bit(buf.data(), in16, channels, id, 0, 2);
        else KVAudioInterleaveStereo32bitStereo_toAES_302_20bit(buf.data(), in32, channels, id, 0, 2);
        EXPECT_TRUE(std::equal(buf.begin() + 4, buf.end(), expect.begin() + 4)) << channels << " " << width;
        if (width == 16 && id == 0) {
          EXPECT_EQ(buf[4], 0x08);  // 0x0001 -> 20-bit 0x10
        }
      }
    }
}

// The 20-bit reader gets back what the writer placed (the writer's layout is checked above).
TEST(Smpte302RoundTrip, StereoThrough20BitPayload) {
  const uint32_t frames = 33;
  const auto bytes = kvtest::RandomBytes(frames * 8, 9);
  std::vector<uint32_t> in(2 * frames);
  std::memcpy(in.data(), bytes.data(), frames * 8);
  for (uint32_t channels : {2u, 4u, 6u, 8u}) {
    // With 2 channels the last group read at channel 1 overhangs the payload by 3 bytes.
    std::vector<uint8_t> payload(4 + frames * channels * 3 + 3);
    KVAudioInterleaveStereo32bitStereo_toAES_302_20bit(payload.data(), in.data(), channels, 0, 0, frames);
    // The right sample sits in channel channels / 2, read as that group's left sample.
    std::vector<uint32_t> left(2 * frames), right(2 * frames);
    KVAudioDeinterleaveAES_302_20bit_toStereo32(left.data(), payload.data(), channels, 0, frames);
    KVAudioDeinterleaveAES_302_20bit_toStereo32(right.data(), payload.data(), channels, channels / 2, frames);
    for (size_t f = 0; f < frames; ++f) {
      EXPECT_EQ(left[2 * f], in[2 * f] & 0xFFFFF000u) << channels;
      EXPECT_EQ(right[2 * f], in[2 * f + 1] & 0xFFFFF000u) << channels;
    }
  }
}

TEST(Smpte302Read, SixteenBitAndAsymmetricTwentyFourBitReaders) {
  // Four channels, pair 1 read. 16-bit groups: left 0x8001, right 0x1234 at positions 20-35.
  std::vector<uint8_t> p16(4 + 2 * 10, 0);
  for (int f = 0; f < 2; ++f) {
    uint8_t *g = &p16[4 + f * 10 + 5];
    PutBits(g, 0, 0x8001, 16);
    PutBits(g, 16, 0xF, 4);  // V, U, C, P ones are ignored
    PutBits(g, 20, 0x1234, 16);
  }
  std::vector<int16_t> out16(4);
  KVAudioDeinterleaveAES_302_16bit_toStereo32(out16.data(), p16.data(), 4, 3, 2);
  EXPECT_EQ(out16, (std::vector<int16_t>{static_cast<int16_t>(0x8001), 0x1234, static_cast<int16_t>(0x8001), 0x1234}));

  // 24-bit: left 0xABCDEF; right 0x123456; left subframe's V, U, C, F all 1 (b3 high nibble).
  std::vector<uint8_t> p24(4 + 7 * 8 * 10, 0);
  uint8_t *g = &p24[4 + 7];
  PutBits(g, 0, 0xABCDEF, 24);
  PutBits(g, 24, 0xF, 4);
  PutBits(g, 28, 0x123456, 24);
  std::vector<uint32_t> out(20);
  EXPECT_EQ(KVAudioDeinterleaveAES_302_24bit_toStereo32(out.data(), p24.data(), 8, 2, 10), 320u);
  EXPECT_EQ(out[0], 0xABCDEF00u);
  EXPECT_EQ(out[1], 0x123450F0u);  // bits 4-7 from V,U,C,F; the low audio nibble 6 is dropped
  g[3] = 0x0F;                      // right LSBs set, V,U,C,F clear: bits 4-11 read as 0
  KVAudioDeinterleaveAES_302_24bit_toStereo32(out.data(), p24.data(), 8, 2, 1);
  EXPECT_EQ(out[1] & 0xFF0u, 0u);
  EXPECT_EQ(KVAudioDeinterleaveAES_302_24bit_toStereo32(out.data(), p24.data(), 8, 2, 0), 0u);
}

}  // namespace
