// AVX2 kernel of the exact 24-bit 302M payload reader.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "transport/smpte302m_avx2.h"

namespace kvaudio::transport {
namespace {

// Reverses the bit order of every byte through two nibble lookups.
__m256i ReverseBytes(__m256i v) {
  const __m256i rev = _mm256_setr_epi8(0x0, 0x8, 0x4, 0xC, 0x2, 0xA, 0x6, 0xE, 0x1, 0x9, 0x5, 0xD, 0x3, 0xB, 0x7, 0xF,
                                       0x0, 0x8, 0x4, 0xC, 0x2, 0xA, 0x6, 0xE, 0x1, 0x9, 0x5, 0xD, 0x3, 0xB, 0x7, 0xF);
  const __m256i low = _mm256_set1_epi8(0x0F);
  const __m256i lo = _mm256_shuffle_epi8(rev, _mm256_and_si256(v, low));
  const __m256i hi = _mm256_shuffle_epi8(rev, _mm256_and_si256(_mm256_srli_epi16(v, 4), low));
  return _mm256_or_si256(_mm256_slli_epi16(lo, 4), hi);
}

}  // namespace

size_t Deinterleave302Exact24Avx2(uint32_t *stereo32, const uint8_t *groups, size_t stride, size_t frames) {
  const int s = int(stride);
  const __m256i at = _mm256_setr_epi32(0, s, 2 * s, 3 * s, 4 * s, 5 * s, 6 * s, 7 * s);
  const __m256i keepHigh = _mm256_set1_epi32(int(0xFFFFFF00u));
  size_t f = 0;
  for (; f + 8 <= frames; f += 8, groups += 8 * stride, stereo32 += 16) {
    // Per lane: a = bytes g0..g3, b = bytes g3..g6 of one frame's group, each bit-reversed.
    const __m256i a = ReverseBytes(_mm256_i32gather_epi32(reinterpret_cast<const int *>(groups), at, 1));
    const __m256i b = ReverseBytes(_mm256_i32gather_epi32(reinterpret_cast<const int *>(groups + 3), at, 1));
    const __m256i left = _mm256_slli_epi32(a, 8);
    const __m256i right = _mm256_and_si256(_mm256_slli_epi32(b, 4), keepHigh);
    // lo: L0 R0 L1 R1 | L4 R4 L5 R5, hi: L2 R2 L3 R3 | L6 R6 L7 R7
    const __m256i lo = _mm256_unpacklo_epi32(left, right), hi = _mm256_unpackhi_epi32(left, right);
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(stereo32), _mm256_permute2x128_si256(lo, hi, 0x20));
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(stereo32 + 8), _mm256_permute2x128_si256(lo, hi, 0x31));
  }
  return f;
}

}  // namespace kvaudio::transport
