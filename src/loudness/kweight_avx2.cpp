// AVX2 kernels of the loudness meter: decoding, K-weighting across channels, sums of squares.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "loudness/kweight_avx2.h"

namespace kvaudio::loudness {
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
__m128 ToFloat(__m256d v) { return _mm256_cvtpd_ps(v); }
__m128 ToFloat(__m128d v) { return _mm_cvtpd_ps(v); }

// One filter stage of N channels, one per lane.
template <typename V, int N>
struct Stage {
  V a1, a2, b0, c1, c2, z1, z2;

  Stage(ebu_r128_channel *ch, itu1770_filter ebu_r128_channel::*which) {
    double t[7][N];
    for (int k = 0; k < N; ++k) {
      const itu1770_filter &f = ch[k].*which;
      t[0][k] = f.a1, t[1][k] = f.a2, t[2][k] = f.b0, t[3][k] = f.c1, t[4][k] = f.c2, t[5][k] = f.z1, t[6][k] = f.z2;
    }
    Load(t[0], a1), Load(t[1], a2), Load(t[2], b0), Load(t[3], c1), Load(t[4], c2), Load(t[5], z1), Load(t[6], z2);
  }

  void Save(ebu_r128_channel *ch, itu1770_filter ebu_r128_channel::*which) const {
    double t1[N], t2[N];
    Store(t1, z1);
    Store(t2, z2);
    for (int k = 0; k < N; ++k) (ch[k].*which).z1 = t1[k], (ch[k].*which).z2 = t2[k];
  }

  // w = x - a1*z1 - a2*z2; y = b0*x + c1*z1 + c2*z2; z2 = z1; z1 = w.
  V Step(V x) {
    const V w = Sub(Sub(x, Mul(a1, z1)), Mul(a2, z2));
    const V y = Add(Add(Mul(b0, x), Mul(c1, z1)), Mul(c2, z2));
    z2 = z1;
    z1 = w;
    return y;
  }
};

// Channels ch[0 .. N-1] (x already offset to the first of them) through both stages.
template <typename V, int N>
void Group(ebu_r128_channel *ch, uint32_t nch, const double *x, size_t periods, size_t offset, bool store) {
  Stage<V, N> pre(ch, &ebu_r128_channel::pre), rlb(ch, &ebu_r128_channel::rlb);
  float *out[N];
  for (int k = 0; k < N; ++k) out[k] = ch[k].step + offset;
  for (size_t t = 0; t < periods; ++t) {
    V in;
    Load(x + t * nch, in);
    const V y = rlb.Step(pre.Step(in));
    if (store) {
      // lanes: one channel each -> one float per channel buffer
      alignas(16) float f[4];
      _mm_store_ps(f, ToFloat(y));
      for (int k = 0; k < N; ++k) out[k][t] = f[k];
    }
  }
  pre.Save(ch, &ebu_r128_channel::pre);
  rlb.Save(ch, &ebu_r128_channel::rlb);
}

}  // namespace

size_t DecodeAvx2(const uint8_t *in, uint32_t resolution, size_t count, double divisor, double *x) {
  const __m256d d = _mm256_set1_pd(divisor);
  const size_t whole = count & ~size_t{3};
  for (size_t i = 0; i < whole; i += 4) {
    __m128i s;
    if (resolution == 8)
      s = _mm_cvtepi8_epi32(_mm_loadu_si32(in + i));
    else if (resolution == 16)
      s = _mm_cvtepi16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(in + 2 * i)));
    else
      s = _mm_loadu_si128(reinterpret_cast<const __m128i *>(in + 4 * i));
    _mm256_storeu_pd(x + i, _mm256_div_pd(_mm256_cvtepi32_pd(s), d));
  }
  return whole;
}

uint32_t KWeightAvx2(ebu_r128_channel *ch, uint32_t nch, const double *x, size_t periods, size_t offset,
                     bool store) {
  uint32_t c = 0;
  for (; c + 4 <= nch; c += 4) Group<__m256d, 4>(ch + c, nch, x + c, periods, offset, store);
  if (c + 2 <= nch) {
    Group<__m128d, 2>(ch + c, nch, x + c, periods, offset, store);
    c += 2;
  }
  return c;
}

size_t SumOfSquaresAvx2(const float *v, size_t n, double acc[8]) {
  __m256d lo = _mm256_loadu_pd(acc), hi = _mm256_loadu_pd(acc + 4);
  const size_t whole = n & ~size_t{7};
  for (size_t i = 0; i < whole; i += 8) {
    const __m256d a = _mm256_cvtps_pd(_mm_loadu_ps(v + i));
    const __m256d b = _mm256_cvtps_pd(_mm_loadu_ps(v + i + 4));
    lo = _mm256_add_pd(lo, _mm256_mul_pd(a, a));
    hi = _mm256_add_pd(hi, _mm256_mul_pd(b, b));
  }
  _mm256_storeu_pd(acc, lo);
  _mm256_storeu_pd(acc + 4, hi);
  return whole;
}

}  // namespace kvaudio::loudness
