// Sample paths of the standard loudness meter: K-weighting and true-peak interpolation, with
// their plain loops (the reference) and AVX2 dispatch.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kvaudio::r128 {

constexpr uint32_t kMaxChannels = 64;
constexpr int kTpPhases = 4;  // oversampling factor of the true-peak interpolator, every rate
constexpr int kTpTaps = 16;   // taps per phase
constexpr int kTpDelay = kTpTaps / 2;

// Coefficients of the two K-weighting stages (pre-filter shelf, RLB high-pass) at one rate.
struct KCoefs {
  double pb0, pb1, pb2, pa1, pa2;  // pre-filter
  double ra1, ra2;                 // RLB; its numerator is 1, -2, 1
};

// States of the two stages per channel, one array per variable so four channels load as a vector,
// and each channel's sum of squares of the weighted signal.
struct KState {
  double p1[kMaxChannels], p2[kMaxChannels], r1[kMaxChannels], r2[kMaxChannels];
  double acc[kMaxChannels];
};

// Designs both stages for `rate` Hz from the analog prototype by the bilinear transform; at
// 48 kHz the result equals the published BS.1770 coefficients.
KCoefs DesignKWeighting(double rate);

// Phases 1 .. kTpPhases-1 of the interpolator (phase 0 is the input sample itself): a Kaiser-
// windowed sinc, each phase scaled to unit gain at 0 Hz.
void DesignTruePeak(float coef[kTpPhases - 1][kTpTaps]);

// Runs `periods` periods of x (nch interleaved channels) through every channel's two stages and
// adds each squared output into s.acc[c].
void KFilter(const KCoefs &k, KState &s, uint32_t nch, const double *x, size_t periods);
void KFilterPlain(const KCoefs &k, KState &s, uint32_t from, uint32_t nch, const double *x, size_t periods);

// Highest |value| of the oversampled signal at the points of samples x[0 .. n-1], given `peak`.
// x[-kTpTaps .. -1] hold the preceding samples. Sample i, phase p, gives the value at time
// i - kTpDelay + p/kTpPhases (phase 0 is x[i - kTpDelay]). A point that is a local extremum of
// the oversampled signal counts as the vertex of the parabola through it and its two neighbours.
float TruePeak(const float coef[kTpPhases - 1][kTpTaps], const float *x, size_t n, float peak);
float TruePeakPlain(const float coef[kTpPhases - 1][kTpTaps], const float *x, size_t from, size_t n, float peak);

}  // namespace kvaudio::r128
