// Stereo peak meter: the vector path and the plain loop agree for every length, even or odd.
#include <gtest/gtest.h>

#include "equivalence.h"
#include "kvaudio/peak.h"

namespace {

TEST(PeakEquivalence, SameResultForEveryLength) {
  if (!kvaudio::frame::HostHasAvx2()) GTEST_SKIP() << "host without AVX2";
  for (size_t n : kvtest::EquivalenceLengths())
    for (uint64_t seed : {1u, 2u, 3u}) {
      const auto bytes = kvtest::RandomBytes(2 * n, n * 131 + seed);
      kvtest::Guarded in(bytes.size(), n % 16 * 2);  // int16 alignment kept
      std::copy(bytes.begin(), bytes.end(), in.data());
      // Small-amplitude inputs make the extreme words decide; full-range ones the sign edges.
      if (seed == 3)
        for (size_t i = 0; i < n; ++i) in.as<int16_t>()[i] = static_cast<int16_t>(in.as<int16_t>()[i] % 512);
      const auto r = kvtest::OnBothPaths([&] { return audTestPeak16S(in.as<int16_t>(), static_cast<uint32_t>(n)); });
      ASSERT_EQ(r[0], r[1]) << "n=" << n << " seed=" << seed;
    }
}

}  // namespace
