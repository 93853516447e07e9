// AVX2 kernel of the stereo peak meter: vector absolute values and unsigned maxima.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "transport/peak_avx2.h"

namespace kvaudio::transport {
namespace {

// Largest of the eight unsigned 32-bit lanes.
uint32_t HorizontalMax(__m256i v) {
  __m128i m = _mm_max_epu32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
  m = _mm_max_epu32(m, _mm_shuffle_epi32(m, _MM_SHUFFLE(1, 0, 3, 2)));
  m = _mm_max_epu32(m, _mm_shuffle_epi32(m, _MM_SHUFFLE(2, 3, 0, 1)));
  return static_cast<uint32_t>(_mm_cvtsi128_si32(m));
}

}  // namespace

// abs_epi16 turns -32768 into 0x8000, which max_epu16 reads as 32768. Lanes: L R L R ...
size_t audTestPeak16SAvx2(const int16_t *samples, size_t count, uint16_t *left, uint16_t *right) {
  const size_t whole = count / 16 * 16;
  __m256i peak = _mm256_setzero_si256();
  for (size_t i = 0; i < whole; i += 16)
    peak = _mm256_max_epu16(peak, _mm256_abs_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(samples + i))));
  const uint32_t l = HorizontalMax(_mm256_and_si256(peak, _mm256_set1_epi32(0xFFFF)));
  const uint32_t r = HorizontalMax(_mm256_srli_epi32(peak, 16));
  if (l > *left) *left = static_cast<uint16_t>(l);
  if (r > *right) *right = static_cast<uint16_t>(r);
  return whole;
}

}  // namespace kvaudio::transport
