// Cross-check of the QC engine's programme loudness (BS.1770-4 gating, EBU Tech 3342 range)
// against libebur128 on programmes of stepped noise, stereo and 5.1.
#include <ebur128.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <vector>

#include "kvaudio/qc.h"
#include "test_util.h"

namespace {

constexpr uint32_t kRate = 48000;
constexpr uint32_t kFrame = 1920;

// 90 s of white noise per channel whose level steps every 5 s through a cycle of gains, with a
// quieter surround pair and a silent 5 s stretch; channel 3 of six carries LFE-like noise.
std::vector<int16_t> Programme(uint32_t channels) {
  const double gains[] = {0.1, 0.03, 0.06, 0.01, 0.0, 0.08};
  kvtest::Rng rng(77);
  std::vector<int16_t> pcm(size_t{90} * kRate * channels);
  for (size_t f = 0; f < pcm.size() / channels; ++f) {
    const double g = gains[f / (5 * kRate) % 6];
    for (uint32_t c = 0; c < channels; ++c) {
      const double white = static_cast<double>(rng.Next32()) / 4294967296.0 * 2.0 - 1.0;
      pcm[f * channels + c] = static_cast<int16_t>(std::lround(white * g * (c >= 4 ? 0.5 : 1.0) * 32767));
    }
  }
  return pcm;
}

struct Reading {
  double integrated, range;
};

Reading Engine(const std::vector<int16_t> &pcm, uint32_t channels, const char *layout) {
  kvaudqcConfig config{};
  config.channels = channels;
  std::snprintf(config.layoutName, sizeof config.layoutName, "%s", layout);
  kvqcAudioEngine *e = kvqcAudioOpen(&config);
  for (size_t at = 0; at < pcm.size(); at += size_t{kFrame} * channels)
    EXPECT_EQ(kvqcAudioFrame(e, pcm.data() + at, kFrame, nullptr), 0);
  kvaudqcReport report;
  kvqcAudioFinish(e, &report);
  kvqcAudioClose(e);
  return {report.integrated, report.range};
}

Reading Oracle(const std::vector<int16_t> &pcm, uint32_t channels) {
  ebur128_state *st = ebur128_init(channels, kRate, EBUR128_MODE_I | EBUR128_MODE_LRA);
  if (channels == 6) {  // L R C LFE Ls Rs
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

TEST(QcEngineOracle, ProgrammeLoudnessMatchesLibebur128) {
  struct {
    uint32_t channels;
    const char *layout;
  } cases[] = {{2, ""}, {6, "5.1"}};
  for (const auto &c : cases) {
    const auto pcm = Programme(c.channels);
    const Reading ours = Engine(pcm, c.channels, c.layout), theirs = Oracle(pcm, c.channels);
    std::printf("%u channels: integrated %.3f vs %.3f LUFS, range %.3f vs %.3f LU\n", c.channels, ours.integrated,
                theirs.integrated, ours.range, theirs.range);
    EXPECT_NEAR(ours.integrated, theirs.integrated, 0.01) << c.channels;
    // libebur128 samples the short-term loudness once a second, the engine every 100 ms.
    EXPECT_NEAR(ours.range, theirs.range, 0.1) << c.channels;
  }
}

}  // namespace
