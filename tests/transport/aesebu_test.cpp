// AESEBU groups and blocks, and the packed 24-bit readers, against hand-placed bits.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "kvaudio/aes3.h"
#include "stream_bits.h"
#include "test_util.h"

namespace {

using kvtest::PutBits;

TEST(AesebuRead, EachWidthFromHandBuiltGroups) {
  // Two frames of a 4-channel stream; pair 1 is read. Control positions hold ones, ignored.
  struct Case { int width, group, rightAt; };
  for (const Case c : {Case{16, 5, 20}, Case{20, 6, 24}, Case{24, 7, 28}}) {
    const uint32_t mask = (1u << c.width) - 1;
    const uint32_t samples[2][2] = {{0xA5A5A5u & mask, 0x5A5A5Au & mask}, {mask, 1}};
    std::vector<uint8_t> stream(2 * 2 * c.group, 0);
    for (int f = 0; f < 2; ++f) {
      uint8_t *g = stream.data() + (2 * f + 1) * c.group;
      PutBits(g, 0, samples[f][0], c.width);
      PutBits(g, c.width, 0xF, 4);
      PutBits(g, c.rightAt, samples[f][1], c.width);
      PutBits(g, c.rightAt + c.width, 0xF, 4);
    }
    std::vector<uint32_t> out(4);
    const uint8_t *s = stream.data();
    if (c.width == 16) {
      std::vector<int16_t> out16(4);
      KVAudioDeinterleave16AESEBUto16Stereo(s, out16.data(), 1, 4, 2);
      for (int i = 0; i < 4; ++i) EXPECT_EQ(static_cast<uint16_t>(out16[i]), samples[i / 2][i % 2]);
      KVAudioDeinterleave16AESEBUto32Stereo(s, out.data(), 1, 4, 2);
    } else if (c.width == 20) {
      KVAudioDeinterleave20AESEBUto32Stereo(s, out.data(), 1, 4, 2);
    } else {
      KVAudioDeinterleave24AESEBUto32Stereo(s, out.data(), 1, 4, 2);
    }
    for (int i = 0; i < 4; ++i) EXPECT_EQ(out[i], samples[i / 2][i % 2] << (32 - c.width)) << c.width << " " << i;
  }
}

TEST(AesebuWrite, BlockLayoutAndHeaderPhase) {
  std::vector<uint32_t> stereo(2 * 400);
  for (size_t i = 0; i < stereo.size(); ++i) stereo[i] = static_cast<uint32_t>(i * 0x01234567u) | 0xFF;
  std::vector<uint8_t> blocks(1348 * 3, 0xEE);
  blocks[0] = 0xF3;
  EXPECT_EQ(KVAudioInterleave24toAESEBU24Stereo(blocks.data(), stereo.data(), 400, 0), 3072u);
  EXPECT_EQ(blocks[0], 0x83);  // phase bits kept
  EXPECT_EQ(blocks[1348], 0x80 | (0xEE & 7));
  for (size_t b = 0; b < 2; ++b) {
    const uint8_t *block = blocks.data() + b * 1348;
    EXPECT_EQ(block[1], 192);
    EXPECT_EQ(block[2], 0);
    EXPECT_EQ(block[3], 0xFF);
    for (size_t f = 0; f < 192; ++f) {
      uint8_t expect[7] = {};
      PutBits(expect, 0, stereo[2 * (b * 192 + f)] >> 8, 24);
      PutBits(expect, 28, stereo[2 * (b * 192 + f) + 1] >> 8, 24);
      ASSERT_EQ(std::memcmp(block + 4 + f * 7, expect, 7), 0) << b << " " << f;
    }
  }
  EXPECT_EQ(blocks[2 * 1348], 0xEE);  // the remainder of 16 frames builds nothing

  std::vector<uint8_t> untouched(1348, 0xEE);
  EXPECT_EQ(KVAudioInterleave24toAESEBU24Stereo(untouched.data(), stereo.data(), 191, 1), 0u);
  EXPECT_EQ(untouched, std::vector<uint8_t>(1348, 0xEE));
  untouched[0] = 0x85;
  KVAudioInterleave24toAESEBU24Stereo(untouched.data(), stereo.data(), 192, 1);
  EXPECT_EQ(untouched[0], 0x80);  // resetPhase
}

// Sample j of a run whose 6-byte units are 11 22 u 00 00 00 (u the unit index): odd samples are 0,
// even ones 0xuu221100 (little-endian) or 0x1122uu00 (big-endian).
uint32_t Expect24(uint32_t j, bool be) {
  const uint32_t u = j / 2;
  return j % 2 ? 0 : be ? 0x11220000u | u << 8 : u << 24 | 0x221100u;
}

TEST(Packed24, ReadersAndReinterleaversOnBothPaths) {
  const uint32_t n = 35;
  std::vector<uint8_t> packed(12 * n);  // 12-byte frames; packed[6 * i..] also forms a 6-byte run
  for (uint32_t i = 0; i < 2 * n; ++i) packed[6 * i] = 0x11, packed[6 * i + 1] = 0x22, packed[6 * i + 2] = i & 0xFF;
  for (int path = 0; path < 2; ++path)
    for (uint32_t be = 0; be < 2; ++be) {
      kvtest::ScopedAvx2 force(path);
      std::vector<uint32_t> out(2 * n, 7);
      KVAudioConvertAES324Monoto32(out.data(), packed.data(), n, be);
      for (uint32_t j = 0; j < n; ++j) EXPECT_EQ(out[j], Expect24(j, be)) << j;
      KVAudioConvertAES324Stereoto32(out.data(), packed.data(), n, be, 1, 12);  // pair at byte 6
      for (uint32_t i = 0; i < 2 * n; ++i) EXPECT_EQ(out[i], Expect24(4 * (i / 2) + 2 + i % 2, be));
      // Stride 12: only A is offset (to byte 6); B starts at its first byte.
      KVAudioConvertAES324DualMonoto32(out.data(), packed.data(), packed.data(), n, be, 1, 12);
      for (uint32_t i = 0; i < 2 * n; ++i) EXPECT_EQ(out[i], Expect24(4 * (i / 2) + 2 * (1 - i % 2), be));
      for (uint32_t slot : {0u, 1u, 2u}) {
        std::vector<uint32_t> stereo(4 * n, 7);
        (be ? KVAudioReinterleaveAES3_24monoto32stereo_BE : KVAudioReinterleaveAES3_24monoto32stereo)(
            stereo.data(), packed.data(), slot, 2 * n);
        for (uint32_t i = 0; i < 2 * n; ++i) {
          EXPECT_EQ(stereo[2 * i + (slot == 1)], Expect24(i, be));
          EXPECT_EQ(stereo[2 * i + (slot != 1)], 7u);  // the other channel is not written
        }
      }
    }
}

TEST(Packed24, MonoCopiesIntoOneChannel) {
  for (int path = 0; path < 2; ++path) {
    kvtest::ScopedAvx2 force(path);
    std::vector<int16_t> mono16(37);
    std::vector<uint32_t> mono32(37);
    for (size_t i = 0; i < 37; ++i) mono16[i] = static_cast<int16_t>(-3 * i), mono32[i] = 0x10001u * i;
    for (uint32_t slot : {0u, 1u, 5u}) {
      std::vector<int16_t> s16(74, 7);
      std::vector<uint32_t> s32(74, 7);
      KVAudioReinterleaveAES3_16monoto16stereo(mono16.data(), s16.data(), slot, 37);
      KVAudioReinterleaveAES3_32monoto32stereo(mono32.data(), s32.data(), slot, 37);
      for (size_t i = 0; i < 37; ++i) {
        EXPECT_EQ(s16[2 * i + (slot == 1)], mono16[i]);
        EXPECT_EQ(s32[2 * i + (slot == 1)], mono32[i]);
        EXPECT_EQ(s16[2 * i + (slot != 1)], 7);
        EXPECT_EQ(s32[2 * i + (slot != 1)], 7u);
      }
    }
  }
}

}  // namespace
