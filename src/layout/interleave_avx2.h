// Declarations of the interleave family's AVX2 kernels; bodies live in interleave_avx2.cpp only.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kvaudio::layout {

// Each kernel handles whole blocks of sample periods and returns how many periods it moved; the
// caller finishes the rest with its plain loop from that point. Pair arrays hold 4 or 8 non-null
// pointers, as the kernel's name says (`_16`: eight pairs).

// Deinterleave: one interleaved source to pair buffers.
size_t AudioDeinterleave16to16Avx2(const uint32_t *src, uint32_t *const *pairs, size_t samples);
size_t AudioDeinterleave16to16_16Avx2(const uint32_t *src, uint32_t *const *pairs, size_t samples);
size_t AudioDeinterleave32to32Avx2(const uint32_t *src, uint32_t *const *pairs, size_t samples);
size_t AudioDeinterleave32to32_16Avx2(const uint32_t *src, uint32_t *const *pairs, size_t samples);
size_t AudioDeinterleave32to20Avx2(const uint32_t *src, uint32_t *const *pairs, size_t samples);
size_t AudioDeinterleave24to16Avx2(const uint32_t *src, uint16_t *const *pairs, size_t samples);
size_t AudioDeinterleave32to16_16Avx2(const uint32_t *src, uint16_t *const *pairs, size_t samples);
// Eight 16-bit channels a period.
size_t AudioDeInterleave16to32Avx2(const uint16_t *src, uint32_t *const *pairs, size_t samples);
size_t AudioDeinterleaveStereo2MonoAvx2(uint16_t *dst, const uint16_t *src, size_t samples);

// Interleave: pair buffers to one interleaved destination of 8 or 16 channels.
size_t AudioInterleave16to16Avx2(uint16_t *dst, const uint16_t *const *pairs, size_t samples);
size_t AudioInterleave16to16_16Avx2(uint16_t *dst, const uint16_t *const *pairs, size_t samples);
size_t AudioInterleave32to32Avx2(uint32_t *dst, const uint32_t *const *pairs, size_t samples);
size_t AudioInterleave32to32_16Avx2(uint32_t *dst, const uint32_t *const *pairs, size_t samples);
size_t AudioInterleave16to32Avx2(uint32_t *dst, const uint16_t *const *pairs, size_t samples);
size_t AudioInterleave16to32_16Avx2(uint32_t *dst, const uint16_t *const *pairs, size_t samples);

// Two mono buffers to one stereo buffer.
size_t AudioInterleaveDualMono16toStereo16Avx2(uint16_t *dst, const uint16_t *left, const uint16_t *right,
                                               size_t samples);
size_t AudioInterleaveDualMono32toStereo32Avx2(uint32_t *dst, const uint32_t *left, const uint32_t *right,
                                               size_t samples);
size_t AudioInterleaveDualMono16toStereo32Avx2(uint32_t *dst, const uint16_t *left, const uint16_t *right,
                                               size_t samples);
// Stereo 16-bit to stereo 32-bit words (sample << 16); `samples` counts stereo periods.
size_t KVAudioStereo16ToStereo32Avx2(uint32_t *dst, const uint16_t *src, size_t samples);
// Straight copy; returns the bytes it copied (whole 128-byte blocks).
size_t AudioPairCopyAvx2(uint8_t *dst, const uint8_t *src, size_t bytes);

}  // namespace kvaudio::layout
