// Loudness meter: plain loops and AVX2 kernels give bit-identical filter states and readings.
#include <gtest/gtest.h>

#include <vector>

#include "equivalence.h"
#include "kvaudio/loudness.h"
#include "loudness/kweight.h"

namespace {

// Everything a meter holds after intake, as bytes.
std::vector<uint8_t> MeterState(const s_ebu_r128 &s) {
  std::vector<uint8_t> out;
  auto put = [&out](const void *p, size_t n) {
    const auto *b = static_cast<const uint8_t *>(p);
    out.insert(out.end(), b, b + n);
  };
  put(&s.currentLoudness, sizeof(float));
  put(&s.fillCount, sizeof(uint32_t));
  put(s.integrator, s.integratorCount * sizeof(float));
  for (uint32_t c = 0; c < s.channels; ++c) {
    const ebu_r128_channel &ch = s.channel[c];
    put(&ch.pre, sizeof ch.pre);
    put(&ch.rlb, sizeof ch.rlb);
    put(&ch.loudness, sizeof(float));
    put(ch.window, s.windowSamples * sizeof(float));
    put(ch.step, s.stepSamples * sizeof(float));
  }
  return out;
}

TEST(LoudnessEquivalence, MeterStateForEveryChannelCountAndWidth) {
  if (!kvaudio::frame::HostHasAvx2()) GTEST_SKIP() << "host without AVX2";
  for (uint8_t nch = 1; nch <= 9; ++nch)
    for (uint8_t bits : {8, 16, 24, 32})
      for (uint8_t mode : {1, 3}) {
        const size_t periods = 3 * 8000 + nch * 37;
        const auto in = kvtest::RandomBytes(periods * nch * (bits / 8), nch * 100 + bits);
        const auto state = kvtest::OnBothPaths([&] {
          s_ebu_r128 s{};
          EXPECT_EQ(ebu_r128_init(&s, 1, bits, 8000, mode, nch), 1u);
          ebu_r128_set_5_1(&s);
          for (size_t done = 0, n = 1; done < periods; done += n, n = n * 3 + 1) {
            n = std::min(n, periods - done);
            ebu_r128_process_samples(&s, in.data() + done * nch * (bits / 8), n);
          }
          auto bytes = MeterState(s);
          ebu_r128_destroy(&s);
          return bytes;
        });
        ASSERT_EQ(state[0], state[1]) << "channels " << int(nch) << " bits " << int(bits) << " mode " << int(mode);
      }
}

TEST(LoudnessEquivalence, SumOfSquaresForEveryLength) {
  if (!kvaudio::frame::HostHasAvx2()) GTEST_SKIP() << "host without AVX2";
  for (size_t n : kvtest::EquivalenceLengths()) {
    kvtest::Guarded buf(n * sizeof(float), (n % 8) * sizeof(float));
    kvtest::Rng rng(n);
    for (size_t i = 0; i < n; ++i) buf.as<float>()[i] = static_cast<float>(static_cast<int32_t>(rng.Next32())) * 1e-9f;
    const auto sum = kvtest::OnBothPaths([&] { return kvaudio::loudness::SumOfSquares(buf.as<float>(), n); });
    ASSERT_TRUE(kvtest::SameBits(sum)) << "n=" << n;
  }
}

}  // namespace
