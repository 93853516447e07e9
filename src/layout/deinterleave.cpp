// Deinterleave: one interleaved multichannel buffer into stereo-pair buffers.
#include <algorithm>

#include "kvaudio/interleave.h"
#include "layout/interleave_avx2.h"
#include "layout/interleave_loops.h"

namespace kvaudio::layout {
namespace {

// What a null pair does to the source period.
enum class Absent {
  kTakesNoRoom,  // the source holds only the present pairs, packed in pair order
  kSkipped,      // the period keeps its full size and the pair's data is passed over
};

// Four- or eight-pair split of kPer elements a pair. The kernel runs only when every pair is
// present; the AVX2 test is not made otherwise.
template <class F, size_t kPairs, size_t kPer>
uint32_t Split(const typename F::In *src, typename F::Out *const *pairs, uint32_t samples, Absent absent,
               SplitKernel<F> kernel) {
  if (!src) return 0;
  if (AllPresent(pairs, kPairs)) {
    SplitFull<F, kPairs, kPer>(src, pairs, samples, kernel);
    return 0;
  }
  SplitLane<F> lanes[kPairs];
  size_t n = 0, offset = 0;
  for (size_t k = 0; k < kPairs; ++k) {
    if (pairs[k]) lanes[n++] = {pairs[k], offset, kPer};
    if (pairs[k] || absent == Absent::kSkipped) offset += kPer;
  }
  SplitLanes(src, offset, kPer, lanes, n, 0, samples);
  return 0;
}

// Source periods of pairCount pairs; a null entry's data is skipped. The kernels take exactly
// four (`four`) or eight (`eight`) present pairs.
template <class F, size_t kPer>
uint32_t SplitArray(const typename F::In *src, KVAudioBuffer *const *pairs, uint32_t pairCount, uint32_t samples,
                    SplitKernel<F> four, SplitKernel<F> eight) {
  if (!src || !pairs) return 0;
  using Out = typename F::Out;
  ForTableGroups<Out>(
      pairs, pairCount, [&](Out *const *table) { return (pairCount == 4 ? four : eight)(src, table, samples); },
      [&](Out *const *table, size_t first, size_t n, size_t done) {
        SplitLane<F> lanes[kTableSize];
        size_t m = 0;
        for (size_t k = 0; k < n; ++k)
          if (table[k]) lanes[m++] = {table[k], (first + k) * kPer, kPer};
        SplitLanes(src, size_t{pairCount} * kPer, kPer, lanes, m, done, samples);
      });
  return 0;
}

// 16-bit source of `channels` channels into four pairs of 32-bit words; channels at or beyond
// `channels` are not written, and a null pair's channels are passed over.
template <class F>
uint32_t SplitChannels(const uint16_t *src, uint32_t *const *pairs, uint32_t samples, uint32_t channels,
                       SplitKernel<F> kernel) {
  if (!src) return 0;
  if (channels == 8 && AllPresent(pairs, 4)) {
    SplitFull<F, 4, 2>(src, pairs, samples, kernel);
    return 0;
  }
  SplitLane<F> lanes[4];
  size_t n = 0;
  for (size_t k = 0; k < 4; ++k)
    if (pairs[k] && 2 * k < channels) lanes[n++] = {pairs[k], 2 * k, std::min<size_t>(2, channels - 2 * k)};
  SplitLanes(src, channels, 2, lanes, n, 0, samples);
  return 0;
}

}  // namespace
}  // namespace kvaudio::layout

using namespace kvaudio::layout;

extern "C" {

uint32_t AudioDeinterleave16to16(const uint32_t *src, uint32_t *pair0, uint32_t *pair1, uint32_t *pair2,
                                 uint32_t *pair3, uint32_t samples) {
  uint32_t *const pairs[] = {pair0, pair1, pair2, pair3};
  return Split<Copy32, 4, 1>(src, pairs, samples, Absent::kTakesNoRoom, AudioDeinterleave16to16Avx2);
}

uint32_t AudioDeinterleave32to32(const uint32_t *src, uint32_t *pair0, uint32_t *pair1, uint32_t *pair2,
                                 uint32_t *pair3, uint32_t samples) {
  uint32_t *const pairs[] = {pair0, pair1, pair2, pair3};
  return Split<Copy32, 4, 2>(src, pairs, samples, Absent::kTakesNoRoom, AudioDeinterleave32to32Avx2);
}

uint32_t AudioDeinterleave24to16(const uint32_t *src, uint16_t *pair0, uint16_t *pair1, uint16_t *pair2,
                                 uint16_t *pair3, uint32_t samples) {
  uint16_t *const pairs[] = {pair0, pair1, pair2, pair3};
  return Split<Upper16, 4, 2>(src, pairs, samples, Absent::kSkipped, AudioDeinterleave24to16Avx2);
}

uint32_t AudioDeinterleave24to20(const uint32_t *src, uint32_t *pair0, uint32_t *pair1, uint32_t *pair2,
                                 uint32_t *pair3, uint32_t samples) {
  uint32_t *const pairs[] = {pair0, pair1, pair2, pair3};
  return Split<KeepTop<20>, 4, 2>(src, pairs, samples, Absent::kSkipped, AudioDeinterleave32to20Avx2);
}

uint32_t AudioDeinterleave32to24(const uint32_t *src, uint32_t *pair0, uint32_t *pair1, uint32_t *pair2,
                                 uint32_t *pair3, uint32_t samples) {
  uint32_t *const pairs[] = {pair0, pair1, pair2, pair3};
  return Split<KeepTop<24>, 4, 2>(src, pairs, samples, Absent::kTakesNoRoom, nullptr);
}

uint32_t AudioDeinterleave24to32(const uint8_t *src, uint32_t *pair0, uint32_t *pair1, uint32_t *pair2,
                                 uint32_t *pair3, uint32_t samples) {
  uint32_t *const pairs[] = {pair0, pair1, pair2, pair3};
  return Split<Packed24To32, 4, 2>(src, pairs, samples, Absent::kTakesNoRoom, nullptr);
}

uint32_t AudioDeInterleave16to24(const uint16_t *src, uint32_t *pair0, uint32_t *pair1, uint32_t *pair2,
                                 uint32_t *pair3, uint32_t samples, uint32_t channels) {
  uint32_t *const pairs[] = {pair0, pair1, pair2, pair3};
  return SplitChannels<Widen16<8>>(src, pairs, samples, channels, nullptr);
}

uint32_t AudioDeInterleave16to32(const uint16_t *src, uint32_t *pair0, uint32_t *pair1, uint32_t *pair2,
                                 uint32_t *pair3, uint32_t samples, uint32_t channels) {
  uint32_t *const pairs[] = {pair0, pair1, pair2, pair3};
  return SplitChannels<Widen16<16>>(src, pairs, samples, channels, AudioDeInterleave16to32Avx2);
}

uint32_t AudioDeinterleave16to16_16(const uint32_t *src, uint32_t *pair0, uint32_t *pair1, uint32_t *pair2,
                                    uint32_t *pair3, uint32_t *pair4, uint32_t *pair5, uint32_t *pair6,
                                    uint32_t *pair7, uint32_t samples) {
  uint32_t *const pairs[] = {pair0, pair1, pair2, pair3, pair4, pair5, pair6, pair7};
  return Split<Copy32, 8, 1>(src, pairs, samples, Absent::kTakesNoRoom, AudioDeinterleave16to16_16Avx2);
}

uint32_t AudioDeinterleave32to32_16(const uint32_t *src, uint32_t *pair0, uint32_t *pair1, uint32_t *pair2,
                                    uint32_t *pair3, uint32_t *pair4, uint32_t *pair5, uint32_t *pair6,
                                    uint32_t *pair7, uint32_t samples) {
  uint32_t *const pairs[] = {pair0, pair1, pair2, pair3, pair4, pair5, pair6, pair7};
  return Split<Copy32, 8, 2>(src, pairs, samples, Absent::kTakesNoRoom, AudioDeinterleave32to32_16Avx2);
}

uint32_t AudioDeinterleave32to16_16(const uint32_t *src, uint16_t *pair0, uint16_t *pair1, uint16_t *pair2,
                                    uint16_t *pair3, uint16_t *pair4, uint16_t *pair5, uint16_t *pair6,
                                    uint16_t *pair7, uint32_t samples) {
  uint16_t *const pairs[] = {pair0, pair1, pair2, pair3, pair4, pair5, pair6, pair7};
  return Split<Upper16, 8, 2>(src, pairs, samples, Absent::kSkipped, AudioDeinterleave32to16_16Avx2);
}

uint32_t AudioDeinterleave16to16Array(const uint32_t *src, KVAudioBuffer *const *pairs, uint32_t pairCount,
                                      uint32_t samples) {
  return SplitArray<Copy32, 1>(src, pairs, pairCount, samples, AudioDeinterleave16to16Avx2,
                               AudioDeinterleave16to16_16Avx2);
}

uint32_t AudioDeinterleave32to32Array(const uint32_t *src, KVAudioBuffer *const *pairs, uint32_t pairCount,
                                      uint32_t samples) {
  return SplitArray<Copy32, 2>(src, pairs, pairCount, samples, AudioDeinterleave32to32Avx2,
                               AudioDeinterleave32to32_16Avx2);
}

}  // extern "C"

KVAUDIO_ALIAS(AudioDeinterleave24to24, AudioDeinterleave32to32);
KVAUDIO_ALIAS(AudioDeinterleave32to16, AudioDeinterleave24to16);
KVAUDIO_ALIAS(AudioDeinterleave32to20, AudioDeinterleave24to20);
