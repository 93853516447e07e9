// Integer PCM to float and back: the exported dispatchers, their plain loops and the TPDF dither.
#include <cmath>
#include <cstring>

#include "frame/cpu.h"
#include "kvaudio/float_pcm.h"
#include "transport/float_pcm_avx2.h"

namespace kvaudio::transport {
namespace {

// 32-bit integer hash (xorshift-multiply); the kernel repeats the same steps lane by lane.
uint32_t Hash32(uint32_t x) {
  x ^= x >> 16;
  x *= 0x21F0AAADu;
  x ^= x >> 15;
  x *= 0x735A2D97u;
  x ^= x >> 15;
  return x;
}

// Difference of two uniform 24-bit values scaled by 2^-24: triangular in (-1, 1), exact in float.
float Tpdf(uint32_t key, uint32_t counter) {
  const int32_t a = static_cast<int32_t>(Hash32(counter ^ key) >> 8);
  const int32_t b = static_cast<int32_t>(Hash32((counter + 1) ^ key) >> 8);
  return static_cast<float>(a - b) * 0x1p-24f;
}

uint32_t Key(const KVAudioDither &d) {
  return static_cast<uint32_t>(d.seed) ^ static_cast<uint32_t>(d.seed >> 32) * 0x9E3779B9u;
}

// round(x * 2^(bits-1) + dither) saturated to the bits-bit range, NaN to 0, not yet shifted.
int32_t FloatToIntPlain(float x, uint32_t bits, bool dither, uint32_t key, uint32_t counter) {
  const float full = std::ldexp(1.0f, static_cast<int>(bits) - 1);
  float y = x * full;
  if (dither) y = y + Tpdf(key, counter);
  const float r = std::nearbyint(y);
  if (r >= full) return static_cast<int32_t>(static_cast<uint32_t>(full) - 1u);
  if (r <= -full) return static_cast<int32_t>(0u - static_cast<uint32_t>(full));
  if (r != r) return 0;
  return static_cast<int32_t>(r);
}

bool BitsOk(uint32_t bits) { return bits >= 8 && bits <= 32; }

uint32_t Mask(uint32_t bits) { return bits == 32 ? 0xFFFFFFFFu : ~((1u << (32 - bits)) - 1u); }

// Runs the kernel when there is one and AVX2 may be used, then the plain loop from where it stopped.
template <typename Out, typename Kernel, typename Plain>
void Run(Out *out, size_t count, Kernel kernel, Plain plain) {
  size_t done = 0;
  if (KVAudioCPUHasAVX2()) done = kernel();
  for (size_t i = done; i < count; ++i) out[i] = plain(i);
}

}  // namespace
}  // namespace kvaudio::transport

using namespace kvaudio::transport;

extern "C" {

uint32_t KVAudioInt16ToFloat(float *out, const int16_t *in, uint32_t count) {
  if (count == 0) return KVAUDIO_PCM_OK;
  if (!out || !in) return KVAUDIO_PCM_NULL_BUFFER;
  Run(out, count, [&] { return Int16ToFloatAvx2(out, in, count); },
      [&](size_t i) { return static_cast<float>(in[i]) * 0x1p-15f; });
  return KVAUDIO_PCM_OK;
}

uint32_t KVAudioInt32ToFloat(float *out, const int32_t *in, uint32_t count, uint32_t bits) {
  if (!BitsOk(bits)) return KVAUDIO_PCM_BAD_BITS;
  if (count == 0) return KVAUDIO_PCM_OK;
  if (!out || !in) return KVAUDIO_PCM_NULL_BUFFER;
  const uint32_t mask = Mask(bits);
  Run(out, count, [&] { return Int32ToFloatAvx2(out, in, count, mask); },
      [&](size_t i) { return static_cast<float>(static_cast<int32_t>(static_cast<uint32_t>(in[i]) & mask)) * 0x1p-31f; });
  return KVAUDIO_PCM_OK;
}

uint32_t KVAudioFloatToInt16(int16_t *out, const float *in, uint32_t count, KVAudioDither *dither) {
  if (count == 0) return KVAUDIO_PCM_OK;
  if (!out || !in) return KVAUDIO_PCM_NULL_BUFFER;
  const bool on = dither != nullptr;
  const uint32_t key = on ? Key(*dither) : 0, counter = on ? static_cast<uint32_t>(dither->position) * 2u : 0;
  Run(out, count, [&] { return FloatToInt16Avx2(out, in, count, on, key, counter); },
      [&](size_t i) {
        return static_cast<int16_t>(FloatToIntPlain(in[i], 16, on, key, counter + 2u * static_cast<uint32_t>(i)));
      });
  if (on) dither->position += count;
  return KVAUDIO_PCM_OK;
}

uint32_t KVAudioFloatToInt32(int32_t *out, const float *in, uint32_t count, uint32_t bits, KVAudioDither *dither) {
  if (!BitsOk(bits)) return KVAUDIO_PCM_BAD_BITS;
  if (count == 0) return KVAUDIO_PCM_OK;
  if (!out || !in) return KVAUDIO_PCM_NULL_BUFFER;
  const bool on = dither != nullptr;
  const uint32_t key = on ? Key(*dither) : 0, counter = on ? static_cast<uint32_t>(dither->position) * 2u : 0;
  const uint32_t shift = 32 - bits;
  Run(out, count, [&] { return FloatToInt32Avx2(out, in, count, bits, on, key, counter); },
      [&](size_t i) {
        const int32_t v = FloatToIntPlain(in[i], bits, on, key, counter + 2u * static_cast<uint32_t>(i));
        return static_cast<int32_t>(static_cast<uint32_t>(v) << shift);
      });
  if (on) dither->position += count;
  return KVAUDIO_PCM_OK;
}

}  // extern "C"
