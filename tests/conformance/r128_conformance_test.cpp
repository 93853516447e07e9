// The standard meter against the published EBU Tech 3341 / 3342 cases, true-peak tones, and
// libebur128 on programme-like material.
#include <ebur128.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <tuple>
#include <vector>

#include "kvaudio/r128.h"
#include "test_util.h"

namespace {

using Seg = std::pair<double, double>;  // seconds, dBFS

// Interleaved float; channel c is a sine at the segment's level plus gainsDb[c] (-inf: silent),
// faded in over 20 ms so the onset adds no overshoot.
std::vector<float> Tone(uint32_t rate, const std::vector<double> &gainsDb, double hz, const std::vector<Seg> &segs,
                        double phase = 0.0) {
  const size_t nch = gainsDb.size();
  std::vector<float> v;
  size_t t = 0;
  for (const Seg &s : segs) {
    std::vector<double> gain;
    for (double g : gainsDb) gain.push_back(std::pow(10.0, (s.second + g) / 20));
    for (size_t end = t + static_cast<size_t>(std::lround(s.first * rate)); t < end; ++t) {
      const double fade = t < rate / 50 ? 0.5 - 0.5 * std::cos(M_PI * t / (rate / 50.0)) : 1.0;
      const double x = fade * std::sin(2 * M_PI * hz * t / rate + phase);
      for (size_t c = 0; c < nch; ++c) v.push_back(static_cast<float>(x * gain[c]));
    }
  }
  return v;
}

// Measures v in `format` (0: planar float) with an optional layout.
kvAudioLoudnessReading Measure(uint32_t rate, uint32_t nch, const std::vector<float> &v, uint32_t format = 4,
                               const char *layout = nullptr, uint32_t flags = KVAUDIO_LOUDNESS_ALL) {
  kvAudioLoudness *m = kvAudioLoudnessOpen(rate, nch, flags);
  EXPECT_EQ(layout ? kvAudioLoudnessSetLayout(m, layout) : 0, KVAUDIO_LOUDNESS_OK);
  const size_t frames = v.size() / nch, width[] = {4, 2, 3, 4, 4};
  std::vector<uint8_t> bytes(format % 4 ? v.size() * width[format] : 0);
  std::vector<std::vector<float>> planes(format ? 0 : nch);
  for (size_t i = 0; i < v.size() && format != KVAUDIO_SAMPLES_F32; ++i) {  // F32 is v itself
    const int32_t s = static_cast<int32_t>(std::clamp(std::lround(v[i] * 2147483648.0), -2147483648l, 2147483647l));
    if (format) std::memcpy(&bytes[i * width[format]], reinterpret_cast<const uint8_t *>(&s) + 4 - width[format], width[format]);
    if (!format) planes[i % nch].push_back(v[i]);
  }
  // Uneven pieces, so steps and blocks straddle the calls.
  for (size_t done = 0, n = 1; done < frames; done += n, n = n * 3 + 7) {
    n = std::min(n, frames - done);
    std::vector<const float *> p;
    for (auto &plane : planes) p.push_back(plane.data() + done);
    const uint8_t *data = format == KVAUDIO_SAMPLES_F32 ? reinterpret_cast<const uint8_t *>(v.data()) : bytes.data();
    EXPECT_EQ(format ? kvAudioLoudnessAdd(m, data + done * nch * width[format], format, n)
                     : kvAudioLoudnessAddPlanar(m, p.data(), n), KVAUDIO_LOUDNESS_OK);
  }
  kvAudioLoudnessReading r{};
  r.size = sizeof r;
  EXPECT_EQ(kvAudioLoudnessRead(m, &r), KVAUDIO_LOUDNESS_OK);
  kvAudioLoudnessClose(m);
  return r;
}

const std::vector<double> kStereo = {0, 0};

TEST(R128Conformance, Tech3341IntegratedMomentaryShortTermAndTech3342Range) {
  struct Case {
    const char *name;
    std::vector<Seg> segs;
    double kvAudioLoudnessReading::*field;
    double expected, tolerance;
  };
  double kvAudioLoudnessReading::*const I = &kvAudioLoudnessReading::integrated;
  std::vector<Seg> burstM, burstS;
  for (int k = 0; k < 50; ++k) burstM.insert(burstM.end(), {{0.18, -20}, {0.22, -30}});
  for (int k = 0; k < 7; ++k) burstS.insert(burstS.end(), {{1.34, -20}, {1.66, -30}});
  const Case cases[] = {
      {"3341-1", {{20, -23}}, I, -23, 0.1},
      {"3341-2", {{20, -33}}, I, -33, 0.1},
      {"3341-3", {{10, -36}, {60, -23}, {10, -36}}, I, -23, 0.1},
      {"3341-4", {{10, -72}, {10, -36}, {60, -23}, {10, -36}, {10, -72}}, I, -23, 0.1},
      {"3341-5", {{20, -26}, {20.1, -20}, {20, -26}}, I, -23, 0.1},
      {"3341-momentary", burstM, &kvAudioLoudnessReading::momentaryMax, -23, 0.1},
      {"3341-short-term", burstS, &kvAudioLoudnessReading::shortTermMax, -23, 0.1},
      {"3342-1", {{20, -20}, {20, -30}}, &kvAudioLoudnessReading::loudnessRange, 10, 1},
      {"3342-2", {{20, -20}, {20, -15}}, &kvAudioLoudnessReading::loudnessRange, 5, 1},
      {"3342-3", {{20, -40}, {20, -20}}, &kvAudioLoudnessReading::loudnessRange, 20, 1},
      {"3342-4", {{20, -50}, {20, -35}, {20, -20}, {20, -35}, {20, -50}}, &kvAudioLoudnessReading::loudnessRange, 15, 1},
  };
  for (const Case &c : cases) {
    const auto r = Measure(48000, 2, Tone(48000, kStereo, 1000, c.segs), 4, nullptr,
                           KVAUDIO_LOUDNESS_INTEGRATED | KVAUDIO_LOUDNESS_RANGE);
    EXPECT_NEAR(r.*c.field, c.expected, c.tolerance) << c.name;
  }
}

TEST(R128Conformance, EveryFormatAndRateReadsTheSteadyTone) {
  // 1 kHz at -23 dBFS: -23.0 LUFS at every rate and format; 100 Hz from 44.1 kHz up as at 48 kHz.
  constexpr uint32_t kFlags = KVAUDIO_LOUDNESS_INTEGRATED | KVAUDIO_LOUDNESS_SAMPLE_PEAK;
  const double at48k = Measure(48000, 2, Tone(48000, kStereo, 100, {{5, -23}})).integrated;
  for (uint32_t rate : {8000u, 11025u, 44100u, 48000u, 96000u, 192000u}) {
    const auto low = rate < 44100 ? at48k : Measure(rate, 2, Tone(rate, kStereo, 100, {{5, -23}}), 4, nullptr, kFlags).integrated;
    EXPECT_NEAR(low, at48k, 0.1) << rate;
    for (uint32_t format : {0u, 1u, 2u, 3u, 4u}) {
      const auto r = Measure(rate, 2, Tone(rate, kStereo, 1000, {{5, -23}}), format, nullptr, kFlags);
      EXPECT_NEAR(r.integrated, -23.0, 0.1) << rate << " format " << format;
      EXPECT_NEAR(r.samplePeak, -23.0, 0.01) << rate << " format " << format;
    }
  }
}

TEST(R128Conformance, LayoutWeightsOneChannelAtATime) {
  // A -20 dBFS sine alone in one channel of 5.1 (L R C LFE Ls Rs): -23.01 LUFS in front, 1.5 dB
  // more in a surround, nothing in the LFE.
  const double expected[6] = {-23.01, -23.01, -23.01, KVAUDIO_LOUDNESS_NONE, -21.51, -21.51};
  for (int c = 0; c < 6; ++c) {
    std::vector<double> gains(6, -INFINITY);
    gains[c] = 0;
    EXPECT_NEAR(Measure(48000, 6, Tone(48000, gains, 1000, {{3, -20}}), 4, "5.1", 1).integrated, expected[c], 0.05) << c;
  }
}

TEST(R128Conformance, TruePeakOfTonesWithinTwoTenthsOverFourTenthsUnder) {
  // 12 kHz at 45 degrees with its samples at -9 dBFS: a true peak of -5.99 dBTP.
  auto r = Measure(48000, 1, Tone(48000, {0}, 12000, {{1, -9 + 20 * std::log10(std::sqrt(2.0))}}, M_PI / 4));
  EXPECT_NEAR(r.samplePeak, -9.0, 0.01);
  EXPECT_NEAR(r.truePeak, -5.99, 0.05);
  for (uint32_t rate : {44100u, 48000u, 96000u, 192000u})
    for (double fraction : {0.02, 0.13, 0.25, 0.33, 0.41, 0.45})
      for (double degrees : {0.0, 22.5, 45.0, 80.0}) {
        r = Measure(rate, 1, Tone(rate, {0}, fraction * rate, {{0.25, -3}}, degrees * M_PI / 180));
        EXPECT_LE(r.truePeak, -3 + 0.2) << rate << " " << fraction << " " << degrees;
        EXPECT_GE(r.truePeak, -3 - 0.4) << rate << " " << fraction << " " << degrees;
      }
}

// Noise bursts of random length whose level walks randomly between -45 and -10 dB, through a
// one-pole low-pass, per channel.
std::vector<float> Programme(uint32_t nch, uint64_t seed) {
  kvtest::Rng rng(seed);
  std::vector<float> v;
  std::vector<double> state(nch, 0.0);
  double level = -25;
  while (v.size() < 120 * 48000 * nch) {
    const size_t len = 48000 + rng.Next32() % 240000;
    level = std::clamp(level + static_cast<int>(rng.Next32() % 61 - 30u) / 10.0, -45.0, -10.0);
    const double gain = std::pow(10.0, level / 20.0);
    for (size_t t = 0; t < len; ++t)
      for (uint32_t c = 0; c < nch; ++c) {
        state[c] = 0.7 * state[c] + 0.3 * (rng.Next32() / 2147483648.0 - 1.0);
        v.push_back(static_cast<float>(gain * state[c] * (c == 3 && nch == 6 ? 2.0 : 1.0)));
      }
  }
  return v;
}

TEST(R128Conformance, AgreesWithLibebur128OnProgrammeMaterial) {
  for (uint32_t nch : {2u, 6u}) {
    const auto v = Programme(nch, nch);
    // True peak in stereo only: libebur128's interpolator dominates the run time of this test.
    ebur128_state *st = ebur128_init(nch, 48000, EBUR128_MODE_I | EBUR128_MODE_LRA | (nch == 2 ? EBUR128_MODE_TRUE_PEAK : 0));
    const int map[6] = {EBUR128_LEFT, EBUR128_RIGHT, EBUR128_CENTER, EBUR128_UNUSED, EBUR128_LEFT_SURROUND, EBUR128_RIGHT_SURROUND};
    for (unsigned c = 0; c < nch; ++c) ebur128_set_channel(st, c, map[c]);
    ebur128_add_frames_float(st, v.data(), v.size() / nch);
    double integrated, range, peak = 0, channelPeak;
    ebur128_loudness_global(st, &integrated), ebur128_loudness_range(st, &range);
    for (unsigned c = 0; c < nch && nch == 2; ++c) ebur128_true_peak(st, c, &channelPeak), peak = std::max(peak, channelPeak);
    ebur128_destroy(&st);
    const auto r = Measure(48000, nch, v, 4, nch == 6 ? "5.1" : nullptr);
    EXPECT_NEAR(r.integrated, integrated, 0.1) << nch;
    EXPECT_NEAR(r.loudnessRange, range, 0.5) << nch;
    EXPECT_NEAR(nch == 2 ? r.truePeak : 0.0, nch == 2 ? 20 * std::log10(peak) : 0.0, 0.3) << nch;
  }
}

TEST(R128Conformance, RejectsBadArgumentsAndCountsInvalidSamples) {
  for (auto [rate, nch, flags] : {std::tuple{7999u, 2u, 0u}, {192001u, 2u, 0u}, {48000u, 65u, 0u}, {48000u, 2u, 0x10u}})
    EXPECT_EQ(kvAudioLoudnessOpen(rate, nch, flags), nullptr) << rate << " " << nch << " " << flags;
  kvAudioLoudness *m = kvAudioLoudnessOpen(48000, 2, KVAUDIO_LOUDNESS_ALL);
  const float bad[4] = {NAN, INFINITY, 0.5f, -INFINITY};
  EXPECT_EQ(kvAudioLoudnessAdd(m, bad, 5, 2), KVAUDIO_LOUDNESS_BAD_ARGUMENT);
  EXPECT_EQ(kvAudioLoudnessAdd(m, nullptr, KVAUDIO_SAMPLES_S16, 1), KVAUDIO_LOUDNESS_BAD_ARGUMENT);
  EXPECT_EQ(kvAudioLoudnessAdd(m, bad, KVAUDIO_SAMPLES_F32, 2), KVAUDIO_LOUDNESS_OK);
  EXPECT_EQ(kvAudioLoudnessSetLayout(m, "9.1"), KVAUDIO_LOUDNESS_UNKNOWN_LAYOUT);
  EXPECT_EQ(kvAudioLoudnessSetChannelWeight(m, 2, 1.0), KVAUDIO_LOUDNESS_BAD_ARGUMENT);
  EXPECT_EQ(kvAudioLoudnessSetChannelWeight(m, 1, NAN), KVAUDIO_LOUDNESS_BAD_ARGUMENT);
  kvAudioLoudnessReading r{};
  r.size = 95;
  EXPECT_EQ(kvAudioLoudnessRead(m, &r), KVAUDIO_LOUDNESS_BAD_ARGUMENT);
  r.size = 96;  // the fields up to samplePeak
  EXPECT_EQ(kvAudioLoudnessRead(m, &r), KVAUDIO_LOUDNESS_OK);
  EXPECT_EQ(r.invalidSamples, 3u);
  EXPECT_NEAR(r.samplePeak, -6.02, 0.01);
  kvAudioLoudnessReset(m);
  EXPECT_EQ(kvAudioLoudnessRead(m, &r), KVAUDIO_LOUDNESS_OK);
  EXPECT_EQ(r.frames + r.invalidSamples, 0u);
  kvAudioLoudnessClose(m);
  kvAudioLoudnessReset(nullptr), kvAudioLoudnessClose(nullptr);
}

}  // namespace
