// Declarations of the L16/L24 payload AVX2 kernels; bodies live in payload_avx2.cpp only.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kvaudio::network {

// Contiguous runs of `count` samples. Each kernel converts whole vectors and returns the samples
// it converted; the caller finishes the rest with its plain loop from that point.
size_t Pack16L16Avx2(uint8_t *payload, const int16_t *in, size_t count);
size_t Pack16L24Avx2(uint8_t *payload, const int16_t *in, size_t count);
size_t Pack32L16Avx2(uint8_t *payload, const int32_t *in, size_t count);
size_t Pack32L24Avx2(uint8_t *payload, const int32_t *in, size_t count);
size_t Unpack16L16Avx2(int16_t *out, const uint8_t *payload, size_t count);
size_t Unpack16L24Avx2(int16_t *out, const uint8_t *payload, size_t count);
size_t Unpack32L16Avx2(int32_t *out, const uint8_t *payload, size_t count);
size_t Unpack32L24Avx2(int32_t *out, const uint8_t *payload, size_t count);

}  // namespace kvaudio::network
