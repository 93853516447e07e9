// The R128 meter against an independent double-precision model, plus its gates, clamps and weights.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "kvaudio/loudness.h"
#include "meter_model.h"
#include "test_util.h"

namespace {

// Interleaved 16-bit test signals.
std::vector<int16_t> Sine(double fs, size_t periods, size_t nch, double amplitude) {
  std::vector<int16_t> v(periods * nch);
  for (size_t t = 0; t < periods; ++t)
    for (size_t c = 0; c < nch; ++c)
      v[t * nch + c] = static_cast<int16_t>(std::lround(amplitude * 32767.0 * std::sin(2 * M_PI * 1000.0 * t / fs)));
  return v;
}

std::vector<int16_t> Noise(size_t periods, size_t nch, int amplitude, uint64_t seed) {
  kvtest::Rng rng(seed);
  std::vector<int16_t> v(periods * nch);
  for (auto &s : v) s = static_cast<int16_t>(static_cast<int>(rng.Next() % (2 * amplitude + 1)) - amplitude);
  return v;
}

std::vector<double> Scaled(const std::vector<int16_t> &v) {
  std::vector<double> x(v.size());
  for (size_t i = 0; i < v.size(); ++i) x[i] = v[i] / 32767.0;
  return x;
}

struct Meter {
  s_ebu_r128 s{};
  Meter(uint8_t mode, uint32_t rate, uint8_t nch, uint8_t bits = 16) {
    EXPECT_EQ(ebu_r128_init(&s, 1, bits, rate, mode, nch), 1u);
  }
  ~Meter() { ebu_r128_destroy(&s); }
};

struct ModelCase {
  int mode;
  uint32_t rate;
  bool noise;
  uint8_t channels;
};

class MeterVsModel : public testing::TestWithParam<ModelCase> {};

// Every step's current loudness and the integrated loudness follow the double model.
TEST_P(MeterVsModel, StepReadingsMatch) {
  const ModelCase p = GetParam();
  const size_t seconds = p.mode == 3 ? 14 : 4;
  const size_t periods = seconds * p.rate;
  const auto pcm = p.noise ? Noise(periods, p.channels, 3000, p.rate + p.mode) : Sine(p.rate, periods, p.channels, 0.1);
  loudtest::MeterModel model(p.mode, p.rate, p.channels);
  Meter m(static_cast<uint8_t>(p.mode), p.rate, p.channels);
  if (p.channels == 6) {
    ebu_r128_set_5_1(&m.s);
    model.weights = {1, 1, 1, std::pow(10.0, 0.15), std::pow(10.0, 0.15), 0};
  }
  model.Feed(Scaled(pcm));
  const size_t step = m.s.stepSamples;
  ASSERT_EQ(step, model.step);
  for (size_t k = 0; k < model.stepLoudness.size(); ++k) {
    ASSERT_EQ(ebu_r128_process_samples(&m.s, pcm.data() + k * step * p.channels, step), 1u);
    ASSERT_NEAR(m.s.currentLoudness, model.stepLoudness[k], 2e-4) << "step " << k;
  }
  if (p.mode == 3) {
    ASSERT_EQ(m.s.integratorCount, model.kept.size());
    ebu_r128_get_integrated_lufs(&m.s);
    EXPECT_NEAR(m.s.integratedLoudness, model.Integrated(), 2e-4);
  }
}

std::vector<ModelCase> ModelCases() {
  std::vector<ModelCase> v;
  for (int mode = 1; mode <= 3; ++mode)
    for (uint32_t rate : {44100u, 48000u})
      for (bool noise : {false, true}) v.push_back({mode, rate, noise, 2});
  v.push_back({1, 48000, true, 6});
  v.push_back({2, 44100, true, 6});
  return v;
}

INSTANTIATE_TEST_SUITE_P(All, MeterVsModel, testing::ValuesIn(ModelCases()),
                         [](const testing::TestParamInfo<ModelCase> &i) {
                           return "Mode" + std::to_string(i.param.mode) + "_" + std::to_string(i.param.rate) +
                                  (i.param.noise ? "_Noise" : "_Sine") + "_Ch" + std::to_string(i.param.channels);
                         });

// Readings do not depend on how the input is cut into calls, for any width.
TEST(Meter, ChunkingDoesNotChangeReadings) {
  for (uint8_t bits : {8, 16, 24, 32}) {
    const uint8_t nch = 5;
    const size_t periods = 4 * 44100 + 123;
    const auto bytes = kvtest::RandomBytes(periods * nch * (bits / 8), bits);
    Meter whole(3, 44100, nch, bits), parts(3, 44100, nch, bits);
    ebu_r128_set_exact(&whole.s, 3);
    ebu_r128_set_exact(&parts.s, 3);
    ebu_r128_process_samples(&whole.s, bytes.data(), periods);
    kvtest::Rng rng(bits);
    for (size_t done = 0; done < periods;) {
      const size_t n = std::min<size_t>(periods - done, rng.Next() % 9000);
      ebu_r128_process_samples(&parts.s, bytes.data() + done * nch * (bits / 8), n);
      done += n;
    }
    EXPECT_EQ(whole.s.currentLoudness, parts.s.currentLoudness) << int(bits);
    EXPECT_EQ(whole.s.fillCount, parts.s.fillCount);
    ASSERT_EQ(whole.s.integratorCount, parts.s.integratorCount);
    EXPECT_EQ(0, std::memcmp(whole.s.integrator, parts.s.integrator, whole.s.integratorCount * sizeof(float)));
  }
}

TEST(Meter, InitArguments) {
  struct Case {
    uint8_t check, bits, mode, nch;
    uint32_t result;
    bool message;
  } cases[] = {
      {0, 16, 1, 2, 0, true}, {1, 0, 1, 2, 0, true}, {1, 16, 0, 2, 0, true},
      {1, 16, 4, 2, 0, false}, {1, 16, 2, 2, 1, false}, {7, 24, 3, 6, 1, false},
  };
  for (const Case &c : cases) {
    s_ebu_r128 s{};
    testing::internal::CaptureStderr();
    EXPECT_EQ(ebu_r128_init(&s, c.check, c.bits, 48000, c.mode, c.nch), c.result);
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(err, c.message ? "Invalid channels, ebu_mode and/or resolution\n" : "");
    ebu_r128_destroy(&s);
  }
}

TEST(Meter, UnsupportedResolutionAndEmptyIntake) {
  Meter m(1, 48000, 2, 12);
  testing::internal::CaptureStderr();
  EXPECT_EQ(ebu_r128_process_samples(&m.s, "", 1), 0u);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "unsupported resolution: 12 bit\n");
  Meter z(1, 48000, 2);
  EXPECT_EQ(ebu_r128_process_samples(&z.s, nullptr, 0), 1u);
  EXPECT_EQ(z.s.fillCount, 0u);
  EXPECT_EQ(z.s.channel[0].loudness, 0.0f);
}

// Reading = current - 0.29 clamped; its hundredths go into both 16-bit halves.
TEST(Meter, ReadingClampsAndPacking) {
  struct Case {
    uint8_t mode;
    float current;
    uint32_t wide;
    uint32_t hundredths;
    float stored;
  } cases[] = {
      {1, 0.0f, 0, 1400, -14.0f},   {1, 0.0f, 1, 500, -5.0f},     {2, -100.0f, 0, 4100, -41.0f},
      {2, -100.0f, 1, 5900, -59.0f}, {1, -30.0f, 0, 3029, -30.29f}, {1, -20.0f, 1, 2029, -20.29f},
  };
  for (const Case &c : cases) {
    Meter m(c.mode, 48000, 2);
    m.s.currentLoudness = c.current;
    uint32_t result = 0;
    EXPECT_EQ(ebu_r128_process_and_calculate(&m.s, 0, nullptr, &result, c.wide), 0u);
    EXPECT_EQ(result, (c.hundredths << 16) + c.hundredths) << c.current << " wide " << c.wide;
    EXPECT_FLOAT_EQ(m.s.currentLoudness, c.stored);
  }
  // Mode 3 reads the integrated loudness instead.
  Meter m(3, 48000, 2);
  m.s.integratedLoudness = -23.0f;
  uint32_t result = 0;
  ebu_r128_process_and_calculate(&m.s, 0, nullptr, &result, 0);
  EXPECT_EQ(result, 2300u * 65537u);
}

// Near-silent input (noise at about -90 dBFS) reads at the bottom clamp; digital zeros leave
// the zeroed record's current loudness at 0.0, which reads at the top clamp.
TEST(Meter, QuietInputClamps) {
  for (uint8_t mode : {1, 2})
    for (uint32_t wide : {0u, 1u})
      for (int amplitude : {2, 0}) {
        Meter m(mode, 48000, 2);
        const auto pcm = Noise(48000, 2, amplitude, mode);
        uint32_t result = 0;
        ebu_r128_process_and_calculate(&m.s, 48000, pcm.data(), &result, wide);
        const uint32_t h = amplitude ? (wide ? 5900 : 4100) : (wide ? 500 : 1400);
        EXPECT_EQ(result, (h << 16) + h) << int(mode) << " " << wide << " " << amplitude;
      }
}

// Mode 3 keeps windows above -70 LKFS; an all-zero window after a loud one is kept as 0.
TEST(Meter, AbsoluteGateKeepsZeroWindowAfterLoudOne) {
  Meter loud(3, 48000, 2);
  const auto tone = Sine(48000, 11 * 48000, 2, 0.5);
  ebu_r128_process_samples(&loud.s, tone.data(), 11 * 48000);
  const std::vector<int16_t> zeros(21 * 48000 * 2, 0);
  ebu_r128_process_samples(&loud.s, zeros.data(), 21 * 48000);
  ASSERT_EQ(loud.s.integratorCount, 32u);
  // The filters ring out well within a second, so windows from 23 s on hold only zeros.
  for (int i = 0; i < 20; ++i) EXPECT_GT(loud.s.integrator[i], 0.0f) << i;
  for (int i = 23; i < 32; ++i) EXPECT_EQ(loud.s.integrator[i], 0.0f) << i;
  ebu_r128_get_integrated_lufs(&loud.s);
  EXPECT_GT(loud.s.integratedLoudness, -20.0f);

  Meter quiet(3, 48000, 2);
  const auto hiss = Noise(12 * 48000, 2, 2, 3);
  ebu_r128_process_samples(&quiet.s, hiss.data(), 12 * 48000);
  EXPECT_EQ(quiet.s.integratorCount, 0u);
  quiet.s.integratedLoudness = 1.5f;
  ebu_r128_get_integrated_lufs(&quiet.s);
  EXPECT_EQ(quiet.s.integratedLoudness, 1.5f);
}

TEST(Meter, WeightSets) {
  const float g = std::pow(10.0f, 0.15f), o = 1.0f;
  struct Case {
    const char *name;
    uint32_t (*set)(s_ebu_r128 *);
    uint32_t layout;
    float w[9];
  } cases[] = {
      {"flat", ebu_r128_set_flat, 0, {o, o, o, o, o, o, o, o, o}},
      {"5.1", ebu_r128_set_5_1, 0, {o, o, o, g, g, 0, 0, 0, 0}},
      {"7.1", ebu_r128_set_7_1, 0, {o, o, o, g, g, o, o, 0, 0}},
      {"exact3", nullptr, 3, {o, o, o, 0, g, g, o, o, o}},
      {"exact4", nullptr, 4, {o, o, o, g, g, 0, o, o, o}},
      {"exact5", nullptr, 5, {o, o, o, g, g, 0, o, o, o}},
      {"exact6", nullptr, 6, {o, o, g, g, o, 0, o, o, o}},
      {"exact100", nullptr, 100, {o, o, o, g, g, 0, 0, 0, o}},
      {"exact101", nullptr, 101, {o, o, o, 0, 0, 0, g, g, o}},
      {"exact102", nullptr, 102, {o, o, o, 0, g, g, 0, 0, o}},
      {"exact103", nullptr, 103, {o, o, o, g, g, 0, 0, 0, o}},
      {"exact7", nullptr, 7, {o, o, o, o, o, o, o, o, o}},
  };
  for (const Case &c : cases) {
    Meter m(1, 48000, 9);
    for (int i = 0; i < 9; ++i) m.s.channel[i].weight = 0.5f;
    EXPECT_EQ(c.set ? c.set(&m.s) : ebu_r128_set_exact(&m.s, c.layout), 0u);
    for (int i = 0; i < 9; ++i) EXPECT_FLOAT_EQ(m.s.channel[i].weight, c.w[i]) << c.name << " channel " << i;
  }
  // Layouts reaching past the record's channels write only the channels it has.
  Meter two(1, 48000, 2);
  ebu_r128_set_exact(&two.s, 101);
  EXPECT_EQ(two.s.channel[1].weight, 1.0f);
}

TEST(Meter, GainAndRelativeGate) {
  Meter m(3, 48000, 2);
  EXPECT_EQ(ebu_r128_adjust_gain(&m.s, 2, 6.0f), 0u);
  EXPECT_EQ(m.s.channel[1].weight, 1.0f);
  EXPECT_EQ(ebu_r128_adjust_relative_gain(&m.s, 10), 1u);
  EXPECT_EQ(m.s.relativeGate, 10);
}

}  // namespace
