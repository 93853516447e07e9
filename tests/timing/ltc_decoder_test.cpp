// LTC decoder: detector thresholds and intervals, and the set-up rule.
#include <gtest/gtest.h>

#include "ltc_signal.h"

namespace {

// Channel values around the thresholds: stays low at kHighAt - 1, goes high at index 8, stays
// high at kLowBelow, goes low at index 13. The other channel of a pair is full scale and toggles
// at every frame, so reading it would show crossings everywhere.
template <typename S>
void CheckThresholds() {
  using V = typename S::Value;
  const int mid = sizeof(V) == 1 ? 128 : 0, high = S::kHighAt, low = S::kLowBelow;
  const int channel[] = {mid, mid, mid, mid, mid, high - 1, high - 1, high - 1, high, mid, mid, low, low, low - 1,
                         mid, mid, mid};
  std::vector<V> samples;
  for (size_t i = 0; i < std::size(channel); ++i)
    for (int k = 0; k < S::kStride; ++k)
      samples.push_back(static_cast<V>(k == S::kOffset ? channel[i] : sizeof(V) == 1 ? 255 * (i % 2) : i % 2 ? 32767 : -32768));
  ZXDetect<S> d;
  int interval = 5;
  d.NewBuffer(samples.data(), static_cast<int>(std::size(channel)));
  const int want[][3] = {{0, 9, 9}, {0, 5, 5}, {100, 5, 3}};  // result, interval, consumed
  for (const auto &w : want) {
    unsigned consumed = 0;
    ASSERT_EQ(d.FindZX(interval, consumed), w[0]);
    EXPECT_EQ(interval, w[1]);
    EXPECT_EQ(consumed, unsigned(w[2]));
  }
  EXPECT_EQ(d.accumulated, 3u);
  EXPECT_EQ(d.state, 0);
}

template <typename... S>
void CheckAll() { (CheckThresholds<S>(), ...); }

TEST(LtcDetector, ThresholdsAndChannels) { CheckAll<CSample8, CSample8L, CSample8R, CSample16, CSample16L, CSample16R>(); }

// A crossing at index i counts only when the incoming interval + i > 1; empty buffers end at once.
TEST(LtcDetector, IgnoresCrossingsTooCloseToThePreviousOneAndEmptyBuffers) {
  std::vector<uint8_t> high(8, 200);
  const int cases[][2] = {{0, 3}, {1, 2}, {2, 1}, {-3, 6}, {40, 1}};  // interval in, consumed
  for (const auto &c : cases) {
    ZXDetect<CSample8> d;
    int interval = c[0];
    unsigned consumed = 0;
    d.NewBuffer(high.data(), 8);
    ASSERT_EQ(d.FindZX(interval, consumed), 0) << c[0];
    EXPECT_EQ(consumed, unsigned(c[1])) << c[0];
    EXPECT_EQ(interval, c[1]);
  }
  ZXDetect<CSample16> empty;
  for (int count : {0, -5, 100}) {
    int interval = 0;
    unsigned consumed = 7;
    empty.NewBuffer(count == 100 ? nullptr : high.data(), count);
    EXPECT_EQ(empty.FindZX(interval, consumed), 100);
    EXPECT_EQ(consumed, 0u);
  }
}

// Set-up picks the detector and the first period only when the 16-bit rate changes.
TEST(LtcDecoderSetup, SameRateLeavesTheDecoderAlone) {
  kvaudio::ltc::ResetDecoderForTesting();
  EXPECT_EQ(decoder.current, &decoder.zx16);
  ASSERT_EQ(smpteSetup(44100, 8, 1, 1, 0, 0), 0u);
  EXPECT_EQ(decoder.current, &decoder.zx16);
  ASSERT_EQ(smpteSetup(48000, 8, 1, 1, 0, 0), 0u);
  EXPECT_EQ(decoder.current, &decoder.zx8L);
  EXPECT_EQ(std::vector<int>({decoder.period, decoder.mid, decoder.lo, decoder.hi}), std::vector<int>({22, 17, 6, 27}));
  ASSERT_EQ(smpteSetup(48000 + 65536, 16, 0, 0, 0, 0), 0u);  // same low 16 bits
  EXPECT_EQ(decoder.current, &decoder.zx8L);
  const int32_t cases[][4] = {{32000, 8, 0, 0}, {44100, 8, 1, 0}, {48000, 16, 0, 7}, {32000, 16, 1, -1}, {44100, 16, 2, 0}};
  const CCrossDetector *want[] = {&decoder.zx8, &decoder.zx8R, &decoder.zx16, &decoder.zx16L, &decoder.zx16R};
  for (size_t i = 0; i < std::size(cases); ++i) {
    const auto &c = cases[i];
    ASSERT_EQ(smpteSetup(c[0], uint32_t(c[1]), c[2], c[3], 0, 0), 0u);
    EXPECT_EQ(decoder.current, want[i]) << i;
  }
}

}  // namespace
