// Cross-check of the mode-3 integrated loudness against libebur128 on stationary signals.
// The meter's 10 s windows and 8 LU relative gate differ from BS.1770's 400 ms blocks and
// 10 LU gate on purpose, so the readings agree only within a fraction of a LU.
#include <ebur128.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <vector>

#include "kvaudio/loudness.h"
#include "test_util.h"

namespace {

constexpr uint32_t kRate = 48000;
constexpr size_t kFrames = 60 * kRate;

// Interleaved stereo, both channels the same signal, scaled to an RMS of -23 dBFS.
std::vector<int16_t> ToStereo16(const std::vector<double> &mono) {
  double ms = 0;
  for (double v : mono) ms += v * v;
  const double gain = std::pow(10.0, -23.0 / 20.0) / std::sqrt(ms / mono.size());
  std::vector<int16_t> out(2 * mono.size());
  for (size_t i = 0; i < mono.size(); ++i) out[2 * i] = out[2 * i + 1] = static_cast<int16_t>(std::lround(mono[i] * gain * 32767));
  return out;
}

std::vector<double> Sine() {
  std::vector<double> v(kFrames);
  for (size_t i = 0; i < kFrames; ++i) v[i] = std::sin(2 * M_PI * 1000.0 * i / kRate);
  return v;
}

// Pink noise: white noise through a bank of one-pole filters spaced an octave apart (about -3 dB
// per octave over the audio band).
std::vector<double> Pink() {
  kvtest::Rng rng(2024);
  std::vector<double> v(kFrames);
  double state[7] = {};
  for (size_t i = 0; i < kFrames; ++i) {
    const double white = static_cast<double>(rng.Next32()) / 4294967296.0 * 2.0 - 1.0;
    double sum = 0;
    for (int k = 0; k < 7; ++k) {
      const double pole = 1.0 - std::ldexp(1.0, -(k + 1)) * 0.5;  // corners an octave apart
      state[k] = pole * state[k] + (1.0 - pole) * white * std::sqrt(std::ldexp(1.0, k));
      sum += state[k];
    }
    v[i] = sum + white * 0.1;
  }
  return v;
}

double OurIntegrated(const std::vector<int16_t> &pcm) {
  s_ebu_r128 s{};
  EXPECT_EQ(ebu_r128_init(&s, 1, 16, kRate, 3, 2), 1u);
  ebu_r128_process_samples(&s, pcm.data(), pcm.size() / 2);
  ebu_r128_get_integrated_lufs(&s);
  const double lufs = s.integratedLoudness;
  ebu_r128_destroy(&s);
  return lufs;
}

double OracleIntegrated(const std::vector<int16_t> &pcm) {
  ebur128_state *st = ebur128_init(2, kRate, EBUR128_MODE_I);
  ebur128_add_frames_short(st, pcm.data(), pcm.size() / 2);
  double lufs = 0;
  ebur128_loudness_global(st, &lufs);
  ebur128_destroy(&st);
  return lufs;
}

TEST(LoudnessOracle, IntegratedWithinHalfLuOfLibebur128) {
  struct Case {
    const char *name;
    std::vector<double> signal;
  } cases[] = {{"sine 1 kHz", Sine()}, {"pink noise", Pink()}};
  for (const Case &c : cases) {
    const auto pcm = ToStereo16(c.signal);
    const double ours = OurIntegrated(pcm), theirs = OracleIntegrated(pcm);
    std::printf("%-12s ours %.3f LUFS, libebur128 %.3f LUFS, difference %+.3f LU\n", c.name, ours, theirs,
                ours - theirs);
    testing::Test::RecordProperty(c.name, std::to_string(ours - theirs));
    EXPECT_NEAR(ours, theirs, 0.5) << c.name;
  }
}

}  // namespace
