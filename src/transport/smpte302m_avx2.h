// Declaration of the exact 24-bit 302M payload AVX2 kernel; its body lives in smpte302m_avx2.cpp only.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kvaudio::transport {

// Whole blocks of 8 frames of 7-byte groups `stride` bytes apart (stride * 8 < 2^31) to 32-bit
// stereo; returns the frames converted, the caller's plain loop finishes the rest.
size_t Deinterleave302Exact24Avx2(uint32_t *stereo32, const uint8_t *groups, size_t stride, size_t frames);

}  // namespace kvaudio::transport
