// AV-sync correlation: plain loop and AVX2 kernel give the same bytes for every start count.
#include <gtest/gtest.h>

#include <cstring>

#include "layout/avsync_internal.h"
#include "test_util.h"

namespace {

using kvtest::Guarded;

// Channel means as the detector makes them: integer samples (edge words included) over 1..16.
std::vector<double> Means(size_t n, uint64_t seed) {
  const auto words = kvtest::RandomBytes(n * 4, seed);
  std::vector<double> m(n);
  for (size_t i = 0; i < n; ++i) {
    int32_t w;
    std::memcpy(&w, words.data() + 4 * i, 4);
    m[i] = static_cast<double>(w) / static_cast<double>(1 + (i * 7 + seed) % 16);
  }
  return m;
}

TEST(AvSyncEquivalence, SameSumsForEveryStartCount) {
  if (!kvaudio::frame::HostHasAvx2()) GTEST_SKIP() << "host without AVX2";
  for (uint32_t rate : {16000u, 48000u}) {
    const auto p = kvaudio::layout::AvSyncBurst(rate);
    for (size_t count : kvtest::EquivalenceLengths()) {
      const auto m = Means(count + p.size() - 1, count * 31 + rate);
      // Outputs at every 8-byte offset within a 32-byte vector (doubles stay naturally aligned).
      Guarded c[2] = {Guarded(count * 8, count % 4 * 8), Guarded(count * 8, (count + 1) % 4 * 8)};
      Guarded q[2] = {Guarded(count * 8, (count + 2) % 4 * 8), Guarded(count * 8, (count + 3) % 4 * 8)};
      for (int path = 0; path < 2; ++path) {
        kvtest::ScopedAvx2 force(path);
        kvaudio::layout::AvSyncCorrelate(m.data(), p.data(), p.size(), count, c[path].as<double>(),
                                         q[path].as<double>());
      }
      ASSERT_EQ(c[0].bytes(), c[1].bytes()) << "rate " << rate << " count " << count;
      ASSERT_EQ(q[0].bytes(), q[1].bytes()) << "rate " << rate << " count " << count;
      for (const Guarded *g : {&c[0], &c[1], &q[0], &q[1]}) ASSERT_TRUE(g->GuardsIntact()) << count;
    }
  }
}

}  // namespace
