// The 18 QC rules: what each one checks in a frame's figures and what its verdict reports.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "kvaudio/qc.h"
#include "qc/rules.h"
#include "qc/scan.h"

namespace kvaudio::qc {

enum Rule : uint32_t {
  kProgrammeSilence = 1,
  kChannelSilence,
  kClipping,
  kPhaseInversion,
  kLoudnessTarget,
  kTruePeak,
  kMomentaryMax,
  kShortTermMax,
  kClick,
  kCrackle,
  kLevelImbalance,
  kDcOffset,
  kDropout,
  kDualMono,
  kLowLevel,
  kNearClip,
  kMissingChannel,
  kLoudnessRange,
};

// Bit r-1 set for each rule r that the configuration enables: its group bit in `flags` (bit 0
// rule 1; bit 1 channel and level rules; bit 2 loudness rules; bit 3 sample-error rules) and,
// when reservedA[0] is not 0, its own bit there.
uint32_t EnabledRules(const kvaudqcConfig &config);

// What the analysis derives once from the configuration.
struct QcPlan {
  uint32_t channels = 0;
  bool wide = false;                                  // 32-bit samples
  double scale = 0.0;                                 // 2^-15 or 2^-31
  uint64_t checked = 0;                               // channels of the per-channel rules
  uint64_t loudness = 0;                              // channels of the loudness rules
  std::vector<std::pair<uint32_t, uint32_t>> pairs;   // channel pairs of the pair rules
  uint64_t lfe = 0;                                   // LFE channels of a multichannel layout
  uint64_t resting = 0;                               // channels whose gaps are normal (LFE, centre)
  ScanLimits scan{};
  uint32_t enabled = 0;
};

// Builds the plan of a defaulted configuration with 1 to 64 channels of 16 or 32 bits;
// powerWeights receives the loudness weight of every channel (0 outside plan.loudness).
QcPlan MakePlan(const kvaudqcConfig &config, double powerWeights[kMaxQcChannels]);

// Frames over which FrameFigures::recentDb looks back (two seconds at 25 fps).
constexpr uint32_t kRecentFrames = 50;

// Figures of one frame.
struct FrameFigures {
  uint64_t samples = 0;
  ChannelStats stats[kMaxQcChannels];   // checked channels only
  double rmsDb[kMaxQcChannels];         // -200.0 for silent or unchecked channels
  double recentDb[kMaxQcChannels];      // highest rmsDb of the last kRecentFrames frames
  double clickIsolation[kMaxQcChannels];  // ClickIsolation, for channels with a click jump only
  double peakDb[kMaxQcChannels];       // sample peak
  double truePeakDb[kMaxQcChannels];   // true peak (FrameTruePeaks)
  std::vector<double> correlation;      // per plan pair: sum xy / sqrt(sum xx * sum yy), 0 if silent
  double momentary = -200.0, shortTerm = -200.0, runningRange = 0.0;
};

// Frames for which rule r keeps its last verdict after its condition stops holding, so that a
// fault is one event across the speech pauses and quiet passages inside it (0: none).
uint32_t BridgeFrames(uint32_t rule);

// Fills frames[r-1] with the verdict of rule r for every rule (enabled or not). An inactive
// verdict with spare = 1 means the frame cannot tell (too little signal): the rule's state holds.
void CheckRules(const kvaudqcConfig &config, const QcPlan &plan, const FrameFigures &fig, RuleFrame frames[18]);

}  // namespace kvaudio::qc
