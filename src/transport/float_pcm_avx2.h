// Declarations of the float conversion AVX2 kernels; bodies live in float_pcm_avx2.cpp only.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kvaudio::transport {

// Each kernel converts whole vectors and returns the samples it converted; the caller finishes
// the rest with its plain loop from that point.

// s * scale after clearing the bits outside `mask`.
size_t Int16ToFloatAvx2(float *out, const int16_t *in, size_t count);
size_t Int32ToFloatAvx2(float *out, const int32_t *in, size_t count, uint32_t mask);

// Float to n-bit integers (see FloatToIntPlain in float_pcm.cpp). When dither is true, sample i
// gets the dither of counter (counter + 2 i) under `key`.
size_t FloatToInt32Avx2(int32_t *out, const float *in, size_t count, uint32_t bits, bool dither, uint32_t key,
                        uint32_t counter);
size_t FloatToInt16Avx2(int16_t *out, const float *in, size_t count, bool dither, uint32_t key, uint32_t counter);

}  // namespace kvaudio::transport
