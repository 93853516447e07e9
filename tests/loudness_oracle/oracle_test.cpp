// The compatibility meter and the QC engine's programme loudness against libebur128. The meter's
// 10 s windows and 8 LU relative gate differ from BS.1770 on purpose, so on stationary signals it
// agrees within half a LU; the engine gates as BS.1770-4 and EBU Tech 3342 do and agrees closely.
#include <ebur128.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <vector>

#include "kvaudio/loudness.h"
#include "kvaudio/qc.h"
#include "test_util.h"

namespace {

constexpr uint32_t kRate = 48000;

struct Reading {
  double integrated, range;
};

// libebur128 on interleaved 16-bit samples; of six channels (L R C LFE Ls Rs) the LFE is unused.
Reading Oracle(const std::vector<int16_t> &pcm, uint32_t channels) {
  ebur128_state *st = ebur128_init(channels, kRate, EBUR128_MODE_I | EBUR128_MODE_LRA);
  if (channels == 6) {
    ebur128_set_channel(st, 3, EBUR128_UNUSED);
    ebur128_set_channel(st, 4, EBUR128_LEFT_SURROUND);
    ebur128_set_channel(st, 5, EBUR128_RIGHT_SURROUND);
  }
  ebur128_add_frames_short(st, pcm.data(), pcm.size() / channels);
  Reading r{};
  ebur128_loudness_global(st, &r.integrated);
  ebur128_loudness_range(st, &r.range);
  ebur128_destroy(&st);
  return r;
}

double White(kvtest::Rng &rng) { return static_cast<double>(rng.Next32()) / 4294967296.0 * 2.0 - 1.0; }

// 60 s of stereo, both channels alike, at an RMS of -23 dBFS: a 1 kHz sine, or pink noise (white
// noise through one-pole low-passes with corners an octave apart, about -3 dB per octave).
std::vector<int16_t> Stationary(bool pink) {
  kvtest::Rng rng(2024);
  std::vector<double> v(60 * kRate);
  double state[7] = {}, ms = 0;
  for (size_t i = 0; i < v.size(); ++i) {
    const double white = White(rng);
    v[i] = pink ? white * 0.1 : std::sin(2 * M_PI * 1000.0 * i / kRate);
    for (int k = 0; pink && k < 7; ++k) {
      const double pole = 1.0 - std::ldexp(1.0, -(k + 1)) * 0.5;
      state[k] = pole * state[k] + (1.0 - pole) * white * std::sqrt(std::ldexp(1.0, k));
      v[i] += state[k];
    }
    ms += v[i] * v[i];
  }
  const double gain = std::pow(10.0, -23.0 / 20.0) / std::sqrt(ms / v.size()) * 32767;
  std::vector<int16_t> out(2 * v.size());
  for (size_t i = 0; i < v.size(); ++i) out[2 * i] = out[2 * i + 1] = static_cast<int16_t>(std::lround(v[i] * gain));
  return out;
}

TEST(LoudnessOracle, CompatMeterIntegratedWithinHalfLuOfLibebur128) {
  for (bool pink : {false, true}) {
    const auto pcm = Stationary(pink);
    s_ebu_r128 s{};
    ASSERT_EQ(ebu_r128_init(&s, 1, 16, kRate, 3, 2), 1u);
    ebu_r128_process_samples(&s, pcm.data(), pcm.size() / 2);
    ebu_r128_get_integrated_lufs(&s);
    const double ours = s.integratedLoudness, theirs = Oracle(pcm, 2).integrated;
    ebu_r128_destroy(&s);
    std::printf("%-10s ours %.3f LUFS, libebur128 %.3f LUFS\n", pink ? "pink noise" : "sine", ours, theirs);
    EXPECT_NEAR(ours, theirs, 0.5) << (pink ? "pink noise" : "sine");
  }
}

// 90 s of white noise per channel whose level steps every 5 s through a cycle of gains, with a
// quieter surround pair and a silent 5 s stretch; channel 3 of six carries LFE-like noise.
std::vector<int16_t> Programme(uint32_t channels) {
  const double gains[] = {0.1, 0.03, 0.06, 0.01, 0.0, 0.08};
  kvtest::Rng rng(77);
  std::vector<int16_t> pcm(size_t{90} * kRate * channels);
  for (size_t f = 0; f < pcm.size() / channels; ++f)
    for (uint32_t c = 0; c < channels; ++c)
      pcm[f * channels + c] =
          static_cast<int16_t>(std::lround(White(rng) * gains[f / (5 * kRate) % 6] * (c >= 4 ? 0.5 : 1.0) * 32767));
  return pcm;
}

TEST(QcEngineOracle, ProgrammeLoudnessMatchesLibebur128) {
  for (const auto &[channels, layout] : {std::pair{2u, ""}, {6u, "5.1"}}) {
    const auto pcm = Programme(channels);
    kvaudqcConfig config{};
    config.channels = channels;
    std::snprintf(config.layoutName, sizeof config.layoutName, "%s", layout);
    kvqcAudioEngine *e = kvqcAudioOpen(&config);
    for (size_t at = 0; at < pcm.size(); at += size_t{1920} * channels)
      EXPECT_EQ(kvqcAudioFrame(e, pcm.data() + at, 1920, nullptr), 0);
    kvaudqcReport report;
    kvqcAudioFinish(e, &report);
    kvqcAudioClose(e);
    const Reading theirs = Oracle(pcm, channels);
    std::printf("%u channels: integrated %.3f vs %.3f LUFS, range %.3f vs %.3f LU\n", channels, report.integrated,
                theirs.integrated, report.range, theirs.range);
    EXPECT_NEAR(report.integrated, theirs.integrated, 0.01) << channels;
    // libebur128 samples the short-term loudness once a second, the engine every 100 ms.
    EXPECT_NEAR(report.range, theirs.range, 0.1) << channels;
  }
}

}  // namespace
