// AVX2 kernels of the stand-alone analyses: frame powers four frames at a time, and per-channel
// maximum magnitudes in integer lanes.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "qc/analyze_avx2.h"

namespace kvaudio::qc {
namespace {

uint32_t Gcd(uint32_t a, uint32_t b) {
  while (b) {
    const uint32_t t = a % b;
    a = b;
    b = t;
  }
  return a;
}

__m256i AbsMax(__m256i acc, const uint8_t *p, bool wide) {
  const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p));
  return wide ? _mm256_max_epu32(acc, _mm256_abs_epi32(v)) : _mm256_max_epu16(acc, _mm256_abs_epi16(v));
}

// Sample i of the buffer, any alignment.
int32_t SampleAt(const PowerPlan &plan, uint64_t i) {
  if (plan.wide) return _mm_cvtsi128_si32(_mm_loadu_si32(plan.pcm + 4 * i));
  return static_cast<int16_t>(_mm_cvtsi128_si32(_mm_loadu_si16(plan.pcm + 2 * i)));
}

// Samples of channel c in frames f .. f + 3, as doubles.
__m256d Samples4(const PowerPlan &plan, uint64_t f, uint32_t c) {
  const uint64_t i = f * plan.channels + c, s = plan.channels;
  return _mm256_cvtepi32_pd(
      _mm_set_epi32(SampleAt(plan, i + 3 * s), SampleAt(plan, i + 2 * s), SampleAt(plan, i + s), SampleAt(plan, i)));
}

// Interleaved stereo of 16-bit samples: frames f .. f + 3 of both channels from one load.
void Stereo16(const PowerPlan &plan, uint64_t f, __m256d &left, __m256d &right) {
  // in: L0 R0 L1 R1 L2 R2 L3 R3 -> L0 L1 L2 L3 | R0 R1 R2 R3
  const __m128i raw = _mm_loadu_si128(reinterpret_cast<const __m128i *>(plan.pcm + f * 4));
  const __m256i wide =
      _mm256_permutevar8x32_epi32(_mm256_cvtepi16_epi32(raw), _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7));
  left = _mm256_cvtepi32_pd(_mm256_castsi256_si128(wide));
  right = _mm256_cvtepi32_pd(_mm256_extracti128_si256(wide, 1));
}

// Per-frame sum over the measured channels, in channel order, of (sample * scaledWeight)^2.
__m256d Power4(const PowerPlan &plan, uint64_t f, bool stereo16) {
  if (stereo16) {
    __m256d l, r;
    Stereo16(plan, f, l, r);
    const __m256d x0 = _mm256_mul_pd(l, _mm256_set1_pd(plan.scaledWeight[0]));
    const __m256d x1 = _mm256_mul_pd(r, _mm256_set1_pd(plan.scaledWeight[1]));
    return _mm256_add_pd(_mm256_mul_pd(x0, x0), _mm256_mul_pd(x1, x1));
  }
  __m256d sum = _mm256_setzero_pd();
  for (uint32_t k = 0; k < plan.count; ++k) {
    const __m256d x = _mm256_mul_pd(Samples4(plan, f, plan.index[k]), _mm256_set1_pd(plan.scaledWeight[k]));
    sum = _mm256_add_pd(sum, _mm256_mul_pd(x, x));
  }
  return sum;
}

}  // namespace

uint64_t FramePowersAvx2(const PowerPlan &plan, uint64_t first, uint64_t n, double accA[4], double accB[4]) {
  const bool stereo16 =
      !plan.wide && plan.channels == 2 && plan.count == 2 && plan.index[0] == 0 && plan.index[1] == 1;
  const uint64_t whole = n & ~uint64_t{3};
  __m256d a = _mm256_loadu_pd(accA);
  if (accB) {
    __m256d b = _mm256_loadu_pd(accB);
    for (uint64_t f = first; f < first + whole; f += 4) {
      const __m256d p = Power4(plan, f, stereo16);
      a = _mm256_add_pd(a, p);
      b = _mm256_add_pd(b, p);
    }
    _mm256_storeu_pd(accB, b);
  } else {
    for (uint64_t f = first; f < first + whole; f += 4) a = _mm256_add_pd(a, Power4(plan, f, stereo16));
  }
  _mm256_storeu_pd(accA, a);
  return whole;
}

uint64_t PeakAbsAvx2(const uint8_t *pcm, uint64_t frames, uint32_t channels, uint32_t bitsPerSample,
                     uint32_t maxAbs[32]) {
  const bool wide = bitsPerSample != 16;
  const uint32_t lanes = wide ? 8 : 16;
  // A group of `vectors` vectors spans whole frames, so lane k of vector j always holds channel
  // (j * lanes + k) % channels.
  const uint32_t groupSamples = lanes / Gcd(lanes, channels) * channels;
  const uint32_t vectors = groupSamples / lanes;
  const uint64_t groups = frames * channels / groupSamples;
  const size_t groupBytes = size_t{groupSamples} * (wide ? 4 : 2);
  __m256i acc[32];
  for (uint32_t j = 0; j < vectors; ++j) acc[j] = _mm256_setzero_si256();
  if (vectors == 1) {
    __m256i a0 = acc[0], a1 = acc[0];
    uint64_t g = 0;
    for (; g + 2 <= groups; g += 2) {
      a0 = AbsMax(a0, pcm + g * groupBytes, wide);
      a1 = AbsMax(a1, pcm + (g + 1) * groupBytes, wide);
    }
    if (g < groups) a0 = AbsMax(a0, pcm + g * groupBytes, wide);
    acc[0] = wide ? _mm256_max_epu32(a0, a1) : _mm256_max_epu16(a0, a1);
  } else {
    for (uint64_t g = 0; g < groups; ++g)
      for (uint32_t j = 0; j < vectors; ++j) acc[j] = AbsMax(acc[j], pcm + g * groupBytes + size_t{j} * 32, wide);
  }
  for (uint32_t c = 0; c < channels; ++c) maxAbs[c] = 0;
  for (uint32_t j = 0; j < vectors; ++j) {
    alignas(32) uint32_t w[8];
    alignas(32) uint16_t h[16];
    _mm256_store_si256(reinterpret_cast<__m256i *>(w), acc[j]);
    _mm256_store_si256(reinterpret_cast<__m256i *>(h), acc[j]);
    for (uint32_t k = 0; k < lanes; ++k) {
      const uint32_t c = (j * lanes + k) % channels;
      const uint32_t v = wide ? w[k] : h[k];
      if (v > maxAbs[c]) maxAbs[c] = v;
    }
  }
  return groups * groupSamples / channels;
}

}  // namespace kvaudio::qc
