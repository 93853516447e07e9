// AVX2 kernels of the loudness meter: decoding, K-weighting across channels, sums of squares.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "loudness/kweight_avx2.h"

namespace kvaudio::loudness {
namespace {

// One filter stage of four channels (one per lane), in the operation order of the plain step.
struct Stage4 {
  __m256d a1, a2, b0, c1, c2, z1, z2;
};
struct Stage2 {
  __m128d a1, a2, b0, c1, c2, z1, z2;
};

Stage4 Load4(const itu1770_filter *f0, const itu1770_filter *f1, const itu1770_filter *f2,
             const itu1770_filter *f3) {
  return {_mm256_set_pd(f3->a1, f2->a1, f1->a1, f0->a1), _mm256_set_pd(f3->a2, f2->a2, f1->a2, f0->a2),
          _mm256_set_pd(f3->b0, f2->b0, f1->b0, f0->b0), _mm256_set_pd(f3->c1, f2->c1, f1->c1, f0->c1),
          _mm256_set_pd(f3->c2, f2->c2, f1->c2, f0->c2), _mm256_set_pd(f3->z1, f2->z1, f1->z1, f0->z1),
          _mm256_set_pd(f3->z2, f2->z2, f1->z2, f0->z2)};
}

Stage2 Load2(const itu1770_filter *f0, const itu1770_filter *f1) {
  return {_mm_set_pd(f1->a1, f0->a1), _mm_set_pd(f1->a2, f0->a2), _mm_set_pd(f1->b0, f0->b0),
          _mm_set_pd(f1->c1, f0->c1), _mm_set_pd(f1->c2, f0->c2), _mm_set_pd(f1->z1, f0->z1),
          _mm_set_pd(f1->z2, f0->z2)};
}

void Save4(const Stage4 &s, itu1770_filter *f[4]) {
  alignas(32) double z1[4], z2[4];
  _mm256_store_pd(z1, s.z1);
  _mm256_store_pd(z2, s.z2);
  for (int k = 0; k < 4; ++k) {
    f[k]->z1 = z1[k];
    f[k]->z2 = z2[k];
  }
}

void Save2(const Stage2 &s, itu1770_filter *f0, itu1770_filter *f1) {
  alignas(16) double z1[2], z2[2];
  _mm_store_pd(z1, s.z1);
  _mm_store_pd(z2, s.z2);
  f0->z1 = z1[0];
  f0->z2 = z2[0];
  f1->z1 = z1[1];
  f1->z2 = z2[1];
}

// w = x - a1*z1 - a2*z2; y = b0*x + c1*z1 + c2*z2; z2 = z1; z1 = w (no fused operations).
__m256d Step4(Stage4 &s, __m256d x) {
  const __m256d w = _mm256_sub_pd(_mm256_sub_pd(x, _mm256_mul_pd(s.a1, s.z1)), _mm256_mul_pd(s.a2, s.z2));
  const __m256d y =
      _mm256_add_pd(_mm256_add_pd(_mm256_mul_pd(s.b0, x), _mm256_mul_pd(s.c1, s.z1)), _mm256_mul_pd(s.c2, s.z2));
  s.z2 = s.z1;
  s.z1 = w;
  return y;
}

__m128d Step2(Stage2 &s, __m128d x) {
  const __m128d w = _mm_sub_pd(_mm_sub_pd(x, _mm_mul_pd(s.a1, s.z1)), _mm_mul_pd(s.a2, s.z2));
  const __m128d y = _mm_add_pd(_mm_add_pd(_mm_mul_pd(s.b0, x), _mm_mul_pd(s.c1, s.z1)), _mm_mul_pd(s.c2, s.z2));
  s.z2 = s.z1;
  s.z1 = w;
  return y;
}

void Group4(ebu_r128_channel *ch, uint32_t nch, const double *x, size_t periods, size_t offset, bool store) {
  Stage4 pre = Load4(&ch[0].pre, &ch[1].pre, &ch[2].pre, &ch[3].pre);
  Stage4 rlb = Load4(&ch[0].rlb, &ch[1].rlb, &ch[2].rlb, &ch[3].rlb);
  float *o0 = ch[0].step + offset, *o1 = ch[1].step + offset, *o2 = ch[2].step + offset,
        *o3 = ch[3].step + offset;
  for (size_t t = 0; t < periods; ++t) {
    const __m256d y = Step4(rlb, Step4(pre, _mm256_loadu_pd(x + t * nch)));
    if (store) {
      // lanes: ch0 ch1 ch2 ch3 -> one float per channel buffer
      const __m128 f = _mm256_cvtpd_ps(y);
      _mm_store_ss(o0 + t, f);
      _mm_store_ss(o1 + t, _mm_shuffle_ps(f, f, 1));
      _mm_store_ss(o2 + t, _mm_shuffle_ps(f, f, 2));
      _mm_store_ss(o3 + t, _mm_shuffle_ps(f, f, 3));
    }
  }
  itu1770_filter *p[4] = {&ch[0].pre, &ch[1].pre, &ch[2].pre, &ch[3].pre};
  itu1770_filter *r[4] = {&ch[0].rlb, &ch[1].rlb, &ch[2].rlb, &ch[3].rlb};
  Save4(pre, p);
  Save4(rlb, r);
}

void Group2(ebu_r128_channel *ch, uint32_t nch, const double *x, size_t periods, size_t offset, bool store) {
  Stage2 pre = Load2(&ch[0].pre, &ch[1].pre);
  Stage2 rlb = Load2(&ch[0].rlb, &ch[1].rlb);
  float *o0 = ch[0].step + offset, *o1 = ch[1].step + offset;
  for (size_t t = 0; t < periods; ++t) {
    const __m128d y = Step2(rlb, Step2(pre, _mm_loadu_pd(x + t * nch)));
    if (store) {
      const __m128 f = _mm_cvtpd_ps(y);
      _mm_store_ss(o0 + t, f);
      _mm_store_ss(o1 + t, _mm_shuffle_ps(f, f, 1));
    }
  }
  Save2(pre, &ch[0].pre, &ch[1].pre);
  Save2(rlb, &ch[0].rlb, &ch[1].rlb);
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
  for (; c + 4 <= nch; c += 4) Group4(ch + c, nch, x + c, periods, offset, store);
  if (c + 2 <= nch) {
    Group2(ch + c, nch, x + c, periods, offset, store);
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
