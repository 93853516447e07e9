// The parity and bit-reversal byte tables.
#include <gtest/gtest.h>

#include <bit>

#include "transport/tables.h"

namespace {

TEST(ByteTables, EveryEntry) {
  for (unsigned i = 0; i < 256; ++i) {
    EXPECT_EQ(kvaudio::VposBitPop[i], std::popcount(i)) << i;
    unsigned reversed = 0;
    for (int b = 0; b < 8; ++b)
      if (i & (1u << b)) reversed |= 0x80u >> b;
    EXPECT_EQ(kvaudio::BitReverseTable256[i], reversed) << i;
  }
  EXPECT_EQ(kvaudio::BitReverseTable256[0x01], 0x80);
  EXPECT_EQ(kvaudio::BitReverseTable256[0x0F], 0xF0);
}

}  // namespace
