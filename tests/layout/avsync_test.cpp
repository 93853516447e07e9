// AV-sync pulse: burst shape, mixing, return codes, and detection equal to a direct correlation.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "avsync_direct.h"
#include "kvaudio/avsync.h"
#include "layout/avsync_internal.h"
#include "test_util.h"

namespace {

constexpr uint32_t kOk = KVAUDIO_AVSYNC_OK, kBad = KVAUDIO_AVSYNC_BAD_ARGUMENT, kShort = KVAUDIO_AVSYNC_TOO_SHORT;

using kvaudio::layout::AvSyncBurst;
using kvaudio::layout::AvSyncChipLength;

constexpr uint32_t kNone = 0xFFFFFFFF;
const uint32_t kRates[] = {16000, 22050, 24000, 32000, 44100, 48000, 88200, 96000};

struct Result {
  uint32_t code, position;
  double score;
  bool operator==(const Result &) const = default;
};

// The direct form with the detector's return codes and threshold (0: the default 0.35).
template <typename T>
Result Direct(const std::vector<T> &in, uint32_t channels, uint32_t rate, double threshold) {
  const std::vector<double> p = AvSyncBurst(rate);
  if (in.size() / channels < p.size()) return {3, kNone, 0.0};
  const kvtest::AvSyncFound best = kvtest::AvSyncDirect(in.data(), in.size() / channels, channels, p);
  if (best.position == kNone) return {2, kNone, 0.0};
  if (best.score < (threshold > 0 ? threshold : 0.35)) return {2, kNone, best.score};
  return {0, best.position, best.score};
}

template <typename T>
std::vector<T> Noise(size_t samples, int shift, uint64_t seed) {
  kvtest::Rng rng(seed);
  std::vector<T> v(samples);
  for (auto &s : v) s = static_cast<T>(static_cast<int64_t>(static_cast<int32_t>(rng.Next32())) >> shift);
  return v;
}

TEST(AvSyncBurst, ChipSignsAndEnvelope) {
  for (uint32_t rate : kRates) {
    const auto p = AvSyncBurst(rate);
    const size_t k = AvSyncChipLength(rate), length = p.size(), edge = rate / 1000;
    uint32_t announced = 0;
    ASSERT_EQ(KVAudioAVSyncPulseGetLength(rate, &announced), kOk);
    ASSERT_EQ(length, 63 * k);
    ASSERT_EQ(announced, length);
    // p / sin(x) is the chip sign times the edge envelope: one sign per chip, 1 away from the ends.
    std::vector<int> sign(63, 0);
    for (size_t j = 1; j + 1 < length; ++j) {
      const double s = std::sin(j * 30159.289474462013 / rate), env = p[j] / s;
      if (std::fabs(s) < 1e-6) continue;
      if (sign[j / k] == 0) sign[j / k] = env > 0 ? 1 : -1;
      ASSERT_EQ(sign[j / k], env > 0 ? 1 : -1) << rate << " j " << j;
      ASSERT_TRUE(j < edge || length - 1 - j < edge || std::fabs(env) == 1.0) << rate << " j " << j << " " << env;
    }
    EXPECT_EQ(std::count(sign.begin(), sign.end(), 1), 32) << "maximal-length sequence, rate " << rate;
    EXPECT_EQ(sign[0], -1);
    EXPECT_TRUE(p[0] == 0.0 && p[length - 1] == 0.0);
  }
  uint32_t length = 77;
  for (uint32_t rate : {0u, 15999u}) EXPECT_EQ(KVAudioAVSyncPulseGetLength(rate, &length), kBad) << rate;
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(KVAudioAVSyncPulseGetLength(48000, nullptr), kBad);
}

// The burst mixed into `frames` periods of 3 channels holding `fill`, from period 5 on.
template <typename T>
std::vector<T> Mixed(uint32_t frames, int32_t amplitude, T fill) {
  std::vector<T> buf(size_t{frames} * 3, fill);
  EXPECT_EQ(KVAudioAVSyncPulseGenerate(buf.data(), frames, 3, sizeof(T) * 8, 48000, 5, amplitude), 0u);
  return buf;
}

template <typename T>
void ExpectMix(int32_t amplitude, double scale) {
  const auto p = AvSyncBurst(48000);
  const auto got = Mixed<T>(800, amplitude, 100);
  for (size_t t = 0; t < 800; ++t) {
    // Positive products round half up; negative ones take floor(v - 0.5), one below ceil(v - 0.5).
    const double v = t >= 5 && t < 5 + p.size() ? p[t - 5] * scale : 0.0;
    const int64_t want = 100 + static_cast<int64_t>(v >= 0 ? std::round(v) : std::floor(v - 0.5));
    for (size_t ch = 0; ch < 3; ++ch) ASSERT_EQ(got[t * 3 + ch], want) << sizeof(T) * 8 << " bits, t " << t;
  }
}

TEST(AvSyncGenerate, RoundsScalesAndSaturates) {
  ExpectMix<int16_t>(0, 12000);
  ExpectMix<int16_t>(40000, 32767);
  ExpectMix<int32_t>(0, 0x30000000);
  ExpectMix<int32_t>(INT32_MIN, 0x7FFFFFFF);
  // Near full scale the sum clamps instead of wrapping.
  const auto high = Mixed<int16_t>(800, 0, 32000), low = Mixed<int16_t>(800, 0, -32000);
  EXPECT_EQ(*std::max_element(high.begin(), high.end()), 32767);
  EXPECT_EQ(*std::min_element(low.begin(), low.end()), -32768);
  const auto wide = Mixed<int32_t>(800, INT32_MAX, INT32_MAX - 5);
  EXPECT_EQ(*std::max_element(wide.begin(), wide.end()), INT32_MAX);
}

TEST(AvSyncReturnCodes, GenerateAndDetect) {
  std::vector<int16_t> buf(2 * 1000, 0);
  int16_t *b = buf.data();
  struct Case { void *buffer; uint32_t frames, channels, bits, rate, offset, code; };
  ASSERT_EQ(KVAudioAVSyncPulseGenerate(b, 1000, 2, 16, 48000, 0, 0), 0u);
  const Case det[] = {
      {nullptr, 1000, 2, 16, 48000, 0, kBad}, {b, 1000, 0, 16, 48000, 0, kBad},   {b, 1000, 2, 8, 48000, 0, kBad},
      {b, 1000, 2, 16, 8000, 0, kBad},        {b, 755, 2, 16, 48000, 0, kShort}, {b, 756, 2, 16, 48000, 0, kOk},
  };
  for (const Case &c : det) {
    uint32_t position = 5;
    double score = 5;
    EXPECT_EQ(KVAudioAVSyncPulseDetect(c.buffer, c.frames, c.channels, c.bits, c.rate, &position, &score, 0), c.code)
        << c.frames << " " << c.channels << " " << c.bits << " " << c.rate;
    EXPECT_EQ(position, c.code == kOk ? 0u : kNone);
  }
  double score = 5;
  EXPECT_EQ(KVAudioAVSyncPulseDetect(b, 1000, 2, 16, 48000, nullptr, &score, 0), kBad);
  EXPECT_EQ(score, 0.0);
  uint32_t position = 0;
  EXPECT_EQ(KVAudioAVSyncPulseDetect(b, 1000, 2, 16, 48000, &position, nullptr, 0), 0u) << "score is optional";

  const Case gen[] = {
      {nullptr, 1000, 2, 16, 48000, 0, kBad},  {b, 1000, 2, 24, 48000, 0, kBad},     {b, 1000, 2, 16, 48000, 244, kOk},
      {b, 1000, 2, 16, 48000, 245, kShort},   {b, 1000, 2, 16, 48000, ~0u, kShort},
  };
  for (const Case &c : gen)
    EXPECT_EQ(KVAudioAVSyncPulseGenerate(c.buffer, c.frames, c.channels, c.bits, c.rate, c.offset, 0), c.code)
        << c.frames << " " << c.channels << " " << c.bits << " " << c.rate << " " << c.offset;
}

// The detector agrees with the direct form in code, position and score bits.
template <typename T>
void ExpectAsDirect(const std::vector<T> &buf, uint32_t channels, uint32_t rate, double threshold, const Result &want) {
  Result got{};
  got.code = KVAudioAVSyncPulseDetect(buf.data(), static_cast<uint32_t>(buf.size() / channels), channels,
                                      sizeof(T) * 8, rate, &got.position, &got.score, threshold);
  EXPECT_EQ(got, want) << rate << " Hz, " << channels << " ch, score " << got.score;
}

// A burst mixed into noise (negated afterwards when `invert`) is found where it was put.
template <typename T>
void ExpectFound(uint32_t rate, uint32_t channels, uint32_t frames, uint32_t offset, bool invert) {
  auto buf = Noise<T>(size_t{frames} * channels, sizeof(T) == 2 ? 22 : 8, rate + offset);
  ASSERT_EQ(KVAudioAVSyncPulseGenerate(buf.data(), frames, channels, sizeof(T) * 8, rate, offset, 0), 0u);
  for (auto &s : buf) s = static_cast<T>(invert ? -s : s);
  const Result want = Direct(buf, channels, rate, 0);
  EXPECT_EQ(want.position, offset) << rate;
  ExpectAsDirect(buf, channels, rate, 0, want);
}

TEST(AvSyncDetect, AgreesWithTheDirectForm) {
  for (uint32_t rate : kRates) ExpectFound<int16_t>(rate, 2, 2 * 63 * AvSyncChipLength(rate) + 41, 37, false);
  ExpectFound<int32_t>(48000, 1, 1600, 0, false);
  ExpectFound<int16_t>(48000, 6, 2000, 844, true);  // the burst ends at the last period
  ExpectFound<int16_t>(48000, 2, 5200, 4090, false);  // across a window of start positions
  // Plain noise: scores below the default threshold, and a threshold that accepts any score.
  const auto noise = Noise<int32_t>(size_t{756 + 97 * 3} * 3, 0, 3);
  for (double threshold : {1e-300, 0.0}) ExpectAsDirect(noise, 3, 48000, threshold, Direct(noise, 3, 48000, threshold));
  // Silence has no power anywhere; of two equal bursts the earlier wins; a threshold above 1 rejects.
  std::vector<int16_t> buf(4000, 0);
  ExpectAsDirect(buf, 2, 48000, 0, {2, kNone, 0.0});
  ASSERT_EQ(KVAudioAVSyncPulseGenerate(buf.data(), 4000, 1, 16, 48000, 3000, 0), 0u);
  ASSERT_EQ(KVAudioAVSyncPulseGenerate(buf.data(), 4000, 1, 16, 48000, 1000, 0), 0u);
  const Result twice = Direct(buf, 1, 48000, 0);
  ExpectAsDirect(buf, 1, 48000, 0, twice);
  ExpectAsDirect(buf, 1, 48000, 1.5, {2, kNone, twice.score});
}

}  // namespace
