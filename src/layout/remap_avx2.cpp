// AVX2 kernels of the channel remap for maps with one source bit per channel.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "layout/remap_avx2.h"

namespace kvaudio::layout {

namespace {

__m256i LoadLanes(const uint8_t *p, size_t laneBytes) {
  const __m128i lo = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
  const __m128i hi = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p + laneBytes));
  return _mm256_inserti128_si256(_mm256_castsi128_si256(lo), hi, 1);
}

void StoreLanes(uint8_t *p, size_t laneBytes, __m256i v) {
  _mm_storeu_si128(reinterpret_cast<__m128i *>(p), _mm256_castsi256_si128(v));
  _mm_storeu_si128(reinterpret_cast<__m128i *>(p + laneBytes), _mm256_extracti128_si256(v, 1));
}

// One period of kVectors vectors: all loads first, so the work is in place.
template <size_t kVectors>
void CrossLanePeriod(uint8_t *period, const __m256i (&control)[2][2][2]) {
  __m256i asLoaded[kVectors], swapped[kVectors], out[kVectors];
  for (size_t i = 0; i < kVectors; ++i) {
    asLoaded[i] = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(period + 32 * i));
    swapped[i] = _mm256_permute2x128_si256(asLoaded[i], asLoaded[i], 0x01);
  }
  for (size_t j = 0; j < kVectors; ++j) {
    out[j] = _mm256_setzero_si256();
    for (size_t i = 0; i < kVectors; ++i)
      out[j] = _mm256_or_si256(out[j], _mm256_or_si256(_mm256_shuffle_epi8(asLoaded[i], control[j][i][0]),
                                                       _mm256_shuffle_epi8(swapped[i], control[j][i][1])));
  }
  for (size_t j = 0; j < kVectors; ++j) _mm256_storeu_si256(reinterpret_cast<__m256i *>(period + 32 * j), out[j]);
}

}  // namespace

// Lane pair: lane 0 from p, lane 1 from p + laneBytes. Bytes past laneBytes in a lane map to
// themselves, so storing lane 0 before lane 1 leaves every byte right. The next pair is loaded
// before this one is stored, so no load waits on an overlapping store.
size_t RemapLaneShuffleAvx2(uint8_t *buffer, size_t bytes, size_t laneBytes, const uint8_t control[16]) {
  const __m256i shuffle = _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i *>(control)));
  size_t at = 0;
  if (laneBytes == 16) {
    for (; at + 32 <= bytes; at += 32) {
      __m256i *p = reinterpret_cast<__m256i *>(buffer + at);
      _mm256_storeu_si256(p, _mm256_shuffle_epi8(_mm256_loadu_si256(p), shuffle));
    }
    return at;
  }
  const size_t step = 2 * laneBytes, reach = laneBytes + 16;
  if (reach > bytes) return 0;
  __m256i v = LoadLanes(buffer, laneBytes);
  for (;;) {
    const bool more = at + step + reach <= bytes;
    const __m256i next = more ? LoadLanes(buffer + at + step, laneBytes) : v;
    StoreLanes(buffer + at, laneBytes, _mm256_shuffle_epi8(v, shuffle));
    at += step;
    if (!more) return at;
    v = next;
  }
}

size_t RemapCrossLaneAvx2(uint8_t *buffer, size_t periods, size_t vectors, const uint8_t *control) {
  __m256i c[2][2][2] = {};
  for (size_t j = 0; j < vectors; ++j)
    for (size_t i = 0; i < vectors; ++i)
      for (size_t k = 0; k < 2; ++k)
        c[j][i][k] = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(control + ((j * vectors + i) * 2 + k) * 32));
  const size_t periodBytes = 32 * vectors;
  for (size_t p = 0; p < periods; ++p) {
    if (vectors == 1) CrossLanePeriod<1>(buffer + p * periodBytes, c);
    else CrossLanePeriod<2>(buffer + p * periodBytes, c);
  }
  return periods;
}

size_t AudioRemap32Bit8Avx2(uint32_t *buffer, size_t periods, const int32_t index[8]) {
  const __m256i order = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(index));
  for (size_t i = 0; i < periods; ++i) {
    __m256i *p = reinterpret_cast<__m256i *>(buffer + 8 * i);
    _mm256_storeu_si256(p, _mm256_permutevar8x32_epi32(_mm256_loadu_si256(p), order));
  }
  return periods;
}

}  // namespace kvaudio::layout
