// AVX2 kernels of the L16/L24 payload conversions: byte shuffles between host and network order.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "network/payload_avx2.h"

namespace kvaudio::network {
namespace {

__m256i Load(const void *p) { return _mm256_loadu_si256(static_cast<const __m256i *>(p)); }
void Store(void *p, __m256i v) { _mm256_storeu_si256(static_cast<__m256i *>(p), v); }
__m128i Load128(const void *p) { return _mm_loadu_si128(static_cast<const __m128i *>(p)); }

// Swaps the bytes of each 16-bit word.
__m256i Swap16() {
  return _mm256_setr_epi8(1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14, 1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11,
                          10, 13, 12, 15, 14);
}

// Eight 32-bit samples to 24 big-endian bytes (bytes 3, 2, 1 of each), stored exactly.
// Per lane: s0..s3 -> 12 bytes in bytes 0-11; the dword permute joins the lanes' 12-byte runs.
void Store24(uint8_t *out, __m256i v) {
  const __m256i top3 = _mm256_setr_epi8(3, 2, 1, 7, 6, 5, 11, 10, 9, 15, 14, 13, -1, -1, -1, -1, 3, 2, 1, 7, 6, 5,
                                        11, 10, 9, 15, 14, 13, -1, -1, -1, -1);
  const __m256i joined =
      _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(v, top3), _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
  _mm_storeu_si128(reinterpret_cast<__m128i *>(out), _mm256_castsi256_si128(joined));
  _mm_storel_epi64(reinterpret_cast<__m128i *>(out + 16), _mm256_extracti128_si256(joined, 1));
}

// 24 big-endian bytes to eight left-justified 32-bit samples. Lane 0 reads bytes 0-11 of a load
// at p, lane 1 bytes 4-15 of a load at p + 8, so exactly 24 bytes are read.
__m256i Load24(const uint8_t *p) {
  const __m256i control = _mm256_setr_epi8(-1, 2, 1, 0, -1, 5, 4, 3, -1, 8, 7, 6, -1, 11, 10, 9, -1, 6, 5, 4, -1, 9,
                                           8, 7, -1, 12, 11, 10, -1, 15, 14, 13);
  const __m256i both = _mm256_inserti128_si256(_mm256_castsi128_si256(Load128(p)), Load128(p + 8), 1);
  return _mm256_shuffle_epi8(both, control);
}

// Top 16 bits of two vectors of 32-bit samples as 16 samples in order.
__m256i Top16(__m256i a, __m256i b) {
  // packs per lane: a0-3 b0-3 | a4-7 b4-7 -> a0-7 b0-7 after the 64-bit permute.
  return _mm256_permute4x64_epi64(_mm256_packs_epi32(_mm256_srai_epi32(a, 16), _mm256_srai_epi32(b, 16)), 0xD8);
}

}  // namespace

size_t Pack16L16Avx2(uint8_t *payload, const int16_t *in, size_t count) {
  const size_t whole = count / 16 * 16;
  for (size_t i = 0; i < whole; i += 16) Store(payload + 2 * i, _mm256_shuffle_epi8(Load(in + i), Swap16()));
  return whole;
}

size_t Unpack16L16Avx2(int16_t *out, const uint8_t *payload, size_t count) {
  const size_t whole = count / 16 * 16;
  for (size_t i = 0; i < whole; i += 16) Store(out + i, _mm256_shuffle_epi8(Load(payload + 2 * i), Swap16()));
  return whole;
}

size_t Pack16L24Avx2(uint8_t *payload, const int16_t *in, size_t count) {
  const size_t whole = count / 8 * 8;
  for (size_t i = 0; i < whole; i += 8)
    Store24(payload + 3 * i, _mm256_slli_epi32(_mm256_cvtepi16_epi32(Load128(in + i)), 16));
  return whole;
}

size_t Pack32L24Avx2(uint8_t *payload, const int32_t *in, size_t count) {
  const size_t whole = count / 8 * 8;
  for (size_t i = 0; i < whole; i += 8) Store24(payload + 3 * i, Load(in + i));
  return whole;
}

size_t Pack32L16Avx2(uint8_t *payload, const int32_t *in, size_t count) {
  const size_t whole = count / 16 * 16;
  for (size_t i = 0; i < whole; i += 16)
    Store(payload + 2 * i, _mm256_shuffle_epi8(Top16(Load(in + i), Load(in + i + 8)), Swap16()));
  return whole;
}

size_t Unpack32L16Avx2(int32_t *out, const uint8_t *payload, size_t count) {
  // Zero-extended words b0 b1 0 0 -> 0 0 b1 b0.
  const __m256i control = _mm256_setr_epi8(-1, -1, 1, 0, -1, -1, 5, 4, -1, -1, 9, 8, -1, -1, 13, 12, -1, -1, 1, 0, -1,
                                           -1, 5, 4, -1, -1, 9, 8, -1, -1, 13, 12);
  const size_t whole = count / 8 * 8;
  for (size_t i = 0; i < whole; i += 8)
    Store(out + i, _mm256_shuffle_epi8(_mm256_cvtepu16_epi32(Load128(payload + 2 * i)), control));
  return whole;
}

size_t Unpack32L24Avx2(int32_t *out, const uint8_t *payload, size_t count) {
  const size_t whole = count / 8 * 8;
  for (size_t i = 0; i < whole; i += 8) Store(out + i, Load24(payload + 3 * i));
  return whole;
}

size_t Unpack16L24Avx2(int16_t *out, const uint8_t *payload, size_t count) {
  const size_t whole = count / 16 * 16;
  for (size_t i = 0; i < whole; i += 16) Store(out + i, Top16(Load24(payload + 3 * i), Load24(payload + 3 * i + 24)));
  return whole;
}

}  // namespace kvaudio::network
