// The QC engine behind the kvqcAudio handle: its configuration, rule trackers and event list.
#pragma once

#include <cstdint>
#include <vector>

#include "kvaudio/qc.h"
#include "qc/rules.h"

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

  // Clears the trackers with their rings, the event list and the position counters.
  void ClearAnalysis();

  // Feeds one frame's verdict of `rule` to its tracker; publishes the tracker's state into
  // *detect (if non-null) and returns the window count.
  uint32_t UpdateTracker(uint32_t rule, RuleTracker &tracker, const RuleFrame &frame, uint32_t minFrames,
                         uint64_t frameSamples, kvaudqcDetect *detect);

  const kvaudqcConfig &Config() const { return config_; }
  std::vector<kvaudqcEvent> &Events() { return events_; }
  RuleTracker &Tracker(uint32_t rule) { return trackers_[rule - 1]; }

  // The two position counters that events record; the frame analysis advances them.
  uint64_t positionA = 0;
  uint64_t positionB = 0;

 private:
  kvaudqcConfig config_;
  RuleTracker trackers_[kRuleCount];
  std::vector<kvaudqcEvent> events_;
};

}  // namespace kvaudio::qc
