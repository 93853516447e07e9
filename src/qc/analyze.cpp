// Stand-alone loudness and true-peak analysis of a whole buffer of interleaved PCM.
#include "qc/analyze.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "frame/cpu.h"
#include "frame/errors.h"
#include "qc/layouts.h"
#include "qc/analyze_avx2.h"

namespace kvaudio::qc {
namespace {

constexpr double kNoSignal = -200.0;
constexpr double kScale16 = 1.0 / 32768.0;       // 2^-15
constexpr double kScale32 = 1.0 / 2147483648.0;  // 2^-31

uint64_t AllChannels(uint32_t channels) { return channels >= 64 ? ~uint64_t{0} : (uint64_t{1} << channels) - 1; }

bool ArgumentsOk(const uint8_t *pcm, uint32_t frames, uint32_t channels, uint32_t bits, const void *out) {
  return pcm && out && channels != 0 && channels <= 32 && frames != 0 && (bits == 16 || bits == 32);
}

double LoudnessOfMean(double sum, uint64_t frames) {
  const double mean = sum / static_cast<double>(frames);
  return mean > 0.0 ? 10.0 * std::log10(mean) - 0.691 : kNoSignal;
}

template <typename S>
S Raw(const uint8_t *pcm, uint64_t i) {
  S s;
  std::memcpy(&s, pcm + sizeof(S) * i, sizeof(S));
  return s;
}

template <typename S>
double SampleAt(const uint8_t *pcm, uint64_t i) {
  return Raw<S>(pcm, i) * (sizeof(S) == 2 ? kScale16 : kScale32);
}

double Combine(const double acc[4]) { return (acc[0] + acc[1]) + (acc[2] + acc[3]); }

// Frame powers: per frame, the sum in channel order of (sample * scale * weight)^2 over the
// measured channels, computed as (sample * (scale * weight))^2, which is the same number since
// the scale is a power of two. Frame f of a range starting at `first` adds into accumulator
// (f - first) % 4; the four are combined as (a0 + a1) + (a2 + a3).
class FramePower {
 public:
  FramePower(const uint8_t *pcm, uint32_t channels, uint32_t bits, const kvaudqcLayout &layout, uint64_t mask) {
    plan_.pcm = pcm;
    plan_.channels = channels;
    plan_.wide = bits != 16;
    plan_.count = 0;
    const double scale = plan_.wide ? kScale32 : kScale16;
    for (uint32_t c = 0; c < channels && c < 64; ++c) {
      if (!((mask >> c) & 1)) continue;
      const double w = c < 32 ? layout.weights[c] : 1.0;
      if (w == 0.0) continue;
      plan_.index[plan_.count] = c;
      plan_.scaledWeight[plan_.count++] = scale * w;
    }
  }

  // Adds frames [first, first + n) into accA and, when non-null, accB, both by (f - first) % 4.
  void Accumulate(uint64_t first, uint64_t n, double accA[4], double accB[4]) const {
    uint64_t done = 0;
    if (n >= 4 && KVAudioCPUHasAVX2()) done = FramePowersAvx2(plan_, first, n, accA, accB);
    if (plan_.wide)
      AccumulatePlain<int32_t>(first, done, n, accA, accB);
    else
      AccumulatePlain<int16_t>(first, done, n, accA, accB);
  }

  double Sum(uint64_t first, uint64_t n) const {
    double acc[4] = {0, 0, 0, 0};
    Accumulate(first, n, acc, nullptr);
    return Combine(acc);
  }

 private:
  // Frames first + from .. first + n - 1, four at a time into local accumulators.
  template <typename S>
  void AccumulatePlain(uint64_t first, uint64_t from, uint64_t n, double accA[4], double accB[4]) const {
    double a[4] = {accA[0], accA[1], accA[2], accA[3]};
    double b[4] = {0, 0, 0, 0};
    if (accB) std::copy(accB, accB + 4, b);
    uint64_t i = from;
    for (; i + 4 <= n; i += 4)
      for (int k = 0; k < 4; ++k) {
        const double p = Power<S>(first + i + k);
        a[k] += p;
        b[k] += p;
      }
    for (; i < n; ++i) {
      const double p = Power<S>(first + i);
      a[i & 3] += p;
      b[i & 3] += p;
    }
    std::copy(a, a + 4, accA);
    if (accB) std::copy(b, b + 4, accB);
  }

  template <typename S>
  double Power(uint64_t f) const {
    double sum = 0.0;
    for (uint32_t k = 0; k < plan_.count; ++k) {
      const double x = Raw<S>(plan_.pcm, f * plan_.channels + plan_.index[k]) * plan_.scaledWeight[k];
      sum += x * x;
    }
    return sum;
  }

  PowerPlan plan_;
};

// The whole-buffer sum and the loudness of each block of `block` frames, each equal to
// LoudnessForRange of the same frames. Blocks of a multiple of four frames share one pass.
double WholeAndBlocks(const FramePower &power, uint64_t frames, uint64_t block, std::vector<double> &kept) {
  const bool onePass = block % 4 == 0;
  double total[4] = {0, 0, 0, 0};
  for (uint64_t start = 0; start < frames; start += block) {
    const uint64_t n = std::min(block, frames - start);
    double sum[4] = {0, 0, 0, 0};
    power.Accumulate(start, n, sum, onePass ? total : nullptr);
    const double l = LoudnessOfMean(Combine(sum), n);
    if (l > -199.0) kept.push_back(l);
  }
  return onePass ? Combine(total) : power.Sum(0, frames);
}

// Peak magnitude of one channel, following each pair of neighbours a, b through the points
// a + (b - a) * {0.25, 0.5, 0.75}; `from` > 0 continues after frame from - 1.
double ChannelPeak(const uint8_t *pcm, uint64_t from, uint64_t frames, uint32_t channels, uint32_t c, bool wide,
                   double peak) {
  auto sample = [&](uint64_t f) {
    const uint64_t i = f * channels + c;
    return wide ? SampleAt<int32_t>(pcm, i) : SampleAt<int16_t>(pcm, i);
  };
  double a = sample(from ? from - 1 : 0);
  peak = std::max(peak, std::fabs(a));
  for (uint64_t f = from ? from : 1; f < frames; ++f) {
    const double b = sample(f), d = b - a;
    peak = std::max({peak, std::fabs(b), std::fabs(a + d * 0.25), std::fabs(a + d * 0.5), std::fabs(a + d * 0.75)});
    a = b;
  }
  return peak;
}

// Resolved layout of the loudness analysis: a named layout with a non-zero id, else flat.
kvaudqcLayout LoudnessLayout(const char *name, uint32_t channels, uint64_t &mask) {
  kvaudqcLayout layout;
  if (ResolveLayout(name, &layout) == 0 && layout.id != 0) {
    mask = layout.channelMask ? layout.channelMask : AllChannels(channels);
  } else {
    std::memset(&layout, 0, sizeof layout);
    layout.size = sizeof layout;
    layout.channels = channels;
    for (uint32_t c = 0; c < channels && c < 32; ++c) layout.weights[c] = 1.0;
    std::strcpy(layout.name, "Flat");
    mask = AllChannels(channels);
  }
  mask &= AllChannels(channels);
  return layout;
}

uint32_t Violations(const kvaudqcLoudness &r) {
  kvaudqcTargets t;
  if (kvqcAudioStandardDefaults(r.standard, &t) != 0) return 0;
  uint32_t v = 0;
  if (t.tolerance > 0.0 && r.integrated > kNoSignal) {
    if (r.integrated < t.target - t.tolerance) v |= 1;
    if (r.integrated > t.target + t.tolerance) v |= 2;
  }
  if (t.truePeakMax < 0.0 && r.truePeak > t.truePeakMax) v |= 4;
  if (t.rangeMax > 0.0 && r.range > t.rangeMax) v |= 8;
  if (t.momentaryMax < 0.0 && r.momentary > t.momentaryMax) v |= 16;
  if (t.shortTermMax < 0.0 && r.shortTerm > t.shortTermMax) v |= 32;
  return v;
}

}  // namespace

double LoudnessForRange(const uint8_t *pcm, uint64_t firstFrame, uint64_t frameCount, uint32_t channels,
                        uint32_t bitsPerSample, const kvaudqcLayout &layout, uint64_t channelMask) {
  if (frameCount == 0) return kNoSignal;
  const FramePower power(pcm, channels, bitsPerSample, layout, channelMask);
  return LoudnessOfMean(power.Sum(firstFrame, frameCount), frameCount);
}

double Percentile(std::vector<double> values, double p) {
  if (values.empty()) return 0.0;
  std::sort(values.begin(), values.end());
  const double q = static_cast<double>(values.size() - 1) * p;
  const double lo = std::floor(q), hi = std::ceil(q);
  const double vlo = values[static_cast<size_t>(lo)], vhi = values[static_cast<size_t>(hi)];
  return vlo + (vhi - vlo) * (q - lo);
}

}  // namespace kvaudio::qc

using namespace kvaudio::qc;

extern "C" {

int32_t kvqcAudioAnalyzeTruePeak(const uint8_t *pcm, uint32_t frames, uint32_t channels, uint32_t bitsPerSample,
                                 uint32_t sampleRate, uint64_t channelMask, kvaudqcTruePeak *out) {
  if (!ArgumentsOk(pcm, frames, channels, bitsPerSample, out)) return -1;
  std::memset(out, 0, sizeof *out);
  out->size = sizeof *out;
  out->channels = channels;
  out->bitsPerSample = bitsPerSample;
  out->sampleRate = sampleRate;
  out->channelMask = channelMask ? channelMask & AllChannels(channels) : AllChannels(channels);
  out->maxPeakDb = kNoSignal;
  for (double &db : out->peakDb) db = kNoSignal;

  const bool wide = bitsPerSample != 16;
  uint32_t maxAbs[32] = {};
  uint64_t done = 0;
  if (KVAudioCPUHasAVX2()) done = PeakAbsAvx2(pcm, frames, channels, bitsPerSample, maxAbs);
  for (uint32_t c = 0; c < channels; ++c) {
    if (!((out->channelMask >> c) & 1)) continue;
    const double peak = ChannelPeak(pcm, done, frames, channels, c, wide, maxAbs[c] * (wide ? kScale32 : kScale16));
    out->peakLinear[c] = peak;
    out->peakDb[c] = peak > 0.0 ? 20.0 * std::log10(peak) : kNoSignal;
    out->maxPeakDb = std::max(out->maxPeakDb, out->peakDb[c]);
  }
  return 0;
}

int32_t kvqcAudioAnalyzeLoudness(const uint8_t *pcm, uint32_t frames, uint32_t channels, uint32_t bitsPerSample,
                                 uint32_t sampleRate, const char *layoutName, uint32_t standard,
                                 kvaudqcLoudness *out) {
  if (!ArgumentsOk(pcm, frames, channels, bitsPerSample, out)) return KVQC_ERROR;
  return kvaudio::NoThrow(KVQC_ERROR, [&] {
    uint64_t mask = 0;
    const kvaudqcLayout layout = LoudnessLayout(layoutName, channels, mask);
    kvaudqcLoudness r{};
    r.size = sizeof r;
    r.channels = channels;
    r.bitsPerSample = bitsPerSample;
    r.sampleRate = sampleRate;
    r.standard = standard;
    r.layoutId = layout.id;
    r.channelMask = mask;

    const FramePower power(pcm, channels, bitsPerSample, layout, mask);
    auto tail = [&](uint64_t n) { return LoudnessOfMean(power.Sum(frames - n, n), n); };
    const uint64_t m = uint64_t{sampleRate} * 50 / 125;  // 400 ms
    const uint64_t s = uint64_t{sampleRate} * 3;         // 3 s
    const bool momentaryTail = m - 1 < frames;           // unsigned: false when m is 0
    const bool shortTermTail = sampleRate != 0 && frames >= s;
    r.momentary = momentaryTail ? tail(m) : tail(frames);
    r.shortTerm = shortTermTail ? tail(s) : tail(frames);

    // 400 ms blocks for buffers of at most 3 s, 3 s blocks for longer ones.
    bool shortBlocks = m != 0 && m < frames;
    if (shortTermTail && frames != s) shortBlocks = false;
    const uint64_t block = shortBlocks ? m : (s != 0 ? s : frames);
    std::vector<double> kept;
    r.integrated = LoudnessOfMean(WholeAndBlocks(power, frames, block, kept), frames);
    r.range = kept.size() >= 2 ? Percentile(kept, 0.95) - Percentile(kept, 0.10) : 0.0;

    kvaudqcTruePeak peak;
    r.truePeak = kvqcAudioAnalyzeTruePeak(pcm, frames, channels, bitsPerSample, sampleRate, mask, &peak) == 0
                     ? peak.maxPeakDb
                     : kNoSignal;
    r.violations = Violations(r);
    *out = r;
    return KVQC_OK;
  });
}

}  // extern "C"
