// K-weighting design and filter, true-peak interpolator design and block peak: the plain loops
// and their dispatch to the AVX2 kernels.
#include "loudness/r128_dsp.h"

#include <algorithm>
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

// One biquad stage in direct form II, ordered so the recurrence through s1 is one multiply and
// one subtraction long; the AVX2 kernel repeats these operations in this order, one channel a lane.
inline double Biquad(double in, double b0, double b1, double b2, double a1, double a2, double &s1, double &s2) {
  const double w = (in - a2 * s2) - a1 * s1;
  const double out = (b0 * w + b1 * s1) + b2 * s2;
  s2 = s1;
  s1 = w;
  return out;
}

void KFilterPlain(const KCoefs &k, KState &s, uint32_t from, uint32_t nch, const double *x, size_t periods) {
  for (uint32_t c = from; c < nch; ++c) {
    double p1 = s.p1[c], p2 = s.p2[c], r1 = s.r1[c], r2 = s.r2[c], acc = s.acc[c];
    for (size_t t = 0; t < periods; ++t) {
      const double y = Biquad(x[t * nch + c], k.pb0, k.pb1, k.pb2, k.pa1, k.pa2, p1, p2);
      const double z = Biquad(y, 1.0, -2.0, 1.0, k.ra1, k.ra2, r1, r2);
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

namespace {

float Interpolate(const float *h, const float *x, ptrdiff_t i) {
  float acc = 0.0f;
  for (int k = 0; k < kTpTaps; ++k) acc = acc + h[k] * x[i - k];
  return acc;
}

// Interpolate for samples i .. i+3 and phases 1 .. 3: four independent sums side by side, each in
// tap order, which the compiler may keep in SSE lanes without changing any of them.
void Interpolate4(const float coef[kTpPhases - 1][kTpTaps], const float *x, ptrdiff_t i, float y[kTpPhases - 1][4]) {
  for (int p = 0; p < kTpPhases - 1; ++p) {
    float acc[4] = {0.0f, 0.0f, 0.0f, 0.0f};
    for (int k = 0; k < kTpTaps; ++k)
      for (int j = 0; j < 4; ++j) acc[j] = acc[j] + coef[p][k] * x[i + j - k];
    for (int j = 0; j < 4; ++j) y[p][j] = acc[j];
  }
}

// |v|, or the parabola's vertex through (l, v, r) when v is a strict local extremum.
float Extremum(float l, float v, float r) {
  if (!((v - l) * (v - r) > 0.0f)) return std::fabs(v);
  const float d = l - r;
  const float den = (l - v) + (r - v);
  return std::fabs(v - (d * d) / (den * 8.0f));
}

}  // namespace

float TruePeakPlain(const float coef[kTpPhases - 1][kTpTaps], const float *x, size_t from, size_t n, float peak) {
  float last = Interpolate(coef[2], x, static_cast<ptrdiff_t>(from) - 1);  // phase 3 of the sample before
  for (ptrdiff_t i = static_cast<ptrdiff_t>(from); i < static_cast<ptrdiff_t>(n); i += 4) {
    const int m = static_cast<ptrdiff_t>(n) - i < 4 ? static_cast<int>(static_cast<ptrdiff_t>(n) - i) : 4;
    float y[kTpPhases - 1][4];
    if (m == 4)
      Interpolate4(coef, x, i, y);
    else
      for (int p = 0; p < kTpPhases - 1; ++p)
        for (int j = 0; j < m; ++j) y[p][j] = Interpolate(coef[p], x, i + j);
    for (int j = 0; j < m; ++j) {
      const float y0 = x[i + j - kTpDelay], next = x[i + j + 1 - kTpDelay];
      peak = std::max(peak, Extremum(last, y0, y[0][j]));
      peak = std::max(peak, Extremum(y0, y[0][j], y[1][j]));
      peak = std::max(peak, Extremum(y[0][j], y[1][j], y[2][j]));
      peak = std::max(peak, Extremum(y[1][j], y[2][j], next));
      last = y[2][j];
    }
  }
  return peak;
}

float TruePeak(const float coef[kTpPhases - 1][kTpTaps], const float *x, size_t n, float peak) {
  size_t done = 0;
  if (KVAudioCPUHasAVX2()) done = TruePeakAvx2(coef, x, n, &peak);
  return TruePeakPlain(coef, x, done, n, peak);
}

}  // namespace kvaudio::r128
