// QC configuration defaults, delivery standards and channel layouts.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "kvaudio/qc.h"
#include "qc/engine.h"

namespace {

kvaudqcConfig Opened(const kvaudqcConfig *in) {
  std::unique_ptr<kvqcAudioEngine, int32_t (*)(kvqcAudioEngine *)> e(kvqcAudioOpen(in), kvqcAudioClose);
  return static_cast<kvaudio::qc::AudioQcEngine *>(e.get())->Config();
}

TEST(QcConfig, NoRecordTakesTheDefaults) {
  const kvaudqcConfig c = Opened(nullptr);
  EXPECT_EQ(std::tie(c.size, c.sampleRate, c.channels, c.bitsPerSample, c.flags, c.channelMask32, c.standard),
            std::make_tuple(512u, 48000u, 2u, 16u, 15u, 3u, 0u));
  EXPECT_EQ(std::tie(c.channelMask, c.checkMask, c.loudnessMask, c.loudnessMask2, c.layoutId),
            std::make_tuple(3ull, 3ull, 0ull, 0ull, 0u));
  EXPECT_EQ(std::tie(c.levelFloor, c.peakCeiling), std::make_tuple(-70.0, -0.1));
  // The documented defaults; no standard, so no loudness limits (3-8).
  const std::vector<uint32_t> settings = {30, 3, 3, 1, 3, 10, 1, 1, 1, 1, 1, 3, 1, 1, 3, 3, 1, 3, 3, 3, 16, 2};
  const std::vector<double> limits = {-0.25, -60, 6,   0,   0,    0,   0,    0,    0,     -60,  -40, 0.75,
                                      -80,   0.2, -50, -0.5, -60, 0.55, 0.18, -60, 0.995, 0.25, -60};
  EXPECT_EQ(std::vector<uint32_t>(c.ruleSettings, c.ruleSettings + 22), settings);
  EXPECT_EQ(std::vector<double>(c.limits, c.limits + 23), limits);
}

// flags bit 6 picks standard 1 when none is given, bit 5 a -1 dBTP maximum; the caller's values win.
TEST(QcConfig, StandardsTruePeakFlagAndCallerValues) {
  struct { uint32_t flags, standard; double target, tp, tolerance; } cases[] = {
      {64, 0, -23.0, -1.0, 1.0}, {32, 0, 0.0, -1.0, 0.0}, {15, 5, -24.0, -2.0, 1.0}, {32 | 15, 100, 0.0, -1.0, 0.0}, {15, 8, 0.0, 0.0, 0.0}};
  for (const auto &k : cases) {
    kvaudqcConfig in{};
    in.flags = k.flags, in.standard = k.standard, in.sampleRate = 44100;
    in.limits[1] = -50.0, in.limits[6] = 15.0, in.ruleSettings[5] = 7;
    in.reservedA[1] = 0xABCD, in.reservedB = 9, in.reservedC = 2.5;
    const kvaudqcConfig c = Opened(&in);
    SCOPED_TRACE(std::to_string(k.flags) + "/" + std::to_string(k.standard));
    EXPECT_EQ(std::tie(c.sampleRate, c.flags, c.standard, c.ruleSettings[5], c.reservedA[1], c.reservedB),
              std::make_tuple(44100u, k.flags, k.standard ? k.standard : k.flags >> 6, 7u, 0xABCDu, 9u));
    EXPECT_EQ(std::tie(c.limits[3], c.limits[4], c.limits[5], c.limits[6]), std::make_tuple(k.tp, k.target, k.tolerance, 15.0));
    EXPECT_EQ(std::tie(c.limits[9], c.limits[16], c.reservedC), std::make_tuple(-50.0, -50.0, 2.5));
  }
  // The targets of each delivery standard.
  struct { uint32_t standard; int32_t result; double target, tolerance, tp, range; } targets[] = {
      {0, 0, 0, 0, 0, 0}, {1, 0, -23, 1, -1, 20}, {2, 0, -24, 2, -2, 0}, {4, 0, -24, 2, -2, 0}, {5, 0, -24, 1, -2, 0},
      {6, 0, -24, 1, -1, 0}, {7, 0, -24, 1, -1, 0}, {8, -1, 0, 0, 0, 0}, {100, 0, 0, 0, 0, 0}, {101, -1, 0, 0, 0, 0}};
  for (const auto &k : targets) {
    kvaudqcTargets t;
    std::memset(&t, 0x5A, sizeof t);
    EXPECT_EQ(kvqcAudioStandardDefaults(k.standard, &t), k.result) << k.standard;
    EXPECT_EQ(std::tie(t.size, t.standard, t.momentaryMax, t.shortTermMax), std::make_tuple(56u, k.standard, 0.0, 0.0));
    EXPECT_EQ(std::tie(t.target, t.tolerance, t.truePeakMax, t.rangeMax), std::tie(k.target, k.tolerance, k.tp, k.range))
        << k.standard;
  }
  EXPECT_EQ(kvqcAudioStandardDefaults(1, nullptr), KVQC_ERROR);
}

TEST(QcConfig, ChannelAndLoudnessMasks) {
  struct {  // inputs, then the resolved layoutId, channelMask, loudnessLayoutId, loudnessMask, loudnessMask2, checkMask
    const char *name, *layoutName, *loudnessName;
    uint32_t channels, layoutId, loudnessId, allChannels;
    uint64_t channelMask, loudnessMask2, checkMask;
    uint32_t outLayoutId; uint64_t outMask; uint32_t outLoudnessId; uint64_t outLoudness, outLoudness2, outCheck;
  } cases[] = {
      {"aac2", "5.1-AAC", "", 2, 0, 0, 0, 0, 0, 0, 5, 3, 0, 0, 0, 3},
      {"byId", "", "", 8, 203, 0, 0, 0, 0, 0, 203, 48, 0, 0, 0, 255},
      {"unknownName", "quad", "", 4, 77, 0, 0, 0, 0, 0, 77, 15, 0, 0, 0, 15},
      {"noneName", "None", "", 4, 0, 0, 0, 0, 0, 0, 0, 15, 0, 0, 0, 15},
      {"callerMask", "stereo1", "", 8, 0, 0, 0, 0xF0, 0, 0, 0, 0xF0, 0, 0, 0, 255},
      {"maskCut", "", "", 4, 0, 0, 0, 0xFF, 0, 0, 0, 15, 0, 0, 0, 15},
      {"loudName", "", "stereo2", 8, 0, 0, 0, 0, 0, 0, 0, 255, 202, 12, 12, 12},
      {"loudId", "", "", 8, 0, 102, 0, 0, 0, 0, 0, 255, 102, 255, 255, 255},
      {"loudAll", "", "stereo2", 8, 0, 0, 1, 0, 0, 0, 0, 255, 202, 12, 12, 255},
      {"loudCheck", "", "stereo2", 8, 0, 0, 0, 0, 0, 0x300, 0, 255, 202, 12, 12, 0},
      {"loud2", "", "stereo2", 8, 0, 0, 0, 0, 0x1F0, 0, 0, 255, 202, 12, 0xF0, 12},
      {"check64", "", "", 64, 0, 0, 0, 0, 0, 0x8000000000000001, 0, ~0ull, 0, 0, 0, 0x8000000000000001},
  };
  for (const auto &k : cases) {
    kvaudqcConfig in{};
    std::strcpy(in.layoutName, k.layoutName);
    std::strcpy(in.loudnessLayoutName, k.loudnessName);
    in.channels = k.channels, in.layoutId = k.layoutId, in.channelMask = k.channelMask;
    in.loudnessLayoutId = k.loudnessId, in.loudnessAllChannels = k.allChannels;
    in.loudnessMask2 = k.loudnessMask2, in.checkMask = k.checkMask;
    const kvaudqcConfig c = Opened(&in);
    EXPECT_EQ(std::tie(c.layoutId, c.channelMask, c.loudnessLayoutId, c.loudnessMask, c.loudnessMask2, c.checkMask),
              std::tie(k.outLayoutId, k.outMask, k.outLoudnessId, k.outLoudness, k.outLoudness2, k.outCheck))
        << k.name;
    EXPECT_EQ(c.channelMask32, static_cast<uint32_t>(k.outMask)) << k.name;
  }
}

// Every spelling of a layout gives the same record; an unknown name fails and leaves the record as it was.
TEST(QcLayouts, Spellings) {
  const double o = 1.0, g = 1.1885022274370185;  // +1.5 dB for surround channels
  struct Case {
    uint32_t id, channels, first;
    const char *stored;
    double w[16];
    std::vector<const char *> spellings;
  } cases[] = {
      {3, 6, 0, "5.1-Smpte - L R C lfe Ls Rs", {o, o, o, 0, g, g}, {"5.1-smpte", "5.1", "5.1 SURROUND"}},
      {4, 6, 0, "5.1-Protools - L C R Ls Rs Lfe", {o, o, o, g, g, 0}, {"5.1-Protools - L C R Ls Rs Lfe"}},
      {5, 6, 0, "5.1-AAC - C L R Ls Rs Lfe", {o, o, o, g, g, 0}, {"5.1-aac"}},
      {6, 6, 0, "5.1-DTS - L R Ls Rs C Lfe", {o, o, g, g, o, 0},
       {"5.1-dts", "5.1-DTS -  L R Ls Rs C Lfe", "5.1-dts - l r ls rs c lfe"}},
      {102, 8, 0, "7.1-Smpte - L R C Lfe Lss Rss Lsr Rsr", {o, o, o, 0, g, g, g, g}, {"7.1", "7.1 Surround"}},
      {100, 8, 0, "7.1-Protools - L C R Lss Rss Lsr Rsr Lfe", {o, o, o, g, g, g, g, 0}, {"7.1-protools"}},
      {101, 8, 0, "7.1-EXT - L R C Lfe Lsr Rsr Lss Rss", {o, o, o, 0, g, g, g, g}, {"7.1-EXT"}},
      {103, 8, 0, "7.1-Dolby - L C R Ls Rs Lfes Bsl Bsr", {o, o, o, g, g, 0, g, g}, {"7.1-dolby"}},
      {203, 2, 4, "Stereo Pair 3", {0, 0, 0, 0, o, o}, {"stereo3", "STEREO3", "stereo pair 3"}},
      {201, 2, 0, "Stereo Pair 1", {o, o}, {"Stereo Pair 1"}},
      {208, 2, 14, "Stereo Pair 8", {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, o, o}, {"stereo8"}},
      {0, 0, 0, "None", {}, {"", "none", "NONE", nullptr}},
  };
  kvaudqcLayout before;
  std::memset(&before, 0x77, sizeof before);
  for (const Case &k : cases)
    for (const char *spelling : k.spellings) {
      SCOPED_TRACE(spelling ? spelling : "null");
      kvaudqcLayout l = before;
      ASSERT_EQ(kvqcAudioLayoutFromName(spelling, &l), 0);
      EXPECT_EQ(std::tie(l.size, l.id, l.channels, l.firstChannel, l.channelMask),
                std::make_tuple(344u, k.id, k.channels, k.first, ((uint64_t{1} << k.channels) - 1) << k.first));
      EXPECT_STREQ(l.name, k.stored);
      for (int c = 0; c < 32; ++c) EXPECT_EQ(l.weights[c], c < 16 ? k.w[c] : 0.0) << "position " << c;
    }
  for (const char *name : {"stereo9", "stereo0", "stereo", "Stereo Pair 9", "5.1-DTS -   L R Ls Rs C Lfe", "5.1 ", "5.", "7.2"}) {
    kvaudqcLayout l = before;
    EXPECT_EQ(kvqcAudioLayoutFromName(name, &l), KVQC_ERROR) << name;
    EXPECT_EQ(0, std::memcmp(&l, &before, sizeof l)) << name;
  }
  EXPECT_EQ(kvqcAudioLayoutFromName("5.1", nullptr), KVQC_ERROR);
}

}  // namespace
