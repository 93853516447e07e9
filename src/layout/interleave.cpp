// Interleave and deinterleave between multichannel buffers and stereo-pair buffers.
#include "kvaudio/interleave.h"

#include "frame/cpu.h"
#include "layout/interleave_avx2.h"

namespace kvaudio::layout {
namespace {

// A null pair takes no room in the source period.
void Deinterleave16to16Plain(const uint32_t *src, uint32_t *const pairs[4], size_t from, size_t samples) {
  uint32_t *out[4];
  for (int k = 0; k < 4; ++k) out[k] = pairs[k] ? pairs[k] + from : nullptr;
  for (size_t i = from; i < samples; ++i)
    for (int k = 0; k < 4; ++k)
      if (out[k]) *out[k]++ = *src++;
}

}  // namespace
}  // namespace kvaudio::layout

using namespace kvaudio::layout;

extern "C" {

uint32_t AudioDeinterleave16to16(const uint32_t *src, uint32_t *pair0, uint32_t *pair1, uint32_t *pair2,
                                 uint32_t *pair3, uint32_t samples) {
  uint32_t *const pairs[4] = {pair0, pair1, pair2, pair3};
  size_t done = 0;
  if (pair0 && pair1 && pair2 && pair3 && KVAudioCPUHasAVX2())
    done = Deinterleave16to16Avx2(src, pairs, samples);
  Deinterleave16to16Plain(src + done * 4, pairs, done, samples);
  return 0;
}

}  // extern "C"
