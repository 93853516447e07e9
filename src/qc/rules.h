// Rule trackers: per-frame verdicts of one rule become timed events and a live detect record.
#pragma once

#include <cstdint>
#include <vector>

#include "kvaudio/qc.h"

namespace kvaudio::qc {

// One rule's verdict for one frame, filled by the frame analysis.
struct RuleFrame {
  uint8_t active;        // the rule's condition holds in this frame
  uint64_t channelMask;  // channels in which it holds
  uint64_t spare;        // not read by the tracker
  uint64_t info;         // rule-specific, passed to the detect record
  double value;          // measured quantity
  double reference;      // what it is compared with
  double auxA;           // further level, dB (-200.0: none)
  double auxB;           // second further level, dB
};

// min(1, |value| / |reference|); with a zero reference 1.0 for a positive value, else 0.0.
double Ratio(double value, double reference);

// State of one rule: the open run, the live detect record and the sliding window ring.
struct RuleTracker {
  uint8_t open = 0;
  uint64_t startA = 0, startB = 0;  // engine position counters at the run's first frame
  uint32_t runFrames = 0;
  uint64_t runSamples = 0;
  uint64_t channelMask = 0;
  double maxValue = 0.0;
  double reference = 0.0;
  double maxAuxA = 0.0, maxAuxB = 0.0;
  kvaudqcDetect detect{};
  std::vector<uint8_t> window;  // the last N active bytes, used as a ring
  uint64_t windowIndex = 0;     // next ring position to overwrite once the ring is full

  // Clears the run part (open .. maxAuxB).
  void ClearRun();
  // Clears the run, the detect record and the ring.
  void Clear();
  // Appends the run as an event for `rule`, closed at the given positions, and counts it.
  void AppendEvent(uint32_t rule, uint64_t positionA, uint64_t positionB, std::vector<kvaudqcEvent> &events);
  // At the end of the analysis: an open run of at least minFrames frames becomes an event; an
  // open run is cleared in any case.
  void Finish(uint32_t rule, uint64_t positionA, uint64_t positionB, uint32_t minFrames,
              std::vector<kvaudqcEvent> &events);
};

}  // namespace kvaudio::qc
