// AVX2 kernels of the interleave/deinterleave family.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "layout/interleave_avx2.h"

// Helpers inline into each kernel, so that the vectors stay in registers.
#define KV_INLINE __attribute__((always_inline)) inline
#define KV_LAMBDA_INLINE __attribute__((always_inline))
// Small constant loops over vectors unroll fully, for the same reason.
#define KV_UNROLL _Pragma("GCC unroll 16")

namespace kvaudio::layout {
namespace {

KV_INLINE __m256i Load(const void *p) { return _mm256_loadu_si256(static_cast<const __m256i *>(p)); }
KV_INLINE __m128i Load128(const void *p) { return _mm_loadu_si128(static_cast<const __m128i *>(p)); }
KV_INLINE void Store(void *p, __m256i v) { _mm256_storeu_si256(static_cast<__m256i *>(p), v); }

// Eight 16-bit samples to eight 32-bit words holding sample << 16.
KV_INLINE __m256i Widen(__m128i v) { return _mm256_slli_epi32(_mm256_cvtepu16_epi32(v), 16); }

// Upper halves of the 8 words at a and the 8 at b, as 16-bit samples: a0-3 b0-3 | a4-7 b4-7.
KV_INLINE __m256i Upper16(const uint32_t *a, const uint32_t *b) {
  return _mm256_packus_epi32(_mm256_srli_epi32(Load(a), 16), _mm256_srli_epi32(Load(b), 16));
}

// Four 64-bit pair units from memory: 32-bit pairs as they are, 16-bit pairs widened.
KV_INLINE __m256i Units(const uint32_t *p) { return Load(p); }
KV_INLINE __m256i Units(const uint16_t *p) { return Widen(Load128(p)); }

// Ordinary unaligned stores.
struct CachedStores {
  KV_INLINE void operator()(void *p, __m256i v) const { Store(p, v); }
};
// Non-temporal stores: the destination lines are written without being read first, which saves a
// third of the memory traffic on jobs far larger than the caches. Needs 16-byte aligned addresses.
struct StreamingStores {
  KV_INLINE void operator()(void *p, __m256i v) const {
    auto *q = static_cast<__m128i *>(p);
    _mm_stream_si128(q, _mm256_castsi256_si128(v));
    _mm_stream_si128(q + 1, _mm256_extracti128_si256(v, 1));
  }
};

// Jobs writing at least this many bytes bypass the caches.
constexpr size_t kStreamBytes = size_t{16} << 20;

// Copies the n destination pointers to `out` and tells whether the job may stream: large enough
// and every destination 16-byte aligned (the kernels advance them in multiples of 32 bytes).
template <typename T>
KV_INLINE bool Hoist(T *const *dsts, T **out, size_t n, size_t bytes) {
  bool aligned = true;
  KV_UNROLL
  for (size_t k = 0; k < n; ++k) {
    out[k] = dsts[k];
    aligned = aligned && (reinterpret_cast<uintptr_t>(out[k]) & 15) == 0;
  }
  return aligned && bytes >= kStreamBytes;
}

// Runs `body` with the store policy chosen; streaming stores are fenced before returning.
template <typename Body>
KV_INLINE size_t WithStores(bool stream, Body body) {
  if (!stream) return body(CachedStores{});
  const size_t done = body(StreamingStores{});
  _mm_sfence();
  return done;
}

// 4x4 transpose of 64-bit units: r[i][j] -> r[j][i].
KV_INLINE void Transpose4x64(__m256i r[4]) {
  const __m256i t0 = _mm256_unpacklo_epi64(r[0], r[1]);  // r0[0] r1[0] | r0[2] r1[2]
  const __m256i t1 = _mm256_unpackhi_epi64(r[0], r[1]);  // r0[1] r1[1] | r0[3] r1[3]
  const __m256i t2 = _mm256_unpacklo_epi64(r[2], r[3]);
  const __m256i t3 = _mm256_unpackhi_epi64(r[2], r[3]);
  r[0] = _mm256_permute2x128_si256(t0, t2, 0x20);
  r[1] = _mm256_permute2x128_si256(t1, t3, 0x20);
  r[2] = _mm256_permute2x128_si256(t0, t2, 0x31);
  r[3] = _mm256_permute2x128_si256(t1, t3, 0x31);
}

// 8x8 transpose of 32-bit units: r[i][j] -> r[j][i], in place. Scalar temporaries rather than
// arrays keep GCC 12's AddressSanitizer build free of exception-handling references.
KV_INLINE void Transpose8x8(__m256i r[8]) {
  KV_UNROLL
  for (int i = 0; i < 8; i += 2) {
    const __m256i lo = _mm256_unpacklo_epi32(r[i], r[i + 1]);  // ri[0] ri+1[0] ri[1] ri+1[1] | [4] [5]
    const __m256i hi = _mm256_unpackhi_epi32(r[i], r[i + 1]);  // [2] [3] | [6] [7]
    r[i] = lo;
    r[i + 1] = hi;
  }
  KV_UNROLL
  for (int i = 0; i < 8; i += 4) {
    const __m256i c04 = _mm256_unpacklo_epi64(r[i], r[i + 2]);  // column 0 | 4 of rows i..i+3
    const __m256i c15 = _mm256_unpackhi_epi64(r[i], r[i + 2]);
    const __m256i c26 = _mm256_unpacklo_epi64(r[i + 1], r[i + 3]);
    const __m256i c37 = _mm256_unpackhi_epi64(r[i + 1], r[i + 3]);
    r[i] = c04;
    r[i + 1] = c15;
    r[i + 2] = c26;
    r[i + 3] = c37;
  }
  KV_UNROLL
  for (int c = 0; c < 4; ++c) {
    const __m256i lo = _mm256_permute2x128_si256(r[c], r[c + 4], 0x20);
    const __m256i hi = _mm256_permute2x128_si256(r[c], r[c + 4], 0x31);
    r[c] = lo;
    r[c + 4] = hi;
  }
}

// Periods of 4*groups pairs of 64-bit units -> pair buffers, four periods a block; every word is
// ANDed with `keep`.
template <typename In>
KV_INLINE size_t Split4x64(const In *src, uint32_t *const *pairs, size_t samples, size_t groups, __m256i keep) {
  uint32_t *out[8];
  const bool stream = Hoist(pairs, out, 4 * groups, samples * 32 * groups);
  return WithStores(stream, [&](auto put) KV_LAMBDA_INLINE {
    const size_t period = 8 * groups;  // source elements a period
    const size_t blocks = samples / 4;
    for (size_t b = 0; b < blocks; ++b) {
      const In *from = src + 4 * period * b;
      KV_UNROLL
      for (size_t g = 0; g < groups; ++g) {
        __m256i r[4];
        KV_UNROLL
        for (size_t j = 0; j < 4; ++j) r[j] = _mm256_and_si256(Units(from + j * period + 8 * g), keep);
        Transpose4x64(r);
        KV_UNROLL
        for (size_t k = 0; k < 4; ++k) put(out[4 * g + k] + 8 * b, r[k]);
      }
    }
    return blocks * 4;
  });
}

// Pair buffers of 64-bit units -> periods of 4*groups pairs of 32-bit words, four periods a block.
template <typename In>
KV_INLINE size_t Join4x64(uint32_t *dst, const In *const *pairs, size_t samples, size_t groups) {
  uint32_t *out[1];
  const bool stream = Hoist(&dst, out, 1, samples * 32 * groups);
  return WithStores(stream, [&](auto put) KV_LAMBDA_INLINE {
    const size_t period = 8 * groups;
    const size_t blocks = samples / 4;
    for (size_t b = 0; b < blocks; ++b) {
      uint32_t *to = out[0] + 4 * period * b;
      KV_UNROLL
      for (size_t g = 0; g < groups; ++g) {
        __m256i r[4];
        KV_UNROLL
        for (size_t k = 0; k < 4; ++k) r[k] = Units(pairs[4 * g + k] + 8 * b);
        Transpose4x64(r);
        KV_UNROLL
        for (size_t j = 0; j < 4; ++j) put(to + j * period + 8 * g, r[j]);
      }
    }
    return blocks * 4;
  });
}

// Left and right vectors -> stereo, 32 bytes of each side a block.
template <typename T>
KV_INLINE size_t Zip(T *dst, const T *left, const T *right, size_t samples) {
  constexpr size_t kPerVector = 32 / sizeof(T);
  const size_t blocks = samples / kPerVector;
  for (size_t b = 0; b < blocks; ++b) {
    // Quarters 0 2 1 3, so that the in-lane unpacks below come out in sample order.
    const __m256i l = _mm256_permute4x64_epi64(Load(left + b * kPerVector), 0xD8);
    const __m256i r = _mm256_permute4x64_epi64(Load(right + b * kPerVector), 0xD8);
    T *out = dst + 2 * b * kPerVector;
    if constexpr (sizeof(T) == 2) {
      Store(out, _mm256_unpacklo_epi16(l, r));
      Store(out + kPerVector, _mm256_unpackhi_epi16(l, r));
    } else {
      Store(out, _mm256_unpacklo_epi32(l, r));
      Store(out + kPerVector, _mm256_unpackhi_epi32(l, r));
    }
  }
  return blocks * kPerVector;
}

}  // namespace

// in: 2 periods A B C D A' B' C' D' -> A A' B B' | C C' D D' (64-bit units of two periods); four
// such rows are a 4x4 transpose of 64-bit units giving A0..A7, B0..B7, C0..C7, D0..D7.
size_t AudioDeinterleave16to16Avx2(const uint32_t *src, uint32_t *const *pairs, size_t samples) {
  uint32_t *out[4];
  return WithStores(Hoist(pairs, out, 4, samples * 16), [&](auto put) KV_LAMBDA_INLINE {
    const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
    const size_t blocks = samples / 16;
    for (size_t b = 0; b < blocks; ++b) {
      __m256i r[8];
      KV_UNROLL
      for (int j = 0; j < 8; ++j) r[j] = _mm256_permutevar8x32_epi32(Load(src + 64 * b + 8 * j), order);
      Transpose4x64(r);
      Transpose4x64(r + 4);
      KV_UNROLL
      for (int k = 0; k < 4; ++k) {
        put(out[k] + 16 * b, r[k]);
        put(out[k] + 16 * b + 8, r[k + 4]);
      }
    }
    return blocks * 16;
  });
}

// in: 8 periods of 8 units -> out: 8 units of each pair (an 8x8 transpose).
size_t AudioDeinterleave16to16_16Avx2(const uint32_t *src, uint32_t *const *pairs, size_t samples) {
  uint32_t *out[8];
  return WithStores(Hoist(pairs, out, 8, samples * 32), [&](auto put) KV_LAMBDA_INLINE {
    const size_t blocks = samples / 8;
    for (size_t b = 0; b < blocks; ++b) {
      __m256i r[8];
      KV_UNROLL
      for (int j = 0; j < 8; ++j) r[j] = Load(src + 64 * b + 8 * j);
      Transpose8x8(r);
      KV_UNROLL
      for (int k = 0; k < 8; ++k) put(out[k] + 8 * b, r[k]);
    }
    return blocks * 8;
  });
}

size_t AudioDeinterleave32to32Avx2(const uint32_t *src, uint32_t *const *pairs, size_t samples) {
  return Split4x64(src, pairs, samples, 1, _mm256_set1_epi32(-1));
}

size_t AudioDeinterleave32to32_16Avx2(const uint32_t *src, uint32_t *const *pairs, size_t samples) {
  return Split4x64(src, pairs, samples, 2, _mm256_set1_epi32(-1));
}

size_t AudioDeinterleave32to20Avx2(const uint32_t *src, uint32_t *const *pairs, size_t samples) {
  return Split4x64(src, pairs, samples, 1, _mm256_set1_epi32(static_cast<int>(0xFFFFF000u)));
}

size_t AudioDeInterleave16to32Avx2(const uint16_t *src, uint32_t *const *pairs, size_t samples) {
  return Split4x64(src, pairs, samples, 1, _mm256_set1_epi32(-1));
}

// Two periods of 8 words -> upper halves packed as units A B A' B' | C D C' D', reordered to
// A A' B B' | C C' D D'; four such rows are a 4x4 transpose of 64-bit units.
size_t AudioDeinterleave24to16Avx2(const uint32_t *src, uint16_t *const *pairs, size_t samples) {
  uint16_t *out[4];
  return WithStores(Hoist(pairs, out, 4, samples * 16), [&](auto put) KV_LAMBDA_INLINE {
    const size_t blocks = samples / 8;
    for (size_t b = 0; b < blocks; ++b) {
      __m256i r[4];
      KV_UNROLL
      for (int j = 0; j < 4; ++j) {
        const uint32_t *two = src + 64 * b + 16 * j;
        r[j] = _mm256_shuffle_epi32(Upper16(two, two + 8), _MM_SHUFFLE(3, 1, 2, 0));
      }
      Transpose4x64(r);
      KV_UNROLL
      for (int k = 0; k < 4; ++k) put(out[k] + 16 * b, r[k]);
    }
    return blocks * 8;
  });
}

// One period of 16 words -> upper halves packed as units of pairs 0 1 4 5 | 2 3 6 7; eight such
// rows are an 8x8 transpose whose row c belongs to pair kPairOfRow[c].
size_t AudioDeinterleave32to16_16Avx2(const uint32_t *src, uint16_t *const *pairs, size_t samples) {
  static constexpr int kPairOfRow[8] = {0, 1, 4, 5, 2, 3, 6, 7};
  uint16_t *out[8];
  return WithStores(Hoist(pairs, out, 8, samples * 32), [&](auto put) KV_LAMBDA_INLINE {
    const size_t blocks = samples / 8;
    for (size_t b = 0; b < blocks; ++b) {
      __m256i r[8];
      KV_UNROLL
      for (int j = 0; j < 8; ++j) r[j] = Upper16(src + 128 * b + 16 * j, src + 128 * b + 16 * j + 8);
      Transpose8x8(r);
      KV_UNROLL
      for (int c = 0; c < 8; ++c) put(out[kPairOfRow[c]] + 16 * b, r[c]);
    }
    return blocks * 8;
  });
}

// in: 16 pairs as 32-bit units -> the low halves, packed: lane order a0-3 b0-3 | a4-7 b4-7, then
// quarters 0 2 1 3.
size_t AudioDeinterleaveStereo2MonoAvx2(uint16_t *dst, const uint16_t *src, size_t samples) {
  const __m256i low = _mm256_set1_epi32(0xFFFF);
  const size_t blocks = samples / 16;
  for (size_t b = 0; b < blocks; ++b) {
    const __m256i a = _mm256_and_si256(Load(src + 32 * b), low);
    const __m256i c = _mm256_and_si256(Load(src + 32 * b + 16), low);
    Store(dst + 16 * b, _mm256_permute4x64_epi64(_mm256_packus_epi32(a, c), 0xD8));
  }
  return blocks * 16;
}

// in: A0..A7, B0..B7, C0..C7, D0..D7 (32-bit units) -> 8 periods A B C D.
size_t AudioInterleave16to16Avx2(uint16_t *dst, const uint16_t *const *pairs, size_t samples) {
  uint16_t *out[1];
  return WithStores(Hoist(&dst, out, 1, samples * 16), [&](auto put) KV_LAMBDA_INLINE {
    const size_t blocks = samples / 8;
    for (size_t b = 0; b < blocks; ++b) {
      const __m256i a = Load(pairs[0] + 16 * b), bb = Load(pairs[1] + 16 * b);
      const __m256i c = Load(pairs[2] + 16 * b), d = Load(pairs[3] + 16 * b);
      const __m256i ab_lo = _mm256_unpacklo_epi32(a, bb);  // A0 B0 A1 B1 | A4 B4 A5 B5
      const __m256i ab_hi = _mm256_unpackhi_epi32(a, bb);  // A2 B2 A3 B3 | A6 B6 A7 B7
      const __m256i cd_lo = _mm256_unpacklo_epi32(c, d);
      const __m256i cd_hi = _mm256_unpackhi_epi32(c, d);
      const __m256i p04 = _mm256_unpacklo_epi64(ab_lo, cd_lo);  // period 0 | period 4
      const __m256i p15 = _mm256_unpackhi_epi64(ab_lo, cd_lo);
      const __m256i p26 = _mm256_unpacklo_epi64(ab_hi, cd_hi);
      const __m256i p37 = _mm256_unpackhi_epi64(ab_hi, cd_hi);
      uint16_t *to = out[0] + 64 * b;
      put(to, _mm256_permute2x128_si256(p04, p15, 0x20));
      put(to + 16, _mm256_permute2x128_si256(p26, p37, 0x20));
      put(to + 32, _mm256_permute2x128_si256(p04, p15, 0x31));
      put(to + 48, _mm256_permute2x128_si256(p26, p37, 0x31));
    }
    return blocks * 8;
  });
}

// in: 8 units of each of 8 pairs -> 8 periods (an 8x8 transpose).
size_t AudioInterleave16to16_16Avx2(uint16_t *dst, const uint16_t *const *pairs, size_t samples) {
  uint16_t *out[1];
  return WithStores(Hoist(&dst, out, 1, samples * 32), [&](auto put) KV_LAMBDA_INLINE {
    const size_t blocks = samples / 8;
    for (size_t b = 0; b < blocks; ++b) {
      __m256i r[8];
      KV_UNROLL
      for (int k = 0; k < 8; ++k) r[k] = Load(pairs[k] + 16 * b);
      Transpose8x8(r);
      KV_UNROLL
      for (int j = 0; j < 8; ++j) put(out[0] + 128 * b + 16 * j, r[j]);
    }
    return blocks * 8;
  });
}

size_t AudioInterleave32to32Avx2(uint32_t *dst, const uint32_t *const *pairs, size_t samples) {
  return Join4x64(dst, pairs, samples, 1);
}

size_t AudioInterleave32to32_16Avx2(uint32_t *dst, const uint32_t *const *pairs, size_t samples) {
  return Join4x64(dst, pairs, samples, 2);
}

size_t AudioInterleave16to32Avx2(uint32_t *dst, const uint16_t *const *pairs, size_t samples) {
  return Join4x64(dst, pairs, samples, 1);
}

size_t AudioInterleave16to32_16Avx2(uint32_t *dst, const uint16_t *const *pairs, size_t samples) {
  return Join4x64(dst, pairs, samples, 2);
}

size_t AudioInterleaveDualMono16toStereo16Avx2(uint16_t *dst, const uint16_t *left, const uint16_t *right,
                                               size_t samples) {
  return Zip(dst, left, right, samples);
}

size_t AudioInterleaveDualMono32toStereo32Avx2(uint32_t *dst, const uint32_t *left, const uint32_t *right,
                                               size_t samples) {
  return Zip(dst, left, right, samples);
}

// 8 left and 8 right samples -> L0 R0 .. L3 R3 and L4 R4 .. L7 R7, each widened to 32-bit words.
size_t AudioInterleaveDualMono16toStereo32Avx2(uint32_t *dst, const uint16_t *left, const uint16_t *right,
                                               size_t samples) {
  const size_t blocks = samples / 8;
  for (size_t b = 0; b < blocks; ++b) {
    const __m128i l = Load128(left + 8 * b), r = Load128(right + 8 * b);
    Store(dst + 16 * b, Widen(_mm_unpacklo_epi16(l, r)));
    Store(dst + 16 * b + 8, Widen(_mm_unpackhi_epi16(l, r)));
  }
  return blocks * 8;
}

size_t KVAudioStereo16ToStereo32Avx2(uint32_t *dst, const uint16_t *src, size_t samples) {
  const size_t blocks = samples / 8;
  for (size_t b = 0; b < blocks; ++b) {
    Store(dst + 16 * b, Widen(Load128(src + 16 * b)));
    Store(dst + 16 * b + 8, Widen(Load128(src + 16 * b + 8)));
  }
  return blocks * 8;
}

size_t AudioPairCopyAvx2(uint8_t *dst, const uint8_t *src, size_t bytes) {
  const size_t blocks = bytes / 128;
  for (size_t b = 0; b < blocks; ++b) {
    const __m256i v0 = Load(src + 128 * b), v1 = Load(src + 128 * b + 32);
    const __m256i v2 = Load(src + 128 * b + 64), v3 = Load(src + 128 * b + 96);
    Store(dst + 128 * b, v0);
    Store(dst + 128 * b + 32, v1);
    Store(dst + 128 * b + 64, v2);
    Store(dst + 128 * b + 96, v3);
  }
  return blocks * 128;
}

}  // namespace kvaudio::layout
