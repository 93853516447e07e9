// Interleave family: plain loop and AVX2 kernel give the same bytes at every length and shape.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "interleave_calls.h"
#include "test_util.h"

namespace {

using kvtest::Guarded;
using kvtest::InterleaveCall;

// Guarded buffers of `bytes` a period each, at misalignments that differ between buffers; a
// size of 0 stands for a null pointer.
struct Buffers {
  std::vector<Guarded> store;
  std::vector<uint8_t *> ptrs;
  Buffers(const std::vector<size_t> &bytes, size_t n, size_t misalign) {
    store.reserve(bytes.size());
    for (size_t k = 0; k < bytes.size(); ++k) {
      store.emplace_back(n * bytes[k], (misalign + 5 * k) % 32);
      ptrs.push_back(bytes[k] ? store.back().data() : nullptr);
    }
  }
};

class InterleaveEquivalence : public testing::TestWithParam<InterleaveCall> {};

TEST_P(InterleaveEquivalence, SameBytesForEveryLength) {
  if (!kvaudio::frame::HostHasAvx2()) GTEST_SKIP() << "host without AVX2";
  const InterleaveCall &f = GetParam();
  for (size_t n : kvtest::EquivalenceLengths()) {
    const size_t misalign = (n * 7) % 32;
    Buffers in(f.inBytes, n, misalign);
    for (size_t k = 0; k < in.store.size(); ++k) {
      const auto bytes = kvtest::RandomBytes(in.store[k].size(), n * 7919 + k + 1);
      std::copy(bytes.begin(), bytes.end(), in.store[k].data());
    }
    Buffers out[2] = {Buffers(f.outBytes, n, misalign + 3), Buffers(f.outBytes, n, misalign + 3)};
    for (int path = 0; path < 2; ++path) {
      kvtest::ScopedAvx2 force(path);
      f.run(in.ptrs.data(), out[path].ptrs.data(), static_cast<uint32_t>(n));
    }
    for (size_t k = 0; k < f.outBytes.size(); ++k) {
      ASSERT_EQ(out[0].store[k].bytes(), out[1].store[k].bytes()) << f.name << " n=" << n << " out " << k;
      ASSERT_TRUE(out[0].store[k].GuardsIntact() && out[1].store[k].GuardsIntact()) << f.name << " n=" << n;
    }
    for (auto &g : in.store) ASSERT_TRUE(g.GuardsIntact()) << f.name << " n=" << n;
  }
}

INSTANTIATE_TEST_SUITE_P(All, InterleaveEquivalence, testing::ValuesIn(kvtest::kInterleaveCalls),
                         [](const testing::TestParamInfo<InterleaveCall> &i) { return std::string(i.param.name); });

}  // namespace
