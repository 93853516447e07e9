// LTC crossing scan: the AVX2 search and the plain loop find the same crossings at every length.
#include <gtest/gtest.h>

#include <string>

#include "../timing/ltc_signal.h"
#include "equivalence.h"

namespace {

struct Step {
  int result, interval;
  unsigned consumed;
  uint32_t accumulated, remaining;
  uint8_t state;
  bool operator==(const Step &o) const {
    return result == o.result && interval == o.interval && consumed == o.consumed && accumulated == o.accumulated &&
           remaining == o.remaining && state == o.state;
  }
};

// Sample frames whose channel holds runs of 1..80 samples of values at and around the thresholds
// (or plain random bytes when `runs` is false). The input ends exactly at the end of its
// allocation, after `misalign` leading bytes, so a read past the end is a heap overflow.
template <typename S>
std::vector<uint8_t> Input(size_t frames, uint64_t seed, bool runs, size_t misalign) {
  const size_t frameBytes = sizeof(typename S::Value) * S::kStride;
  std::vector<uint8_t> out = kvtest::RandomBytes(misalign + frames * frameBytes, seed);
  if (!runs) return out;
  const int eight = sizeof(typename S::Value) == 1;
  const int levels[] = {S::kHighAt,     S::kHighAt - 1,           S::kLowBelow, S::kLowBelow - 1,
                        eight ? 255 : 32767, eight ? 0 : -32768, eight ? 128 : 0};
  kvtest::Rng rng(seed);
  size_t left = 0;
  int value = 0;
  for (size_t i = 0; i < frames; ++i, --left) {
    if (left == 0) left = 1 + rng.Next() % 80, value = levels[rng.Next() % 7];
    const typename S::Value v = static_cast<typename S::Value>(value);
    std::memcpy(&out[misalign + i * frameBytes + S::kOffset * sizeof v], &v, sizeof v);
  }
  return out;
}

template <typename S>
std::vector<Step> ScanAll(uint8_t *data, size_t frames, const std::vector<size_t> &cuts) {
  ZXDetect<S> d;
  std::vector<Step> steps;
  int interval = 0;
  const size_t frameBytes = sizeof(typename S::Value) * S::kStride;
  for (size_t at = 0, c = 0; at < frames || c == 0; ++c) {
    const size_t n = std::min(cuts[c % cuts.size()], frames - at);
    d.NewBuffer(data + at * frameBytes, static_cast<int>(n));
    for (;;) {
      unsigned consumed = 0;
      const int r = d.FindZX(interval, consumed);
      steps.push_back({r, interval, consumed, d.accumulated, d.remaining, d.state});
      if (r != 0) break;
    }
    at += n;
  }
  return steps;
}

template <typename S>
void CheckDetector() {
  const std::vector<size_t> cuts[] = {{SIZE_MAX}, {1, 7, 333, 1601}, {64, 33, 17}};
  for (size_t n : kvtest::EquivalenceLengths()) {
    for (bool runs : {true, false}) {
      const size_t misalign = n % 32;
      auto input = Input<S>(n, n * 31 + runs, runs, misalign);
      for (const auto &cut : cuts) {
        const auto steps = kvtest::OnBothPaths([&] { return ScanAll<S>(input.data() + misalign, n, cut); });
        ASSERT_EQ(steps[0], steps[1]) << "n=" << n << " runs=" << runs << " cut=" << cut[0];
      }
    }
  }
}

TEST(LtcEquivalence, EveryDetectorFindsTheSameCrossings) {
  if (!kvaudio::frame::HostHasAvx2()) GTEST_SKIP() << "host without AVX2";
  CheckDetector<CSample8>();
  CheckDetector<CSample8L>();
  CheckDetector<CSample8R>();
  CheckDetector<CSample16>();
  CheckDetector<CSample16L>();
  CheckDetector<CSample16R>();
}

// Whole decodes of an LTC signal with noise added: the same reports on both paths.
TEST(LtcEquivalence, DecodedReportsAreIdentical) {
  if (!kvaudio::frame::HostHasAvx2()) GTEST_SKIP() << "host without AVX2";
  for (uint32_t bits : {8u, 16u}) {
    auto run = ltctest::EncodeRun(48000, bits, ltctest::kRates[2], 17970, 120);
    kvtest::Rng rng(bits);
    for (size_t i = 0; i < run.bytes.size(); i += 20011) run.bytes[i] ^= static_cast<uint8_t>(rng.Next());
    const auto reports = kvtest::OnBothPaths([&] {
      return ltctest::DecodeInChunks(run.bytes, bits / 8, 48000, bits, 0, 0, ltctest::kRates[2], {1601, 7, 333});
    });
    ASSERT_EQ(reports[0].size(), reports[1].size());
    size_t good = 0;
    for (size_t i = 0; i < reports[0].size(); ++i) {
      const auto &a = reports[0][i], &b = reports[1][i];
      ASSERT_TRUE(a.result == b.result && a.timecode == b.timecode && a.userBits == b.userBits && a.flags == b.flags)
          << "chunk " << i;
      good += a.result == 0;
    }
    EXPECT_GT(good, 30u);
  }
}

}  // namespace
