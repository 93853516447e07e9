// Channel remap: plain loop and one-bit-map kernels give the same bytes for every width,
// channel count and length, and maps the kernels decline take the plain loop on both paths.
#include <gtest/gtest.h>

#include "equivalence.h"
#include "kvaudio/remap.h"

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
  if (extra == 1) map[channels - 1] |= 1;                    // two bits: averaging
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
        kvtest::ExpectSameBytes(
            w.name + std::to_string(channels) + "ch", {{}, {channels * w.bytes}, 1, 1, 0, true},
            [&](uint8_t *const *, uint8_t *const *out, uint32_t count) {
              EXPECT_EQ(w.run(out[0], channels, 1, count, map.data(), nullptr, nullptr), count ? channels / 2 : 0);
            },
            n, n, 7);
        if (HasFatalFailure()) return;
      }
}

INSTANTIATE_TEST_SUITE_P(All, RemapEquivalence, testing::ValuesIn(kWidths),
                         [](const testing::TestParamInfo<Width> &i) { return std::string(i.param.name); });

}  // namespace
