// AVX2 kernels of the loudness meter; each matches its plain loop in kweight.cpp bit for bit.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kvaudio/loudness.h"

namespace kvaudio::loudness {

// Decodes 8-, 16- or 32-bit samples to sample / divisor; returns the samples done (whole vectors).
size_t DecodeAvx2(const uint8_t *in, uint32_t resolution, size_t count, double divisor, double *x);

// Runs both filter stages of channels 0 .. k-1 over `periods` periods of x (nch interleaved
// channels), four or two channels per vector; stores each output as float at step + offset when
// `store` is set. Returns k, the channels done.
uint32_t KWeightAvx2(ebu_r128_channel *ch, uint32_t nch, const double *x, size_t periods, size_t offset,
                     bool store);

// Adds v[i]^2 into acc[i % 8] for whole groups of eight; returns the values done.
size_t SumOfSquaresAvx2(const float *v, size_t n, double acc[8]);

}  // namespace kvaudio::loudness
