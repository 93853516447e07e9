// QC engine set-up: configuration defaults, delivery-standard targets, open and close.
#include <cstring>

#include "frame/errors.h"
#include "qc/engine.h"
#include "qc/layouts.h"

namespace kvaudio::qc {
namespace {

constexpr uint32_t kRuleDefaults[22] = {30, 3, 3, 1, 3, 10, 1, 1, 1, 1, 1, 3, 1, 1, 3, 3, 1, 3, 3, 3, 16, 2};
// Defaults of limits[i]; indices 3 to 8 come from the standard, 9 and 16 copy index 1.
constexpr double kLimitDefaults[23] = {-0.25, -60.0, 6.0, 0,     0,    0,     0,    0,     0,    0,   -40.0, 0.75,
                                       -80.0, 0.2,   -50.0, -0.5, 0,   0.55,  0.18, -60.0, 0.995, 0.25, -60.0};
constexpr uint32_t kFlagTruePeakDefault = 1u << 5;
constexpr uint32_t kFlagStandardDefault = 1u << 6;

template <typename T>
void Default(T &field, T value) {
  if (field == T{}) field = value;
}

// A name from a fixed-size field, NUL-terminated even when the caller filled every byte.
struct FieldName {
  char text[65];
  explicit FieldName(const char (&field)[64]) {
    std::memcpy(text, field, 64);
    text[64] = '\0';
  }
  bool empty() const { return text[0] == '\0'; }
};

// Resolves a layout from a name (first) or an id; false when neither is given or it is unknown.
bool ResolveNameOrId(const FieldName &name, uint32_t id, kvaudqcLayout &layout) {
  if (!name.empty()) return ResolveLayout(name.text, &layout) == 0;
  if (id != 0) return ResolveLayout(LayoutNameFromId(id), &layout) == 0;
  return false;
}

void DefaultChannelMask(kvaudqcConfig &c, uint64_t all) {
  uint64_t mask = c.channelMask ? c.channelMask : c.channelMask32;
  if (mask == 0) {
    kvaudqcLayout layout;
    if (ResolveNameOrId(FieldName(c.layoutName), c.layoutId, layout) && layout.channelMask != 0) {
      c.layoutId = layout.id;
      mask = layout.channelMask;
    } else {
      mask = all;
    }
  }
  mask &= all;
  c.channelMask = mask;
  c.channelMask32 = static_cast<uint32_t>(mask);
}

void DefaultLoudnessMasks(kvaudqcConfig &c, uint64_t all) {
  const FieldName name(c.loudnessLayoutName);
  kvaudqcLayout layout;
  if (c.loudnessLayoutId == 0 && !name.empty() && ResolveLayout(name.text, &layout) == 0)
    c.loudnessLayoutId = layout.id;
  if (c.loudnessMask == 0 && ResolveNameOrId(name, c.loudnessLayoutId, layout)) c.loudnessMask = layout.channelMask;

  c.loudnessMask &= all;
  // A given checkMask wins even when cutting it to the channels leaves nothing.
  const bool checkGiven = c.checkMask != 0;
  const uint64_t check = c.checkMask & all;
  uint64_t value;
  if (c.loudnessMask2 != 0) {
    c.loudnessMask2 &= all;
    value = checkGiven ? check : (c.loudnessMask ? c.loudnessMask : all);
  } else if (c.loudnessMask != 0) {
    c.loudnessMask2 = c.loudnessMask;
    value = checkGiven ? check : c.loudnessMask;
  } else {
    value = checkGiven ? check : all;
  }
  c.checkMask = c.loudnessAllChannels ? all : value;
}

void DefaultLimits(kvaudqcConfig &c) {
  Default(c.levelFloor, -70.0);
  Default(c.peakCeiling, -0.1);
  for (int i : {0, 1, 2}) Default(c.limits[i], kLimitDefaults[i]);
  for (int i = 9; i < 23; ++i) Default(c.limits[i], i == 9 || i == 16 ? c.limits[1] : kLimitDefaults[i]);
}

void ApplyStandard(kvaudqcConfig &c) {
  if ((c.flags & kFlagStandardDefault) && c.standard == 0) c.standard = 1;
  kvaudqcTargets t;
  if (c.standard != 0 && kvqcAudioStandardDefaults(c.standard, &t) == 0) {
    const double fromStandard[6] = {t.truePeakMax, t.target, t.tolerance, t.rangeMax, t.momentaryMax, t.shortTermMax};
    for (int i = 0; i < 6; ++i) Default(c.limits[3 + i], fromStandard[i]);
  }
  if ((c.flags & kFlagTruePeakDefault) && c.limits[3] == 0.0) c.limits[3] = -1.0;
}

}  // namespace

AudioQcEngine::AudioQcEngine(const kvaudqcConfig *config) : config_{} {
  if (config) std::memcpy(&config_, config, sizeof config_);
  SetDefaults(config_);
  Prepare();
  ClearAnalysis();
}

void AudioQcEngine::SetDefaults(kvaudqcConfig &c) {
  Default(c.size, uint32_t{sizeof(kvaudqcConfig)});
  Default(c.sampleRate, 48000u);
  Default(c.channels, 2u);
  Default(c.bitsPerSample, 16u);
  Default(c.flags, 15u);
  const uint64_t all = c.channels >= 64 ? ~uint64_t{0} : (uint64_t{1} << c.channels) - 1;
  DefaultChannelMask(c, all);
  for (int i = 0; i < 22; ++i) Default(c.ruleSettings[i], kRuleDefaults[i]);
  DefaultLoudnessMasks(c, all);
  DefaultLimits(c);
  ApplyStandard(c);
}

}  // namespace kvaudio::qc

using kvaudio::qc::AudioQcEngine;

extern "C" {

kvqcAudioEngine *kvqcAudioOpen(const kvaudqcConfig *config) {
  return kvaudio::NoThrow<kvqcAudioEngine *>(nullptr, [&] { return new AudioQcEngine(config); });
}

int32_t kvqcAudioClose(kvqcAudioEngine *engine) {
  if (!engine) return -1;
  delete static_cast<AudioQcEngine *>(engine);
  return 0;
}

int32_t kvqcAudioStandardDefaults(uint32_t standard, kvaudqcTargets *out) {
  struct Row {
    uint32_t first, last;
    double target, tolerance, truePeakMax, rangeMax;
  };
  static const Row kRows[] = {
      {0, 0, 0.0, 0.0, 0.0, 0.0},       {1, 1, -23.0, 1.0, -1.0, 20.0}, {2, 4, -24.0, 2.0, -2.0, 0.0},
      {5, 5, -24.0, 1.0, -2.0, 0.0},    {6, 7, -24.0, 1.0, -1.0, 0.0},  {100, 100, 0.0, 0.0, 0.0, 0.0},
  };
  if (!out) return -1;
  std::memset(out, 0, sizeof *out);
  out->size = sizeof(kvaudqcTargets);
  out->standard = standard;
  for (const Row &r : kRows) {
    if (standard < r.first || standard > r.last) continue;
    out->target = r.target;
    out->tolerance = r.tolerance;
    out->truePeakMax = r.truePeakMax;
    out->rangeMax = r.rangeMax;
    return 0;
  }
  return -1;
}

}  // extern "C"
