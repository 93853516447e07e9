// Interleave family: plain loop and AVX2 kernel give the same bytes at every length.
#include <gtest/gtest.h>

#include "kvaudio/interleave.h"
#include "test_util.h"

namespace {

using kvtest::Guarded;

// One family member: input bytes per period, output buffers and their bytes per period, and a
// runner that calls the member on them.
struct Family {
  const char *name;
  size_t inBytesPerPeriod;
  size_t outs;
  size_t outBytesPerPeriod;
  void (*run)(const uint8_t *in, uint8_t *const *out, uint32_t n);
};

const Family kFamilies[] = {
    {"Deinterleave16to16", 16, 4, 4,
     [](const uint8_t *in, uint8_t *const *o, uint32_t n) {
       AudioDeinterleave16to16(reinterpret_cast<const uint32_t *>(in), reinterpret_cast<uint32_t *>(o[0]),
                               reinterpret_cast<uint32_t *>(o[1]), reinterpret_cast<uint32_t *>(o[2]),
                               reinterpret_cast<uint32_t *>(o[3]), n);
     }},
};

class InterleaveEquivalence : public testing::TestWithParam<Family> {};

TEST_P(InterleaveEquivalence, SameBytesForEveryLength) {
  if (!kvaudio::frame::HostHasAvx2()) GTEST_SKIP() << "host without AVX2";
  const Family &f = GetParam();
  for (size_t n : kvtest::EquivalenceLengths()) {
    const size_t misalign = n % 32;
    const auto input = kvtest::RandomBytes(n * f.inBytesPerPeriod, n * 7919 + 1);
    Guarded in(input.size(), misalign);
    std::copy(input.begin(), input.end(), in.data());
    std::vector<std::vector<Guarded>> outs(2);
    for (int path = 0; path < 2; ++path) {
      for (size_t k = 0; k < f.outs; ++k) outs[path].emplace_back(n * f.outBytesPerPeriod, (misalign + k) % 32);
      std::vector<uint8_t *> ptrs;
      for (auto &g : outs[path]) ptrs.push_back(g.data());
      kvtest::ScopedAvx2 force(path);
      f.run(in.data(), ptrs.data(), static_cast<uint32_t>(n));
    }
    for (size_t k = 0; k < f.outs; ++k) {
      ASSERT_EQ(outs[0][k].bytes(), outs[1][k].bytes()) << f.name << " n=" << n << " out " << k;
      ASSERT_TRUE(outs[0][k].GuardsIntact() && outs[1][k].GuardsIntact()) << f.name << " n=" << n;
    }
    ASSERT_TRUE(in.GuardsIntact());
  }
}

INSTANTIATE_TEST_SUITE_P(All, InterleaveEquivalence, testing::ValuesIn(kFamilies),
                         [](const testing::TestParamInfo<Family> &i) { return std::string(i.param.name); });

}  // namespace
