// Regressions found by fuzzing the AV-sync pulse and the loudness meter.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <vector>

#include "kvaudio/avsync.h"
#include "kvaudio/loudness.h"

namespace {
std::atomic<size_t> largestAllocation{0};
}  // namespace

void *operator new(size_t bytes) {
  if (bytes > largestAllocation.load()) largestAllocation.store(bytes);
  if (void *p = std::malloc(bytes ? bytes : 1)) return p;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void *p) noexcept { std::free(p); }
[[gnu::noinline]] void operator delete(void *p, size_t) noexcept { std::free(p); }

namespace {

TEST(AvSyncRegression, BurstThatCannotFitIsNeverBuilt) {
  std::vector<int16_t> buffer(64 * 2);
  uint32_t position = 0;
  double score = 0.0;
  largestAllocation.store(0);
  for (uint32_t rate : {0xFFFFFFFFu, 1240026633u, 64000u}) {
    EXPECT_EQ(KVAudioAVSyncPulseGenerate(buffer.data(), 64, 2, 16, rate, 0, 0), 3u) << rate;
    EXPECT_EQ(KVAudioAVSyncPulseDetect(buffer.data(), 64, 2, 16, rate, &position, &score, 0.0), 3u) << rate;
  }
  EXPECT_LT(largestAllocation.load(), size_t{1} << 16);
}

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
