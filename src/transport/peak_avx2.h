// Declaration of the stereo peak meter's AVX2 kernel; its body lives in peak_avx2.cpp only.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kvaudio::transport {

// Peak magnitudes of whole 16-word blocks, raising *left (even words) and *right (odd words).
// Returns the words done; the caller measures the rest with its plain loop.
size_t audTestPeak16SAvx2(const int16_t *samples, size_t count, uint16_t *left, uint16_t *right);

}  // namespace kvaudio::transport
