// Packed 24-bit readers and the mono-into-stereo re-interleavers.
#include "frame/cpu.h"
#include "kvaudio/aes3.h"
#include "transport/aes3_avx2.h"
#include "transport/words.h"

namespace kvaudio::transport {
namespace {

// Samples [from, count) of a packed run at `stride` bytes a sample into out[i * step].
void Packed24Plain(uint32_t *out, size_t step, const uint8_t *packed, size_t stride, size_t from, size_t count,
                   bool bigEndian) {
  for (size_t i = from; i < count; ++i) out[i * step] = Packed24To32(packed + i * stride, bigEndian);
}

// Mono into the right (slot 1) or left (any other slot) element of each stereo pair.
template <typename T>
uint64_t MonoIntoStereo(const T *mono, T *stereo, uint32_t slot, uint32_t count,
                        size_t (*kernel)(const T *, T *, size_t, bool)) {
  const bool right = slot == 1;
  size_t done = 0;
  if (KVAudioCPUHasAVX2()) done = kernel(mono, stereo, count, right);
  for (size_t i = done; i < count; ++i) stereo[2 * i + right] = mono[i];
  return 0;
}

// Element 1 when slot is 1, element 0 for any other slot; the kernel takes slots 0 and 1.
uint64_t Reinterleave24(uint32_t *stereo32, const uint8_t *packed24, uint32_t slot, uint32_t count, bool bigEndian) {
  const bool right = slot == 1;
  size_t done = 0;
  if (slot < 2 && KVAudioCPUHasAVX2())
    done = KVAudioReinterleave24Monoto32StereoAvx2(stereo32, packed24, count, right, bigEndian);
  Packed24Plain(stereo32 + right, 2, packed24, 3, done, count, bigEndian);
  return 0;
}

}  // namespace
}  // namespace kvaudio::transport

using namespace kvaudio::transport;

extern "C" {

uint64_t KVAudioConvertAES324Stereoto32(uint32_t *stereo32, const uint8_t *packed, uint32_t frames,
                                        uint32_t bigEndian, uint32_t pairIndex, uint32_t frameBytes) {
  const uint8_t *pair = packed + size_t{pairIndex} * 6;
  const bool be = bigEndian != 0;
  size_t done = 0;
  if (frameBytes == 6 && KVAudioCPUHasAVX2()) done = KVAudioConvertAES324Stereoto32Avx2(stereo32, pair, frames, be);
  Packed24Plain(stereo32, 2, pair, frameBytes, done, frames, be);
  Packed24Plain(stereo32 + 1, 2, pair + 3, frameBytes, done, frames, be);
  return 0;
}

uint64_t KVAudioConvertAES324DualMonoto32(uint32_t *stereo32, const uint8_t *packedA, const uint8_t *packedB,
                                          uint32_t frames, uint32_t bigEndian, uint32_t index, uint32_t stride) {
  const uint8_t *a = packedA + size_t{index} * 6;
  const bool be = bigEndian != 0;
  size_t done = 0;
  if (stride == 3 && KVAudioCPUHasAVX2()) done = KVAudioConvertAES324DualMonoto32Avx2(stereo32, a, packedB, frames, be);
  Packed24Plain(stereo32, 2, a, stride, done, frames, be);
  Packed24Plain(stereo32 + 1, 2, packedB, stride, done, frames, be);
  return 0;
}

uint64_t KVAudioConvertAES324Monoto32(uint32_t *mono32, const uint8_t *packed, uint32_t count, uint32_t bigEndian) {
  const bool be = bigEndian != 0;
  size_t done = 0;
  if (KVAudioCPUHasAVX2()) done = KVAudioConvertAES324Monoto32Avx2(mono32, packed, count, be);
  Packed24Plain(mono32, 1, packed, 3, done, count, be);
  return 0;
}

uint64_t KVAudioReinterleaveAES3_24monoto32stereo(uint32_t *stereo32, const uint8_t *packed24, uint32_t slot,
                                                  uint32_t count) {
  return Reinterleave24(stereo32, packed24, slot, count, false);
}

uint64_t KVAudioReinterleaveAES3_24monoto32stereo_BE(uint32_t *stereo32, const uint8_t *packed24, uint32_t slot,
                                                     uint32_t count) {
  return Reinterleave24(stereo32, packed24, slot, count, true);
}

uint64_t KVAudioReinterleaveAES3_16monoto16stereo(const int16_t *mono16, int16_t *stereo16, uint32_t slot,
                                                  uint32_t count) {
  return MonoIntoStereo(mono16, stereo16, slot, count, KVAudioReinterleaveAES3_16monoto16stereoAvx2);
}

uint64_t KVAudioReinterleaveAES3_32monoto32stereo(const uint32_t *mono32, uint32_t *stereo32, uint32_t slot,
                                                  uint32_t count) {
  return MonoIntoStereo(mono32, stereo32, slot, count, KVAudioReinterleaveAES3_32monoto32stereoAvx2);
}

}  // extern "C"
