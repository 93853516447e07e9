// AVX2 kernels of the integer/float conversions and their TPDF dither.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "transport/float_pcm_avx2.h"

namespace kvaudio::transport {
namespace {

__m256i Hash(__m256i x) {
  x = _mm256_xor_si256(x, _mm256_srli_epi32(x, 16));
  x = _mm256_mullo_epi32(x, _mm256_set1_epi32(0x21F0AAAD));
  x = _mm256_xor_si256(x, _mm256_srli_epi32(x, 15));
  x = _mm256_mullo_epi32(x, _mm256_set1_epi32(0x735A2D97));
  return _mm256_xor_si256(x, _mm256_srli_epi32(x, 15));
}

// Dither of the 8 samples whose first counter is `counter` (lane k uses counter + 2k).
__m256 Tpdf8(__m256i key, uint32_t counter) {
  const __m256i c = _mm256_add_epi32(_mm256_set1_epi32(static_cast<int>(counter)),
                                     _mm256_setr_epi32(0, 2, 4, 6, 8, 10, 12, 14));
  const __m256i a = _mm256_srli_epi32(Hash(_mm256_xor_si256(c, key)), 8);
  const __m256i b = _mm256_srli_epi32(Hash(_mm256_xor_si256(_mm256_add_epi32(c, _mm256_set1_epi32(1)), key)), 8);
  return _mm256_mul_ps(_mm256_cvtepi32_ps(_mm256_sub_epi32(a, b)), _mm256_set1_ps(0x1p-24f));
}

struct Limits {
  __m256 full, negFull, top;
  __m256i max, min;
};

// round(x * full + dither), saturated, NaN to 0. Conversion follows the current rounding mode
// (nearest-even by default), as nearbyint does in the plain loop. Up to 24 bits the top of the
// range is a float, so clamping before rounding gives the same result as saturating after it.
// Dither and ExactTop (bits <= 24) are template arguments so that the loops carry no branch.
template <bool Dither, bool ExactTop>
__m256i Convert8(const float *in, const Limits &l, __m256i key, uint32_t counter) {
  __m256 y = _mm256_mul_ps(_mm256_loadu_ps(in), l.full);
  if (Dither) y = _mm256_add_ps(y, Tpdf8(key, counter));
  if (ExactTop) {
    // max/min return their second operand for NaN, so NaN stays NaN and converts to INT32_MIN,
    // which no clamped value below 32 bits can produce: that lane is cleared to 0.
    const __m256i v = _mm256_cvtps_epi32(_mm256_min_ps(l.top, _mm256_max_ps(l.negFull, y)));
    return _mm256_andnot_si256(_mm256_cmpeq_epi32(v, _mm256_set1_epi32(INT32_MIN)), v);
  }
  const __m256 r = _mm256_round_ps(y, _MM_FROUND_CUR_DIRECTION);
  __m256i v = _mm256_cvttps_epi32(r);
  v = _mm256_blendv_epi8(v, l.max, _mm256_castps_si256(_mm256_cmp_ps(r, l.full, _CMP_GE_OQ)));
  v = _mm256_blendv_epi8(v, l.min, _mm256_castps_si256(_mm256_cmp_ps(r, l.negFull, _CMP_LE_OQ)));
  return _mm256_andnot_si256(_mm256_castps_si256(_mm256_cmp_ps(r, r, _CMP_UNORD_Q)), v);
}

Limits MakeLimits(uint32_t bits) {
  const uint32_t full = 1u << (bits - 1);
  const float f = static_cast<float>(full);
  return {_mm256_set1_ps(f), _mm256_set1_ps(-f), _mm256_set1_ps(static_cast<float>(full - 1)),
          _mm256_set1_epi32(static_cast<int>(full - 1)), _mm256_set1_epi32(static_cast<int>(0u - full))};
}

template <bool Dither, bool ExactTop>
size_t FloatToInt32Loop(int32_t *out, const float *in, size_t count, uint32_t bits, uint32_t key, uint32_t counter) {
  const size_t whole = count / 8 * 8;
  const Limits l = MakeLimits(bits);
  const __m256i k = _mm256_set1_epi32(static_cast<int>(key));
  const __m128i shift = _mm_cvtsi32_si128(static_cast<int>(32 - bits));
  for (size_t i = 0; i < whole; i += 8) {
    const __m256i v = Convert8<Dither, ExactTop>(in + i, l, k, counter + 2u * static_cast<uint32_t>(i));
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(out + i), _mm256_sll_epi32(v, shift));
  }
  return whole;
}

template <bool Dither>
size_t FloatToInt16Loop(int16_t *out, const float *in, size_t count, uint32_t key, uint32_t counter) {
  const size_t whole = count / 16 * 16;
  const Limits l = MakeLimits(16);
  const __m256i k = _mm256_set1_epi32(static_cast<int>(key));
  for (size_t i = 0; i < whole; i += 16) {
    const uint32_t c = counter + 2u * static_cast<uint32_t>(i);
    const __m256i a = Convert8<Dither, true>(in + i, l, k, c), b = Convert8<Dither, true>(in + i + 8, l, k, c + 16u);
    // packs per lane: a0-3 b0-3 | a4-7 b4-7 -> a0-7 b0-7 after the 64-bit permute.
    const __m256i packed = _mm256_permute4x64_epi64(_mm256_packs_epi32(a, b), 0xD8);
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(out + i), packed);
  }
  return whole;
}

}  // namespace

size_t Int16ToFloatAvx2(float *out, const int16_t *in, size_t count) {
  const size_t whole = count / 8 * 8;
  const __m256 scale = _mm256_set1_ps(0x1p-15f);
  for (size_t i = 0; i < whole; i += 8) {
    const __m256i v = _mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i *>(in + i)));
    _mm256_storeu_ps(out + i, _mm256_mul_ps(_mm256_cvtepi32_ps(v), scale));
  }
  return whole;
}

size_t Int32ToFloatAvx2(float *out, const int32_t *in, size_t count, uint32_t mask) {
  const size_t whole = count / 8 * 8;
  const __m256 scale = _mm256_set1_ps(0x1p-31f);
  const __m256i m = _mm256_set1_epi32(static_cast<int>(mask));
  for (size_t i = 0; i < whole; i += 8) {
    const __m256i v = _mm256_and_si256(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(in + i)), m);
    _mm256_storeu_ps(out + i, _mm256_mul_ps(_mm256_cvtepi32_ps(v), scale));
  }
  return whole;
}

size_t FloatToInt32Avx2(int32_t *out, const float *in, size_t count, uint32_t bits, bool dither, uint32_t key,
                        uint32_t counter) {
  if (bits <= 24)
    return dither ? FloatToInt32Loop<true, true>(out, in, count, bits, key, counter)
                  : FloatToInt32Loop<false, true>(out, in, count, bits, key, counter);
  return dither ? FloatToInt32Loop<true, false>(out, in, count, bits, key, counter)
                : FloatToInt32Loop<false, false>(out, in, count, bits, key, counter);
}

size_t FloatToInt16Avx2(int16_t *out, const float *in, size_t count, bool dither, uint32_t key, uint32_t counter) {
  return dither ? FloatToInt16Loop<true>(out, in, count, key, counter)
                : FloatToInt16Loop<false>(out, in, count, key, counter);
}

}  // namespace kvaudio::transport
