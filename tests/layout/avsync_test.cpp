// AV-sync pulse: burst shape, mixing, return codes, and detection equal to a direct correlation.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "kvaudio/avsync.h"
#include "layout/avsync_internal.h"
#include "test_util.h"

namespace {

using kvaudio::layout::AvSyncBurst;
using kvaudio::layout::AvSyncChipLength;

constexpr uint32_t kNone = 0xFFFFFFFF;
const uint32_t kRates[] = {16000, 22050, 24000, 32000, 44100, 48000, 88200, 96000};

struct Result {
  uint32_t code;
  uint32_t position;
  double score;
};

// Detection as directly as it is defined: per start, per sample, the channel mean, then the sums.
template <typename T>
Result Direct(const std::vector<T> &in, uint32_t channels, uint32_t rate, double threshold) {
  const std::vector<double> p = AvSyncBurst(rate);
  double energy = 0.0;
  for (double v : p) energy += v * v;
  const size_t frames = in.size() / channels;
  if (frames < p.size()) return {3, kNone, 0.0};
  double best = -1.0;
  uint32_t at = kNone;
  for (size_t t = 0; t + p.size() <= frames; ++t) {
    double c = 0.0, power = 0.0;
    for (size_t j = 0; j < p.size(); ++j) {
      double sum = 0.0;
      for (size_t ch = 0; ch < channels; ++ch) sum += static_cast<double>(in[(t + j) * channels + ch]);
      const double m = sum / static_cast<double>(channels);
      c += m * p[j];
      power += m * m;
    }
    if (power == 0.0) continue;
    const double score = std::fabs(c) / std::sqrt(power * energy);
    if (score > best) best = score, at = static_cast<uint32_t>(t);
  }
  if (at == kNone) return {2, kNone, 0.0};
  if (best < (threshold > 0 ? threshold : 0.35)) return {2, kNone, best};
  return {0, at, best};
}

template <typename T>
Result Detect(const std::vector<T> &in, uint32_t channels, uint32_t rate, double threshold = 0.0) {
  Result r{};
  r.code = KVAudioAVSyncPulseDetect(in.data(), static_cast<uint32_t>(in.size() / channels), channels,
                                    sizeof(T) * 8, rate, &r.position, &r.score, threshold);
  return r;
}

// Equal codes, positions and bit patterns of the scores.
::testing::AssertionResult Same(const Result &a, const Result &b) {
  if (a.code == b.code && a.position == b.position && std::memcmp(&a.score, &b.score, sizeof(double)) == 0)
    return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "code " << a.code << "/" << b.code << " position " << a.position
                                       << "/" << b.position << " score " << a.score << "/" << b.score;
}

std::vector<int> Paths() { return kvaudio::frame::HostHasAvx2() ? std::vector<int>{0, 1} : std::vector<int>{0}; }

template <typename T>
std::vector<T> Noise(size_t samples, int shift, uint64_t seed) {
  kvtest::Rng rng(seed);
  std::vector<T> v(samples);
  for (auto &s : v) s = static_cast<T>(static_cast<int64_t>(static_cast<int32_t>(rng.Next32())) >> shift);
  return v;
}

TEST(AvSyncLength, PerRate) {
  struct Case {
    uint32_t rate, code, length;
  };
  for (const Case &c : {Case{48000, 0, 756}, {44100, 0, 693}, {16000, 0, 252}, {96000, 0, 1512}, {15999, 1, 0}, {0, 1, 0}}) {
    uint32_t length = 77;
    EXPECT_EQ(KVAudioAVSyncPulseGetLength(c.rate, &length), c.code) << c.rate;
    EXPECT_EQ(length, c.length) << c.rate;
  }
  EXPECT_EQ(KVAudioAVSyncPulseGetLength(48000, nullptr), 1u);
}

TEST(AvSyncBurst, ChipSignsAndEnvelope) {
  for (uint32_t rate : kRates) {
    const auto p = AvSyncBurst(rate);
    const size_t k = AvSyncChipLength(rate), length = p.size();
    ASSERT_EQ(length, 63 * k);
    // p / sin(x) is the chip sign times the edge envelope: constant in sign over a chip,
    // 1 in the middle, symmetric at the two ends, 0 at the very ends.
    std::vector<int> sign(63, 0);
    for (size_t j = 1; j + 1 < length; ++j) {
      const double s = std::sin(j * 30159.289474462013 / rate);
      if (std::fabs(s) < 1e-6) continue;
      const double env = p[j] / s;
      const int chipSign = env > 0 ? 1 : -1;
      if (sign[j / k] == 0) sign[j / k] = chipSign;
      ASSERT_EQ(sign[j / k], chipSign) << rate << " j " << j;
      const size_t r = length - 1 - j;
      const double s2 = std::sin(r * 30159.289474462013 / rate);
      if (std::fabs(s2) > 1e-6) {
        ASSERT_NEAR(std::fabs(env), std::fabs(p[r] / s2), 1e-9) << rate << " j " << j;
      }
      if (j >= rate / 1000 && r >= rate / 1000) {
        ASSERT_EQ(std::fabs(env), 1.0) << rate << " j " << j;
      }
    }
    int positive = 0;
    for (int v : sign) positive += v > 0;
    EXPECT_EQ(positive, 32) << "a 63-chip maximal-length sequence has 32 ones, rate " << rate;
    EXPECT_EQ(sign[0], -1) << rate;
    EXPECT_EQ(p[0], 0.0);
    EXPECT_EQ(p[length - 1], 0.0);
  }
}

TEST(AvSyncGenerate, RoundsHalfAwayAndMixes) {
  const auto p = AvSyncBurst(48000);
  struct Case {
    uint32_t bits;
    int32_t amplitude;
    double scale;
  };
  for (const Case &c : {Case{16, 0, 12000}, {16, -20000, 20000}, {16, 40000, 32767},
                        {32, 0, 0x30000000}, {32, INT32_MIN, 0x7FFFFFFF}, {32, 7, 7}}) {
    const uint32_t channels = 3, offset = 5, frames = 800;
    std::vector<int64_t> got(frames * channels);
    if (c.bits == 16) {
      std::vector<int16_t> buf(got.size(), 100);
      ASSERT_EQ(KVAudioAVSyncPulseGenerate(buf.data(), frames, channels, 16, 48000, offset, c.amplitude), 0u);
      std::copy(buf.begin(), buf.end(), got.begin());
    } else {
      std::vector<int32_t> buf(got.size(), 100);
      ASSERT_EQ(KVAudioAVSyncPulseGenerate(buf.data(), frames, channels, 32, 48000, offset, c.amplitude), 0u);
      std::copy(buf.begin(), buf.end(), got.begin());
    }
    for (uint32_t t = 0; t < frames; ++t) {
      const bool in = t >= offset && t < offset + p.size();
      // Positive products round half up; negative ones take floor(v - 0.5), one below ceil(v - 0.5).
      const double v = in ? p[t - offset] * c.scale : 0.0;
      const int64_t want = 100 + static_cast<int64_t>(v >= 0 ? std::round(v) : std::floor(v - 0.5));
      for (uint32_t ch = 0; ch < channels; ++ch) ASSERT_EQ(got[t * channels + ch], want) << c.bits << " t " << t;
    }
  }
}

TEST(AvSyncGenerate, SaturatesInsteadOfWrapping) {
  const uint32_t length = 756;
  std::vector<int16_t> high(length, 32000), low(length, -32000);
  ASSERT_EQ(KVAudioAVSyncPulseGenerate(high.data(), length, 1, 16, 48000, 0, 0), 0u);
  ASSERT_EQ(KVAudioAVSyncPulseGenerate(low.data(), length, 1, 16, 48000, 0, 0), 0u);
  EXPECT_EQ(*std::max_element(high.begin(), high.end()), 32767);
  EXPECT_EQ(*std::min_element(low.begin(), low.end()), -32768);
  EXPECT_GT(*std::min_element(high.begin(), high.end()), 0) << "no wrap to negative";
  std::vector<int32_t> wide(length, INT32_MAX - 5);
  ASSERT_EQ(KVAudioAVSyncPulseGenerate(wide.data(), length, 1, 32, 48000, 0, INT32_MAX), 0u);
  EXPECT_EQ(*std::max_element(wide.begin(), wide.end()), INT32_MAX);
  EXPECT_GT(*std::min_element(wide.begin(), wide.end()), INT32_MIN + 5);
}

TEST(AvSyncReturnCodes, GenerateAndDetect) {
  std::vector<int16_t> buf(2 * 1000, 0);
  int16_t *b = buf.data();
  struct Case {
    void *buffer;
    uint32_t frames, channels, bits, rate, offset, code;
  };
  const Case gen[] = {
      {nullptr, 1000, 2, 16, 48000, 0, 1}, {b, 1000, 0, 16, 48000, 0, 1},   {b, 1000, 2, 24, 48000, 0, 1},
      {b, 1000, 2, 16, 15999, 0, 1},       {b, 1000, 2, 16, 48000, 244, 0}, {b, 1000, 2, 16, 48000, 245, 3},
      {b, 1000, 2, 16, 48000, 1000, 3},    {b, 755, 2, 16, 48000, 0, 3},    {b, 1000, 2, 16, 48000, 0xFFFFFFFF, 3},
  };
  for (const Case &c : gen)
    EXPECT_EQ(KVAudioAVSyncPulseGenerate(c.buffer, c.frames, c.channels, c.bits, c.rate, c.offset, 0), c.code)
        << c.frames << " " << c.channels << " " << c.bits << " " << c.rate << " " << c.offset;

  std::fill(buf.begin(), buf.end(), 0);
  ASSERT_EQ(KVAudioAVSyncPulseGenerate(b, 1000, 2, 16, 48000, 0, 0), 0u);
  const Case det[] = {
      {nullptr, 1000, 2, 16, 48000, 0, 1}, {b, 1000, 0, 16, 48000, 0, 1}, {b, 1000, 2, 8, 48000, 0, 1},
      {b, 1000, 2, 16, 8000, 0, 1},        {b, 755, 2, 16, 48000, 0, 3},  {b, 756, 2, 16, 48000, 0, 0},
  };
  for (const Case &c : det) {
    uint32_t position = 5;
    double score = 5;
    EXPECT_EQ(KVAudioAVSyncPulseDetect(c.buffer, c.frames, c.channels, c.bits, c.rate, &position, &score, 0), c.code)
        << c.frames << " " << c.channels << " " << c.bits << " " << c.rate;
    EXPECT_EQ(position, c.code == 0 ? 0u : kNone);
  }
  double score = 5;
  EXPECT_EQ(KVAudioAVSyncPulseDetect(b, 1000, 2, 16, 48000, nullptr, &score, 0), 1u);
  EXPECT_EQ(score, 0.0);
  uint32_t position = 0;
  EXPECT_EQ(KVAudioAVSyncPulseDetect(b, 1000, 2, 16, 48000, &position, nullptr, 0), 0u) << "score is optional";
}

TEST(AvSyncDetect, SilenceIsNotFound) {
  for (int path : Paths()) {
    kvtest::ScopedAvx2 force(path);
    const std::vector<int32_t> silence(4 * 3000, 0);
    const Result r = Detect(silence, 4, 48000);
    EXPECT_TRUE(Same(r, {2, kNone, 0.0}));
  }
}

TEST(AvSyncDetect, FindsGeneratedBurstsAsTheDirectFormDoes) {
  struct Case {
    uint32_t rate, channels, bits, frames, offset;
    bool invert;
  };
  std::vector<Case> cases;
  for (uint32_t rate : kRates) cases.push_back({rate, 2, 16, 2 * 63 * AvSyncChipLength(rate) + 41, 37, false});
  cases.push_back({48000, 1, 32, 1600, 0, false});
  cases.push_back({48000, 6, 16, 2000, 844, true});  // burst ends at the last period
  cases.push_back({44100, 3, 32, 1800, 500, true});
  cases.push_back({48000, 2, 16, 5200, 4090, false});  // spans a window of starts
  for (const Case &c : cases) {
    std::vector<int16_t> b16;
    std::vector<int32_t> b32;
    const size_t n = size_t{c.frames} * c.channels;
    (c.bits == 16 ? (void)(b16 = Noise<int16_t>(n, 22, c.rate + c.offset)) : (void)(b32 = Noise<int32_t>(n, 8, c.rate)));
    void *buf = c.bits == 16 ? static_cast<void *>(b16.data()) : static_cast<void *>(b32.data());
    ASSERT_EQ(KVAudioAVSyncPulseGenerate(buf, c.frames, c.channels, c.bits, c.rate, c.offset, 0), 0u);
    if (c.invert) {
      for (auto &s : b16) s = static_cast<int16_t>(-s);
      for (auto &s : b32) s = -s;
    }
    const Result want = c.bits == 16 ? Direct(b16, c.channels, c.rate, 0) : Direct(b32, c.channels, c.rate, 0);
    EXPECT_EQ(want.code, 0u);
    EXPECT_EQ(want.position, c.offset) << c.rate;
    EXPECT_GT(want.score, 0.95) << c.rate;
    for (int path : Paths()) {
      kvtest::ScopedAvx2 force(path);
      const Result got = c.bits == 16 ? Detect(b16, c.channels, c.rate) : Detect(b32, c.channels, c.rate);
      EXPECT_TRUE(Same(got, want)) << c.rate << " Hz, " << c.channels << " ch, path " << path;
    }
  }
}

TEST(AvSyncDetect, RandomInputScoresAsTheDirectForm) {
  for (uint64_t seed = 1; seed <= 4; ++seed) {
    const uint32_t channels = static_cast<uint32_t>(seed), frames = 756 + 97 * static_cast<uint32_t>(seed);
    const auto b16 = Noise<int16_t>(size_t{frames} * channels, 16, seed);
    const auto b32 = Noise<int32_t>(size_t{frames} * channels, 0, seed);
    for (double threshold : {1e-300, 0.0}) {
      const Result w16 = Direct(b16, channels, 48000, threshold), w32 = Direct(b32, channels, 48000, threshold);
      for (int path : Paths()) {
        kvtest::ScopedAvx2 force(path);
        EXPECT_TRUE(Same(Detect(b16, channels, 48000, threshold), w16)) << "seed " << seed;
        EXPECT_TRUE(Same(Detect(b32, channels, 48000, threshold), w32)) << "seed " << seed;
      }
    }
  }
}

TEST(AvSyncDetect, EqualScoresKeepTheFirstStart) {
  std::vector<int16_t> buf(4000, 0);
  ASSERT_EQ(KVAudioAVSyncPulseGenerate(buf.data(), 4000, 1, 16, 48000, 3000, 0), 0u);
  ASSERT_EQ(KVAudioAVSyncPulseGenerate(buf.data(), 4000, 1, 16, 48000, 1000, 0), 0u);
  for (int path : Paths()) {
    kvtest::ScopedAvx2 force(path);
    const Result r = Detect(buf, 1, 48000);
    EXPECT_EQ(r.position, 1000u);
    EXPECT_TRUE(Same(r, Direct(buf, 1, 48000, 0)));
    EXPECT_EQ(Detect(buf, 1, 48000, 1.5).code, 2u) << "threshold above any score";
  }
}

}  // namespace
