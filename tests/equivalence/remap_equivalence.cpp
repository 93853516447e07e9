// Channel remap: plain loop and one-bit-map kernels give the same bytes for every width,
// channel count and length, and maps the kernels decline take the plain loop on both paths.
#include <gtest/gtest.h>

#include "kvaudio/remap.h"
#include "test_util.h"

namespace {

using RemapFn = uint32_t (*)(void *, uint32_t, uint32_t, uint32_t, const uint32_t *, uint32_t *, uint32_t *);

struct Width {
  const char *name;
  RemapFn run;
  size_t bytes;
};

const Width kWidths[] = {
    {"Remap32", AudioRemap32Bit, 4}, {"Remap24", AudioRemap24Bit, 3}, {"Remap16", AudioRemap16Bit, 2}};

// A map of random single source bits; `extra` adds one mask the kernels must decline.
std::vector<uint32_t> RandomMap(uint32_t channels, uint64_t seed, int extra) {
  kvtest::Rng rng(seed);
  std::vector<uint32_t> map(channels);
  for (auto &m : map) m = 1u << (rng.Next32() % channels);
  if (extra == 1) map[channels - 1] |= 1;                // two bits: averaging
  if (extra == 2 && channels < 32) map[0] = 1u << channels;  // one bit beyond the buffer
  return map;
}

class RemapEquivalence : public testing::TestWithParam<Width> {};

TEST_P(RemapEquivalence, SameBytesForEveryShapeAndLength) {
  if (!kvaudio::frame::HostHasAvx2()) GTEST_SKIP() << "host without AVX2";
  const Width &w = GetParam();
  for (uint32_t channels : {2u, 3u, 4u, 5u, 6u, 7u, 8u, 16u, 32u})
    for (int extra = 0; extra < 3; ++extra)
      for (size_t n : kvtest::EquivalenceLengths()) {
        const auto map = RandomMap(channels, n * 31 + channels, extra);
        const auto input = kvtest::RandomBytes(n * channels * w.bytes, n * 7919 + channels);
        kvtest::Guarded out[2] = {kvtest::Guarded(input.size(), n % 32), kvtest::Guarded(input.size(), (n + 7) % 32)};
        for (int path = 0; path < 2; ++path) {
          std::copy(input.begin(), input.end(), out[path].data());
          kvtest::ScopedAvx2 force(path);
          ASSERT_EQ(w.run(out[path].data(), channels, 1, static_cast<uint32_t>(n), map.data(), nullptr, nullptr),
                    n ? channels / 2 : 0);
        }
        ASSERT_EQ(out[0].bytes(), out[1].bytes()) << w.name << " channels=" << channels << " n=" << n;
        ASSERT_TRUE(out[0].GuardsIntact() && out[1].GuardsIntact()) << w.name << " n=" << n;
      }
}

INSTANTIATE_TEST_SUITE_P(All, RemapEquivalence, testing::ValuesIn(kWidths),
                         [](const testing::TestParamInfo<Width> &i) { return std::string(i.param.name); });

}  // namespace
