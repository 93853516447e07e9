// The standard loudness meter behind kvAudioLoudness*: 100 ms steps of K-weighted energy,
// momentary and short-term windows, gating histograms, true and sample peaks.
#include "kvaudio/r128.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <vector>

#include "kvaudio/qc.h"
#include "loudness/r128_dsp.h"

namespace kvaudio::r128 {
namespace {

constexpr size_t kChunk = 1024;  // periods decoded at a time
constexpr int kMomentarySteps = 4;
constexpr int kShortTermSteps = 30;
constexpr double kOffset = -0.691;
constexpr double kAbsoluteGate = -70.0;
constexpr double kBinWidth = 0.01;   // LU per histogram bin
constexpr int kBins = 10000;         // -70 .. +30 LUFS; louder blocks fall in the last bin
constexpr float kTpClamp = 1e30f;    // keeps every interpolator sum finite
constexpr double kMaxWeight = 10.0;

double Loudness(double energy) {
  if (!(energy > 0.0)) return KVAUDIO_LOUDNESS_NONE;
  return std::max(kOffset + 10.0 * std::log10(energy), KVAUDIO_LOUDNESS_NONE);
}

double EnergyOf(double lufs) { return std::pow(10.0, (lufs - kOffset) / 10.0); }

double Decibels(double amplitude) {
  if (!(amplitude > 0.0)) return KVAUDIO_LOUDNESS_NONE;
  return std::max(20.0 * std::log10(amplitude), KVAUDIO_LOUDNESS_NONE);
}

// Counts and energy sums of gated blocks in bins of 0.01 LU from -70 LUFS. Gating by bins is
// exact except for the blocks in the bin holding the relative gate, taken or left as a whole.
class Histogram {
 public:
  void Init() {
    count_.assign(kBins, 0);
    energy_.assign(kBins, 0.0);
  }
  void Clear() {
    std::fill(count_.begin(), count_.end(), 0);
    std::fill(energy_.begin(), energy_.end(), 0.0);
    total_ = 0;
    sum_ = 0.0;
  }

  // Adds a block of mean-square energy e when it passes the absolute gate.
  void Add(double e) {
    if (!(e > absGate_)) return;
    const double bin = std::floor((Loudness(e) - kAbsoluteGate) / kBinWidth);
    const int i = bin < 0 ? 0 : (bin >= kBins ? kBins - 1 : static_cast<int>(bin));
    ++count_[i];
    energy_[i] += e;
    ++total_;
    sum_ += e;
  }

  // First bin above the relative gate `dropLu` below the mean energy, and the gate's energy.
  int Gate(double dropLu, double &gateEnergy) const {
    gateEnergy = sum_ / static_cast<double>(total_) * std::pow(10.0, -dropLu / 10.0);
    const double bin = std::floor((Loudness(gateEnergy) - kAbsoluteGate) / kBinWidth);
    int g = bin < 0 ? 0 : (bin >= kBins ? kBins - 1 : static_cast<int>(bin));
    // The gate's own bin counts when its blocks are louder than the gate on average.
    if (count_[g] && !(energy_[g] / static_cast<double>(count_[g]) > gateEnergy)) ++g;
    return g;
  }

  double Integrated() const {
    if (total_ == 0) return KVAUDIO_LOUDNESS_NONE;
    double gate;
    double sum = 0.0;
    uint64_t n = 0;
    for (int i = Gate(10.0, gate); i < kBins; ++i) n += count_[i], sum += energy_[i];
    return n ? Loudness(sum / static_cast<double>(n)) : KVAUDIO_LOUDNESS_NONE;
  }

  // Loudness range: 95th less 10th percentile of the values above the -20 LU relative gate, each
  // read as its bin's centre.
  double Range() const {
    if (total_ == 0) return 0.0;
    double gate;
    const int g = Gate(20.0, gate);
    uint64_t n = 0;
    for (int i = g; i < kBins; ++i) n += count_[i];
    if (n < 2) return 0.0;
    const uint64_t lowRank = static_cast<uint64_t>(static_cast<double>(n - 1) * 0.10 + 0.5);
    const uint64_t highRank = static_cast<uint64_t>(static_cast<double>(n - 1) * 0.95 + 0.5);
    int low = -1, high = -1;
    uint64_t seen = 0;
    for (int i = g; i < kBins && high < 0; ++i) {
      seen += count_[i];
      if (low < 0 && seen > lowRank) low = i;
      if (seen > highRank) high = i;
    }
    return (high - low) * kBinWidth;
  }

 private:
  std::vector<uint64_t> count_;
  std::vector<double> energy_;
  uint64_t total_ = 0;
  double sum_ = 0.0;
  double absGate_ = EnergyOf(kAbsoluteGate);
};

class Meter {
 public:
  Meter(uint32_t rate, uint32_t channels, uint32_t flags) : rate_(rate), nch_(channels), flags_(flags) {
    k_ = DesignKWeighting(rate);
    DesignTruePeak(tpCoef_);
    std::fill(weight_, weight_ + kMaxChannels, 1.0);
    x_.resize(kChunk * channels);
    if (flags & KVAUDIO_LOUDNESS_TRUE_PEAK) tp_.resize(static_cast<size_t>(channels) * (kTpTaps + kChunk));
    if (flags & KVAUDIO_LOUDNESS_INTEGRATED) blocks_.Init();
    if (flags & KVAUDIO_LOUDNESS_RANGE) shortTerms_.Init();
    Reset();
  }

  void Reset() {
    std::memset(&ks_, 0, sizeof ks_);
    std::fill(tp_.begin(), tp_.end(), 0.0f);
    std::fill(truePeak_, truePeak_ + kMaxChannels, 0.0f);
    std::fill(samplePeak_, samplePeak_ + kMaxChannels, 0.0);
    if (flags_ & KVAUDIO_LOUDNESS_INTEGRATED) blocks_.Clear();
    if (flags_ & KVAUDIO_LOUDNESS_RANGE) shortTerms_.Clear();
    frames_ = steps_ = invalid_ = stepFill_ = 0;
    stepEnergy_ = 0.0;
    std::fill(ring_, ring_ + kShortTermSteps, 0.0);
    std::fill(ringLen_, ringLen_ + kShortTermSteps, uint64_t{0});
    momentary_ = shortTerm_ = momentaryMax_ = shortTermMax_ = -1.0;
  }

  // Power weights; the pending part of the step keeps the weights it was measured with.
  void SetWeights(const double *w) {
    FoldStep();
    std::copy(w, w + nch_, weight_);
  }
  void Weights(double *w) const { std::copy(weight_, weight_ + nch_, w); }
  uint32_t channels() const { return nch_; }

  // Measures `n` periods; decode(x, from, count) writes periods [from, from + count) to x as
  // doubles and returns the invalid samples it replaced by 0.
  template <typename Decode>
  void Add(size_t n, Decode decode) {
    size_t done = 0;
    while (done < n) {
      const uint64_t stepLen = StepStart(steps_ + 1) - StepStart(steps_);
      const size_t count = static_cast<size_t>(std::min<uint64_t>({n - done, kChunk, stepLen - stepFill_}));
      invalid_ += decode(x_.data(), done, count);
      Measure(count);
      done += count;
      frames_ += count;
      stepFill_ += count;
      if (stepFill_ == stepLen) CompleteStep(stepLen);
    }
  }

  void Read(kvAudioLoudnessReading &r) const {
    r.channels = nch_;
    r.frames = frames_;
    r.steps = steps_;
    r.invalidSamples = invalid_;
    r.momentary = Loudness(momentary_);
    r.shortTerm = Loudness(shortTerm_);
    r.momentaryMax = Loudness(momentaryMax_);
    r.shortTermMax = Loudness(shortTermMax_);
    r.integrated = flags_ & KVAUDIO_LOUDNESS_INTEGRATED ? blocks_.Integrated() : KVAUDIO_LOUDNESS_NONE;
    r.loudnessRange = flags_ & KVAUDIO_LOUDNESS_RANGE ? shortTerms_.Range() : 0.0;
    r.truePeak = r.samplePeak = KVAUDIO_LOUDNESS_NONE;
    for (uint32_t c = 0; c < KVAUDIO_LOUDNESS_MAX_CHANNELS; ++c) {
      const bool on = c < nch_;
      r.channelTruePeak[c] =
          on && (flags_ & KVAUDIO_LOUDNESS_TRUE_PEAK) ? Decibels(TruePeakNow(c)) : KVAUDIO_LOUDNESS_NONE;
      r.channelSamplePeak[c] =
          on && (flags_ & KVAUDIO_LOUDNESS_SAMPLE_PEAK) ? Decibels(samplePeak_[c]) : KVAUDIO_LOUDNESS_NONE;
      r.truePeak = std::max(r.truePeak, r.channelTruePeak[c]);
      r.samplePeak = std::max(r.samplePeak, r.channelSamplePeak[c]);
    }
  }

 private:
  // First period of step k, counted from the start: steps follow rate/10 without drift.
  uint64_t StepStart(uint64_t k) const { return k * rate_ / 10; }

  void FoldStep() {
    for (uint32_t c = 0; c < nch_; ++c) stepEnergy_ += weight_[c] * ks_.acc[c], ks_.acc[c] = 0.0;
  }

  void Measure(size_t count) {
    KFilter(k_, ks_, nch_, x_.data(), count);
    if (flags_ & KVAUDIO_LOUDNESS_SAMPLE_PEAK)
      for (uint32_t c = 0; c < nch_; ++c) {
        double m = samplePeak_[c];
        for (size_t t = 0; t < count; ++t) m = std::max(m, std::fabs(x_[t * nch_ + c]));
        samplePeak_[c] = m;
      }
    if (flags_ & KVAUDIO_LOUDNESS_TRUE_PEAK) TruePeak(count);
    // Flushes filter states that decayed to nothing, so silence never runs on denormals.
    for (uint32_t c = 0; c < nch_; ++c)
      if (std::fabs(ks_.p1[c]) + std::fabs(ks_.p2[c]) + std::fabs(ks_.r1[c]) + std::fabs(ks_.r2[c]) < 1e-30)
        ks_.p1[c] = ks_.p2[c] = ks_.r1[c] = ks_.r2[c] = 0.0;
  }

  void TruePeak(size_t count) {
    const size_t stride = kTpTaps + kChunk;
    for (uint32_t c = 0; c < nch_; ++c) {
      float *buf = tp_.data() + c * stride;
      float *x = buf + kTpTaps;
      for (size_t t = 0; t < count; ++t)
        x[t] = static_cast<float>(std::clamp(x_[t * nch_ + c], -double{kTpClamp}, double{kTpClamp}));
      truePeak_[c] = r128::TruePeak(tpCoef_, x, count, truePeak_[c]);
      std::memmove(buf, x + count - kTpTaps, kTpTaps * sizeof(float));
    }
  }

  // True peak of channel c. The points of its last kTpDelay samples wait for the audio after them;
  // until it comes, those samples count by their own values.
  float TruePeakNow(uint32_t c) const {
    const float *last = tp_.data() + c * (kTpTaps + kChunk) + kTpTaps - kTpDelay;
    float peak = truePeak_[c];
    for (int i = 0; i < kTpDelay; ++i) peak = std::max(peak, std::fabs(last[i]));
    return peak;
  }

  void CompleteStep(uint64_t len) {
    FoldStep();
    const size_t slot = steps_ % kShortTermSteps;
    ring_[slot] = stepEnergy_;
    ringLen_[slot] = len;
    stepEnergy_ = 0.0;
    stepFill_ = 0;
    ++steps_;
    if (steps_ >= kMomentarySteps) {
      momentary_ = Window(kMomentarySteps);
      momentaryMax_ = std::max(momentaryMax_, momentary_);
      if (flags_ & KVAUDIO_LOUDNESS_INTEGRATED) blocks_.Add(momentary_);
    }
    if (steps_ >= kShortTermSteps) {
      shortTerm_ = Window(kShortTermSteps);
      shortTermMax_ = std::max(shortTermMax_, shortTerm_);
      if (flags_ & KVAUDIO_LOUDNESS_RANGE) shortTerms_.Add(shortTerm_);
    }
  }

  // Mean-square energy of the last `n` steps.
  double Window(int n) const {
    double sum = 0.0;
    uint64_t len = 0;
    for (int i = 1; i <= n; ++i) {
      const size_t slot = (steps_ - i) % kShortTermSteps;
      sum += ring_[slot];
      len += ringLen_[slot];
    }
    return sum / static_cast<double>(len);
  }

  uint32_t rate_, nch_, flags_;
  KCoefs k_;
  KState ks_;
  float tpCoef_[kTpPhases - 1][kTpTaps];
  double weight_[kMaxChannels];
  std::vector<double> x_;
  std::vector<float> tp_;  // per channel: kTpTaps samples of history, then the chunk
  Histogram blocks_, shortTerms_;
  uint64_t frames_, steps_, invalid_, stepFill_;
  double stepEnergy_;
  double ring_[kShortTermSteps];
  uint64_t ringLen_[kShortTermSteps];
  double momentary_, shortTerm_, momentaryMax_, shortTermMax_;  // energies; -1 before the first
  float truePeak_[kMaxChannels];
  double samplePeak_[kMaxChannels];
};

int32_t Read24(const uint8_t *p) {
  const uint32_t u = p[0] | (uint32_t{p[1]} << 8) | (uint32_t{p[2]} << 16);
  return static_cast<int32_t>(u << 8) >> 8;
}

// Stores a float sample as a double; NaN and infinity become 0 and are counted.
inline double Finite(float f, uint64_t &invalid) {
  if (std::isfinite(f)) return f;
  ++invalid;
  return 0.0;
}

}  // namespace
}  // namespace kvaudio::r128

struct kvAudioLoudness {
  kvAudioLoudness(uint32_t rate, uint32_t channels, uint32_t flags) : meter(rate, channels, flags) {}
  kvaudio::r128::Meter meter;
};

using kvaudio::r128::Meter;

extern "C" {

kvAudioLoudness *kvAudioLoudnessOpen(uint32_t sampleRate, uint32_t channels, uint32_t flags) {
  if (sampleRate < 8000 || sampleRate > 192000 || channels < 1 || channels > KVAUDIO_LOUDNESS_MAX_CHANNELS ||
      (flags & ~KVAUDIO_LOUDNESS_ALL))
    return nullptr;
  try {
    return new kvAudioLoudness(sampleRate, channels, flags);
  } catch (...) {
    return nullptr;
  }
}

int32_t kvAudioLoudnessSetLayout(kvAudioLoudness *meter, const char *layoutName) {
  if (!meter || !layoutName) return KVAUDIO_LOUDNESS_BAD_ARGUMENT;
  kvaudqcLayout layout;
  if (kvqcAudioLayoutFromName(layoutName, &layout) != 0) return KVAUDIO_LOUDNESS_UNKNOWN_LAYOUT;
  double w[KVAUDIO_LOUDNESS_MAX_CHANNELS];
  for (uint32_t c = 0; c < KVAUDIO_LOUDNESS_MAX_CHANNELS; ++c) {
    // "None" weighs every channel 1.0; a layout gives its amplitude weights squared, others 0.
    const double a = layout.channels == 0 ? 1.0 : (c < 32 ? layout.weights[c] : 0.0);
    w[c] = a * a;
  }
  meter->meter.SetWeights(w);
  return KVAUDIO_LOUDNESS_OK;
}

int32_t kvAudioLoudnessSetChannelWeight(kvAudioLoudness *meter, uint32_t channel, double weight) {
  if (!meter || channel >= meter->meter.channels() || !(weight >= 0.0 && weight <= kvaudio::r128::kMaxWeight))
    return KVAUDIO_LOUDNESS_BAD_ARGUMENT;
  double w[KVAUDIO_LOUDNESS_MAX_CHANNELS];
  meter->meter.Weights(w);
  w[channel] = weight;
  meter->meter.SetWeights(w);
  return KVAUDIO_LOUDNESS_OK;
}

int32_t kvAudioLoudnessAdd(kvAudioLoudness *meter, const void *samples, uint32_t format, size_t frames) {
  using kvaudio::r128::Finite;
  if (!meter || format < KVAUDIO_SAMPLES_S16 || format > KVAUDIO_SAMPLES_F32) return KVAUDIO_LOUDNESS_BAD_ARGUMENT;
  if (frames == 0) return KVAUDIO_LOUDNESS_OK;
  if (!samples) return KVAUDIO_LOUDNESS_BAD_ARGUMENT;
  Meter &m = meter->meter;
  const size_t nch = m.channels();
  const uint8_t *in = static_cast<const uint8_t *>(samples);
  switch (format) {
    case KVAUDIO_SAMPLES_S16:
      m.Add(frames, [&](double *x, size_t from, size_t count) {
        for (size_t i = 0; i < count * nch; ++i) {
          int16_t v;
          std::memcpy(&v, in + 2 * (from * nch + i), 2);
          x[i] = v / 32768.0;
        }
        return uint64_t{0};
      });
      break;
    case KVAUDIO_SAMPLES_S24:
      m.Add(frames, [&](double *x, size_t from, size_t count) {
        for (size_t i = 0; i < count * nch; ++i) x[i] = kvaudio::r128::Read24(in + 3 * (from * nch + i)) / 8388608.0;
        return uint64_t{0};
      });
      break;
    case KVAUDIO_SAMPLES_S32:
      m.Add(frames, [&](double *x, size_t from, size_t count) {
        for (size_t i = 0; i < count * nch; ++i) {
          int32_t v;
          std::memcpy(&v, in + 4 * (from * nch + i), 4);
          x[i] = v / 2147483648.0;
        }
        return uint64_t{0};
      });
      break;
    default:
      m.Add(frames, [&](double *x, size_t from, size_t count) {
        uint64_t bad = 0;
        for (size_t i = 0; i < count * nch; ++i) {
          float v;
          std::memcpy(&v, in + 4 * (from * nch + i), 4);
          x[i] = Finite(v, bad);
        }
        return bad;
      });
      break;
  }
  return KVAUDIO_LOUDNESS_OK;
}

int32_t kvAudioLoudnessAddPlanar(kvAudioLoudness *meter, const float *const *planes, size_t frames) {
  using kvaudio::r128::Finite;
  if (!meter) return KVAUDIO_LOUDNESS_BAD_ARGUMENT;
  if (frames == 0) return KVAUDIO_LOUDNESS_OK;
  Meter &m = meter->meter;
  const uint32_t nch = m.channels();
  if (!planes) return KVAUDIO_LOUDNESS_BAD_ARGUMENT;
  for (uint32_t c = 0; c < nch; ++c)
    if (!planes[c]) return KVAUDIO_LOUDNESS_BAD_ARGUMENT;
  m.Add(frames, [&](double *x, size_t from, size_t count) {
    uint64_t bad = 0;
    for (uint32_t c = 0; c < nch; ++c)
      for (size_t t = 0; t < count; ++t) x[t * nch + c] = Finite(planes[c][from + t], bad);
    return bad;
  });
  return KVAUDIO_LOUDNESS_OK;
}

int32_t kvAudioLoudnessRead(const kvAudioLoudness *meter, kvAudioLoudnessReading *out) {
  if (!meter || !out || out->size < offsetof(kvAudioLoudnessReading, channelTruePeak)) return KVAUDIO_LOUDNESS_BAD_ARGUMENT;
  kvAudioLoudnessReading r;
  meter->meter.Read(r);
  r.size = out->size;
  std::memcpy(out, &r, std::min<size_t>(out->size, sizeof r));
  return KVAUDIO_LOUDNESS_OK;
}

void kvAudioLoudnessReset(kvAudioLoudness *meter) {
  if (meter) meter->meter.Reset();
}

void kvAudioLoudnessClose(kvAudioLoudness *meter) { delete meter; }

}  // extern "C"
