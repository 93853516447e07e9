// AVX2 kernels of the stand-alone analyses; each matches its plain loop in analyze.cpp exactly.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kvaudio::qc {

// What the frame power reads: measured channels in order and, per channel, scale * weight
// (exact, the scale being a power of two).
struct PowerPlan {
  const uint8_t *pcm;
  uint32_t channels;
  uint32_t wide;  // 1: 32-bit samples, 0: 16-bit
  uint32_t count;
  uint32_t index[64];
  double scaledWeight[64];
};

// Adds the power of frames first .. first + 4k - 1 (4k <= n) into accA[(f - first) % 4] and, when
// accB is non-null, into accB likewise; returns 4k.
uint64_t FramePowersAvx2(const PowerPlan &plan, uint64_t first, uint64_t n, double accA[4], double accB[4]);

// Largest |sample| per channel (as unsigned, so -32768 gives 32768) over the first E frames of
// interleaved 16- or 32-bit samples, E a whole number of vector groups; returns E.
uint64_t PeakAbsAvx2(const uint8_t *pcm, uint64_t frames, uint32_t channels, uint32_t bitsPerSample,
                     uint32_t maxAbs[32]);

}  // namespace kvaudio::qc
