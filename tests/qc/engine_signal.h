// Synthetic programme for the QC engine tests: a clean stereo tone per video frame with faults
// written into chosen frames, and a runner that collects frame records, events and the report.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <vector>

#include "kvaudio/qc.h"

namespace qctest {

constexpr uint32_t kFrame = 1920;  // 48 kHz at 25 fps

// One stereo frame in full-scale units.
struct Frame {
  std::vector<double> l, r;
};

// 1000 Hz left, 1500 Hz right at -20 dBFS peak: uncorrelated over every 25 fps frame, and every
// frame (at most kFrame long) starts at phase 0.
inline Frame CleanFrame(uint32_t n = kFrame) {
  static const Frame tone = [] {
    Frame f{std::vector<double>(kFrame), std::vector<double>(kFrame)};
    for (uint32_t i = 0; i < kFrame; ++i) f.l[i] = 0.1 * std::sin(2 * M_PI * i / 48.0), f.r[i] = 0.1 * std::sin(2 * M_PI * i / 32.0);
    return f;
  }();
  return {{tone.l.begin(), tone.l.begin() + n}, {tone.r.begin(), tone.r.begin() + n}};
}

// Interleaved 16-bit samples, or the same samples left-justified in 32 bits.
inline std::vector<uint8_t> Pcm(const Frame &f, bool wide) {
  std::vector<uint8_t> out;
  for (size_t i = 0; i < f.l.size(); ++i)
    for (double x : {f.l[i], f.r[i]}) {
      const auto s16 = static_cast<int16_t>(std::lround(std::fmin(x * 32768.0, 32767.0)));
      const auto s32 = static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint16_t>(s16)) << 16);
      const auto *bytes = wide ? reinterpret_cast<const uint8_t *>(&s32) : reinterpret_cast<const uint8_t *>(&s16);
      out.insert(out.end(), bytes, bytes + (wide ? 4 : 2));
    }
  return out;
}

// A fault changes frame `index` in place.
using Fault = std::function<void(uint64_t index, Frame &f)>;

struct Outcome {
  std::vector<kvaudqcEvent> events;
  std::vector<kvaudqcFrameAnalyze> records;  // when asked for
  kvaudqcReport report{};
};

inline std::vector<kvaudqcEvent> Events(const kvqcAudioEngine *e) {
  uint32_t count = 0, copied = 0;
  kvqcAudioGetEventCount(e, &count);
  std::vector<kvaudqcEvent> events(count);
  EXPECT_EQ(kvqcAudioGetEvents(e, 0, count, events.data(), &copied), 0);
  EXPECT_EQ(copied, count);
  return events;
}

// Feeds frames 0 .. frames-1 of length lengths[i % lengths.size()] with `fault` applied, finishes
// and reads the events.
inline Outcome Feed(kvqcAudioEngine *e, uint64_t frames, const Fault &fault, bool keepRecords = false,
                    const std::vector<uint32_t> &lengths = {kFrame}, bool wide = false) {
  Outcome run;
  kvaudqcFrameAnalyze rec;
  for (uint64_t i = 0; i < frames; ++i) {
    Frame f = CleanFrame(lengths[i % lengths.size()]);
    fault(i, f);
    EXPECT_EQ(kvqcAudioFrame(e, Pcm(f, wide).data(), static_cast<uint32_t>(f.l.size()), &rec), 0);
    if (keepRecords) run.records.push_back(rec);
  }
  EXPECT_EQ(kvqcAudioFinish(e, &run.report), 0);
  run.events = Events(e);
  return run;
}

inline Outcome Analyse(const kvaudqcConfig &config, uint64_t frames, const Fault &fault, bool keepRecords = false,
                       const std::vector<uint32_t> &lengths = {kFrame}) {
  kvqcAudioEngine *e = kvqcAudioOpen(&config);
  Outcome run = Feed(e, frames, fault, keepRecords, lengths, config.bitsPerSample == 32);
  kvqcAudioClose(e);
  return run;
}

inline std::vector<kvaudqcEvent> OfRule(const Outcome &run, uint32_t rule) {
  std::vector<kvaudqcEvent> out;
  for (const kvaudqcEvent &e : run.events)
    if (e.rule == rule) out.push_back(e);
  return out;
}

}  // namespace qctest
