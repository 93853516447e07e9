// AVX2 kernels of the standard loudness meter: K-weighting across channels, true-peak interpolation.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "loudness/r128_avx2.h"

namespace kvaudio::r128 {
namespace {

// Lane arithmetic on four (__m256d) or two (__m128d) channels, no fused operations.
__m256d Add(__m256d a, __m256d b) { return _mm256_add_pd(a, b); }
__m256d Sub(__m256d a, __m256d b) { return _mm256_sub_pd(a, b); }
__m256d Mul(__m256d a, __m256d b) { return _mm256_mul_pd(a, b); }
__m128d Add(__m128d a, __m128d b) { return _mm_add_pd(a, b); }
__m128d Sub(__m128d a, __m128d b) { return _mm_sub_pd(a, b); }
__m128d Mul(__m128d a, __m128d b) { return _mm_mul_pd(a, b); }
void Load(const double *p, __m256d &v) { v = _mm256_loadu_pd(p); }
void Load(const double *p, __m128d &v) { v = _mm_loadu_pd(p); }
void Store(double *p, __m256d v) { _mm256_storeu_pd(p, v); }
void Store(double *p, __m128d v) { _mm_storeu_pd(p, v); }
void Splat(double d, __m256d &v) { v = _mm256_set1_pd(d); }
void Splat(double d, __m128d &v) { v = _mm_set1_pd(d); }

// Both stages of N channels starting at channel c, one per lane, as Biquad in r128_dsp.cpp.
// Vector of N doubles: N channels, one per lane.
template <int N>
struct Vec;
template <>
struct Vec<4> {
  typedef __m256d T;
};
template <>
struct Vec<2> {
  typedef __m128d T;
};

template <int N>
struct Lanes {
  typedef typename Vec<N>::T V;
  V p1, p2, r1, r2, acc;
  void Get(const KState &s, uint32_t c) { Load(s.p1 + c, p1), Load(s.p2 + c, p2), Load(s.r1 + c, r1), Load(s.r2 + c, r2), Load(s.acc + c, acc); }
  void Put(KState &s, uint32_t c) const { Store(s.p1 + c, p1), Store(s.p2 + c, p2), Store(s.r1 + c, r1), Store(s.r2 + c, r2), Store(s.acc + c, acc); }
};

template <int N>
struct Coefs {
  typedef typename Vec<N>::T V;
  V pb0, pb1, pb2, pa1, pa2, one, minusTwo, ra1, ra2;
  explicit Coefs(const KCoefs &k) {
    Splat(k.pb0, pb0), Splat(k.pb1, pb1), Splat(k.pb2, pb2), Splat(k.pa1, pa1), Splat(k.pa2, pa2);
    Splat(1.0, one), Splat(-2.0, minusTwo), Splat(k.ra1, ra1), Splat(k.ra2, ra2);
  }
};

template <typename V>
V Biquad(V in, V b0, V b1, V b2, V a1, V a2, V &s1, V &s2) {
  const V w = Sub(Sub(in, Mul(a2, s2)), Mul(a1, s1));
  const V out = Add(Add(Mul(b0, w), Mul(b1, s1)), Mul(b2, s2));
  s2 = s1;
  s1 = w;
  return out;
}

template <int N>
void Step(const Coefs<N> &k, Lanes<N> &l, const double *x) {
  typedef typename Vec<N>::T V;
  V in;
  Load(x, in);
  const V y = Biquad(in, k.pb0, k.pb1, k.pb2, k.pa1, k.pa2, l.p1, l.p2);
  const V z = Biquad(y, k.one, k.minusTwo, k.one, k.ra1, k.ra2, l.r1, l.r2);
  l.acc = Add(l.acc, Mul(z, z));
}

// Q groups of four channels and P (0 or 1) pairs from channel c in one pass over time, so their
// independent recurrences overlap.
template <int Q, int P>
uint32_t Groups(const KCoefs &k, KState &s, uint32_t c, uint32_t nch, const double *x, size_t periods) {
  const Coefs<4> k4(k);
  const Coefs<2> k2(k);
  Lanes<4> quad[Q > 0 ? Q : 1];
  Lanes<2> pair;
  for (int q = 0; q < Q; ++q) quad[q].Get(s, c + 4 * q);
  if (P) pair.Get(s, c + 4 * Q);
  for (size_t t = 0; t < periods; ++t) {
    const double *row = x + t * nch + c;
    for (int q = 0; q < Q; ++q) Step(k4, quad[q], row + 4 * q);
    if (P) Step(k2, pair, row + 4 * Q);
  }
  for (int q = 0; q < Q; ++q) quad[q].Put(s, c + 4 * q);
  if (P) pair.Put(s, c + 4 * Q);
  return c + 4 * Q + 2 * P;
}

// |v|, or the vertex of the parabola through (l, v, r) in the lanes where v is a strict local
// extremum, as Extremum in r128_dsp.cpp.
__m256 Extremum(__m256 l, __m256 v, __m256 r) {
  const __m256 strict = _mm256_cmp_ps(_mm256_mul_ps(_mm256_sub_ps(v, l), _mm256_sub_ps(v, r)), _mm256_setzero_ps(), _CMP_GT_OQ);
  const __m256 d = _mm256_sub_ps(l, r);
  const __m256 den = _mm256_add_ps(_mm256_sub_ps(l, v), _mm256_sub_ps(r, v));
  const __m256 vertex = _mm256_sub_ps(v, _mm256_div_ps(_mm256_mul_ps(d, d), _mm256_mul_ps(den, _mm256_set1_ps(8.0f))));
  return _mm256_andnot_ps(_mm256_set1_ps(-0.0f), _mm256_blendv_ps(v, vertex, strict));
}

}  // namespace

uint32_t KFilterAvx2(const KCoefs &k, KState &s, uint32_t nch, const double *x, size_t periods) {
  uint32_t c = 0;
  while (nch - c >= 8) c = Groups<2, 0>(k, s, c, nch, x, periods);
  if (nch - c >= 6) return Groups<1, 1>(k, s, c, nch, x, periods);
  if (nch - c >= 4) return Groups<1, 0>(k, s, c, nch, x, periods);
  if (nch - c >= 2) return Groups<0, 1>(k, s, c, nch, x, periods);
  return c;
}

size_t TruePeakAvx2(const float coef[kTpPhases - 1][kTpTaps], const float *x, size_t n, float *peak) {
  const size_t whole = n & ~size_t{7};
  if (whole == 0) return 0;
  float before = 0.0f;  // phase 3 of sample -1, in the plain loop's order
  for (int k = 0; k < kTpTaps; ++k) before = before + coef[2][k] * x[-1 - k];
  // rotate: lanes 0..7 <- 7, 0, .., 6; lane 0 then takes the previous vector's lane 7
  const __m256i rotate = _mm256_setr_epi32(7, 0, 1, 2, 3, 4, 5, 6);
  __m256 last = _mm256_set1_ps(before), best = _mm256_set1_ps(*peak);
  for (size_t i = 0; i < whole; i += 8) {
    __m256 y1 = _mm256_setzero_ps(), y2 = _mm256_setzero_ps(), y3 = _mm256_setzero_ps();
    for (int k = 0; k < kTpTaps; ++k) {
      const __m256 v = _mm256_loadu_ps(x + i - k);
      y1 = _mm256_add_ps(y1, _mm256_mul_ps(_mm256_broadcast_ss(&coef[0][k]), v));
      y2 = _mm256_add_ps(y2, _mm256_mul_ps(_mm256_broadcast_ss(&coef[1][k]), v));
      y3 = _mm256_add_ps(y3, _mm256_mul_ps(_mm256_broadcast_ss(&coef[2][k]), v));
    }
    const __m256 y0 = _mm256_loadu_ps(x + i - kTpDelay), next = _mm256_loadu_ps(x + i + 1 - kTpDelay);
    const __m256 prev = _mm256_blend_ps(_mm256_permutevar8x32_ps(y3, rotate), _mm256_permutevar8x32_ps(last, rotate), 1);
    best = _mm256_max_ps(best, Extremum(prev, y0, y1));
    best = _mm256_max_ps(best, Extremum(y0, y1, y2));
    best = _mm256_max_ps(best, Extremum(y1, y2, y3));
    best = _mm256_max_ps(best, Extremum(y2, y3, next));
    last = y3;
  }
  // lanes: eight running maxima -> one
  __m128 m = _mm_max_ps(_mm256_castps256_ps128(best), _mm256_extractf128_ps(best, 1));
  m = _mm_max_ps(m, _mm_movehl_ps(m, m));
  m = _mm_max_ss(m, _mm_shuffle_ps(m, m, 1));
  *peak = _mm_cvtss_f32(m);
  return whole;
}

}  // namespace kvaudio::r128
