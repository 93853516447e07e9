// LTC crossing scan: the AVX2 search and the plain loop find the same crossings at every length.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <tuple>

#include "equivalence.h"
#include "kvaudio/ltc.h"

namespace {

// Per FindZX call: result, interval, consumed, and the detector's accumulated, remaining and state.
using Step = std::tuple<int, int, unsigned, uint32_t, uint32_t, uint8_t>;

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

}  // namespace
