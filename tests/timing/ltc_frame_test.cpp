// SMPTE_FRAME: bit layout against hand-built frames, read-back, flags and invalid addresses.
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

// Over many counts, user words and rate flags: the layout matches the hand-built frame and reads
// back (counts wrap at a day).
TEST(SmpteFrame, LayoutReadBackAndPolarityOverManyFrames) {
  const uint32_t rates[] = {0x00, 0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x40, 0x80, 0x06, 0x1000008};
  kvtest::Rng rng(7);
  SMPTE_FRAME midnight;  // independent of tcxlat: only bit 59 and the sync word are set
  midnight.SetFrame(0, 0, 0);
  Bits want;
  want[59] = true;
  Put(want, 64, 16, 0xBFFC);
  EXPECT_EQ(ToBits(midnight), want);
  for (uint32_t flags : rates) {
    const uint32_t perDay = tcNominalRate(flags) * 86400;
    for (int i = 0; i < 3000; ++i) {
      const uint32_t count = i < 100 ? static_cast<uint32_t>(i) : rng.Next32() % (2 * perDay);
      const uint32_t user = rng.Next32();
      SMPTE_FRAME f;
      f.SetFrame(count, user, flags);
      ASSERT_EQ(ToBits(f), HandBuilt(count, user, flags)) << "count " << count << " flags " << flags;
      uint32_t c = 0, u = 0, fl = flags & 0xFF;
      ASSERT_EQ(f.DecodeFrame(c, u, fl), 0u);
      ASSERT_EQ(c, flags & 4 ? count % 2589408 : count % perDay);
      ASSERT_EQ(u, user);
    }
  }
}

// Effective flags, and addresses valid at 30 but not at the rate expected.
TEST(SmpteFrame, FlagsAndAddressesInvalidAtTheRate) {
  SMPTE_FRAME nonDrop, drop;
  nonDrop.SetFrame(27, 0, 0);  // 00:00:00:27
  drop.SetFrame(100, 0, 4);
  const uint32_t cases[][3] = {{0, 0, 2}, {0, 4, 8}, {0, 8, 8}, {0, 0x101, 1}, {0, 0x400, 2},
                               {1, 0, 4}, {1, 8, 4}, {1, 0xFF, 4}};  // drop frame?, flags in, out
  for (const auto &c : cases) EXPECT_EQ((c[0] ? drop : nonDrop).GetFlags(c[1]), c[2]) << c[0] << " " << c[1];
  for (uint32_t expected : {8u, 4u}) {  // drop-frame expected, non-drop sent: read as 25 fps
    uint32_t count = 0, user = 0, flags = expected;
    EXPECT_EQ(nonDrop.DecodeFrame(count, user, flags), SMPTE_BAD_ADDRESS);
    EXPECT_EQ(count, 0xFFFFFFFFu);
    EXPECT_EQ(flags, 8u);
  }
}

}  // namespace
