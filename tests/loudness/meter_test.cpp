// The meter against an independent double-precision model built on the published filters; its readings and weights.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "kvaudio/loudness.h"
#include "test_util.h"

namespace {

// An independent double-precision model of the measurement. Direct form I biquad: b0 b1 b2 a1 a2.
struct Biquad {
  double b0, b1, b2, a1, a2, x1 = 0, x2 = 0, y1 = 0, y2 = 0;
  double Run(double x) {
    const double y = b0 * x + b1 * x1 + b2 * x2 - a1 * y1 - a2 * y2;
    x2 = x1, x1 = x, y2 = y1, y1 = y;
    return y;
  }
};

// The published 48 kHz tables, a0 a1 a2 b0 b1 b2.
const double kPre48k[] = {1.0, -1.69065929318241, 0.73248077421585, 1.53512485958697, -2.69169618940638, 1.19839281085285};
const double kRlb48k[] = {1.0, -1.99004745483398, 0.99007225036621, 1.0, -2.0, 1.0};
Biquad FromTable(const double *t) { return {t[3], t[4], t[5], t[1], t[2]}; }

// BS.1770 shelf at fs: the published table at 48 kHz, else a +4 dB shelf above 1682 Hz, Q 0.70719.
Biquad ShelfFor(double fs) {
  if (fs == 48000.0) return FromTable(kPre48k);
  const double k = std::tan(M_PI * 1682.0 / fs), vh = std::pow(10.0, 0.2), vb = std::pow(10.0, 0.1);
  const double q = 0.707189761905293, d = 1.0 + k / q + k * k;
  return {(vh + vb * k / q + k * k) / d, 2.0 * (k * k - vh) / d, (vh - vb * k / q + k * k) / d,
          2.0 * (k * k - 1.0) / d, (1.0 - k / q + k * k) / d};
}

// K-weighted samples (kept as float) in windows sliding by a step, the weighted sum of the
// channels' mean squares; mode 3 keeps windows above -70 LKFS. x: interleaved, scaled to [-1, 1].
struct ModelRun { size_t step; std::vector<double> stepLoudness, kept; };
ModelRun Model(int mode, double fs, const std::vector<double> &weights, const std::vector<double> &x) {
  const size_t nch = weights.size(), window = static_cast<size_t>(std::array{400, 3000, 10000}[mode - 1] * fs / 1000);
  ModelRun r{static_cast<size_t>(std::array{200, 100, 1000}[mode - 1] * fs / 1000), {}, {}};
  std::vector<Biquad> pre(nch, ShelfFor(fs)), rlb(nch, FromTable(kRlb48k));
  std::vector<std::vector<float>> history(nch);
  double current = 0.0;
  for (size_t t = 1; t <= x.size() / nch; ++t) {
    for (size_t c = 0; c < nch; ++c) history[c].push_back(static_cast<float>(rlb[c].Run(pre[c].Run(x[(t - 1) * nch + c]))));
    if (t % r.step) continue;
    double sum = 0.0;
    for (size_t c = 0; c < nch; ++c)
      for (size_t i = t > window ? t - window : 0; i < t; ++i) sum += double{history[c][i]} * history[c][i] / window * weights[c];
    if (sum != 0.0) current = 10.0 * std::log10(sum) - 0.691;
    r.stepLoudness.push_back(current);
    if (mode == 3 && current > -70.0) r.kept.push_back(sum);
  }
  return r;
}

// Mean of the kept powers above the gate 8 LU below their mean (0 when none is kept).
double Integrated(const std::vector<double> &kept) {
  double mean = 0.0, sum = 0.0, n = 0;
  for (double p : kept) mean += p / static_cast<double>(kept.size());
  for (double p : kept)
    if (10.0 * std::log10(p) > 10.0 * std::log10(mean) - 8.0) sum += p, ++n;
  return kept.empty() ? 0.0 : 10.0 * std::log10(sum / n) - 0.691;
}

struct Meter {
  s_ebu_r128 s{};
  Meter(int mode, uint32_t rate, int nch, int bits = 16) { EXPECT_EQ(ebu_r128_init(&s, 1, bits, rate, mode, nch), 1u); }
  ~Meter() { ebu_r128_destroy(&s); }
};

enum Kind { kSine, kNoise, kBurst, kHiss };

// Interleaved little-endian `bits`-bit samples and the same scaled by 1 / (2^(bits-1) - 1): a 1 kHz
// sine at 0.1, noise within +-0.09, a sine at 0.5 for 11 s then digital zeros, or noise within +-2.
std::pair<std::vector<uint8_t>, std::vector<double>> Signal(Kind kind, uint32_t rate, size_t periods, size_t nch,
                                                             int bits, uint64_t seed) {
  const double full = std::ldexp(1.0, bits - 1) - 1;
  kvtest::Rng rng(seed);
  std::pair<std::vector<uint8_t>, std::vector<double>> out{std::vector<uint8_t>(periods * nch * bits / 8), {}};
  for (size_t i = 0; i < periods * nch; ++i) {
    const double sine = std::sin(2 * M_PI * 1000.0 * (i / nch) / rate), u = rng.Next32() / 2147483648.0 - 1;
    const double x[] = {0.1 * sine, 0.09 * u, i / nch < 11 * rate ? 0.5 * sine : 0.0, 2 * u / full};
    const int32_t v = static_cast<int32_t>(std::lround(x[kind] * full));
    std::memcpy(&out.first[i * bits / 8], &v, bits / 8);  // the low bytes
    out.second.push_back(v / full);
  }
  return out;
}

// Each step's current loudness, the kept windows and the integrated loudness follow the model for every
// width however the input is cut into calls; cut or whole, the readings are identical.
TEST(Meter, FollowsTheModelWhateverTheChunking) {
  struct Case { int mode; uint32_t rate; Kind kind; int channels, bits; };
  const Case cases[] = {
      {1, 44100, kSine, 2, 16}, {1, 48000, kNoise, 2, 8},  {2, 44100, kNoise, 2, 24}, {2, 48000, kSine, 2, 32},
      {3, 44100, kNoise, 2, 16}, {3, 48000, kSine, 2, 16}, {1, 48000, kNoise, 6, 16}, {2, 44100, kNoise, 6, 24},
      {3, 44100, kNoise, 5, 32}, {3, 48000, kBurst, 2, 16}, {3, 48000, kHiss, 2, 16},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(testing::Message() << "mode " << c.mode << " rate " << c.rate << " kind " << c.kind << " channels "
                                    << c.channels << " bits " << c.bits);
    const size_t periods = (c.mode < 3 ? 4 : c.kind == kBurst ? 32 : 14) * c.rate + 123, w = c.bits / 8;
    const auto [bytes, scaled] = Signal(c.kind, c.rate, periods, c.channels, c.bits, c.rate + c.mode);
    Meter whole(c.mode, c.rate, c.channels, c.bits), parts(c.mode, c.rate, c.channels, c.bits);
    const double g = std::pow(10.0, 0.15);  // +1.5 dB
    if (c.channels == 6) ebu_r128_set_5_1(&whole.s), ebu_r128_set_5_1(&parts.s);
    const auto weights = c.channels == 6 ? std::vector<double>{1, 1, 1, g, g, 0} : std::vector<double>(c.channels, 1.0);
    const ModelRun model = Model(c.mode, c.rate, weights, scaled);
    ASSERT_EQ(ebu_r128_process_samples(&whole.s, bytes.data(), periods), 1u);
    kvtest::Rng rng(c.bits);
    for (size_t done = 0, n; done < periods; done += n) {
      n = std::min<size_t>(periods - done, rng.Next() % model.step);
      ASSERT_EQ(ebu_r128_process_samples(&parts.s, &bytes[done * c.channels * w], n), 1u);
      const size_t steps = (done + n) / model.step;
      ASSERT_EQ(parts.s.fillCount, (done + n) % model.step) << done << " " << n;
      ASSERT_NEAR(parts.s.currentLoudness, steps ? model.stepLoudness[steps - 1] : 0.0, 2e-4) << "step " << steps;
    }
    EXPECT_EQ(whole.s.currentLoudness, parts.s.currentLoudness);
    ASSERT_EQ(whole.s.integratorCount, model.kept.size());
    ASSERT_EQ(parts.s.integratorCount, model.kept.size());
    EXPECT_TRUE(std::equal(whole.s.integrator, whole.s.integrator + model.kept.size(), parts.s.integrator));
    ebu_r128_get_integrated_lufs(&parts.s);
    EXPECT_NEAR(parts.s.integratedLoudness, Integrated(model.kept), 2e-4);
  }
}

TEST(Meter, RefusedArgumentsAndResolutions) {
  struct Case { uint8_t check, bits, mode, nch; uint32_t result; bool message; };
  for (const Case c : {Case{0, 16, 1, 2, 0, true}, Case{1, 0, 1, 2, 0, true}, Case{1, 16, 0, 2, 0, true},
                       Case{1, 16, 4, 2, 0, false}, Case{1, 16, 2, 2, 1, false}, Case{7, 24, 3, 6, 1, false}}) {
    s_ebu_r128 s{};
    testing::internal::CaptureStderr();
    EXPECT_EQ(ebu_r128_init(&s, c.check, c.bits, 48000, c.mode, c.nch), c.result);
    EXPECT_EQ(testing::internal::GetCapturedStderr().empty(), !c.message) << int(c.check) << int(c.bits) << int(c.mode);
    ebu_r128_destroy(&s);
  }
  Meter odd(1, 48000, 2, 12), zero(1, 48000, 2);
  testing::internal::CaptureStderr();
  EXPECT_EQ(ebu_r128_process_samples(&odd.s, "", 1), 0u);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("12"), std::string::npos);  // names the width
  EXPECT_EQ(ebu_r128_process_samples(&zero.s, nullptr, 0), 1u);
  EXPECT_EQ(zero.s.fillCount, 0u);
}

// The reading (current - 0.29, clamped) becomes the current loudness; the result holds its hundredths
// (mode 3: the integrated loudness's) in both halves. A second of hiss (about -84 dBFS) reads the bottom.
TEST(Meter, ReadingClampsAndResult) {
  struct Case { int mode, wide; float current, integrated; bool hiss; uint32_t hundredths; };
  const Case cases[] = {
      {1, 0, 0, 0, false, 1400},   {1, 1, 0, 0, false, 500},    {2, 0, -100, 0, false, 4100},
      {2, 1, -100, 0, false, 5900}, {1, 0, -30, 0, false, 3029}, {1, 1, -20, 0, false, 2029},
      {3, 0, 0, -23, false, 2300},  {1, 0, 0, 0, true, 4100},    {2, 1, 0, 0, true, 5900},
  };
  for (const Case &c : cases) {
    Meter m(c.mode, 48000, 2);
    m.s.currentLoudness = c.current, m.s.integratedLoudness = c.integrated;
    const auto hiss = Signal(kHiss, 48000, 48000, 2, 16, c.mode).first;
    uint32_t result = 0;
    EXPECT_EQ(ebu_r128_process_and_calculate(&m.s, c.hiss ? 48000 : 0, hiss.data(), &result, c.wide), 0u);
    EXPECT_EQ(result, c.hundredths << 16 | c.hundredths) << c.mode << " " << c.current << " " << c.hiss;
    EXPECT_FLOAT_EQ(m.s.currentLoudness, c.mode < 3 ? c.hundredths / -100.0f : -14.0f);
  }
}

TEST(Meter, WeightSetsGainAndGate) {
  struct Case { uint32_t (*set)(s_ebu_r128 *); uint32_t layout; const char *w; };  // per channel: 1, 0 or g (+1.5 dB)
  const Case cases[] = {
      {ebu_r128_set_flat, 0, "111111111"}, {ebu_r128_set_5_1, 0, "111gg0000"}, {ebu_r128_set_7_1, 0, "111gg1100"},
      {nullptr, 3, "1110gg111"},   {nullptr, 4, "111gg0111"},   {nullptr, 5, "111gg0111"},   {nullptr, 6, "11gg10111"},
      {nullptr, 100, "111gg0001"}, {nullptr, 101, "111000gg1"}, {nullptr, 102, "1110gg001"}, {nullptr, 103, "111gg0001"},
      {nullptr, 7, "111111111"},
  };
  for (const Case &c : cases) {
    Meter m(1, 48000, 9);
    for (int i = 0; i < 9; ++i) m.s.channel[i].weight = 0.5f;
    EXPECT_EQ(c.set ? c.set(&m.s) : ebu_r128_set_exact(&m.s, c.layout), 0u);
    for (int i = 0; i < 9; ++i)
      EXPECT_FLOAT_EQ(m.s.channel[i].weight, c.w[i] == 'g' ? std::pow(10.0f, 0.15f) : c.w[i] - '0') << c.w << " " << i;
  }
  Meter two(3, 48000, 2);  // layouts reaching past the record's channels write only the channels it has
  ebu_r128_set_exact(&two.s, 101);
  EXPECT_EQ(two.s.channel[1].weight, 1.0f);
  EXPECT_EQ(ebu_r128_adjust_gain(&two.s, 2, 6.0f), 0u);
  EXPECT_EQ(ebu_r128_adjust_gain(&two.s, 1, 6.0f), 1u);
  EXPECT_EQ(two.s.channel[1].weight, calculate_ampl_from_db(6.0f));
  EXPECT_EQ(ebu_r128_adjust_relative_gain(&two.s, 10), 1u);
  EXPECT_EQ(two.s.relativeGate, 10);
}

}  // namespace
