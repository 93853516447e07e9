// Synthetic programme for the QC engine tests: a clean stereo tone per video frame with faults
// written into chosen frames, and a runner that collects frame records, events and the report.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <vector>

#include "kvaudio/qc.h"

namespace qctest {

constexpr uint32_t kRate = 48000;
constexpr uint32_t kFrame = 1920;  // 25 fps

// Interleaved 16-bit stereo frame as doubles in full-scale units.
struct Frame {
  std::vector<double> l, r;
  explicit Frame(uint32_t n) : l(n), r(n) {}
};

// 1000 Hz on the left and 1500 Hz on the right at amplitude 0.1 (-20 dBFS), at most kFrame long: uncorrelated over every 25 fps
// frame, and every frame starts at phase 0.
inline Frame CleanFrame(uint32_t n = kFrame) {
  static const Frame longest = [] {
    const double pi = 3.141592653589793;
    Frame f(kFrame);
    for (uint32_t i = 0; i < kFrame; ++i) {
      f.l[i] = 0.1 * std::sin(2 * pi * 1000.0 * i / kRate);
      f.r[i] = 0.1 * std::sin(2 * pi * 1500.0 * i / kRate);
    }
    return f;
  }();
  Frame f(n);
  std::copy(longest.l.begin(), longest.l.begin() + n, f.l.begin());
  std::copy(longest.r.begin(), longest.r.begin() + n, f.r.begin());
  return f;
}

inline std::vector<int16_t> Pcm(const Frame &f) {
  std::vector<int16_t> out(f.l.size() * 2);
  auto q = [](double x) { return static_cast<int16_t>(std::lround(std::fmax(-32768.0, std::fmin(32767.0, x * 32768.0)))); };
  for (size_t i = 0; i < f.l.size(); ++i) {
    out[2 * i] = q(f.l[i]);
    out[2 * i + 1] = q(f.r[i]);
  }
  return out;
}

// A fault changes frame `index` in place.
using Fault = std::function<void(uint64_t index, Frame &f)>;

struct Outcome {
  std::vector<kvaudqcEvent> events;
  std::vector<kvaudqcFrameAnalyze> records;  // kept when asked for
  kvaudqcReport report{};
};

// Feeds `frames` frames of length lengths[i % lengths.size()] through an engine opened with
// `config`, finishes and reads every event.
inline Outcome Analyse(const kvaudqcConfig &config, uint64_t frames, const Fault &fault, bool keepRecords = false,
                   std::vector<uint32_t> lengths = {kFrame}) {
  Outcome run;
  kvqcAudioEngine *e = kvqcAudioOpen(&config);
  kvaudqcFrameAnalyze rec;
  for (uint64_t i = 0; i < frames; ++i) {
    Frame f = CleanFrame(lengths[i % lengths.size()]);
    fault(i, f);
    const auto pcm = Pcm(f);
    EXPECT_EQ(kvqcAudioFrame(e, pcm.data(), static_cast<uint32_t>(f.l.size()), &rec), 0);
    if (keepRecords) run.records.push_back(rec);
  }
  EXPECT_EQ(kvqcAudioFinish(e, &run.report), 0);
  uint32_t count = 0, copied = 0;
  kvqcAudioGetEventCount(e, &count);
  run.events.resize(count);
  EXPECT_EQ(kvqcAudioGetEvents(e, 0, count, run.events.data(), &copied), 0);
  EXPECT_EQ(copied, count);
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
