// Rule trackers: runs of consecutive frames, minimum lengths, sliding window counts and events.
#include "qc/rules.h"

#include <cmath>

#include "qc/engine.h"

namespace kvaudio::qc {

double Ratio(double value, double reference) {
  if (reference == 0.0) return value > 0.0 ? 1.0 : 0.0;
  const double r = std::fabs(value) / std::fabs(reference);
  return r < 1.0 ? r : 1.0;
}

void RuleTracker::ClearRun() {
  open = 0;
  startA = startB = 0;
  runFrames = 0;
  runSamples = 0;
  channelMask = 0;
  maxValue = reference = maxAuxA = maxAuxB = 0.0;
}

void RuleTracker::Clear() {
  ClearRun();
  detect = kvaudqcDetect{};
  window.clear();
  windowIndex = 0;
}

void RuleTracker::AppendEvent(uint32_t rule, uint64_t positionA, uint64_t positionB,
                              std::vector<kvaudqcEvent> &events) {
  kvaudqcEvent e{};
  e.rule = rule;
  e.channelMask = channelMask;
  e.channelMask32 = static_cast<uint32_t>(channelMask);
  e.startA = startA;
  e.endA = positionA ? positionA - 1 : 0;
  e.startB = startB;
  e.endB = positionB;
  e.frames = runFrames;
  e.samples = runSamples;
  e.maxValue = maxValue;
  e.reference = reference;
  e.maxAuxA = maxAuxA;
  e.maxAuxB = maxAuxB;
  e.ratio = Ratio(maxValue, reference);
  events.push_back(e);
  detect.eventCount += 1;
}

void RuleTracker::Finish(uint32_t rule, uint64_t positionA, uint64_t positionB, uint32_t minFrames,
                         std::vector<kvaudqcEvent> &events) {
  if (open && runFrames >= minFrames) AppendEvent(rule, positionA, positionB, events);
  if (open) ClearRun();
}

uint32_t AudioQcEngine::UpdateTracker(uint32_t rule, RuleTracker &t, const RuleFrame &frame, uint32_t minFrames,
                                      uint64_t frameSamples, kvaudqcDetect *detect) {
  const uint32_t n = config_.ruleSettings[0];
  if (n != 0) {
    if (t.window.size() < n) {
      t.window.push_back(frame.active);
    } else {
      t.window[t.windowIndex % n] = frame.active;
      t.windowIndex = (t.windowIndex + 1) % n;
    }
  }

  if (frame.active) {
    if (!t.open) {
      t.open = 1;
      t.startA = positionA;
      t.startB = positionB;
      t.reference = frame.reference;
      t.maxAuxA = t.maxAuxB = -200.0;
    }
    t.runFrames += 1;
    t.runSamples += frameSamples;
    t.channelMask |= frame.channelMask;
    t.maxValue = frame.value > t.maxValue ? frame.value : t.maxValue;
    t.reference = frame.reference;
    t.maxAuxA = frame.auxA > t.maxAuxA ? frame.auxA : t.maxAuxA;
    t.maxAuxB = frame.auxB > t.maxAuxB ? frame.auxB : t.maxAuxB;
  } else if (t.open) {
    if (t.runFrames >= minFrames) t.AppendEvent(rule, positionA, positionB, events_);
    t.ClearRun();
  }

  uint32_t count = 0;
  if (n != 0)
    for (uint8_t b : t.window) count += b != 0;
  kvaudqcDetect &d = t.detect;
  d.windowCount = count;
  d.windowFill = n != 0 ? static_cast<uint32_t>(t.window.size()) : 0;
  if (frame.active) {
    d.state = t.runFrames < minFrames ? 1 : 2;
    d.runFrames = t.runFrames;
    d.runSamples = t.runSamples > 0xFFFFFFFFull ? 0xFFFFFFFFu : static_cast<uint32_t>(t.runSamples);
    d.channelMask = frame.channelMask;
  } else {
    d.state = 1;
    d.runFrames = 0;
    d.runSamples = 0;
    d.channelMask = 0;
  }
  d.channelMask32 = static_cast<uint32_t>(d.channelMask);
  d.info = frame.info;
  d.value = frame.value;
  d.reference = frame.reference;
  d.ratio = Ratio(frame.value, frame.reference);
  if (detect) *detect = d;
  return count;
}

}  // namespace kvaudio::qc
