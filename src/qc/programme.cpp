// Programme loudness of the QC engine from the step powers of a short-term R128 meter.
#include "qc/programme.h"

#include <cmath>
#include <cstring>

#include "loudness/meter_state.h"
#include "qc/analyze.h"

namespace kvaudio::qc {
namespace {

constexpr double kNoSignal = -200.0;
constexpr double kHistogramLow = -130.0;  // LUFS of the first histogram bin
constexpr double kBinsPerLu = 10.0;
constexpr size_t kHistogramBins = 1600;   // up to +30 LUFS
constexpr uint32_t kMomentarySteps = 4;   // 400 ms of 100 ms steps

double LoudnessOfPower(double p) { return p > 0.0 ? 10.0 * std::log10(p) - 0.691 : kNoSignal; }

size_t BinOf(double lufs) {
  const double b = std::floor((lufs - kHistogramLow) * kBinsPerLu);
  return b < 0.0 ? 0 : (b >= kHistogramBins - 1 ? kHistogramBins - 1 : static_cast<size_t>(b));
}

double BinCentre(size_t b) { return kHistogramLow + (static_cast<double>(b) + 0.5) / kBinsPerLu; }

}  // namespace

ProgrammeLoudness::~ProgrammeLoudness() {
  if (ready_) ebu_r128_destroy(&meter_);
}

void ProgrammeLoudness::Configure(uint32_t rate, uint32_t bits, uint32_t channels, const double *powerWeights,
                                  double gate) {
  rate_ = rate;
  bits_ = bits;
  channels_ = channels < 64 ? channels : 64;
  std::memcpy(weights_, powerWeights, channels_ * sizeof(double));
  gate_ = gate;
}

void ProgrammeLoudness::Reset() {
  if (ready_) ebu_r128_destroy(&meter_);
  meter_ = s_ebu_r128{};
  ready_ = bits_ != 0 && ebu_r128_init(&meter_, 1, static_cast<uint8_t>(bits_), rate_, 2,
                                       static_cast<uint8_t>(channels_)) == 1;
  // Readings need whole 100 ms steps and at least 400 ms of them in the window.
  if (ready_ && (meter_.stepSamples == 0 || meter_.windowSamples / meter_.stepSamples < kMomentarySteps)) {
    ebu_r128_destroy(&meter_);
    ready_ = false;
  }
  Clear();
}

void ProgrammeLoudness::Clear() {
  steps_ = 0;
  momentary_ = shortTerm_ = maxMomentary_ = maxShortTerm_ = kNoSignal;
  blockPowers_.clear();
  shortTermLufs_.clear();
  shortTermPowerSum_ = 0.0;
  histogram_.assign(kHistogramBins, 0);
}

void ProgrammeLoudness::Feed(const void *pcm, uint64_t frames) {
  if (!ready_) return;
  const auto *p = static_cast<const uint8_t *>(pcm);
  const uint64_t periodBytes = uint64_t{channels_} * (bits_ / 8);
  while (frames > 0) {
    const uint64_t room = meter_.stepSamples - meter_.fillCount;
    const uint64_t n = frames < room ? frames : room;
    ebu_r128_process_samples(&meter_, p, n);
    p += n * periodBytes;
    frames -= n;
    if (meter_.fillCount == 0) TakeReading();
  }
}

// Reads the newest 4 and all step powers of every measured channel; the newest step sits just
// before stepSlot in each ring.
void ProgrammeLoudness::TakeReading() {
  const uint32_t k = loudness::StepsPerWindow(&meter_);
  const uint32_t slot = loudness::State(&meter_)->stepSlot;
  ++steps_;
  double momentary = 0.0, shortTerm = 0.0;
  for (uint32_t c = 0; c < channels_; ++c) {
    if (weights_[c] == 0.0) continue;
    const double *ring = loudness::StepPowers(&meter_, c);
    double recent = 0.0, all = 0.0;
    for (uint32_t j = 1; j <= k; ++j) {
      const double v = ring[(slot + k - j) % k];
      if (j <= kMomentarySteps) recent += v;
      all += v;
    }
    momentary += weights_[c] * recent;
    shortTerm += weights_[c] * all;
  }
  const double step = meter_.stepSamples;
  if (steps_ >= kMomentarySteps) {
    const double power = momentary / (kMomentarySteps * step);
    momentary_ = LoudnessOfPower(power);
    if (momentary_ > maxMomentary_) maxMomentary_ = momentary_;
    if (momentary_ > gate_) blockPowers_.push_back(power);
  }
  if (steps_ >= k) {
    const double power = shortTerm / (k * step);
    shortTerm_ = LoudnessOfPower(power);
    if (shortTerm_ > maxShortTerm_) maxShortTerm_ = shortTerm_;
    if (shortTerm_ > gate_) {
      shortTermLufs_.push_back(shortTerm_);
      shortTermPowerSum_ += power;
      histogram_[BinOf(shortTerm_)] += 1;
    }
  }
}

double ProgrammeLoudness::Integrated() const {
  if (blockPowers_.empty()) return kNoSignal;
  double sum = 0.0;
  for (double p : blockPowers_) sum += p;
  const double relative = LoudnessOfPower(sum / static_cast<double>(blockPowers_.size())) - 10.0;
  double kept = 0.0;
  uint64_t n = 0;
  for (double p : blockPowers_)
    if (LoudnessOfPower(p) > relative) {
      kept += p;
      ++n;
    }
  return n ? LoudnessOfPower(kept / static_cast<double>(n)) : kNoSignal;
}

double ProgrammeLoudness::Range() const {
  if (shortTermLufs_.empty()) return 0.0;
  const double relative = LoudnessOfPower(shortTermPowerSum_ / static_cast<double>(shortTermLufs_.size())) - 20.0;
  std::vector<double> kept;
  for (double l : shortTermLufs_)
    if (l > relative) kept.push_back(l);
  return kept.size() >= 2 ? Percentile(kept, 0.95) - Percentile(kept, 0.10) : 0.0;
}

double ProgrammeLoudness::RunningRange() const {
  if (shortTermLufs_.empty()) return 0.0;
  const double relative = LoudnessOfPower(shortTermPowerSum_ / static_cast<double>(shortTermLufs_.size())) - 20.0;
  const size_t first = BinOf(relative) + (BinCentre(BinOf(relative)) <= relative);  // first bin above the gate
  uint64_t n = 0;
  for (size_t b = first; b < kHistogramBins; ++b) n += histogram_[b];
  if (n < 2) return 0.0;
  // Value of rank r (0-based) among the kept values, as its bin centre.
  auto valueAt = [&](uint64_t r) {
    uint64_t seen = 0;
    for (size_t b = first; b < kHistogramBins; ++b) {
      seen += histogram_[b];
      if (seen > r) return BinCentre(b);
    }
    return BinCentre(kHistogramBins - 1);
  };
  auto percentile = [&](double p) {
    const double q = static_cast<double>(n - 1) * p;
    const double lo = valueAt(static_cast<uint64_t>(std::floor(q))), hi = valueAt(static_cast<uint64_t>(std::ceil(q)));
    return lo + (hi - lo) * (q - std::floor(q));
  };
  return percentile(0.95) - percentile(0.10);
}

}  // namespace kvaudio::qc
