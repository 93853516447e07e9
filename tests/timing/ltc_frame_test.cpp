// SMPTE_FRAME: bit layout against hand-built frames, polarity, flags and bit reversal.
#include <gtest/gtest.h>

#include <bitset>

#include "kvaudio/ltc.h"
#include "tcxlat.h"
#include "test_util.h"

namespace {

using Bits = std::bitset<80>;

Bits ToBits(const SMPTE_FRAME &f) {
  Bits b;
  for (int i = 0; i < 80; ++i) b[i] = (f.bytes[i / 8] >> (i % 8)) & 1;
  return b;
}

void Put(Bits &b, int first, int width, uint32_t value) {
  for (int i = 0; i < width; ++i) b[first + i] = (value >> i) & 1;
}

// The frame as the field table lays it out, from the time address that tcxlat gives.
Bits HandBuilt(uint32_t count, uint32_t user, uint32_t flags) {
  uint8_t t[4];
  tc2String(count, (flags & 0xFF) | 0x121200, t);
  Bits b;
  const int unitsAt[4] = {0, 16, 32, 48}, tensAt[4] = {8, 24, 40, 56}, tensWidth[4] = {2, 3, 3, 2};
  for (int i = 0; i < 4; ++i) {
    Put(b, unitsAt[i], 4, t[i] & 0xF);
    Put(b, tensAt[i], tensWidth[i], t[i] >> 4);
  }
  for (int g = 0; g < 8; ++g) Put(b, 4 + 8 * g, 4, (user >> (4 * g)) & 0xF);
  b[10] = flags & 4;
  Put(b, 64, 16, 0xBFFC);
  const bool layout25 = flags & 8;
  b[43] = layout25;
  b[59] = !layout25;
  const int polarity = layout25 ? 59 : 27;
  b[polarity] = false;
  b[polarity] = (80 - b.count()) % 2;  // even count of zeros over all 80 bits
  return b;
}

// Independent of the hand-built frames below (which lean on tcxlat): only bit 59 and the sync word.
TEST(SmpteFrame, MidnightThirtyFrameLayout) {
  SMPTE_FRAME f;
  f.SetFrame(0, 0, 0);
  Bits want;
  want[59] = true;
  Put(want, 64, 16, 0xBFFC);
  EXPECT_EQ(ToBits(f), want);
}

// Over many counts, user words and rate flags: the layout matches the hand-built frame, reads
// back, and p = (1 + ones in bits 0-63) mod 2 is always 0.
TEST(SmpteFrame, LayoutReadBackAndPolarityOverManyFrames) {
  const uint32_t rates[] = {0x00, 0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x40, 0x80, 0x06, 0x1000008};
  kvtest::Rng rng(7);
  for (uint32_t flags : rates) {
    const uint32_t perDay = tcNominalRate(flags) * 86400;
    for (int i = 0; i < 3000; ++i) {
      const uint32_t count = i < 100 ? static_cast<uint32_t>(i) : rng.Next32() % (2 * perDay);
      const uint32_t user = rng.Next32();
      SMPTE_FRAME f;
      f.SetFrame(count, user, flags);
      const Bits b = ToBits(f);
      ASSERT_EQ(b, HandBuilt(count, user, flags)) << "count " << count << " flags " << flags;
      Bits data = b;
      data &= Bits().set() >> 16;
      ASSERT_EQ((1 + data.count()) % 2, 0u);
      uint32_t c = 0, u = 0, fl = flags & 0xFF;
      ASSERT_EQ(f.DecodeFrame(c, u, fl), 0u);
      const uint32_t wrapped = flags & 4 ? count % 2589408 : count % perDay;
      ASSERT_EQ(c, wrapped);
      ASSERT_EQ(u, user);
    }
  }
}

TEST(SmpteFrame, GetFlagsTable) {
  SMPTE_FRAME nonDrop, drop;
  nonDrop.SetFrame(100, 0, 0);
  drop.SetFrame(100, 0, 4);
  const struct {
    const SMPTE_FRAME *frame;
    uint32_t in, out;
  } cases[] = {{&nonDrop, 0, 2}, {&nonDrop, 4, 8}, {&nonDrop, 8, 8}, {&nonDrop, 0x101, 1},
               {&nonDrop, 0x400, 2}, {&drop, 0, 4}, {&drop, 8, 4}, {&drop, 0xFF, 4}};
  for (const auto &c : cases) EXPECT_EQ(c.frame->GetFlags(c.in), c.out) << c.in;
}

TEST(SmpteFrame, DecodeReportsAddressesInvalidAtTheRate) {
  SMPTE_FRAME f;
  f.SetFrame(27, 0, 0);  // 00:00:00:27, valid at 30 but not at 25
  uint32_t count = 0, user = 0, flags = 8;
  EXPECT_EQ(f.DecodeFrame(count, user, flags), SMPTE_BAD_ADDRESS);
  EXPECT_EQ(count, 0xFFFFFFFFu);
  flags = 4;  // drop-frame expected, non-drop sent: read as 25 fps
  EXPECT_EQ(f.DecodeFrame(count, user, flags), SMPTE_BAD_ADDRESS);
  EXPECT_EQ(flags, 8u);
}

TEST(SmpteFrame, ReverseBitsMirrorsAllEightyBits) {
  kvtest::Rng rng(3);
  for (int i = 0; i < 200; ++i) {
    SMPTE_FRAME f;
    for (auto &byte : f.bytes) byte = static_cast<uint8_t>(rng.Next());
    const SMPTE_FRAME original = f;
    const Bits before = ToBits(f);
    f.ReverseBits();
    const Bits after = ToBits(f);
    for (int k = 0; k < 80; ++k) ASSERT_EQ(after[k], before[79 - k]);
    f.ReverseBits();
    ASSERT_EQ(0, memcmp(f.bytes, original.bytes, 10));
  }
}

// The decoder's vtables keep the slot order Reset, NewBuffer, FindZX, destructors (Itanium C++ ABI:
// a virtual member pointer holds 1 + slot offset).
TEST(SmpteFrame, DetectorVirtualSlotOrder) {
  auto slot = [](auto member) {
    uintptr_t raw;
    std::memcpy(&raw, &member, sizeof raw);
    return (raw - 1) / sizeof(void *);
  };
  EXPECT_EQ(slot(&CCrossDetector::Reset), 0u);
  EXPECT_EQ(slot(&CCrossDetector::NewBuffer), 1u);
  EXPECT_EQ(slot(&CCrossDetector::FindZX), 2u);
  EXPECT_EQ(slot(&ZXDetect<CSample16R>::FindZX), 2u);
}

}  // namespace
