// Interleave, AES3 and AoIP kernels: plain loop and AVX2 kernel give the same bytes at every length and shape.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <string>

#include "equivalence.h"
#include "kernel_calls.h"

namespace {

using kvtest::KernelCall;

kvtest::BufferShape ShapeOf(const KernelCall &c) { return {c.inBytes, c.outBytes, c.inAlign, c.outAlign, c.inPrefix}; }

class KernelEquivalence : public testing::TestWithParam<KernelCall> {};

TEST_P(KernelEquivalence, SameBytesForEveryLength) {
  if (!kvaudio::frame::HostHasAvx2()) GTEST_SKIP() << "host without AVX2";
  kvtest::ExpectSameBytesForEveryLength(GetParam().name, ShapeOf(GetParam()), GetParam().run);
}

INSTANTIATE_TEST_SUITE_P(All, KernelEquivalence, testing::ValuesIn(kvtest::kKernelCalls),
                         [](const testing::TestParamInfo<KernelCall> &i) { return std::string(i.param.name); });

// Jobs writing 16 MiB or more bypass the caches when every destination is 16-byte aligned.
TEST(InterleaveEquivalenceLarge, SameBytesWhenStreaming) {
  if (!kvaudio::frame::HostHasAvx2()) GTEST_SKIP() << "host without AVX2";
  const std::string streaming[] = {"Deinterleave16to16", "Deinterleave16to16_16", "Deinterleave32to32_16",
                                   "Deinterleave32to16_16", "Deinterleave24to16", "DeInterleave16to32",
                                   "Interleave16to16", "Interleave16to16_16", "Interleave32to32",
                                   "Interleave16to32_16"};
  for (const auto &f : kvtest::kKernelCalls) {
    if (std::find(std::begin(streaming), std::end(streaming), f.name) == std::end(streaming)) continue;
    const size_t outBytes = std::accumulate(f.outBytes.begin(), f.outBytes.end(), size_t{0});
    // Outputs sit 13 + 3 = 16 bytes into a vector (streaming allowed), inputs 14 (unaligned).
    kvtest::ExpectSameBytes(f.name, ShapeOf(f), f.run, (size_t{16} << 20) / outBytes + 13, 13, 0);
  }
}

}  // namespace
