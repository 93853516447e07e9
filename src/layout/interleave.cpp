// Interleave: stereo-pair buffers into one interleaved multichannel buffer.
#include <algorithm>

#include "kvaudio/interleave.h"
#include "layout/interleave_avx2.h"
#include "layout/interleave_loops.h"

namespace kvaudio::layout {
namespace {

// Four- or eight-pair join into periods of `channels` channels. Pair k keeps its slot (channels
// 2k, 2k+1) whether present or not; a slot half below `channels` gets the left sample only. The
// kernel needs the full channel count and every pair; pair 0 is required otherwise.
template <class F, size_t kPairs>
uint32_t Join(typename F::Out *dst, const typename F::In *const *pairs, uint32_t samples, uint32_t channels,
              JoinKernel<F> kernel) {
  if (!dst) return 0;
  if (channels == 2 * kPairs && AllPresent(pairs, kPairs)) {
    JoinFull<F, kPairs, 2>(dst, pairs, samples, kernel);
    return 0;
  }
  if (!pairs[0] && channels != 2 * kPairs) return 0;
  JoinLane<F> lanes[kPairs];
  size_t n = 0;
  for (size_t k = 0; k < kPairs; ++k)
    if (pairs[k] && 2 * k < channels) lanes[n++] = {pairs[k], 2 * k, std::min<size_t>(2, channels - 2 * k)};
  JoinLanes(dst, channels, 2, lanes, n, 0, samples);
  return 0;
}

// Destination periods of pairCount pairs; a null entry leaves its slot unwritten. The kernels
// take exactly four (`four`) or eight (`eight`) present pairs.
template <class F>
uint32_t JoinArray(typename F::Out *dst, KVAudioBuffer *const *pairs, uint32_t pairCount, uint32_t samples,
                   JoinKernel<F> four, JoinKernel<F> eight) {
  if (!dst || !pairs) return 0;
  using In = const typename F::In;
  ForTableGroups<In>(
      pairs, pairCount, [&](In *const *table) { return (pairCount == 4 ? four : eight)(dst, table, samples); },
      [&](In *const *table, size_t first, size_t n, size_t done) {
        JoinLane<F> lanes[kTableSize];
        size_t m = 0;
        for (size_t k = 0; k < n; ++k)
          if (table[k]) lanes[m++] = {table[k], 2 * (first + k), 2};
        JoinLanes(dst, 2 * size_t{pairCount}, 2, lanes, m, done, samples);
      });
  return 0;
}

}  // namespace
}  // namespace kvaudio::layout

using namespace kvaudio::layout;

extern "C" {

uint32_t AudioInterleave16to16(uint16_t *dst, const uint16_t *pair0, const uint16_t *pair1, const uint16_t *pair2,
                               const uint16_t *pair3, uint32_t samples, uint32_t channels) {
  const uint16_t *const pairs[] = {pair0, pair1, pair2, pair3};
  return Join<Copy16, 4>(dst, pairs, samples, channels, AudioInterleave16to16Avx2);
}

uint32_t AudioInterleave32to32(uint32_t *dst, const uint32_t *pair0, const uint32_t *pair1, const uint32_t *pair2,
                               const uint32_t *pair3, uint32_t samples, uint32_t channels) {
  const uint32_t *const pairs[] = {pair0, pair1, pair2, pair3};
  return Join<Copy32, 4>(dst, pairs, samples, channels, AudioInterleave32to32Avx2);
}

uint32_t AudioInterleave16to24(uint32_t *dst, const uint16_t *pair0, const uint16_t *pair1, const uint16_t *pair2,
                               const uint16_t *pair3, uint32_t samples, uint32_t channels) {
  const uint16_t *const pairs[] = {pair0, pair1, pair2, pair3};
  return Join<Widen16<16>, 4>(dst, pairs, samples, channels, AudioInterleave16to32Avx2);
}

uint32_t AudioInterleave16to16_16(uint16_t *dst, const uint16_t *pair0, const uint16_t *pair1,
                                  const uint16_t *pair2, const uint16_t *pair3, const uint16_t *pair4,
                                  const uint16_t *pair5, const uint16_t *pair6, const uint16_t *pair7,
                                  uint32_t samples, uint32_t channels) {
  const uint16_t *const pairs[] = {pair0, pair1, pair2, pair3, pair4, pair5, pair6, pair7};
  return Join<Copy16, 8>(dst, pairs, samples, channels, AudioInterleave16to16_16Avx2);
}

uint32_t AudioInterleave32to32_16(uint32_t *dst, const uint32_t *pair0, const uint32_t *pair1,
                                  const uint32_t *pair2, const uint32_t *pair3, const uint32_t *pair4,
                                  const uint32_t *pair5, const uint32_t *pair6, const uint32_t *pair7,
                                  uint32_t samples, uint32_t channels) {
  const uint32_t *const pairs[] = {pair0, pair1, pair2, pair3, pair4, pair5, pair6, pair7};
  return Join<Copy32, 8>(dst, pairs, samples, channels, AudioInterleave32to32_16Avx2);
}

uint32_t AudioInterleave16to32_16(uint32_t *dst, const uint16_t *pair0, const uint16_t *pair1,
                                  const uint16_t *pair2, const uint16_t *pair3, const uint16_t *pair4,
                                  const uint16_t *pair5, const uint16_t *pair6, const uint16_t *pair7,
                                  uint32_t samples, uint32_t channels) {
  const uint16_t *const pairs[] = {pair0, pair1, pair2, pair3, pair4, pair5, pair6, pair7};
  return Join<Widen16<16>, 8>(dst, pairs, samples, channels, AudioInterleave16to32_16Avx2);
}

uint32_t AudioInterleave16to16Array(uint16_t *dst, KVAudioBuffer *const *pairs, uint32_t pairCount,
                                    uint32_t samples) {
  return JoinArray<Copy16>(dst, pairs, pairCount, samples, AudioInterleave16to16Avx2, AudioInterleave16to16_16Avx2);
}

uint32_t AudioInterleave32to32Array(uint32_t *dst, KVAudioBuffer *const *pairs, uint32_t pairCount,
                                    uint32_t samples) {
  return JoinArray<Copy32>(dst, pairs, pairCount, samples, AudioInterleave32to32Avx2, AudioInterleave32to32_16Avx2);
}

}  // extern "C"

KVAUDIO_ALIAS(AudioInterleave16to32, AudioInterleave16to24);
KVAUDIO_ALIAS(AudioInterleave24to32, AudioInterleave32to32);
KVAUDIO_ALIAS(AudioInterleave20to24, AudioInterleave32to32);
KVAUDIO_ALIAS(AudioInterleave20to32, AudioInterleave32to32);
KVAUDIO_ALIAS(AudioInterleave24to24, AudioInterleave32to32);
KVAUDIO_ALIAS(AudioInterleave24to32_16, AudioInterleave32to32_16);
