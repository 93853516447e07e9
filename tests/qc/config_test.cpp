// QC configuration defaults, delivery standards and channel layouts.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "kvaudio/qc.h"
#include "qc/engine.h"
#include "qc/layouts.h"

namespace {

using kvaudio::qc::AudioQcEngine;

constexpr double kG = 1.1885022274370185;

// The engine's configuration after open.
kvaudqcConfig Opened(const kvaudqcConfig *in) {
  std::unique_ptr<kvqcAudioEngine, int32_t (*)(kvqcAudioEngine *)> e(kvqcAudioOpen(in), kvqcAudioClose);
  return static_cast<AudioQcEngine *>(e.get())->Config();
}

TEST(QcConfig, ZeroRecordDefaults) {
  kvaudqcConfig zero{};
  for (const kvaudqcConfig *in : {static_cast<const kvaudqcConfig *>(nullptr), static_cast<const kvaudqcConfig *>(&zero)}) {
    const kvaudqcConfig c = Opened(in);
    EXPECT_EQ(c.size, 512u);
    EXPECT_EQ(c.sampleRate, 48000u);
    EXPECT_EQ(c.channels, 2u);
    EXPECT_EQ(c.bitsPerSample, 16u);
    EXPECT_EQ(c.flags, 15u);
    EXPECT_EQ(c.channelMask, 3u);
    EXPECT_EQ(c.channelMask32, 3u);
    EXPECT_EQ(c.checkMask, 3u);
    EXPECT_EQ(c.loudnessMask, 0u);
    EXPECT_EQ(c.loudnessMask2, 0u);
    EXPECT_EQ(c.standard, 0u);
    EXPECT_EQ(c.layoutId, 0u);
    const uint32_t rules[22] = {30, 3, 3, 1, 3, 10, 1, 1, 1, 1, 1, 3, 1, 1, 3, 3, 1, 3, 3, 3, 16, 2};
    for (int i = 0; i < 22; ++i) EXPECT_EQ(c.ruleSettings[i], rules[i]) << i;
    const double limits[23] = {-0.25, -60, 6, 0, 0, 0, 0, 0, 0, -60, -40, 0.75,
                               -80, 0.2, -50, -0.5, -60, 0.55, 0.18, -60, 0.995, 0.25, -60};
    for (int i = 0; i < 23; ++i) EXPECT_EQ(c.limits[i], limits[i]) << i;
    EXPECT_EQ(c.levelFloor, -70.0);
    EXPECT_EQ(c.peakCeiling, -0.1);
  }
}

TEST(QcConfig, CallerValuesSurviveAndRecordIsNotWritten) {
  kvaudqcConfig in{};
  in.sampleRate = 44100;
  in.flags = 64;  // standard 1 by default
  in.limits[1] = -50.0;
  in.limits[4] = -16.0;
  in.ruleSettings[5] = 7;
  in.reservedA[1] = 0xABCD;
  in.reservedB = 9;
  in.reservedC = 2.5;
  const kvaudqcConfig before = in;
  const kvaudqcConfig c = Opened(&in);
  EXPECT_EQ(0, std::memcmp(&in, &before, sizeof in));
  EXPECT_EQ(c.sampleRate, 44100u);
  EXPECT_EQ(c.flags, 64u);
  EXPECT_EQ(c.standard, 1u);
  EXPECT_EQ(c.limits[3], -1.0);
  EXPECT_EQ(c.limits[4], -16.0);  // the caller's target beats the standard's
  EXPECT_EQ(c.limits[5], 1.0);
  EXPECT_EQ(c.limits[6], 20.0);
  EXPECT_EQ(c.limits[9], -50.0);  // copies index 1
  EXPECT_EQ(c.limits[16], -50.0);
  EXPECT_EQ(c.ruleSettings[5], 7u);
  EXPECT_EQ(c.reservedA[1], 0xABCDu);
  EXPECT_EQ(c.reservedB, 9u);
  EXPECT_EQ(c.reservedC, 2.5);
}

TEST(QcConfig, StandardAndTruePeakFlags) {
  struct Case {
    uint32_t flags, standard;
    double tp, target;
  } cases[] = {
      {64, 0, -1.0, -23.0}, {32, 0, -1.0, 0.0}, {15, 5, -2.0, -24.0}, {32 | 15, 100, -1.0, 0.0}, {15, 8, 0.0, 0.0},
  };
  for (const Case &k : cases) {
    kvaudqcConfig in{};
    in.flags = k.flags;
    in.standard = k.standard;
    const kvaudqcConfig c = Opened(&in);
    EXPECT_EQ(c.limits[3], k.tp) << k.flags << "/" << k.standard;
    EXPECT_EQ(c.limits[4], k.target) << k.flags << "/" << k.standard;
  }
}

TEST(QcConfig, ChannelAndLoudnessMasks) {
  struct Case {
    const char *name;
    uint32_t channels;
    const char *layoutName;
    uint32_t layoutId;
    uint64_t channelMask;
    const char *loudnessName;
    uint32_t loudnessId, allChannels;
    uint64_t loudnessMask2, checkMask;
    // expected
    uint32_t outLayoutId;
    uint64_t outMask;
    uint32_t outLoudnessId;
    uint64_t outLoudness, outLoudness2, outCheck;
  } cases[] = {
      {"aac6", 6, "5.1-aac", 0, 0, "", 0, 0, 0, 0, 5, 63, 0, 0, 0, 63},
      {"aac2", 2, "5.1-AAC", 0, 0, "", 0, 0, 0, 0, 5, 3, 0, 0, 0, 3},
      {"byId", 8, "", 203, 0, "", 0, 0, 0, 0, 203, 48, 0, 0, 0, 255},
      {"unknownName", 4, "quad", 77, 0, "", 0, 0, 0, 0, 77, 15, 0, 0, 0, 15},
      {"noneName", 4, "None", 0, 0, "", 0, 0, 0, 0, 0, 15, 0, 0, 0, 15},
      {"callerMask", 8, "stereo1", 0, 0xF0, "", 0, 0, 0, 0, 0, 0xF0, 0, 0, 0, 255},
      {"maskCut", 4, "", 0, 0xFF, "", 0, 0, 0, 0, 0, 15, 0, 0, 0, 15},
      {"loudName", 8, "", 0, 0, "stereo2", 0, 0, 0, 0, 0, 255, 202, 12, 12, 12},
      {"loudId", 8, "", 0, 0, "", 102, 0, 0, 0, 0, 255, 102, 255, 255, 255},
      {"loudAll", 8, "", 0, 0, "stereo2", 0, 1, 0, 0, 0, 255, 202, 12, 12, 255},
      {"loudCheck", 8, "", 0, 0, "stereo2", 0, 0, 0, 0x300, 0, 255, 202, 12, 12, 0},
      {"loud2", 8, "", 0, 0, "stereo2", 0, 0, 0x1F0, 0, 0, 255, 202, 12, 0xF0, 12},
      {"check64", 64, "", 0, 0, "", 0, 0, 0, 0x8000000000000001, 0, ~0ull, 0, 0, 0, 0x8000000000000001},
  };
  for (const Case &k : cases) {
    kvaudqcConfig in{};
    in.channels = k.channels;
    std::strcpy(in.layoutName, k.layoutName);
    in.layoutId = k.layoutId;
    in.channelMask = k.channelMask;
    std::strcpy(in.loudnessLayoutName, k.loudnessName);
    in.loudnessLayoutId = k.loudnessId;
    in.loudnessAllChannels = k.allChannels;
    in.loudnessMask2 = k.loudnessMask2;
    in.checkMask = k.checkMask;
    const kvaudqcConfig c = Opened(&in);
    EXPECT_EQ(c.layoutId, k.outLayoutId) << k.name;
    EXPECT_EQ(c.channelMask, k.outMask) << k.name;
    EXPECT_EQ(c.channelMask32, static_cast<uint32_t>(k.outMask)) << k.name;
    EXPECT_EQ(c.loudnessLayoutId, k.outLoudnessId) << k.name;
    EXPECT_EQ(c.loudnessMask, k.outLoudness) << k.name;
    EXPECT_EQ(c.loudnessMask2, k.outLoudness2) << k.name;
    EXPECT_EQ(c.checkMask, k.outCheck) << k.name;
  }
}

// A layout name that fills its whole field is read as 64 bytes, not past them.
TEST(QcConfig, UnterminatedLayoutName) {
  kvaudqcConfig in{};
  std::memset(in.layoutName, 'x', sizeof in.layoutName);
  std::memset(in.loudnessLayoutName, 'y', sizeof in.loudnessLayoutName);
  const kvaudqcConfig c = Opened(&in);
  EXPECT_EQ(c.channelMask, 3u);
}

TEST(QcStandards, Table) {
  struct Case {
    uint32_t standard;
    int32_t result;
    double target, tolerance, tp, range;
  } cases[] = {
      {0, 0, 0, 0, 0, 0},      {1, 0, -23, 1, -1, 20}, {2, 0, -24, 2, -2, 0}, {3, 0, -24, 2, -2, 0},
      {4, 0, -24, 2, -2, 0},   {5, 0, -24, 1, -2, 0},  {6, 0, -24, 1, -1, 0}, {7, 0, -24, 1, -1, 0},
      {8, -1, 0, 0, 0, 0},     {99, -1, 0, 0, 0, 0},   {100, 0, 0, 0, 0, 0},  {101, -1, 0, 0, 0, 0},
  };
  for (const Case &k : cases) {
    kvaudqcTargets t;
    std::memset(&t, 0x5A, sizeof t);
    EXPECT_EQ(kvqcAudioStandardDefaults(k.standard, &t), k.result) << k.standard;
    EXPECT_EQ(t.size, 56u);
    EXPECT_EQ(t.standard, k.standard);
    EXPECT_EQ(t.target, k.target) << k.standard;
    EXPECT_EQ(t.tolerance, k.tolerance) << k.standard;
    EXPECT_EQ(t.truePeakMax, k.tp) << k.standard;
    EXPECT_EQ(t.rangeMax, k.range) << k.standard;
    EXPECT_EQ(t.momentaryMax, 0.0);
    EXPECT_EQ(t.shortTermMax, 0.0);
  }
  EXPECT_EQ(kvqcAudioStandardDefaults(1, nullptr), KVQC_ERROR);
}

TEST(QcLayouts, EverySpelling) {
  const double o = 1.0;
  struct Case {
    const char *spelling;
    uint32_t id, channels, first;
    uint64_t mask;
    const char *stored;
    double w[8];
  } cases[] = {
      {"5.1-smpte", 3, 6, 0, 63, "5.1-Smpte - L R C lfe Ls Rs", {o, o, o, 0, kG, kG}},
      {"5.1", 3, 6, 0, 63, "5.1-Smpte - L R C lfe Ls Rs", {o, o, o, 0, kG, kG}},
      {"5.1 SURROUND", 3, 6, 0, 63, "5.1-Smpte - L R C lfe Ls Rs", {o, o, o, 0, kG, kG}},
      {"5.1-Smpte - L R C lfe Ls Rs", 3, 6, 0, 63, "5.1-Smpte - L R C lfe Ls Rs", {o, o, o, 0, kG, kG}},
      {"5.1-protools", 4, 6, 0, 63, "5.1-Protools - L C R Ls Rs Lfe", {o, o, o, kG, kG, 0}},
      {"5.1-Protools - L C R Ls Rs Lfe", 4, 6, 0, 63, "5.1-Protools - L C R Ls Rs Lfe", {o, o, o, kG, kG, 0}},
      {"5.1-aac", 5, 6, 0, 63, "5.1-AAC - C L R Ls Rs Lfe", {o, o, o, kG, kG, 0}},
      {"5.1-AAC - C L R Ls Rs Lfe", 5, 6, 0, 63, "5.1-AAC - C L R Ls Rs Lfe", {o, o, o, kG, kG, 0}},
      {"5.1-dts", 6, 6, 0, 63, "5.1-DTS - L R Ls Rs C Lfe", {o, o, kG, kG, o, 0}},
      {"5.1-DTS -  L R Ls Rs C Lfe", 6, 6, 0, 63, "5.1-DTS - L R Ls Rs C Lfe", {o, o, kG, kG, o, 0}},
      {"5.1-dts - l r ls rs c lfe", 6, 6, 0, 63, "5.1-DTS - L R Ls Rs C Lfe", {o, o, kG, kG, o, 0}},
      {"7.1-smpte", 102, 8, 0, 255, "7.1-Smpte - L R C Lfe Lss Rss Lsr Rsr", {o, o, o, 0, kG, kG, kG, kG}},
      {"7.1", 102, 8, 0, 255, "7.1-Smpte - L R C Lfe Lss Rss Lsr Rsr", {o, o, o, 0, kG, kG, kG, kG}},
      {"7.1 Surround", 102, 8, 0, 255, "7.1-Smpte - L R C Lfe Lss Rss Lsr Rsr", {o, o, o, 0, kG, kG, kG, kG}},
      {"7.1-Smpte - L R C Lfe Lss Rss Lsr Rsr", 102, 8, 0, 255, "7.1-Smpte - L R C Lfe Lss Rss Lsr Rsr",
       {o, o, o, 0, kG, kG, kG, kG}},
      {"7.1-protools", 100, 8, 0, 255, "7.1-Protools - L C R Lss Rss Lsr Rsr Lfe", {o, o, o, kG, kG, kG, kG, 0}},
      {"7.1-Protools - L C R Lss Rss Lsr Rsr Lfe", 100, 8, 0, 255, "7.1-Protools - L C R Lss Rss Lsr Rsr Lfe",
       {o, o, o, kG, kG, kG, kG, 0}},
      {"7.1-EXT", 101, 8, 0, 255, "7.1-EXT - L R C Lfe Lsr Rsr Lss Rss", {o, o, o, 0, kG, kG, kG, kG}},
      {"7.1-EXT - L R C Lfe Lsr Rsr Lss Rss", 101, 8, 0, 255, "7.1-EXT - L R C Lfe Lsr Rsr Lss Rss",
       {o, o, o, 0, kG, kG, kG, kG}},
      {"7.1-dolby", 103, 8, 0, 255, "7.1-Dolby - L C R Ls Rs Lfes Bsl Bsr", {o, o, o, kG, kG, 0, kG, kG}},
      {"7.1-Dolby - L C R Ls Rs Lfes Bsl Bsr", 103, 8, 0, 255, "7.1-Dolby - L C R Ls Rs Lfes Bsl Bsr",
       {o, o, o, kG, kG, 0, kG, kG}},
      {"stereo3", 203, 2, 4, 48, "Stereo Pair 3", {0, 0, 0, 0, o, o}},
      {"STEREO3", 203, 2, 4, 48, "Stereo Pair 3", {0, 0, 0, 0, o, o}},
      {"stereo pair 3", 203, 2, 4, 48, "Stereo Pair 3", {0, 0, 0, 0, o, o}},
      {"Stereo Pair 1", 201, 2, 0, 3, "Stereo Pair 1", {o, o}},
      {"stereo8", 208, 2, 14, 0xC000, "Stereo Pair 8", {}},
      {"", 0, 0, 0, 0, "None", {}},
      {"none", 0, 0, 0, 0, "None", {}},
      {"NONE", 0, 0, 0, 0, "None", {}},
      {nullptr, 0, 0, 0, 0, "None", {}},
  };
  for (const Case &k : cases) {
    kvaudqcLayout l;
    std::memset(&l, 0x77, sizeof l);
    ASSERT_EQ(kvqcAudioLayoutFromName(k.spelling, &l), 0) << (k.spelling ? k.spelling : "null");
    const std::string what = k.spelling ? k.spelling : "null";
    EXPECT_EQ(l.size, 344u) << what;
    EXPECT_EQ(l.id, k.id) << what;
    EXPECT_EQ(l.channels, k.channels) << what;
    EXPECT_EQ(l.firstChannel, k.first) << what;
    EXPECT_EQ(l.channelMask, k.mask) << what;
    EXPECT_STREQ(l.name, k.stored) << what;
    for (int c = 0; c < 32; ++c) {
      const double w = k.id >= 201 ? ((k.mask >> c) & 1 ? 1.0 : 0.0) : (c < 8 ? k.w[c] : 0.0);
      EXPECT_EQ(l.weights[c], w) << what << " position " << c;
    }
    EXPECT_EQ(l.name[63], 0) << what;
  }
}

TEST(QcLayouts, UnknownNamesLeaveRecordUntouched) {
  for (const char *name : {"stereo9", "stereo0", "Stereo Pair 9", "5.1-DTS -   L R Ls Rs C Lfe", "5.1 ", "7.2"}) {
    kvaudqcLayout l;
    std::memset(&l, 0x77, sizeof l);
    const kvaudqcLayout before = l;
    EXPECT_EQ(kvqcAudioLayoutFromName(name, &l), KVQC_ERROR) << name;
    EXPECT_EQ(0, std::memcmp(&l, &before, sizeof l)) << name;
  }
  EXPECT_EQ(kvqcAudioLayoutFromName("5.1", nullptr), KVQC_ERROR);
}

TEST(QcLayouts, ShortNamesRoundTrip) {
  for (uint32_t id = 0; id < 300; ++id) {
    const std::string name = kvaudio::qc::LayoutNameFromId(id);
    const bool named = (id >= 3 && id <= 6) || (id >= 100 && id <= 103) || (id >= 201 && id <= 208);
    ASSERT_EQ(!name.empty(), named) << id;
    if (!named) continue;
    kvaudqcLayout l;
    ASSERT_EQ(kvaudio::qc::ResolveLayout(name.c_str(), &l), 0) << name;
    EXPECT_EQ(l.id, id) << name;
  }
  EXPECT_STREQ(kvaudio::qc::LayoutNameFromId(3), "5.1-smpte");
  EXPECT_STREQ(kvaudio::qc::LayoutNameFromId(205), "stereo5");
}

TEST(QcLayouts, EqNoCase) {
  using kvaudio::qc::EqNoCase;
  EXPECT_TRUE(EqNoCase("Stereo Pair 1", "sTEREO pAIR 1"));
  EXPECT_TRUE(EqNoCase("", ""));
  EXPECT_FALSE(EqNoCase("5.1", "5.1 "));
  EXPECT_FALSE(EqNoCase("5.1 ", "5.1"));
  EXPECT_FALSE(EqNoCase(nullptr, ""));
  EXPECT_FALSE(EqNoCase("a", "b"));
}

}  // namespace
