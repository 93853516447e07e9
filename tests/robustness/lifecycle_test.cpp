// Every open/close pair run through its states: under LeakSanitizer (the sanitizer build) a close
// that leaves anything allocated fails the test process.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "kvaudio/generator.h"
#include "kvaudio/loudness.h"
#include "kvaudio/qc.h"

namespace {

TEST(Lifecycle, GeneratorOpenSetFillClose) {
  const WAVEFORMATEX wide{1, 2, 48000, 384000, 8, 24, 0};
  std::vector<uint8_t> buffer(4800);
  for (uint32_t type : {AUDGEN_TONE, AUDGEN_SWEEP, AUDGEN_WHITE_NOISE, AUDGEN_PINK_NOISE, AUDGEN_SILENCE}) {
    tagAUDGENHANDLE *h = audGenOpen(type, 1000, 4000, 2000, 10, AUDGEN_SHAPE_SQUARE, 0, nullptr, 1.0, 0.5, 0.0);
    ASSERT_NE(h, nullptr);
    audGenFillBuffer(h, buffer.data(), static_cast<uint32_t>(buffer.size()));
    audGenSet(h, type, 500, 0, 0, 0, AUDGEN_SHAPE_TRIANGLE, AUDGEN_SHAPE_SAWTOOTH, &wide, 0.5, 0.5, 0.0);
    audGenFillBuffer(h, buffer.data(), static_cast<uint32_t>(buffer.size()));
    EXPECT_EQ(audGenClose(h), 0u);
  }
}

TEST(Lifecycle, MeterInitProcessDestroy) {
  std::vector<int16_t> pcm(48000 * 2, 1000);
  for (uint8_t mode : {1, 2, 3}) {
    s_ebu_r128 s{};
    ASSERT_EQ(ebu_r128_init(&s, 1, 16, 48000, mode, 2), 1u);
    uint32_t result = 0;
    ebu_r128_process_and_calculate(&s, 48000, pcm.data(), &result, 0);
    EXPECT_EQ(ebu_r128_destroy(&s), 1u);
    ASSERT_EQ(ebu_r128_init(&s, 1, 16, 44100, mode, 6), 1u);
    ebu_r128_delete(&s);
  }
}

TEST(Lifecycle, QcEngineOpenRunResetClose) {
  kvaudqcConfig config{};
  config.channels = 8;
  std::strcpy(config.layoutName, "7.1");
  std::strcpy(config.loudnessLayoutName, "stereo2");
  std::vector<int16_t> pcm(8 * 1920);
  for (size_t i = 0; i < pcm.size(); ++i) pcm[i] = static_cast<int16_t>(i % 3 ? 0 : 30000);
  for (const kvaudqcConfig *c : {static_cast<const kvaudqcConfig *>(nullptr), static_cast<const kvaudqcConfig *>(&config)}) {
    kvqcAudioEngine *e = kvqcAudioOpen(c);
    ASSERT_NE(e, nullptr);
    for (int round = 0; round < 2; ++round) {
      for (int frame = 0; frame < 60; ++frame) kvqcAudioFrame(e, pcm.data(), c ? 1920 : 7680, nullptr);
      kvaudqcReport report;
      EXPECT_EQ(kvqcAudioFinish(e, &report), 0);
      EXPECT_EQ(kvqcAudioReset(e), 0);
    }
    EXPECT_EQ(kvqcAudioClose(e), 0);
  }
}

}  // namespace
