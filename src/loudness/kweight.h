// Sample decoding, K-weighting and sums of squares of the loudness meter, with AVX2 dispatch.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kvaudio/loudness.h"

namespace kvaudio::loudness {

// Writes x[i] = sample i / divisor for `count` samples of `resolution` bits (8, 16, 24 packed, 32).
void DecodeSamples(const uint8_t *in, uint32_t resolution, size_t count, double divisor, double *x);

// Filters `periods` periods of x (nch interleaved channels) through each channel's pre-filter
// and RLB filter; stores the outputs as float at step + offset when `store` is set.
void KWeight(ebu_r128_channel *ch, uint32_t nch, const double *x, size_t periods, size_t offset, bool store);

// Sum of v[i]^2 in double over eight fixed accumulators (i % 8), combined pairwise.
double SumOfSquares(const float *v, size_t n);

}  // namespace kvaudio::loudness
