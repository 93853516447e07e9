// Interleave family: plain loop and AVX2 kernel give the same bytes at every length and shape.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <string>
#include <vector>

#include "interleave_calls.h"
#include "test_util.h"

namespace {

using kvtest::Guarded;
using kvtest::InterleaveCall;

// Guarded buffers of `bytes` a period each, buffer k misaligned by misalign + k * step bytes
// (mod 32); a size of 0 stands for a null pointer.
struct Buffers {
  std::vector<Guarded> store;
  std::vector<uint8_t *> ptrs;
  Buffers(const std::vector<size_t> &bytes, size_t n, size_t misalign, size_t step) {
    store.reserve(bytes.size());
    for (size_t k = 0; k < bytes.size(); ++k) {
      store.emplace_back(n * bytes[k], (misalign + step * k) % 32);
      ptrs.push_back(bytes[k] ? store.back().data() : nullptr);
    }
  }
};

// Runs the call on both paths over n periods and compares outputs and guards.
void ExpectSameBytes(const InterleaveCall &f, size_t n, size_t misalign, size_t step) {
  Buffers in(f.inBytes, n, misalign, step);
  for (size_t k = 0; k < in.store.size(); ++k) {
    const auto bytes = kvtest::RandomBytes(in.store[k].size(), n * 7919 + k + 1);
    std::copy(bytes.begin(), bytes.end(), in.store[k].data());
  }
  Buffers out[2] = {Buffers(f.outBytes, n, misalign + 3, step), Buffers(f.outBytes, n, misalign + 3, step)};
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

class InterleaveEquivalence : public testing::TestWithParam<InterleaveCall> {};

TEST_P(InterleaveEquivalence, SameBytesForEveryLength) {
  if (!kvaudio::frame::HostHasAvx2()) GTEST_SKIP() << "host without AVX2";
  for (size_t n : kvtest::EquivalenceLengths()) ExpectSameBytes(GetParam(), n, (n * 7) % 32, 5);
}

INSTANTIATE_TEST_SUITE_P(All, InterleaveEquivalence, testing::ValuesIn(kvtest::kInterleaveCalls),
                         [](const testing::TestParamInfo<InterleaveCall> &i) { return std::string(i.param.name); });

// Jobs writing 16 MiB or more bypass the caches when every destination is 16-byte aligned.
TEST(InterleaveEquivalenceLarge, SameBytesWhenStreaming) {
  if (!kvaudio::frame::HostHasAvx2()) GTEST_SKIP() << "host without AVX2";
  const std::string streaming[] = {"Deinterleave16to16", "Deinterleave16to16_16", "Deinterleave32to32_16",
                                   "Deinterleave32to16_16", "Deinterleave24to16", "DeInterleave16to32",
                                   "Interleave16to16", "Interleave16to16_16", "Interleave32to32", "Interleave16to32_16"};
  for (const auto &f : kvtest::kInterleaveCalls) {
    if (std::find(std::begin(streaming), std::end(streaming), f.name) == std::end(streaming)) continue;
    const size_t outBytes = std::accumulate(f.outBytes.begin(), f.outBytes.end(), size_t{0});
    ExpectSameBytes(f, (size_t{16} << 20) / outBytes + 13, 13, 0);
  }
}

}  // namespace
