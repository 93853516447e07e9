// Declaration of the AV-sync correlation kernel; its body lives in avsync_avx2.cpp only.
#pragma once

#include <cstddef>

namespace kvaudio::layout {

// Correlates whole blocks of 16 starts (see AvSyncCorrelate) and returns the number of starts
// done; the caller finishes the rest with its plain loop from that point.
size_t AvSyncCorrelateAvx2(const double *m, const double *p, size_t length, size_t count, double *c,
                           double *power);

}  // namespace kvaudio::layout
