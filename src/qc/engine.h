// The QC engine behind the kvqcAudio handle: configuration, frame analysis, rule trackers, events.
#pragma once

#include <cstdint>
#include <vector>

#include "kvaudio/qc.h"
#include "qc/checks.h"
#include "qc/programme.h"
#include "qc/rules.h"
#include "qc/scan.h"

struct kvqcAudioEngine {};  // the exported handle type; the engine derives from it

namespace kvaudio::qc {

constexpr uint32_t kRuleCount = 18;

class AudioQcEngine : public kvqcAudioEngine {
 public:
  // Copies the first 512 bytes of *config (null: all zero), applies the defaults and clears the
  // analysis state.
  explicit AudioQcEngine(const kvaudqcConfig *config);

  // Fills every field of `config` left at zero with its default.
  static void SetDefaults(kvaudqcConfig &config);

  // Clears the trackers with their rings, the event list, the position counters, the channel
  // carries and the loudness meter; the engine accepts frames again.
  void ClearAnalysis();

  // True when the configuration can be analysed: 1 to 64 channels of 16 or 32 bits at 8 kHz to
  // 384 kHz.
  bool Supported() const { return supported_; }
  bool Finished() const { return finished_; }

  // Analyses one frame of `frames` periods, feeds the enabled trackers, advances the counters
  // and fills *out when non-null.
  void Frame(const void *pcm, uint32_t frames, kvaudqcFrameAnalyze *out);
  // Closes the open runs and fills *report when non-null; frames are refused until the next
  // ClearAnalysis.
  void Finish(kvaudqcReport *report);

  // Feeds one frame's verdict of `rule` to its tracker; publishes the tracker's state into
  // *detect (if non-null) and returns the window count.
  uint32_t UpdateTracker(uint32_t rule, RuleTracker &tracker, const RuleFrame &frame, uint32_t minFrames,
                         uint64_t frameSamples, kvaudqcDetect *detect);

  const kvaudqcConfig &Config() const { return config_; }
  std::vector<kvaudqcEvent> &Events() { return events_; }
  const std::vector<kvaudqcEvent> &Events() const { return events_; }
  RuleTracker &Tracker(uint32_t rule) { return trackers_[rule - 1]; }

  // The two position counters that events record; the frame analysis advances them.
  uint64_t positionA = 0;
  uint64_t positionB = 0;

 private:
  // Derives the plan and configures the loudness measurement of a supported configuration.
  void Prepare();
  // Scans the checked channels and pairs of one frame and feeds the loudness meter.
  void Measure(const void *pcm, uint32_t frames, FrameFigures &fig);
  // Loudness violation bits of a report against the configured limits.
  uint32_t Violations(const kvaudqcReport &report) const;

  kvaudqcConfig config_;
  RuleTracker trackers_[kRuleCount];
  std::vector<kvaudqcEvent> events_;
  bool supported_ = false;
  bool finished_ = false;
  QcPlan plan_;
  ChannelCarry carry_[kMaxQcChannels];
  ProgrammeLoudness loudness_;
  FrameTruePeaks truePeaks_;
  FrameFigures figures_;      // the latest frame's figures, kept to reuse their storage
  std::vector<double> recent_;             // rmsDb of the last kRecentFrames frames, per channel
  uint32_t recentIndex_ = 0;
  RuleFrame lastActive_[kRuleCount] = {};  // each rule's last active verdict
  uint32_t sinceActive_[kRuleCount] = {};  // frames since then; at the bridge length: none kept
  uint32_t streak_[kRuleCount] = {};       // consecutive frames in which the condition held
  bool confirmed_[kRuleCount] = {};        // a streak reached the rule's minimum frames
  bool wasActive_[kRuleCount] = {};        // the verdict passed on for the previous frame
};

}  // namespace kvaudio::qc
