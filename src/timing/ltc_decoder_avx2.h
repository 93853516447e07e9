// AVX2 kernels of the LTC zero-crossing scan.
#pragma once

#include <cstdint>

namespace kvaudio::ltc {

// Scans whole 32-byte vectors of sample frames (stride values each, the channel at offset) from
// frame `from` towards n. waitHigh: looks for a value >= threshold, else for one < threshold.
// Returns the first such frame, or the frame where the whole vectors end when they hold none;
// the caller's plain scan continues from there.
uint32_t FindCrossing8Avx2(const uint8_t *p, uint32_t from, uint32_t n, int stride, int offset,
                           int threshold, bool waitHigh);
uint32_t FindCrossing16Avx2(const int16_t *p, uint32_t from, uint32_t n, int stride, int offset,
                            int threshold, bool waitHigh);

}  // namespace kvaudio::ltc
