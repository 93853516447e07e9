// Plain loops of the interleave family (the reference every kernel matches) and the dispatch
// that runs a kernel first when its shape allows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "frame/cpu.h"
#include "kvaudio/interleave.h"
#include "kvutil.h"

// Exports `name` as a second symbol of `target`'s body (one definition, two exported names).
#define KVAUDIO_ALIAS(name, target) extern "C" decltype(target) name __attribute__((alias(#target)))

namespace kvaudio::layout {

// Element access that needs no alignment: callers may pass buffers at any byte address.
template <typename T>
T LoadAt(const T *p) {
  T v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
template <typename T>
void StoreAt(T *p, T v) {
  std::memcpy(p, &v, sizeof v);
}

// Sample formats: Get reads element i of a buffer of In and returns it as Out.
template <typename T>
struct Copy {
  using In = T;
  using Out = T;
  static Out Get(const In *s, size_t i) { return LoadAt(s + i); }
};
// A packed 24-bit sample, moved as its three bytes.
struct Bytes3 {
  uint8_t b[3];
};
using Copy8 = Copy<uint8_t>;
using Copy16 = Copy<uint16_t>;
using Copy24 = Copy<Bytes3>;
using Copy32 = Copy<uint32_t>;
// 32-bit word -> its upper 16 bits (truncation).
struct Upper16 {
  using In = uint32_t;
  using Out = uint16_t;
  static Out Get(const In *s, size_t i) { return static_cast<Out>(LoadAt(s + i) >> 16); }
};
// 32-bit word -> the word with its low bits cleared, keeping the top `Bits`.
template <int Bits>
struct KeepTop {
  using In = uint32_t;
  using Out = uint32_t;
  static Out Get(const In *s, size_t i) { return LoadAt(s + i) & (0xFFFFFFFFu << (32 - Bits)); }
};
// 16-bit sample, zero-extended, -> 32-bit word shifted left by `Shift`.
template <int Shift>
struct Widen16 {
  using In = uint16_t;
  using Out = uint32_t;
  static Out Get(const In *s, size_t i) { return static_cast<Out>(LoadAt(s + i)) << Shift; }
};
// Packed little-endian 24-bit sample -> left-justified 32-bit word (low byte 0).
struct Packed24To32 {
  using In = uint8_t;
  using Out = uint32_t;
  static Out Get(const In *s, size_t i) {
    const In *p = s + 3 * i;
    return static_cast<Out>(p[2]) << 24 | static_cast<Out>(p[1]) << 16 | static_cast<Out>(p[0]) << 8;
  }
};

// One stream of a split: `count` elements at `offset` of every source period go to `dst`.
template <class F>
struct SplitLane {
  typename F::Out *dst;
  size_t offset;
  size_t count;
};
// One stream of a join: `count` elements of `src` go to `offset` of every destination period.
template <class F>
struct JoinLane {
  const typename F::In *src;
  size_t offset;
  size_t count;
};

// Periods [from, to) of a source with `stride` elements a period; each lane buffer holds `per`
// elements a period. A lane moves one or two elements a period.
template <class F>
void SplitLanes(const typename F::In *src, size_t stride, size_t per, const SplitLane<F> *lanes, size_t n,
                size_t from, size_t to) {
  for (size_t i = from; i < to; ++i) {
    for (size_t l = 0; l < n; ++l) {
      const size_t at = i * stride + lanes[l].offset;
      StoreAt(lanes[l].dst + i * per, F::Get(src, at));
      if (lanes[l].count > 1) StoreAt(lanes[l].dst + i * per + 1, F::Get(src, at + 1));
    }
  }
}

template <class F>
void JoinLanes(typename F::Out *dst, size_t stride, size_t per, const JoinLane<F> *lanes, size_t n, size_t from,
               size_t to) {
  for (size_t i = from; i < to; ++i) {
    for (size_t l = 0; l < n; ++l) {
      typename F::Out *at = dst + i * stride + lanes[l].offset;
      StoreAt(at, F::Get(lanes[l].src, i * per));
      if (lanes[l].count > 1) StoreAt(at + 1, F::Get(lanes[l].src, i * per + 1));
    }
  }
}

// All kPairs pairs present, kPer elements a pair, periods packed. The pair pointers live in
// locals and the pair loop unrolls fully, so each period is a run of straight moves.
template <class F, size_t kPairs, size_t kPer>
void SplitAll(const typename F::In *src, typename F::Out *const *pairs, size_t from, size_t to) {
  typename F::Out *out[kPairs];
  for (size_t k = 0; k < kPairs; ++k) out[k] = pairs[k];
  for (size_t i = from; i < to; ++i) {
#pragma GCC unroll 16
    for (size_t k = 0; k < kPairs; ++k)
#pragma GCC unroll 2
      for (size_t e = 0; e < kPer; ++e) StoreAt(out[k] + i * kPer + e, F::Get(src, (i * kPairs + k) * kPer + e));
  }
}

template <class F, size_t kPairs, size_t kPer>
void JoinAll(typename F::Out *dst, const typename F::In *const *pairs, size_t from, size_t to) {
  const typename F::In *in[kPairs];
  for (size_t k = 0; k < kPairs; ++k) in[k] = pairs[k];
  for (size_t i = from; i < to; ++i) {
#pragma GCC unroll 16
    for (size_t k = 0; k < kPairs; ++k)
#pragma GCC unroll 2
      for (size_t e = 0; e < kPer; ++e) StoreAt(dst + (i * kPairs + k) * kPer + e, F::Get(in[k], i * kPer + e));
  }
}

template <class F>
using SplitKernel = size_t (*)(const typename F::In *, typename F::Out *const *, size_t);
template <class F>
using JoinKernel = size_t (*)(typename F::Out *, const typename F::In *const *, size_t);

template <typename P>
bool AllPresent(const P *const *pairs, size_t n) {
  for (size_t k = 0; k < n; ++k)
    if (!pairs[k]) return false;
  return true;
}

// Every pair present: the kernel (when given and AVX2 is usable) takes whole blocks, the plain
// loop the rest.
template <class F, size_t kPairs, size_t kPer>
void SplitFull(const typename F::In *src, typename F::Out *const *pairs, size_t samples, SplitKernel<F> kernel) {
  const size_t done = kernel && KVAudioCPUHasAVX2() ? kernel(src, pairs, samples) : 0;
  SplitAll<F, kPairs, kPer>(src, pairs, done, samples);
}

// A 16-bit stereo pair moved as one 32-bit unit.
struct Pair16 {
  uint16_t lr[2];
};

template <class F, size_t kPairs, size_t kPer>
void JoinFull(typename F::Out *dst, const typename F::In *const *pairs, size_t samples, JoinKernel<F> kernel) {
  const size_t done = kernel && KVAudioCPUHasAVX2() ? kernel(dst, pairs, samples) : 0;
  if constexpr (std::is_same_v<F, Copy16>) {
    const Pair16 *units[kPairs];
    for (size_t k = 0; k < kPairs; ++k) units[k] = reinterpret_cast<const Pair16 *>(pairs[k]);
    JoinAll<Copy<Pair16>, kPairs, 1>(reinterpret_cast<Pair16 *>(dst), units, done, samples);
  } else {
    JoinAll<F, kPairs, kPer>(dst, pairs, done, samples);
  }
}

// The Array members read the pair buffers through a table of 16 sample pointers, cleared before it
// is filled; more than 16 records are taken 16 at a time. For each group, `rest(table, first, n,
// done)` runs the plain loop over records first..first+n-1 from period `done`, where `done` counts
// the periods `kernel(table)` moved: only with exactly 4 or 8 records, all present, and AVX2.
constexpr size_t kTableSize = 16;
template <typename T, typename Kernel, typename Rest>
void ForTableGroups(KVAudioBuffer *const *pairs, uint32_t pairCount, Kernel kernel, Rest rest) {
  T *table[kTableSize];
  for (size_t first = 0; first < pairCount; first += kTableSize) {
    const size_t n = pairCount - first < kTableSize ? pairCount - first : kTableSize;
    ZeroMemoryFast(table, sizeof table);
    for (size_t k = 0; k < n; ++k) table[k] = pairs[first + k] ? static_cast<T *>(pairs[first + k]->samples) : nullptr;
    const bool whole = (pairCount == 4 || pairCount == 8) && AllPresent(table, pairCount);
    rest(table, first, n, whole && KVAudioCPUHasAVX2() ? kernel(table) : size_t{0});
  }
}

}  // namespace kvaudio::layout
