// AVX2 kernel of the AV-sync correlation: 16 start positions at once, four per vector.
#include <immintrin.h>

#include <cstddef>

#include "layout/avsync_avx2.h"

namespace kvaudio::layout {

// Lane k of vector v is start 4v + k. Each lane sums over j in order with a separate multiply
// and add (no FMA), so it rounds exactly as the plain loop does for that start.
size_t AvSyncCorrelateAvx2(const double *m, const double *p, size_t length, size_t count, double *c,
                           double *power) {
  const size_t blocks = count / 16;
  for (size_t b = 0; b < blocks; ++b) {
    const double *mb = m + 16 * b;
    __m256d c0 = _mm256_setzero_pd(), c1 = c0, c2 = c0, c3 = c0;
    __m256d q0 = c0, q1 = c0, q2 = c0, q3 = c0;
    for (size_t j = 0; j < length; ++j) {
      const __m256d pj = _mm256_broadcast_sd(p + j);
      const __m256d x0 = _mm256_loadu_pd(mb + j);
      const __m256d x1 = _mm256_loadu_pd(mb + j + 4);
      const __m256d x2 = _mm256_loadu_pd(mb + j + 8);
      const __m256d x3 = _mm256_loadu_pd(mb + j + 12);
      c0 = _mm256_add_pd(c0, _mm256_mul_pd(x0, pj));
      c1 = _mm256_add_pd(c1, _mm256_mul_pd(x1, pj));
      c2 = _mm256_add_pd(c2, _mm256_mul_pd(x2, pj));
      c3 = _mm256_add_pd(c3, _mm256_mul_pd(x3, pj));
      q0 = _mm256_add_pd(q0, _mm256_mul_pd(x0, x0));
      q1 = _mm256_add_pd(q1, _mm256_mul_pd(x1, x1));
      q2 = _mm256_add_pd(q2, _mm256_mul_pd(x2, x2));
      q3 = _mm256_add_pd(q3, _mm256_mul_pd(x3, x3));
    }
    double *cb = c + 16 * b, *qb = power + 16 * b;
    _mm256_storeu_pd(cb, c0);
    _mm256_storeu_pd(cb + 4, c1);
    _mm256_storeu_pd(cb + 8, c2);
    _mm256_storeu_pd(cb + 12, c3);
    _mm256_storeu_pd(qb, q0);
    _mm256_storeu_pd(qb + 4, q1);
    _mm256_storeu_pd(qb + 8, q2);
    _mm256_storeu_pd(qb + 12, q3);
  }
  return blocks * 16;
}

}  // namespace kvaudio::layout
