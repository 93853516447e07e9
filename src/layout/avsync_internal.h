// Internal pieces of the AV-sync pulse, shared by generation, detection and their tests.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kvaudio::layout {

// Samples per chip at `rate`: (rate + 2000) / 4000.
uint32_t AvSyncChipLength(uint32_t rate);

// Burst length in periods at `rate`: 63 x chip length.
uint32_t AvSyncBurstLength(uint32_t rate);

// The reference burst p[0 .. 63 x chip length - 1], magnitudes at most 1.
std::vector<double> AvSyncBurst(uint32_t rate);

// For each start k < count: c[k] = sum over j of m[k + j] * p[j] and power[k] = sum of
// m[k + j]^2, j = 0 .. length - 1 in order. m holds count + length - 1 channel means.
// Runs the AVX2 kernel when usable; the results are bit-identical either way.
void AvSyncCorrelate(const double *m, const double *p, size_t length, size_t count, double *c, double *power);

}  // namespace kvaudio::layout
