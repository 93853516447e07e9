// Programme loudness of the QC engine: momentary, short-term, integrated and loudness range on
// the K-weighted step powers of an R128 meter.
#pragma once

#include <cstdint>
#include <vector>

#include "kvaudio/loudness.h"

namespace kvaudio::qc {

class ProgrammeLoudness {
 public:
  ProgrammeLoudness() = default;
  ProgrammeLoudness(const ProgrammeLoudness &) = delete;
  ProgrammeLoudness &operator=(const ProgrammeLoudness &) = delete;
  ~ProgrammeLoudness();

  // Measures interleaved channels through a short-term meter (100 ms steps); powerWeights[c] is
  // the BS.1770 power weight of channel c (0: not measured), `gate` the absolute gate in LUFS.
  // The meter is set up by Reset.
  void Configure(uint32_t rate, uint32_t bits, uint32_t channels, const double *powerWeights, double gate);
  // Sets up a fresh meter and clears every reading; without a configuration, or when the meter
  // cannot be set up, nothing is measured.
  void Reset();
  // K-weights `frames` periods and takes a reading at every 100 ms step that closes.
  void Feed(const void *pcm, uint64_t frames);

  double Momentary() const { return momentary_; }    // last 400 ms, LUFS; -200.0 before 400 ms
  double ShortTerm() const { return shortTerm_; }    // last 3 s, LUFS; -200.0 before 3 s
  double MaxMomentary() const { return maxMomentary_; }
  double MaxShortTerm() const { return maxShortTerm_; }
  // Gated integrated loudness (BS.1770-4: 400 ms blocks every 100 ms, absolute gate, relative
  // gate -10 LU); -200.0 when no block passes.
  double Integrated() const;
  // Loudness range (EBU Tech 3342: short-term values every 100 ms, absolute gate, relative gate
  // -20 LU, 95th minus 10th percentile); 0.0 with fewer than two values.
  double Range() const;
  // The same range so far from a 0.1 LU histogram, cheap enough for every frame.
  double RunningRange() const;

 private:
  void TakeReading();
  void Clear();

  s_ebu_r128 meter_{};
  bool ready_ = false;
  uint32_t rate_ = 0, bits_ = 0, channels_ = 0;
  double weights_[64] = {};
  double gate_ = -70.0;
  uint64_t steps_ = 0;
  double momentary_ = -200.0, shortTerm_ = -200.0, maxMomentary_ = -200.0, maxShortTerm_ = -200.0;
  std::vector<double> blockPowers_;     // momentary powers above the absolute gate
  std::vector<double> shortTermLufs_;   // short-term values above the absolute gate
  double shortTermPowerSum_ = 0.0;      // their powers, for the relative gate
  std::vector<uint32_t> histogram_;     // short-term values above the absolute gate, 0.1 LU bins
};

}  // namespace kvaudio::qc
