// Programme loudness and true peak of the QC engine, measured by the BS.1770-4 / R128 meter of
// kvaudio/r128.h and its true-peak interpolator.
#pragma once

#include <cstdint>
#include <vector>

#include "kvaudio/r128.h"
#include "loudness/r128_dsp.h"

namespace kvaudio::qc {

class ProgrammeLoudness {
 public:
  ProgrammeLoudness() = default;
  ProgrammeLoudness(const ProgrammeLoudness &) = delete;
  ProgrammeLoudness &operator=(const ProgrammeLoudness &) = delete;
  ~ProgrammeLoudness();

  // Measures interleaved 16- or 32-bit channels; powerWeights[c] is the BS.1770 power weight of
  // channel c (0: not in the loudness). The meter is set up by Reset.
  void Configure(uint32_t rate, uint32_t bits, uint32_t channels, const double *powerWeights);
  // Sets up a fresh meter and clears every reading; without a configuration, or at a rate the
  // meter does not take (above 192 kHz), nothing is measured and every reading stays empty.
  void Reset();
  // Measures `frames` periods and takes the readings after them.
  void Feed(const void *pcm, uint64_t frames);

  double Momentary() const { return reading_.momentary; }  // last 400 ms, LUFS; -200.0 before 400 ms
  double ShortTerm() const { return reading_.shortTerm; }  // last 3 s, LUFS; -200.0 before 3 s
  double MaxMomentary() const { return reading_.momentaryMax; }
  double MaxShortTerm() const { return reading_.shortTermMax; }
  // Gated integrated loudness (-70 LUFS absolute, -10 LU relative gate); -200.0 when none.
  double Integrated() const { return reading_.integrated; }
  // Loudness range (EBU Tech 3342) so far, LU; 0.0 until two short-term values pass the gates.
  double Range() const { return reading_.loudnessRange; }

 private:
  void Clear();

  kvAudioLoudness *meter_ = nullptr;
  uint32_t rate_ = 0, bits_ = 0, channels_ = 0;
  double weights_[KVAUDIO_LOUDNESS_MAX_CHANNELS] = {};
  kvAudioLoudnessReading reading_{};
};

// True peak of each checked channel per frame, through the interpolator of the standard meter.
// The points around a sample need the r128::kTpDelay samples after it: a frame holds the points
// from kTpDelay periods before its start to kTpDelay before its end, and its last kTpDelay samples
// by their own values.
class FrameTruePeaks {
 public:
  // 16- or 32-bit interleaved samples of `channels` channels; only the channels of `mask` are measured.
  void Configure(uint32_t channels, uint64_t mask, bool wide);
  // Forgets the history and the maximum.
  void Reset();
  // Measures one frame; peakDb[c] receives the frame's true peak of each measured channel (dBTP,
  // -200.0 when zero) and is left alone for the others.
  void Feed(const void *pcm, uint32_t frames, double *peakDb);
  // Highest true peak of the measured channels so far, dBTP (-200.0 silent); the last samples,
  // whose points wait for more audio, count by their own values.
  double Highest() const;

 private:
  float coef_[r128::kTpPhases - 1][r128::kTpTaps] = {};
  uint32_t channels_ = 0;
  uint64_t mask_ = 0;
  bool wide_ = false;
  std::vector<float> buffer_;  // per channel: kTpTaps samples of history, then a chunk
  float highest_ = 0.0f;
};

}  // namespace kvaudio::qc
