// Transforms and null-pair rules of the interleave family, on both dispatch paths.
#include <gtest/gtest.h>

#include <vector>

#include "kvaudio/interleave.h"
#include "test_util.h"

namespace {

TEST(Deinterleave16to16, NullPairTakesNoRoomInSource) {
  for (int path = 0; path < 2; ++path) {
    kvtest::ScopedAvx2 force(path);
    const std::vector<uint32_t> src = {10, 11, 12, 20, 21, 22};  // two periods of three units
    std::vector<uint32_t> p0(2, 0xEE), p2(2, 0xEE), p3(2, 0xEE);
    EXPECT_EQ(AudioDeinterleave16to16(src.data(), p0.data(), nullptr, p2.data(), p3.data(), 2), 0u);
    EXPECT_EQ(p0, (std::vector<uint32_t>{10, 20}));
    EXPECT_EQ(p2, (std::vector<uint32_t>{11, 21}));
    EXPECT_EQ(p3, (std::vector<uint32_t>{12, 22}));
  }
}

}  // namespace
