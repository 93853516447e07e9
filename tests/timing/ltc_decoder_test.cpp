// LTC decoder: detector thresholds and intervals, set-up rule, end-of-buffer reporting.
#include <gtest/gtest.h>

#include "ltc_signal.h"

namespace {

struct Crossing {
  int result, interval;
  unsigned consumed;
};

// Scans a buffer to its end and lists what FindZX returns, the final 100 included.
std::vector<Crossing> Scan(CCrossDetector &d, int &interval) {
  std::vector<Crossing> out;
  for (;;) {
    unsigned consumed = 0;
    const int r = d.FindZX(interval, consumed);
    out.push_back({r, interval, consumed});
    if (r != 0) return out;
  }
}

// Channel values 128..133 / 0..401 around the thresholds; the other channel of a pair is full
// scale and toggles at every frame, so reading it would show crossings everywhere.
template <typename S>
std::vector<typename S::Value> Samples(const std::vector<int> &channel) {
  std::vector<typename S::Value> v;
  for (size_t i = 0; i < channel.size(); ++i) {
    for (int k = 0; k < S::kStride; ++k) {
      const int other = sizeof(typename S::Value) == 1 ? (i % 2 ? 255 : 0) : (i % 2 ? 32767 : -32768);
      v.push_back(static_cast<typename S::Value>(k == S::kOffset ? channel[i] : other));
    }
  }
  return v;
}

template <typename S>
void CheckThresholds() {
  const bool eight = sizeof(typename S::Value) == 1;
  const int mid = eight ? 128 : 0, high = S::kHighAt, low = S::kLowBelow;
  // Stays low at high - 1, goes high at index 8, stays high at low, goes low at index 13.
  const std::vector<int> channel = {mid, mid, mid, mid, mid, high - 1, high - 1, high - 1, high, mid,
                                    mid, low, low, low - 1, mid, mid, mid};
  auto samples = Samples<S>(channel);
  ZXDetect<S> d;
  int interval = 5;
  d.NewBuffer(samples.data(), static_cast<int>(channel.size()));
  const std::vector<Crossing> whole = Scan(d, interval);
  ASSERT_EQ(whole.size(), 3u);
  EXPECT_EQ(whole[0].result, 0);
  EXPECT_EQ(whole[0].interval, 9);
  EXPECT_EQ(whole[0].consumed, 9u);
  EXPECT_EQ(whole[1].interval, 5);
  EXPECT_EQ(whole[1].consumed, 5u);
  EXPECT_EQ(whole[2].result, 100);
  EXPECT_EQ(whole[2].consumed, 3u);
  EXPECT_EQ(d.accumulated, 3u);
  EXPECT_EQ(d.state, 0);
}

TEST(LtcDetector, ThresholdsAndChannels) {
  CheckThresholds<CSample8>();
  CheckThresholds<CSample8L>();
  CheckThresholds<CSample8R>();
  CheckThresholds<CSample16>();
  CheckThresholds<CSample16L>();
  CheckThresholds<CSample16R>();
}

// A crossing at index i counts only when the incoming interval + i > 1.
TEST(LtcDetector, IgnoresCrossingsTooCloseToThePreviousOne) {
  std::vector<uint8_t> high(8, 200);
  const struct {
    int interval;
    unsigned consumed;
  } cases[] = {{0, 3}, {1, 2}, {2, 1}, {-3, 6}, {40, 1}};
  for (const auto &c : cases) {
    ZXDetect<CSample8> d;
    int interval = c.interval;
    unsigned consumed = 0;
    d.NewBuffer(high.data(), 8);
    ASSERT_EQ(d.FindZX(interval, consumed), 0) << c.interval;
    EXPECT_EQ(consumed, c.consumed) << c.interval;
    EXPECT_EQ(interval, static_cast<int>(c.consumed));
  }
  ZXDetect<CSample16> empty;
  int interval = 0;
  unsigned consumed = 7;
  for (int count : {0, -5}) {
    empty.NewBuffer(high.data(), count);
    EXPECT_EQ(empty.FindZX(interval, consumed), 100);
    EXPECT_EQ(consumed, 0u);
  }
  empty.NewBuffer(nullptr, 100);
  EXPECT_EQ(empty.FindZX(interval, consumed), 100);
}

// Set-up picks the detector and the first period only when the 16-bit rate changes.
TEST(LtcDecoderSetup, SameRateLeavesTheDecoderAlone) {
  kvaudio::ltc::ResetDecoderForTesting();
  EXPECT_EQ(decoder.current, &decoder.zx16);
  ASSERT_EQ(smpteSetup(44100, 8, 1, 1, 0, 0), 0u);
  EXPECT_EQ(decoder.current, &decoder.zx16);
  ASSERT_EQ(smpteSetup(48000, 8, 1, 1, 0, 0), 0u);
  EXPECT_EQ(decoder.current, &decoder.zx8L);
  EXPECT_EQ(decoder.period, 22);
  EXPECT_EQ(decoder.mid, 17);
  EXPECT_EQ(decoder.lo, 6);
  EXPECT_EQ(decoder.hi, 27);
  ASSERT_EQ(smpteSetup(48000 + 65536, 16, 0, 0, 0, 0), 0u);  // same low 16 bits
  EXPECT_EQ(decoder.current, &decoder.zx8L);
  const struct {
    int32_t rate;
    uint32_t bits;
    int stereo, channel;
    CCrossDetector *want;
  } cases[] = {{32000, 8, 0, 0, &decoder.zx8},   {44100, 8, 1, 0, &decoder.zx8R},
               {48000, 16, 0, 7, &decoder.zx16}, {32000, 16, 1, -1, &decoder.zx16L},
               {44100, 16, 2, 0, &decoder.zx16R}};
  for (const auto &c : cases) {
    ASSERT_EQ(smpteSetup(c.rate, c.bits, c.stereo, c.channel, 0, 0), 0u);
    EXPECT_EQ(decoder.current, c.want) << c.rate;
  }
}

class LtcDecoderReports : public testing::Test {
 protected:
  // Decodes ten frames of 25 fps at 48 kHz and the first sample of the eleventh, which completes
  // the tenth; leaves the decoder locked.
  void SetUp() override {
    run_ = ltctest::EncodeRun(48000, 16, ltctest::kRates[1], 100, 12);
    kvaudio::ltc::ResetDecoderForTesting();
    smpteSetup(8000, 16, 0, 0, 8, 0);
    smpteSetup(48000, 16, 0, 0, 8, 0);
    EXPECT_EQ(kvaudio::ltc::m_dwBadCount, 10u);
    last_ = 0;
    for (int k = 0; k <= 10; ++k) {
      Feed(1920 * k, k < 10 ? 1920 : 1);
      if (Decode() == 0) last_ = tc_;
    }
    ASSERT_GE(last_, 105u);
  }
  void Feed(size_t at, size_t n) { smpteDecodeSetBuffer(run_.bytes.data() + 2 * at, static_cast<int32_t>(n)); }
  uint32_t Decode(uint32_t tcIn = 0) {
    tc_ = tcIn;
    ub_ = 0;
    flags_ = 8;
    return smpteDecode(&tc_, &ub_, &flags_);
  }

  ltctest::Run run_;
  uint32_t last_ = 0, tc_ = 0, ub_ = 0, flags_ = 0;
};

TEST_F(LtcDecoderReports, GoodDecodeSetsStatics) {
  EXPECT_EQ(kvaudio::ltc::m_dwBadCount, 0u);
  EXPECT_EQ(kvaudio::ltc::m_dwTC, last_);
  EXPECT_EQ(decoder.position, 0u);
}

TEST_F(LtcDecoderReports, CrossingsWithoutNewFrameRepeatTheLastOne) {
  Feed(1920 * 10 + 1, 200);
  EXPECT_EQ(Decode(), 0u);
  EXPECT_EQ(tc_, last_);
  EXPECT_EQ(ub_, ltctest::UserBitsOf(last_));
  EXPECT_EQ(flags_, 8u);
  EXPECT_EQ(smpteDecode(nullptr, nullptr, nullptr), SMPTE_NO_FRAME);  // buffer already drained
}

TEST_F(LtcDecoderReports, SilenceReportsNothingUnlessAskedForTheLastFrame) {
  std::vector<int16_t> silence(3000, 0);
  smpteDecodeSetBuffer(silence.data(), 3000);
  EXPECT_EQ(Decode(), SMPTE_NO_FRAME);
  EXPECT_EQ(decoder.frameReady, 0);
  EXPECT_EQ(tc_, 0u);
  smpteDecodeSetBuffer(silence.data(), 3000);
  EXPECT_EQ(Decode(0xFFFFFFFF), SMPTE_NO_FRAME);
  EXPECT_EQ(tc_, last_);
  EXPECT_EQ(ub_, ltctest::UserBitsOf(last_));
  smpteDecodeSetBuffer(nullptr, 50);
  EXPECT_EQ(Decode(), SMPTE_NO_FRAME);
}

}  // namespace
