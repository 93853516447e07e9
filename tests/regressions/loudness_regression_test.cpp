// Regressions found by fuzzing the loudness meter.
#include <gtest/gtest.h>

#include <vector>

#include "kvaudio/loudness.h"

namespace {

TEST(MeterRegression, LoudnessThatIsNotANumberReadsAtTheBottom) {
  std::vector<int16_t> pcm(4000);
  for (size_t i = 0; i < pcm.size(); ++i) pcm[i] = static_cast<int16_t>(i % 7 * 4000);
  for (uint8_t mode : {1, 3}) {
    s_ebu_r128 s{};
    ASSERT_EQ(ebu_r128_init(&s, 1, 16, 2000, mode, 1), 1u);
    uint32_t result = 0;
    EXPECT_EQ(ebu_r128_process_and_calculate(&s, 4000, pcm.data(), &result, 1), 0u);
    EXPECT_EQ(s.currentLoudness, -59.0f);
    EXPECT_EQ(result, mode == 3 ? 0u : (5900u << 16) + 5900u);
    ebu_r128_destroy(&s);
  }
}

}  // namespace
