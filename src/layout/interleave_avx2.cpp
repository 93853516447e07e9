// AVX2 kernels of the interleave/deinterleave family.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "layout/interleave_avx2.h"

namespace kvaudio::layout {
namespace {

__m256i LoadU(const uint32_t *p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p)); }
void StoreU(uint32_t *p, __m256i v) { _mm256_storeu_si256(reinterpret_cast<__m256i *>(p), v); }

}  // namespace

// in: 8 periods of units A B C D -> out: A0..A7, B0..B7, C0..C7, D0..D7 (a 4x8 transpose).
size_t Deinterleave16to16Avx2(const uint32_t *src, uint32_t *const pairs[4], size_t samples) {
  const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
  const size_t blocks = samples / 8;
  for (size_t b = 0; b < blocks; ++b, src += 32) {
    const __m256i v0 = LoadU(src), v1 = LoadU(src + 8), v2 = LoadU(src + 16), v3 = LoadU(src + 24);
    const __m256i ab01 = _mm256_unpacklo_epi32(v0, v1);  // A0 A2 B0 B2 | A1 A3 B1 B3
    const __m256i cd01 = _mm256_unpackhi_epi32(v0, v1);  // C0 C2 D0 D2 | C1 C3 D1 D3
    const __m256i ab23 = _mm256_unpacklo_epi32(v2, v3);  // A4 A6 B4 B6 | A5 A7 B5 B7
    const __m256i cd23 = _mm256_unpackhi_epi32(v2, v3);
    const size_t at = b * 8;
    StoreU(pairs[0] + at, _mm256_permutevar8x32_epi32(_mm256_unpacklo_epi64(ab01, ab23), order));
    StoreU(pairs[1] + at, _mm256_permutevar8x32_epi32(_mm256_unpackhi_epi64(ab01, ab23), order));
    StoreU(pairs[2] + at, _mm256_permutevar8x32_epi32(_mm256_unpacklo_epi64(cd01, cd23), order));
    StoreU(pairs[3] + at, _mm256_permutevar8x32_epi32(_mm256_unpackhi_epi64(cd01, cd23), order));
  }
  return blocks * 8;
}

}  // namespace kvaudio::layout
