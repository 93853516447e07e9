// Declarations of the interleave family's AVX2 kernels; bodies live in interleave_avx2.cpp only.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kvaudio::layout {

// Each kernel handles whole blocks and returns the number of sample periods it moved;
// the caller finishes the rest with its plain loop from that point.
size_t Deinterleave16to16Avx2(const uint32_t *src, uint32_t *const pairs[4], size_t samples);

}  // namespace kvaudio::layout
