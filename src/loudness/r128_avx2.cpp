// AVX2 kernels of the standard loudness meter: K-weighting across channels, true-peak blocks.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "loudness/r128_avx2.h"

namespace kvaudio::r128 {

uint32_t KFilterAvx2(const KCoefs &, KState &, uint32_t, const double *, size_t) { return 0; }

size_t TruePeakBlockAvx2(const float (*)[kTpTaps], const float *, size_t, float *) { return 0; }

}  // namespace kvaudio::r128
