// AV-sync pulse: reference burst, mixing into PCM, and detection by normalised correlation.
#include "kvaudio/avsync.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "frame/cpu.h"
#include "frame/errors.h"
#include "layout/avsync_avx2.h"
#include "layout/avsync_internal.h"

namespace kvaudio::layout {
namespace {

constexpr uint32_t kOk = KVAUDIO_AVSYNC_OK, kBadArgument = KVAUDIO_AVSYNC_BAD_ARGUMENT,
                   kNotFound = KVAUDIO_AVSYNC_NOT_FOUND, kDoesNotFit = KVAUDIO_AVSYNC_TOO_SHORT;
constexpr uint32_t kMinRate = 16000;
constexpr uint32_t kChips = 63;
constexpr uint32_t kNoPosition = 0xFFFFFFFF;
constexpr double kTwoPiCarrier = 30159.289474462013;  // 2 pi x 4800 Hz
constexpr double kPi = 3.141592653589793;
constexpr double kDefaultThreshold = 0.35;

// One step of the 6-bit sequence register: feedback bit 4 XOR bit 5 into bit 0.
uint32_t StepChip(uint32_t state) {
  const uint32_t f = ((state >> 4) ^ (state >> 5)) & 1;
  state = ((state << 1) | f) & 63;
  return state ? state : 63;
}

// Raised-cosine rise over `e` samples: 0 at i = 0, near 1 at i = e - 1.
double Edge(uint32_t i, uint32_t e) { return 0.5 - 0.5 * std::cos(kPi * i / e); }

bool SampleShapeOk(const void *buffer, uint32_t channels, uint32_t bits, uint32_t rate) {
  return buffer && channels != 0 && (bits == 16 || bits == 32) && rate >= kMinRate;
}

// Adds the rounded burst to every channel of each period, saturating to the sample type.
template <typename T, int64_t Lo, int64_t Hi>
void Mix(T *out, size_t channels, const std::vector<double> &p, double amplitude) {
  for (size_t j = 0; j < p.size(); ++j) {
    const double v = p[j] * amplitude;
    const int64_t s = static_cast<int64_t>(p[j] >= 0 ? std::floor(v + 0.5) : std::floor(v - 0.5));
    for (size_t c = 0; c < channels; ++c, ++out) *out = static_cast<T>(std::clamp<int64_t>(*out + s, Lo, Hi));
  }
}

// Channel means of `count` periods from `first`, each summed in channel order and divided once.
template <typename T>
void Means(const T *in, size_t channels, size_t first, size_t count, double *m) {
  const T *s = in + first * channels;
  for (size_t i = 0; i < count; ++i) {
    double sum = 0.0;
    for (size_t c = 0; c < channels; ++c) sum += static_cast<double>(*s++);
    m[i] = sum / static_cast<double>(channels);
  }
}

// The best score so far; a later equal score keeps the earlier start.
struct Best {
  double score = 0.0;
  uint64_t start = 0;
  bool found = false;
  void Offer(double c, double power, double energy, uint64_t t) {
    if (power == 0.0) return;
    const double s = std::fabs(c) / std::sqrt(power * energy);
    if (found && !(s > score)) return;
    score = s;
    start = t;
    found = true;
  }
};

// Correlates Lanes consecutive starts at once. Each lane sums over j in order, exactly as the
// direct form for one start does; the lanes only share the loads of m and p.
template <size_t Lanes>
void CorrelateLanes(const double *m, const double *p, size_t length, double *c, double *power) {
  double cs[Lanes] = {}, qs[Lanes] = {};
  for (size_t j = 0; j < length; ++j) {
    const double pj = p[j];
    for (size_t k = 0; k < Lanes; ++k) {
      const double x = m[j + k];
      cs[k] += x * pj;
      qs[k] += x * x;
    }
  }
  for (size_t k = 0; k < Lanes; ++k) {
    c[k] = cs[k];
    power[k] = qs[k];
  }
}

constexpr size_t kLanes = 16;
constexpr size_t kWindowStarts = 4096;  // starts per window of means, so the window stays in cache

// Scores every start 0 .. frames - L, computing each period's channel mean once.
template <typename T>
Best Correlate(const T *in, size_t frames, size_t channels, const std::vector<double> &p, double energy) {
  const size_t length = p.size();
  const size_t starts = frames - length + 1;
  std::vector<double> m(kWindowStarts + length - 1), c(kWindowStarts), power(kWindowStarts);
  Means(in, channels, 0, length - 1, m.data());
  Best best;
  for (size_t t0 = 0; t0 < starts;) {
    const size_t count = std::min(kWindowStarts, starts - t0);
    // m holds periods t0 .. t0 + L - 2; add the periods the new starts reach.
    Means(in, channels, t0 + length - 1, count, m.data() + length - 1);
    AvSyncCorrelate(m.data(), p.data(), length, count, c.data(), power.data());
    for (size_t k = 0; k < count; ++k) best.Offer(c[k], power[k], energy, t0 + k);
    std::copy(m.begin() + count, m.begin() + count + length - 1, m.begin());
    t0 += count;
  }
  return best;
}

}  // namespace

void AvSyncCorrelate(const double *m, const double *p, size_t length, size_t count, double *c, double *power) {
  size_t k = KVAudioCPUHasAVX2() ? AvSyncCorrelateAvx2(m, p, length, count, c, power) : 0;
  for (; k + kLanes <= count; k += kLanes) CorrelateLanes<kLanes>(m + k, p, length, c + k, power + k);
  for (; k < count; ++k) CorrelateLanes<1>(m + k, p, length, c + k, power + k);
}

uint32_t AvSyncChipLength(uint32_t rate) { return static_cast<uint32_t>((uint64_t{rate} + 2000) / 4000); }

uint32_t AvSyncBurstLength(uint32_t rate) { return kChips * AvSyncChipLength(rate); }

std::vector<double> AvSyncBurst(uint32_t rate) {
  const uint32_t chip = AvSyncChipLength(rate);
  const uint32_t length = AvSyncBurstLength(rate);
  const uint32_t edge = std::min(length / 2, rate / 1000);
  std::vector<double> p(length);
  uint32_t state = 63;
  for (uint32_t j = 0; j < length; ++j) {
    if (j % chip == 0) state = StepChip(state);  // chip n uses the state after n + 1 steps
    double sign = (state & 1) ? 1.0 : -1.0;
    const uint32_t tail = length - 1 - j;
    if (edge != 0 && j < edge) sign *= Edge(j, edge);
    if (edge != 0 && tail < edge) sign *= Edge(tail, edge);
    const double x = static_cast<double>(j) * kTwoPiCarrier / rate;
    p[j] = std::sin(x) * sign;
  }
  return p;
}

}  // namespace kvaudio::layout

using namespace kvaudio::layout;

extern "C" {

uint32_t KVAudioAVSyncPulseGetLength(uint32_t rate, uint32_t *length) {
  if (!length) return kBadArgument;
  if (rate < kMinRate) {
    *length = 0;
    return kBadArgument;
  }
  *length = AvSyncBurstLength(rate);
  return kOk;
}

uint32_t KVAudioAVSyncPulseGenerate(void *buffer, uint32_t bufferFrames, uint32_t channels, uint32_t bits,
                                    uint32_t rate, uint32_t offset, int32_t amplitude) {
  if (!SampleShapeOk(buffer, channels, bits, rate)) return kBadArgument;
  // The fit is known from the rate alone; a burst that cannot fit is never built.
  if (offset >= bufferFrames || bufferFrames < uint64_t{offset} + AvSyncBurstLength(rate)) return kDoesNotFit;
  return kvaudio::NoThrow(kBadArgument, [&] {
    const std::vector<double> p = AvSyncBurst(rate);
    const int64_t fullScale = bits == 16 ? 32767 : 0x7FFFFFFF;
    int64_t a = amplitude == 0 ? (bits == 16 ? 12000 : 0x30000000) : std::abs(int64_t{amplitude});
    a = std::min(a, fullScale);
    const size_t first = size_t{offset} * channels;
    if (bits == 16)
      Mix<int16_t, -32768, 32767>(static_cast<int16_t *>(buffer) + first, channels, p, static_cast<double>(a));
    else
      Mix<int32_t, INT32_MIN, INT32_MAX>(static_cast<int32_t *>(buffer) + first, channels, p, static_cast<double>(a));
    return kOk;
  });
}

uint32_t KVAudioAVSyncPulseDetect(const void *buffer, uint32_t frames, uint32_t channels, uint32_t bits,
                                  uint32_t rate, uint32_t *position, double *score, double threshold) {
  if (score) *score = 0.0;
  if (!position) return kBadArgument;
  *position = kNoPosition;
  if (!SampleShapeOk(buffer, channels, bits, rate)) return kBadArgument;
  if (frames < AvSyncBurstLength(rate)) return kDoesNotFit;
  return kvaudio::NoThrow(kBadArgument, [&] {
    const std::vector<double> p = AvSyncBurst(rate);
    double energy = 0.0;
    for (double v : p) energy += v * v;
    if (frames < p.size() || p.empty() || !(energy > 0.0)) return kDoesNotFit;
    const double limit = threshold > 0.0 ? threshold : kDefaultThreshold;
    const Best best = bits == 16
                          ? Correlate(static_cast<const int16_t *>(buffer), frames, channels, p, energy)
                          : Correlate(static_cast<const int32_t *>(buffer), frames, channels, p, energy);
    if (score) *score = best.score;
    if (!best.found || best.score < limit) return kNotFound;
    *position = static_cast<uint32_t>(best.start);
    return kOk;
  });
}

}  // extern "C"
