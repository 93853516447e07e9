// AES3 word buffers: header, subframe bit layout, running parity and readers, against hand-built words.
#include <gtest/gtest.h>

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
  Bytes none(4 + 32, 0xEE);
  KVAudioZero24toAES324Stereo(none.data(), 0, 1, 0);
  EXPECT_EQ(none[1], 0);
  EXPECT_EQ(none[4], 0xEE);
}

TEST(Aes3Write16, HandBuiltWordsAtOffsetAndSlot) {
  // Frame offset 3: header count 5, block start and C in buffer frame 3; slot 7 wraps right to 0.
  const int16_t stereo[] = {static_cast<int16_t>(0x8000), 0x0001, 0x1234, -1};
  for (uint32_t slot : {2u, 7u}) {
    Bytes buf(4 + 32 * 5, 0xEE);
    EXPECT_EQ(KVAudioInterleave16toAES316(buf.data(), stereo, slot, 3, 2, 2, 0), 0u);
    EXPECT_EQ(buf[0], 0x82);
    EXPECT_EQ(buf[1], 5);
    for (uint32_t i = 0; i < 4; ++i) {
      const uint32_t audio = static_cast<uint16_t>(stereo[i]) << 8;  // 16 bits at the top of 24
      const uint32_t first = i < 2, at = (slot + i % 2) % 8;
      EXPECT_EQ(WordAt(buf, 3 + i / 2, at), Subframe(at, audio, first, (std::popcount(audio) + first) & 1));
    }
    EXPECT_EQ(WordAt(buf, 3, 4), 0xEEEEEEEEu);  // other slots and frames untouched
    EXPECT_EQ(WordAt(buf, 0, slot), 0xEEEEEEEEu);
  }
}

TEST(Aes3Write24, ParityIsCumulativeOverTheCall) {
  // Audio popcounts 1, 1, 2, 0: running parity 1, 0, 0, 0; P = running XOR first = 0 throughout.
  const uint8_t packed[] = {0x01, 0x00, 0x00, 0x00, 0x80, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00, 0x00};
  const uint32_t audio[] = {0x000001, 0x008000, 0x000300, 0};
  Bytes buf(4 + 32 * 5, 0xEE);
  KVAudioInterleave24toAES324(buf.data(), packed, 13, 1, 4, 0, 1);
  EXPECT_EQ(buf[0], 0x80);
  EXPECT_EQ(buf[1], 5);
  for (size_t i = 0; i < 4; ++i) EXPECT_EQ(WordAt(buf, 1 + i, 5), Subframe(5, audio[i], i == 0, 0)) << i;
}

TEST(Aes3Read, FieldsOfHandBuiltWords) {
  // Frames of 10 words; slots 3 and 4 hold audio with control bits set.
  Bytes buf(4 + 4 * 10 * 3, 0);
  const uint32_t words[][2] = {{0xFABCDEF7u, 0x00000008u}, {0x7FFFFFFFu, 0x80000000u}, {0x12345678u, 0xF0000000u}};
  for (size_t f = 0; f < 3; ++f) std::memcpy(buf.data() + 4 + (f * 10 + 3) * 4, words[f], 8);
  std::vector<uint32_t> out(6);
  KVAudioDeinterleaveAES324to32(out.data(), buf.data(), 3, 3, 10);
  EXPECT_EQ(out, (std::vector<uint32_t>{0xABCDEF00u, 0, 0xFFFFFF00u, 0, 0x23456700u, 0}));
}

TEST(Aes3RoundTrip, FourStereoPairsThroughWordsAndBack) {
  const uint32_t frames = 101;
  const auto bytes = kvtest::RandomBytes(frames * 4 * 4, 11);
  std::vector<int16_t> in(8 * frames), out(8 * frames), again(2 * frames);
  std::memcpy(in.data(), bytes.data(), bytes.size());
  Bytes buf(4 + 32 * frames);
  for (uint32_t k = 0; k < 4; ++k) KVAudioInterleave16toAES316(buf.data(), &in[2 * k * frames], 2 * k, 0, frames, 0, 0);
  int16_t *o = out.data();
  KVAudioDeinterleaveAES316to16(buf.data(), o, o + 2 * frames, o + 4 * frames, o + 6 * frames, frames);
  EXPECT_EQ(in, out);
  // A null output is skipped; the others still get their pairs.
  KVAudioDeinterleaveAES316to16(buf.data(), nullptr, nullptr, again.data(), nullptr, frames);
  EXPECT_TRUE(std::equal(again.begin(), again.end(), &in[4 * frames]));
}

}  // namespace
