// AES3 words, AESEBU groups, SMPTE 302M payloads and packed 24-bit samples against hand-built bits.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <vector>

#include "kvaudio/aes3.h"
#include "test_util.h"

namespace {

using Bytes = std::vector<uint8_t>;

uint32_t WordAt(const Bytes &buf, size_t frame, size_t slot) {
  uint32_t w;
  std::memcpy(&w, buf.data() + 4 + (frame * 8 + slot) * 4, 4);
  return w;
}

// A subframe word from its fields: slot 0-2, block start 3, audio 4-27, C 30, P 31.
uint32_t Subframe(uint32_t slot, uint32_t audio24, uint32_t first, uint32_t parity) {
  return slot | first << 3 | audio24 << 4 | first << 30 | parity << 31;
}

TEST(Aes3Zero, HeaderPhaseAndSilentFrames) {
  struct Case { uint32_t cadence; uint8_t noCadence, byte0; };
  for (const Case c : {Case{0, 0, 0x81}, Case{1, 0, 0x81}, Case{5, 0, 0x85}, Case{6, 0, 0x81}, Case{9, 0, 0x84},
                       Case{3, 1, 0x80}}) {
    Bytes buf(4 + 32 * 4, 0xEE), same = buf;
    EXPECT_EQ(KVAudioZero16toAES316(buf.data(), 3, c.cadence, c.noCadence), 0u);
    EXPECT_EQ(KVAudioZero24toAES324Stereo(same.data(), 3, c.cadence, c.noCadence), 0u);
    EXPECT_EQ(buf, same);
    EXPECT_EQ(Bytes(buf.begin(), buf.begin() + 4), (Bytes{c.byte0, 3, 0, 0xFF})) << c.cadence;
    for (size_t f = 0; f < 3; ++f)
      for (uint32_t s = 0; s < 8; ++s) EXPECT_EQ(WordAt(buf, f, s), Subframe(s, 0, f == 0, f == 0));
    EXPECT_EQ(WordAt(buf, 3, 0), 0xEEEEEEEEu);
  }
}

TEST(Aes3Write16, HandBuiltWordsAtOffsetAndSlot) {
  // Frame offset 3: header count 5, block start and C in buffer frame 3; slot 7 wraps right to 0.
  const int16_t stereo[] = {static_cast<int16_t>(0x8000), 0x0001, 0x1234, -1};
  for (uint32_t slot : {2u, 7u}) {
    Bytes buf(4 + 32 * 5, 0xEE);
    EXPECT_EQ(KVAudioInterleave16toAES316(buf.data(), stereo, slot, 3, 2, 2, 0), 0u);
    EXPECT_EQ(Bytes(buf.begin(), buf.begin() + 2), (Bytes{0x82, 5}));
    for (uint32_t i = 0; i < 4; ++i) {
      const uint32_t audio = static_cast<uint16_t>(stereo[i]) << 8;  // 16 bits at the top of 24
      const uint32_t first = i < 2, at = (slot + i % 2) % 8;
      EXPECT_EQ(WordAt(buf, 3 + i / 2, at), Subframe(at, audio, first, (std::popcount(audio) + first) & 1));
    }
    EXPECT_EQ(WordAt(buf, 3, 4), 0xEEEEEEEEu);  // other slots and frames untouched
    EXPECT_EQ(WordAt(buf, 0, slot), 0xEEEEEEEEu);
  }
}

// Read back as 32-bit pairs at slot 5: the slot, block-start and C bits drop out; slot 6 keeps its 0xEE bytes.
TEST(Aes3Write24, ParityIsCumulativeOverTheCallAndReadsBack) {
  // Audio popcounts 1, 1, 2, 2: running parity 1, 0, 0, 0; P = running XOR first = 0 throughout.
  const uint8_t packed[] = {0x01, 0x00, 0x00, 0x00, 0x80, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00, 0x81};
  const uint32_t audio[] = {0x000001, 0x008000, 0x000300, 0x810000};
  Bytes buf(4 + 32 * 5, 0xEE);
  KVAudioInterleave24toAES324(buf.data(), packed, 13, 1, 4, 0, 1);
  EXPECT_EQ(Bytes(buf.begin(), buf.begin() + 2), (Bytes{0x80, 5}));
  std::vector<uint32_t> out(10);
  KVAudioDeinterleaveAES324to32(out.data(), buf.data(), 5, 5, 8);
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(WordAt(buf, 1 + i, 5), Subframe(5, audio[i], i == 0, 0)) << i;
    EXPECT_EQ(std::make_pair(out[2 + 2 * i], out[3 + 2 * i]), std::make_pair(audio[i] << 8, 0xEEEEEE00u)) << i;
  }
}

// Four pairs written and read back. A null output is skipped (and keeps the call on the plain loop).
TEST(Aes3RoundTrip, FourStereoPairsThroughWordsAndBack) {
  const uint32_t frames = 101;
  const auto bytes = kvtest::RandomBytes(frames * 4 * 4, 11);
  std::vector<int16_t> in(8 * frames), out(8 * frames, 7);
  std::memcpy(in.data(), bytes.data(), bytes.size());
  Bytes buf(4 + 32 * frames);
  for (uint32_t k = 0; k < 4; ++k) KVAudioInterleave16toAES316(buf.data(), &in[2 * k * frames], 2 * k, 0, frames, 0, 0);
  int16_t *o = out.data();
  KVAudioDeinterleaveAES316to16(buf.data(), nullptr, o + 2 * frames, o + 4 * frames, o + 6 * frames, frames);
  EXPECT_TRUE(std::equal(in.begin() + 2 * frames, in.end(), out.begin() + 2 * frames));
  EXPECT_EQ(out[0], 7);
  KVAudioDeinterleaveAES316to16(buf.data(), o, o + 2 * frames, o + 4 * frames, o + 6 * frames, frames);
  EXPECT_EQ(in, out);
}

// Places `width` bits of value LSB first from stream position q: byte q / 8, bit 7 - q % 8.
void PutBits(uint8_t *bytes, int q, uint32_t value, int width) {
  for (int b = 0; b < width; ++b, ++q)
    if ((value >> b) & 1) bytes[q / 8] |= static_cast<uint8_t>(0x80 >> (q % 8));
}

TEST(AesebuRead, EachWidthFromHandBuiltGroups) {
  // Two frames of 4 channels behind a 4-byte 302M header; pair 1 is read; V, U, C, P ones are ignored.
  using Reader = uint64_t (*)(const uint8_t *, uint32_t *, uint32_t, uint32_t, uint32_t);
  struct Case { int width, group; Reader read; };
  for (const Case c : {Case{16, 5, KVAudioDeinterleave16AESEBUto32Stereo}, Case{20, 6, KVAudioDeinterleave20AESEBUto32Stereo},
                       Case{24, 7, KVAudioDeinterleave24AESEBUto32Stereo}}) {
    const uint32_t mask = (1u << c.width) - 1, samples[] = {0xA5A5A5u & mask, 0x5A5A5Au & mask, mask, 1};
    Bytes stream(4 + 4 * c.group, 0);
    for (int i = 0; i < 4; ++i)
      PutBits(&stream[4 + (i / 2 * 2 + 1) * c.group], i % 2 * (c.width + 4), samples[i] | 0xFu << c.width, c.width + 4);
    std::vector<uint32_t> out(4);
    c.read(stream.data() + 4, out.data(), 1, 4, 2);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(out[i], samples[i] << (32 - c.width)) << c.width << " " << i;
    if (c.width != 16) continue;
    std::vector<int16_t> out16(4), out302(4);
    KVAudioDeinterleave16AESEBUto16Stereo(stream.data() + 4, out16.data(), 1, 4, 2);
    KVAudioDeinterleaveAES_302_16bit_toStereo32(out302.data(), stream.data(), 4, 3, 2);  // channel 3: pair 1
    for (int i = 0; i < 4; ++i) EXPECT_EQ(static_cast<uint16_t>(out16[i]), samples[i]);
    EXPECT_EQ(out302, out16);
  }
}

TEST(AesebuWrite, BlockLayoutAndHeaderPhase) {
  std::vector<uint32_t> stereo(2 * 400);
  for (size_t i = 0; i < stereo.size(); ++i) stereo[i] = static_cast<uint32_t>(i * 0x01234567u) | 0xFF;
  Bytes blocks(1348 * 3, 0xEE);
  blocks[0] = 0xF3;
  EXPECT_EQ(KVAudioInterleave24toAESEBU24Stereo(blocks.data(), stereo.data(), 400, 0), 3072u);
  EXPECT_EQ(blocks[0], 0x83);  // phase bits kept
  EXPECT_EQ(blocks[1348], 0x80 | (0xEE & 7));
  for (size_t b = 0; b < 2; ++b) {
    EXPECT_EQ(Bytes(&blocks[b * 1348 + 1], &blocks[b * 1348 + 4]), (Bytes{192, 0, 0xFF}));
    for (size_t f = 0; f < 192; ++f) {
      uint8_t expect[7] = {};
      PutBits(expect, 0, stereo[2 * (b * 192 + f)] >> 8, 24);
      PutBits(expect, 28, stereo[2 * (b * 192 + f) + 1] >> 8, 24);
      ASSERT_EQ(std::memcmp(&blocks[b * 1348 + 4 + f * 7], expect, 7), 0) << b << " " << f;
    }
  }
  EXPECT_EQ(blocks[2 * 1348], 0xEE);  // the remainder of 16 frames builds nothing
  blocks[0] = 0x85;
  EXPECT_EQ(KVAudioInterleave24toAESEBU24Stereo(blocks.data(), stereo.data(), 383, 1), 1536u);
  EXPECT_EQ(blocks[0], 0x80);  // resetPhase
}

TEST(Packed24, ReadersAndReinterleavers) {
  const uint32_t n = 35;
  Bytes packed(12 * n);  // 12-byte frames; packed[6 * i..] also forms a 6-byte run
  for (uint32_t i = 0; i < 2 * n; ++i) packed[6 * i] = 0x11, packed[6 * i + 1] = 0x22, packed[6 * i + 2] = i & 0xFF;
  for (uint32_t be = 0; be < 2; ++be) {
    std::vector<uint32_t> mono(4 * n), out(2 * n), m32(2 * n);
    std::vector<int16_t> m16(2 * n);
    KVAudioConvertAES324Monoto32(mono.data(), packed.data(), 4 * n, be);
    // Sample j of the 6-byte units 11 22 u 00 00 00 (u = j / 2), little- or big-endian.
    for (uint32_t j = 0; j < 4 * n; ++j)
      EXPECT_EQ(mono[j], j % 2 ? 0 : be ? 0x11220000u | j / 2 << 8 : j / 2 << 24 | 0x221100u) << j;
    KVAudioConvertAES324Stereoto32(out.data(), packed.data(), n, be, 1, 12);  // pair at byte 6
    for (uint32_t i = 0; i < 2 * n; ++i) EXPECT_EQ(out[i], mono[4 * (i / 2) + 2 + i % 2]);
    // Stride 12: only A is offset (to byte 6); B starts at its first byte.
    KVAudioConvertAES324DualMonoto32(out.data(), packed.data(), packed.data(), n, be, 1, 12);
    for (uint32_t i = 0; i < 2 * n; ++i) EXPECT_EQ(out[i], mono[4 * (i / 2) + 2 * (1 - i % 2)]);
    for (uint32_t j = 0; j < 2 * n; ++j) m32[j] = mono[j] | j, m16[j] = static_cast<int16_t>(mono[j] >> 12 ^ j);
    for (uint32_t slot : {0u, 1u, 5u}) {
      std::vector<uint32_t> s24(4 * n, 7), s32(4 * n, 7);
      std::vector<int16_t> s16(4 * n, 7);
      (be ? KVAudioReinterleaveAES3_24monoto32stereo_BE : KVAudioReinterleaveAES3_24monoto32stereo)(
          s24.data(), packed.data(), slot, 2 * n);
      KVAudioReinterleaveAES3_32monoto32stereo(m32.data(), s32.data(), slot, 2 * n);
      KVAudioReinterleaveAES3_16monoto16stereo(m16.data(), s16.data(), slot, 2 * n);
      for (uint32_t i = 0; i < 4 * n; ++i) {
        const bool mine = i % 2 == (slot == 1);
        EXPECT_EQ(s24[i], mine ? mono[i / 2] : 7u) << slot << " " << i;
        EXPECT_EQ(s32[i], mine ? m32[i / 2] : 7u);
        EXPECT_EQ(s16[i], mine ? m16[i / 2] : 7);
      }
    }
  }
}

// Header (channel-count code, or the old bits for other counts) and samples: left at channelId * sample
// size, right (channels / 2) * 3 bytes later, frames channels * 3 apart; the 20-bit reader reads them.
TEST(Smpte302Write, HeaderPlacementAndReadBack) {
  struct Case { uint32_t channels; uint8_t id; int width; uint32_t frames; uint8_t old1, byte0, byte1; };
  const Case cases[] = {
      {2, 0, 16, 2, 0xFF, 0x10, 0x00}, {2, 0, 32, 2, 0x00, 0x10, 0x00},  {4, 5, 16, 2, 0x00, 0x50, 0x41},
      {6, 0xFF, 16, 0, 0x00, 0xD0, 0xBF}, {6, 5, 32, 2, 0x00, 0x50, 0x81}, {8, 0, 16, 2, 0x00, 0x10, 0xC0},
      {8, 0, 32, 20, 0x00, 0x10, 0xC0}, {8, 5, 32, 2, 0x00, 0x50, 0xC1},  {3, 0, 16, 2, 0x80, 0x10, 0x80},
  };
  const int16_t in16[] = {0x0001, -2, 0x7FFF, static_cast<int16_t>(0x8000)};
  const uint32_t in32[] = {0x12345FFFu, 0xFEDCBA98u, 0x00001000u, 0x80000000u};
  for (const Case &c : cases) {
    std::vector<int16_t> s16(2 * c.frames);
    std::vector<uint32_t> s32(2 * c.frames), left(2 * c.frames), right(2 * c.frames);
    for (size_t i = 0; i < 2 * c.frames; ++i) s16[i] = in16[i % 4], s32[i] = in32[i % 4];
    const uint32_t size = c.frames * c.channels * 3;
    Bytes buf(4 + 4 * c.id + size + 3, 0xEE), expect = buf;  // 3 bytes more for the reader below
    buf[0] = 0xEF, buf[1] = c.old1;
    expect[0] = c.byte0, expect[1] = c.byte1, expect[2] = size & 0xFF, expect[3] = size >> 8;
    for (size_t i = 0; i < 2 * c.frames; ++i) {
      uint8_t *at = &expect[4 + c.width / 8 * c.id + i / 2 * c.channels * 3 + i % 2 * (c.channels / 2) * 3];
      at[0] = at[1] = at[2] = 0;
      PutBits(at, 0, c.width == 16 ? static_cast<uint16_t>(s16[i]) << 4 : s32[i] >> 12, 20);
    }
    if (c.width == 16) KVAudioInterleaveStereo16bitStereo_toAES_302_20bit(buf.data(), s16.data(), c.channels, c.id, 0xDEAD, c.frames);
    else KVAudioInterleaveStereo32bitStereo_toAES_302_20bit(buf.data(), s32.data(), c.channels, c.id, 0xDEAD, c.frames);
    EXPECT_EQ(buf, expect) << c.channels << " " << int(c.id) << " " << c.width;
    if (c.width == 16 || c.id) continue;
    // The right sample sits in channel channels / 2, read as that group's left sample.
    KVAudioDeinterleaveAES_302_20bit_toStereo32(left.data(), buf.data(), c.channels, 0, c.frames);
    KVAudioDeinterleaveAES_302_20bit_toStereo32(right.data(), buf.data(), c.channels, c.channels / 2, c.frames);
    for (size_t i = 0; i < 2 * c.frames; ++i) EXPECT_EQ((i % 2 ? right : left)[i / 2 * 2], s32[i] & 0xFFFFF000u) << i;
  }
}

TEST(Smpte302Read, AsymmetricTwentyFourBitReader) {
  // Eight channels, pair 1: left 0xABCDEF; right 0x123456; left subframe's V, U, C, F all 1.
  Bytes p24(4 + 7 * 8 * 10, 0);
  uint8_t *g = &p24[4 + 7];
  PutBits(g, 0, 0xFABCDEF, 28);
  PutBits(g, 28, 0x123456, 24);
  std::vector<uint32_t> out(20);
  EXPECT_EQ(KVAudioDeinterleaveAES_302_24bit_toStereo32(out.data(), p24.data(), 8, 2, 10), 320u);
  EXPECT_EQ(out[0], 0xABCDEF00u);
  EXPECT_EQ(out[1], 0x123450F0u);  // bits 4-7 from V,U,C,F; the low audio nibble 6 is dropped
  g[3] = 0x0F;                      // right LSBs set, V,U,C,F clear: bits 4-11 read as 0
  KVAudioDeinterleaveAES_302_24bit_toStereo32(out.data(), p24.data(), 8, 2, 1);
  EXPECT_EQ(out[1] & 0xFF0u, 0u);
}

}  // namespace
