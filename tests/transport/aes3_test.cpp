// AES3 word buffer: header, bit layout, parity rules and readers, checked against hand-built words.
#include <gtest/gtest.h>

#include <bit>
#include <cstring>
#include <vector>

#include "kvaudio/aes3.h"
#include "test_util.h"

namespace {

uint32_t WordAt(const std::vector<uint8_t> &buf, size_t frame, size_t slot) {
  uint32_t w;
  std::memcpy(&w, buf.data() + 4 + (frame * 8 + slot) * 4, 4);
  return w;
}

// A subframe word from its fields: slot 0-2, block start 3, audio 4-27, C 30, P 31.
uint32_t Subframe(uint32_t slot, uint32_t audio24, uint32_t first, uint32_t parity) {
  return slot | first << 3 | audio24 << 4 | first << 30 | parity << 31;
}

TEST(Aes3Header, CadencePhaseAndCount) {
  struct Case { uint32_t cadence; uint8_t noCadence; uint8_t byte0; };
  for (const Case c : {Case{0, 0, 0x81}, Case{1, 0, 0x81}, Case{5, 0, 0x85}, Case{6, 0, 0x81}, Case{9, 0, 0x84},
                       Case{3, 1, 0x80}}) {
    std::vector<uint8_t> buf(4 + 32 * 2, 0xEE);
    KVAudioZero16toAES316(buf.data(), 2, c.cadence, c.noCadence);
    EXPECT_EQ(std::vector<uint8_t>(buf.begin(), buf.begin() + 4), (std::vector<uint8_t>{c.byte0, 2, 0, 0xFF}))
        << c.cadence;
  }
}

TEST(Aes3Write16, HandBuiltWordsAtOffsetAndSlot) {
  // Frame offset 3: header count 5, block start and C in buffer frame 3; slot 7 wraps right to 0.
  const int16_t stereo[] = {static_cast<int16_t>(0x8000), 0x0001, 0x1234, -1};
  for (uint32_t slot : {2u, 7u}) {
    std::vector<uint8_t> buf(4 + 32 * 5, 0xEE);
    EXPECT_EQ(KVAudioInterleave16toAES316(buf.data(), stereo, slot, 3, 2, 2, 0), 0u);
    EXPECT_EQ(buf[0], 0x82);
    EXPECT_EQ(buf[1], 5);
    for (uint32_t i = 0; i < 2; ++i)
      for (uint32_t c = 0; c < 2; ++c) {
        const uint32_t audio = static_cast<uint16_t>(stereo[2 * i + c]) << 8;  // 16 bits at the top of 24
        const uint32_t first = i == 0, at = (slot + c) % 8;
        EXPECT_EQ(WordAt(buf, 3 + i, at), Subframe(at, audio, first, (std::popcount(audio) + first) & 1));
      }
    EXPECT_EQ(WordAt(buf, 3, 4), 0xEEEEEEEEu);  // other slots and frames untouched
    EXPECT_EQ(WordAt(buf, 0, slot), 0xEEEEEEEEu);
  }
}

TEST(Aes3Write24, ParityIsCumulativeOverTheCall) {
  // Audio popcounts 1, 1, 2, 0: running parity 1, 0, 0, 0; P = running XOR first = 0 throughout.
  const uint8_t packed[] = {0x01, 0x00, 0x00, 0x00, 0x80, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00, 0x00};
  const uint32_t audio[] = {0x000001, 0x008000, 0x000300, 0};
  std::vector<uint8_t> buf(4 + 32 * 5, 0xEE);
  KVAudioInterleave24toAES324(buf.data(), packed, 13, 1, 4, 0, 1);
  EXPECT_EQ(buf[0], 0x80);
  EXPECT_EQ(buf[1], 5);
  for (size_t i = 0; i < 4; ++i) EXPECT_EQ(WordAt(buf, 1 + i, 5), Subframe(5, audio[i], i == 0, 0)) << i;
}

TEST(Aes3Zero, SilentFramesCarryOnlySlotsAndFirstFrameMarks) {
  for (auto zero : {KVAudioZero16toAES316, KVAudioZero24toAES324Stereo}) {
    std::vector<uint8_t> buf(4 + 32 * 3, 0xEE);
    EXPECT_EQ(zero(buf.data(), 3, 4, 0), 0u);
    for (size_t f = 0; f < 3; ++f)
      for (uint32_t s = 0; s < 8; ++s) EXPECT_EQ(WordAt(buf, f, s), Subframe(s, 0, f == 0, f == 0));
    std::vector<uint8_t> none(4 + 32, 0xEE);
    zero(none.data(), 0, 1, 0);
    EXPECT_EQ(none[1], 0);
    EXPECT_EQ(none[4], 0xEE);
  }
}

TEST(Aes3Read, FieldsOfHandBuiltWords) {
  // Frames of 10 words; slots 3 and 4 hold audio with control bits set.
  std::vector<uint8_t> buf(4 + 4 * 10 * 3, 0);
  const uint32_t words[][2] = {{0xFABCDEF7u, 0x00000008u}, {0x7FFFFFFFu, 0x80000000u}, {0x12345678u, 0xF0000000u}};
  for (size_t f = 0; f < 3; ++f) std::memcpy(buf.data() + 4 + (f * 10 + 3) * 4, words[f], 8);
  std::vector<uint32_t> out(6);
  KVAudioDeinterleaveAES324to32(out.data(), buf.data(), 3, 3, 10);
  EXPECT_EQ(out, (std::vector<uint32_t>{0xABCDEF00u, 0, 0xFFFFFF00u, 0, 0x23456700u, 0}));
}

TEST(Aes3RoundTrip, Stereo16ThroughWordsAndBack) {
  const size_t frames = 101;
  for (int path = 0; path < 2; ++path) {
    kvtest::ScopedAvx2 force(path);
    const auto bytes = kvtest::RandomBytes(frames * 4 * 4, 11);
    std::vector<int16_t> in[4], out[4];
    std::vector<uint8_t> buf(4 + 32 * frames);
    for (uint32_t k = 0; k < 4; ++k) {
      in[k].resize(2 * frames);
      out[k].resize(2 * frames);
      std::memcpy(in[k].data(), bytes.data() + k * frames * 4, frames * 4);
      KVAudioInterleave16toAES316(buf.data(), in[k].data(), 2 * k, 0, frames, 0, 0);
    }
    KVAudioDeinterleaveAES316to16(buf.data(), out[0].data(), out[1].data(), out[2].data(), out[3].data(), frames);
    for (int k = 0; k < 4; ++k) EXPECT_EQ(in[k], out[k]) << "pair " << k;
    // A null output is skipped; the others still get their pairs.
    std::vector<int16_t> again(2 * frames);
    KVAudioDeinterleaveAES316to16(buf.data(), nullptr, nullptr, again.data(), nullptr, frames);
    EXPECT_EQ(again, in[2]);
  }
}

}  // namespace
