// AVX2 search for the next LTC transition: 32 bytes of samples tested per step.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "timing/ltc_decoder_avx2.h"

namespace {

// movemask bits that belong to the read channel: one bit per byte of each sample frame.
uint32_t ChannelBits(int sampleBytes, int stride, int offset) {
  if (stride == 1) return 0xFFFFFFFFu;
  if (sampleBytes == 1) return offset == 0 ? 0x55555555u : 0xAAAAAAAAu;  // L R L R ... bytes
  return offset == 0 ? 0x33333333u : 0xCCCCCCCCu;                        // LL RR LL RR ... bytes
}

// Returns the frame of the first set bit of `hits` in the vector starting at frame `from`; a
// sample frame spans 1 << frameShift bytes (stride is 1 or 2, so shifts replace divisions).
uint32_t FrameOfBit(uint32_t from, uint32_t hits, uint32_t frameShift) {
  return from + (static_cast<uint32_t>(__builtin_ctz(hits)) >> frameShift);
}

}  // namespace

namespace kvaudio::ltc {

uint32_t FindCrossing8Avx2(const uint8_t *p, uint32_t from, uint32_t n, int stride, int offset,
                           int threshold, bool waitHigh) {
  const uint32_t frameShift = stride == 1 ? 0 : 1;
  const uint32_t perVector = 32u >> frameShift;
  const uint32_t lanes = ChannelBits(1, stride, offset);
  // Unsigned tests: v >= t when max(v, t) == v; v < t when min(v, t - 1) == v.
  const __m256i t = _mm256_set1_epi8(static_cast<char>(waitHigh ? threshold : threshold - 1));
  for (; n - from >= perVector; from += perVector) {
    const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p + static_cast<size_t>(from) * stride));
    const __m256i bound = waitHigh ? _mm256_max_epu8(v, t) : _mm256_min_epu8(v, t);
    const uint32_t hits = static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(bound, v))) & lanes;
    if (hits) return FrameOfBit(from, hits, frameShift);
  }
  return from;
}

uint32_t FindCrossing16Avx2(const int16_t *p, uint32_t from, uint32_t n, int stride, int offset,
                            int threshold, bool waitHigh) {
  const uint32_t frameShift = stride == 1 ? 1 : 2;
  const uint32_t perVector = 32u >> frameShift;
  const uint32_t lanes = ChannelBits(2, stride, offset);
  // Signed tests: v >= t when v > t - 1; v < t when t > v.
  const __m256i t = _mm256_set1_epi16(static_cast<short>(waitHigh ? threshold - 1 : threshold));
  for (; n - from >= perVector; from += perVector) {
    const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p + static_cast<size_t>(from) * stride));
    const __m256i hit = waitHigh ? _mm256_cmpgt_epi16(v, t) : _mm256_cmpgt_epi16(t, v);
    const uint32_t hits = static_cast<uint32_t>(_mm256_movemask_epi8(hit)) & lanes;
    if (hits) return FrameOfBit(from, hits, frameShift);
  }
  return from;
}

}  // namespace kvaudio::ltc
