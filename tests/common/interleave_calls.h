// Every kernel-capable member of the interleave family, in the shapes that run its kernel and in
// the null-pointer and channel-count shapes that must fall back; shared by tests and benchmarks.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "kvaudio/interleave.h"

namespace kvtest {

using In = const uint8_t *const *;
using Out = uint8_t *const *;

template <typename T>
inline T *P(uint8_t *p) { return reinterpret_cast<T *>(p); }
template <typename T>
inline const T *P(const uint8_t *p) { return reinterpret_cast<const T *>(p); }

// One member in one shape: bytes a period of each input and output buffer (0: pass null), and a
// runner that calls the member on them.
struct InterleaveCall {
  const char *name;
  std::vector<size_t> inBytes;
  std::vector<size_t> outBytes;
  void (*run)(In in, Out out, uint32_t n);
};

// Fn(in[0] as S, out[0..K-1] as D, n, extra...): one interleaved source split into K pairs.
template <typename S, typename D, size_t K, auto Fn, auto... extra>
void Split(In in, Out out, uint32_t n) {
  [&]<size_t... k>(std::index_sequence<k...>) { Fn(P<S>(in[0]), P<D>(out[k])..., n, extra...); }(
      std::make_index_sequence<K>{});
}

// Fn(out[0] as D, in[0..K-1] as S, n, extra...): K pairs joined into one interleaved buffer.
template <typename S, typename D, size_t K, auto Fn, auto... extra>
void Join(In in, Out out, uint32_t n) {
  [&]<size_t... k>(std::index_sequence<k...>) { Fn(P<D>(out[0]), P<S>(in[k])..., n, extra...); }(
      std::make_index_sequence<K>{});
}

// Pair buffers as host buffer records; a null pointer becomes a null entry.
template <size_t K>
struct PairTable {
  KVAudioBuffer records[K] = {};
  KVAudioBuffer *entries[K];
  template <typename Ptr>
  explicit PairTable(Ptr const *ptrs) {
    for (size_t k = 0; k < K; ++k) {
      records[k].samples = const_cast<uint8_t *>(ptrs[k]);
      entries[k] = ptrs[k] ? &records[k] : nullptr;
    }
  }
};

template <size_t K, auto Fn>
void SplitArray(In in, Out out, uint32_t n) {
  Fn(P<uint32_t>(in[0]), PairTable<K>(out).entries, K, n);
}

template <typename D, size_t K, auto Fn>
void JoinArray(In in, Out out, uint32_t n) {
  Fn(P<D>(out[0]), PairTable<K>(in).entries, K, n);
}

inline const std::vector<size_t> k4x4(4, 4), k4x8(4, 8), k8x4(8, 4), k8x8(8, 8);
using U16 = uint16_t;
using U32 = uint32_t;

inline const InterleaveCall kInterleaveCalls[] = {
    {"Deinterleave16to16", {16}, k4x4, Split<U32, U32, 4, AudioDeinterleave16to16>},
    {"Deinterleave16to16Pair1Null", {12}, {4, 0, 4, 4}, Split<U32, U32, 4, AudioDeinterleave16to16>},
    {"Deinterleave16to16_16", {32}, k8x4, Split<U32, U32, 8, AudioDeinterleave16to16_16>},
    {"Deinterleave16to16_16Pair7Null", {28}, {4, 4, 4, 4, 4, 4, 4, 0}, Split<U32, U32, 8, AudioDeinterleave16to16_16>},
    {"Deinterleave32to32", {32}, k4x8, Split<U32, U32, 4, AudioDeinterleave32to32>},
    {"Deinterleave24to24", {32}, k4x8, Split<U32, U32, 4, AudioDeinterleave24to24>},
    {"Deinterleave32to32_16", {64}, k8x8, Split<U32, U32, 8, AudioDeinterleave32to32_16>},
    {"Deinterleave24to16", {32}, k4x4, Split<U32, U16, 4, AudioDeinterleave24to16>},
    {"Deinterleave32to16Pair2Null", {32}, {4, 4, 0, 4}, Split<U32, U16, 4, AudioDeinterleave32to16>},
    {"Deinterleave32to16_16", {64}, k8x4, Split<U32, U16, 8, AudioDeinterleave32to16_16>},
    {"Deinterleave24to20", {32}, k4x8, Split<U32, U32, 4, AudioDeinterleave24to20>},
    {"Deinterleave32to20", {32}, k4x8, Split<U32, U32, 4, AudioDeinterleave32to20>},
    {"DeInterleave16to32", {16}, k4x8, Split<U16, U32, 4, AudioDeInterleave16to32, 8>},
    {"DeInterleave16to32Channels7", {14}, k4x8, Split<U16, U32, 4, AudioDeInterleave16to32, 7>},
    {"Deinterleave16to16Array4", {16}, k4x4, SplitArray<4, AudioDeinterleave16to16Array>},
    {"Deinterleave16to16Array8", {32}, k8x4, SplitArray<8, AudioDeinterleave16to16Array>},
    {"Deinterleave16to16Array8Entry3Null", {32}, {4, 4, 4, 0, 4, 4, 4, 4}, SplitArray<8, AudioDeinterleave16to16Array>},
    {"Deinterleave32to32Array4", {32}, k4x8, SplitArray<4, AudioDeinterleave32to32Array>},
    {"Deinterleave32to32Array8", {64}, k8x8, SplitArray<8, AudioDeinterleave32to32Array>},
    {"Deinterleave32to32Array6", {48}, std::vector<size_t>(6, 8), SplitArray<6, AudioDeinterleave32to32Array>},
    {"DeinterleavePair16", {4}, {4}, [](In i, Out o, uint32_t n) { AudioDeinterleavePair(i[0], o[0], 0, 16, 2, n); }},
    {"DeinterleavePair32", {8}, {8}, [](In i, Out o, uint32_t n) { AudioDeinterleavePair(i[0], o[0], 0, 32, 2, n); }},
    {"DeinterleaveStereo2Mono", {4}, {2},
     [](In i, Out o, uint32_t n) { AudioDeinterleaveStereo2Mono(P<U16>(o[0]), P<U16>(i[0]), n); }},
    {"Interleave16to16", k4x4, {16}, Join<U16, U16, 4, AudioInterleave16to16, 8>},
    {"Interleave16to16Pair2Null", {4, 4, 0, 4}, {16}, Join<U16, U16, 4, AudioInterleave16to16, 8>},
    {"Interleave16to16Channels6", k4x4, {12}, Join<U16, U16, 4, AudioInterleave16to16, 6>},
    {"Interleave16to16_16", k8x4, {32}, Join<U16, U16, 8, AudioInterleave16to16_16, 16>},
    {"Interleave32to32", k4x8, {32}, Join<U32, U32, 4, AudioInterleave32to32, 8>},
    {"Interleave24to32", k4x8, {32}, Join<U32, U32, 4, AudioInterleave24to32, 8>},
    {"Interleave32to32_16", k8x8, {64}, Join<U32, U32, 8, AudioInterleave32to32_16, 16>},
    {"Interleave24to32_16Pair5Null", {8, 8, 8, 8, 8, 0, 8, 8}, {64}, Join<U32, U32, 8, AudioInterleave24to32_16, 16>},
    {"Interleave16to24", k4x4, {32}, Join<U16, U32, 4, AudioInterleave16to24, 8>},
    {"Interleave16to32_16", k8x4, {64}, Join<U16, U32, 8, AudioInterleave16to32_16, 16>},
    {"Interleave16to16Array4", k4x4, {16}, JoinArray<U16, 4, AudioInterleave16to16Array>},
    {"Interleave16to16Array8", k8x4, {32}, JoinArray<U16, 8, AudioInterleave16to16Array>},
    {"Interleave32to32Array4Entry0Null", {0, 8, 8, 8}, {32}, JoinArray<U32, 4, AudioInterleave32to32Array>},
    {"Interleave32to32Array8", k8x8, {64}, JoinArray<U32, 8, AudioInterleave32to32Array>},
    {"InterleavePair16", {4}, {4}, [](In i, Out o, uint32_t n) { AudioInterleavePair(o[0], i[0], 0, 16, 2, n); }},
    {"InterleavePair32", {8}, {8}, [](In i, Out o, uint32_t n) { AudioInterleavePair(o[0], i[0], 0, 24, 2, n); }},
    {"InterleavePair16to32", {4}, {8},
     [](In i, Out o, uint32_t n) { AudioInterleavePair16to32(o[0], i[0], 0, 16, 2, n); }},
    {"InterleaveMono2Stereo16", {2}, {4},
     [](In i, Out o, uint32_t n) { AudioInterleaveMono2Stereo(P<U16>(o[0]), 16, n, P<U16>(i[0])); }},
    {"InterleaveMono2Stereo32", {4}, {8},
     [](In i, Out o, uint32_t n) { AudioInterleaveMono2Stereo(P<U16>(o[0]), 32, n, P<U16>(i[0])); }},
    {"InterleaveDualMono2Stereo16", {2, 2}, {4},
     [](In i, Out o, uint32_t n) { AudioInterleaveDualMono2Stereo16(o[0], 16, n, i[0], i[1]); }},
    {"InterleaveDualMono2Stereo16RightNull", {2, 0}, {4},
     [](In i, Out o, uint32_t n) { AudioInterleaveDualMono2Stereo16(o[0], 16, n, i[0], nullptr); }},
    {"InterleaveDualMono2Stereo32From16", {2, 2}, {8},
     [](In i, Out o, uint32_t n) { AudioInterleaveDualMono2Stereo32(o[0], 16, n, i[0], i[1]); }},
    {"InterleaveDualMono2Stereo32From24", {4, 4}, {8},
     [](In i, Out o, uint32_t n) { AudioInterleaveDualMono2Stereo32(o[0], 24, n, i[0], i[1]); }},
    {"InterleaveDualMono2Stereo32LeftNull", {0, 4}, {8},
     [](In i, Out o, uint32_t n) { AudioInterleaveDualMono2Stereo32(o[0], 32, n, nullptr, i[1]); }},
};

}  // namespace kvtest
