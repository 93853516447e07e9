// AVX2 kernels of the standard loudness meter; each matches its plain loop in r128_dsp.cpp bit for bit.
#pragma once

#include <cstddef>
#include <cstdint>

#include "loudness/r128_dsp.h"

namespace kvaudio::r128 {

// Both K-weighting stages of channels 0 .. m-1, four (then two) channels per vector, over
// `periods` periods of x (nch interleaved). Returns m, the channels done.
uint32_t KFilterAvx2(const KCoefs &k, KState &s, uint32_t nch, const double *x, size_t periods);

// TruePeak over samples 0 .. d-1, eight samples per vector, d the whole vectors of n; raises
// *peak to the highest value seen. Returns d.
size_t TruePeakAvx2(const float coef[kTpPhases - 1][kTpTaps], const float *x, size_t n, float *peak);

}  // namespace kvaudio::r128
