// K-weighting design and filter, true-peak interpolator design and block peak: the plain loops
// and their dispatch to the AVX2 kernels.
#include "loudness/r128_dsp.h"

#include <cmath>

#include "frame/cpu.h"
#include "loudness/r128_avx2.h"

namespace kvaudio::r128 {
namespace {

// Analog prototype of the pre-filter (high shelf) and RLB high-pass of BS.1770.
constexpr double kShelfHz = 1681.974450955533;
constexpr double kShelfGainDb = 3.999843853973347;
constexpr double kShelfQ = 0.7071752369554196;
constexpr double kShelfBandExp = 0.4996667741545416;
constexpr double kHighPassHz = 38.13547087602444;
constexpr double kHighPassQ = 0.5003270373238773;

constexpr double kKaiserBeta = 6.0;

// Modified Bessel function of the first kind, order 0, by its power series.
double BesselI0(double x) {
  double sum = 1.0, term = 1.0;
  const double q = x * x / 4.0;
  for (int k = 1; k < 60; ++k) {
    term *= q / (static_cast<double>(k) * k);
    sum += term;
    if (term < sum * 1e-17) break;
  }
  return sum;
}

}  // namespace

KCoefs DesignKWeighting(double rate) {
  KCoefs c{};
  const double k = std::tan(M_PI * kShelfHz / rate);
  const double vh = std::pow(10.0, kShelfGainDb / 20.0);
  const double vb = std::pow(vh, kShelfBandExp);
  const double a0 = 1.0 + k / kShelfQ + k * k;
  c.pb0 = (vh + vb * k / kShelfQ + k * k) / a0;
  c.pb1 = 2.0 * (k * k - vh) / a0;
  c.pb2 = (vh - vb * k / kShelfQ + k * k) / a0;
  c.pa1 = 2.0 * (k * k - 1.0) / a0;
  c.pa2 = (1.0 - k / kShelfQ + k * k) / a0;
  const double h = std::tan(M_PI * kHighPassHz / rate);
  const double h0 = 1.0 + h / kHighPassQ + h * h;
  c.ra1 = 2.0 * (h * h - 1.0) / h0;
  c.ra2 = (1.0 - h / kHighPassQ + h * h) / h0;
  return c;
}

void DesignTruePeak(float coef[kTpPhases - 1][kTpTaps]) {
  const double half = kTpTaps / 2;
  const double norm = BesselI0(kKaiserBeta);
  for (int p = 1; p < kTpPhases; ++p) {
    double h[kTpTaps], sum = 0.0;
    for (int k = 0; k < kTpTaps; ++k) {
      const double u = half - k - static_cast<double>(p) / kTpPhases;  // time of x[i-k] from the output
      const double r = u / half;
      const double window = BesselI0(kKaiserBeta * std::sqrt(1.0 - r * r)) / norm;
      h[k] = std::sin(M_PI * u) / (M_PI * u) * window;
      sum += h[k];
    }
    for (int k = 0; k < kTpTaps; ++k) coef[p - 1][k] = static_cast<float>(h[k] / sum);
  }
}

void KFilterPlain(const KCoefs &k, KState &s, uint32_t from, uint32_t nch, const double *x, size_t periods) {
  for (uint32_t c = from; c < nch; ++c) {
    double p1 = s.p1[c], p2 = s.p2[c], r1 = s.r1[c], r2 = s.r2[c], acc = s.acc[c];
    for (size_t t = 0; t < periods; ++t) {
      // Direct form II; the AVX2 kernel repeats these operations in this order, one channel a lane.
      const double w = (x[t * nch + c] - k.pa1 * p1) - k.pa2 * p2;
      const double y = (k.pb0 * w + k.pb1 * p1) + k.pb2 * p2;
      p2 = p1;
      p1 = w;
      const double v = (y - k.ra1 * r1) - k.ra2 * r2;
      const double z = (v - 2.0 * r1) + r2;
      r2 = r1;
      r1 = v;
      acc = acc + z * z;
    }
    s.p1[c] = p1, s.p2[c] = p2, s.r1[c] = r1, s.r2[c] = r2, s.acc[c] = acc;
  }
}

void KFilter(const KCoefs &k, KState &s, uint32_t nch, const double *x, size_t periods) {
  uint32_t done = 0;
  if (nch >= 2 && KVAudioCPUHasAVX2()) done = KFilterAvx2(k, s, nch, x, periods);
  KFilterPlain(k, s, done, nch, x, periods);
}

float Interpolate(const float coef[kTpPhases - 1][kTpTaps], const float *x, ptrdiff_t i, int p) {
  if (p == 0) return x[i - kTpTaps / 2];
  const float *h = coef[p - 1];
  float acc = 0.0f;
  for (int k = 0; k < kTpTaps; ++k) acc = acc + h[k] * x[i - k];
  return acc;
}

float TruePeakBlockPlain(const float coef[kTpPhases - 1][kTpTaps], const float *x, size_t from, size_t n,
                         float peak) {
  for (size_t i = from; i < n; ++i)
    for (int p = 0; p < kTpPhases; ++p) {
      const float v = std::fabs(Interpolate(coef, x, static_cast<ptrdiff_t>(i), p));
      if (v > peak) peak = v;
    }
  return peak;
}

float TruePeakBlock(const float coef[kTpPhases - 1][kTpTaps], const float *x, size_t n) {
  size_t done = 0;
  float peak = 0.0f;
  if (KVAudioCPUHasAVX2()) done = TruePeakBlockAvx2(coef, x, n, &peak);
  return TruePeakBlockPlain(coef, x, done, n, peak);
}

}  // namespace kvaudio::r128
