// Declarations of the remap family's AVX2 kernels; bodies live in remap_avx2.cpp only.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kvaudio::layout {

// Byte shuffle in place over lanes of laneBytes (a whole number of periods, at most 16): each
// lane's 16 bytes become lane[control[b]]. Returns the bytes done, a multiple of the lane pair
// 2 * laneBytes; the caller finishes the rest with its plain loop.
size_t RemapLaneShuffleAvx2(uint8_t *buffer, size_t bytes, size_t laneBytes, const uint8_t control[16]);
// Periods of `vectors` (1 or 2) 32-byte vectors in place. control holds, for output vector j,
// source vector i and lane order k (0 as loaded, 1 halves swapped), 32 shuffle bytes at
// ((j * vectors + i) * 2 + k) * 32; bit 7 set contributes nothing. Returns all periods.
size_t RemapCrossLaneAvx2(uint8_t *buffer, size_t periods, size_t vectors, const uint8_t *control);
// 8-channel 32-bit periods in place: word c becomes word index[c]. Returns all periods.
size_t AudioRemap32Bit8Avx2(uint32_t *buffer, size_t periods, const int32_t index[8]);

}  // namespace kvaudio::layout
