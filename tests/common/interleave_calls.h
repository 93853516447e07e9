// Every kernel-capable member of the interleave family, in the shapes that run its kernel and in
// the null-pointer and channel-count shapes that must fall back; shared by tests and benchmarks.
#pragma once

#include <cstdint>
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

// Pair buffers as host buffer records; a null output becomes a null entry.
template <typename Ptr>
inline void WithRecords(Ptr const *ptrs, size_t count, void (*use)(KVAudioBuffer *const *pairs, void *arg),
                        void *arg) {
  std::vector<KVAudioBuffer> records(count);
  std::vector<KVAudioBuffer *> table(count);
  for (size_t k = 0; k < count; ++k) {
    records[k].samples = const_cast<uint8_t *>(ptrs[k]);
    table[k] = ptrs[k] ? &records[k] : nullptr;
  }
  use(table.data(), arg);
}

struct ArrayCall {
  const uint8_t *flat;  // the interleaved side
  uint8_t *flatOut;
  uint32_t count, n;
};

template <uint32_t (*Fn)(const uint32_t *, KVAudioBuffer *const *, uint32_t, uint32_t)>
void SplitArray(In in, Out out, uint32_t count, uint32_t n) {
  ArrayCall call{in[0], nullptr, count, n};
  WithRecords(out, count, [](KVAudioBuffer *const *pairs, void *a) {
    auto *c = static_cast<ArrayCall *>(a);
    Fn(P<uint32_t>(c->flat), pairs, c->count, c->n);
  }, &call);
}

template <typename T, uint32_t (*Fn)(T *, KVAudioBuffer *const *, uint32_t, uint32_t)>
void JoinArray(In in, Out out, uint32_t count, uint32_t n) {
  ArrayCall call{nullptr, out[0], count, n};
  WithRecords(in, count, [](KVAudioBuffer *const *pairs, void *a) {
    auto *c = static_cast<ArrayCall *>(a);
    Fn(P<T>(c->flatOut), pairs, c->count, c->n);
  }, &call);
}

inline const std::vector<size_t> k4x4(4, 4), k4x8(4, 8), k8x4(8, 4), k8x8(8, 8);

inline const InterleaveCall kInterleaveCalls[] = {
    {"Deinterleave16to16", {16}, k4x4,
     [](In i, Out o, uint32_t n) {
       AudioDeinterleave16to16(P<uint32_t>(i[0]), P<uint32_t>(o[0]), P<uint32_t>(o[1]), P<uint32_t>(o[2]),
                               P<uint32_t>(o[3]), n);
     }},
    {"Deinterleave16to16Pair1Null", {12}, {4, 0, 4, 4},
     [](In i, Out o, uint32_t n) {
       AudioDeinterleave16to16(P<uint32_t>(i[0]), P<uint32_t>(o[0]), nullptr, P<uint32_t>(o[2]), P<uint32_t>(o[3]), n);
     }},
    {"Deinterleave16to16_16", {32}, k8x4,
     [](In i, Out o, uint32_t n) {
       AudioDeinterleave16to16_16(P<uint32_t>(i[0]), P<uint32_t>(o[0]), P<uint32_t>(o[1]), P<uint32_t>(o[2]),
                                  P<uint32_t>(o[3]), P<uint32_t>(o[4]), P<uint32_t>(o[5]), P<uint32_t>(o[6]),
                                  P<uint32_t>(o[7]), n);
     }},
    {"Deinterleave16to16_16Pair7Null", {28}, {4, 4, 4, 4, 4, 4, 4, 0},
     [](In i, Out o, uint32_t n) {
       AudioDeinterleave16to16_16(P<uint32_t>(i[0]), P<uint32_t>(o[0]), P<uint32_t>(o[1]), P<uint32_t>(o[2]),
                                  P<uint32_t>(o[3]), P<uint32_t>(o[4]), P<uint32_t>(o[5]), P<uint32_t>(o[6]),
                                  nullptr, n);
     }},
    {"Deinterleave32to32", {32}, k4x8,
     [](In i, Out o, uint32_t n) {
       AudioDeinterleave32to32(P<uint32_t>(i[0]), P<uint32_t>(o[0]), P<uint32_t>(o[1]), P<uint32_t>(o[2]),
                               P<uint32_t>(o[3]), n);
     }},
    {"Deinterleave24to24", {32}, k4x8,
     [](In i, Out o, uint32_t n) {
       AudioDeinterleave24to24(P<uint32_t>(i[0]), P<uint32_t>(o[0]), P<uint32_t>(o[1]), P<uint32_t>(o[2]),
                               P<uint32_t>(o[3]), n);
     }},
    {"Deinterleave32to32_16", {64}, k8x8,
     [](In i, Out o, uint32_t n) {
       AudioDeinterleave32to32_16(P<uint32_t>(i[0]), P<uint32_t>(o[0]), P<uint32_t>(o[1]), P<uint32_t>(o[2]),
                                  P<uint32_t>(o[3]), P<uint32_t>(o[4]), P<uint32_t>(o[5]), P<uint32_t>(o[6]),
                                  P<uint32_t>(o[7]), n);
     }},
    {"Deinterleave24to16", {32}, k4x4,
     [](In i, Out o, uint32_t n) {
       AudioDeinterleave24to16(P<uint32_t>(i[0]), P<uint16_t>(o[0]), P<uint16_t>(o[1]), P<uint16_t>(o[2]),
                               P<uint16_t>(o[3]), n);
     }},
    {"Deinterleave32to16Pair2Null", {32}, {4, 4, 0, 4},
     [](In i, Out o, uint32_t n) {
       AudioDeinterleave32to16(P<uint32_t>(i[0]), P<uint16_t>(o[0]), P<uint16_t>(o[1]), nullptr, P<uint16_t>(o[3]), n);
     }},
    {"Deinterleave32to16_16", {64}, k8x4,
     [](In i, Out o, uint32_t n) {
       AudioDeinterleave32to16_16(P<uint32_t>(i[0]), P<uint16_t>(o[0]), P<uint16_t>(o[1]), P<uint16_t>(o[2]),
                                  P<uint16_t>(o[3]), P<uint16_t>(o[4]), P<uint16_t>(o[5]), P<uint16_t>(o[6]),
                                  P<uint16_t>(o[7]), n);
     }},
    {"Deinterleave24to20", {32}, k4x8,
     [](In i, Out o, uint32_t n) {
       AudioDeinterleave24to20(P<uint32_t>(i[0]), P<uint32_t>(o[0]), P<uint32_t>(o[1]), P<uint32_t>(o[2]),
                               P<uint32_t>(o[3]), n);
     }},
    {"Deinterleave32to20", {32}, k4x8,
     [](In i, Out o, uint32_t n) {
       AudioDeinterleave32to20(P<uint32_t>(i[0]), P<uint32_t>(o[0]), P<uint32_t>(o[1]), P<uint32_t>(o[2]),
                               P<uint32_t>(o[3]), n);
     }},
    {"DeInterleave16to32", {16}, k4x8,
     [](In i, Out o, uint32_t n) {
       AudioDeInterleave16to32(P<uint16_t>(i[0]), P<uint32_t>(o[0]), P<uint32_t>(o[1]), P<uint32_t>(o[2]),
                               P<uint32_t>(o[3]), n, 8);
     }},
    {"DeInterleave16to32Channels7", {14}, k4x8,
     [](In i, Out o, uint32_t n) {
       AudioDeInterleave16to32(P<uint16_t>(i[0]), P<uint32_t>(o[0]), P<uint32_t>(o[1]), P<uint32_t>(o[2]),
                               P<uint32_t>(o[3]), n, 7);
     }},
    {"Deinterleave16to16Array4", {16}, k4x4,
     [](In i, Out o, uint32_t n) { SplitArray<AudioDeinterleave16to16Array>(i, o, 4, n); }},
    {"Deinterleave16to16Array8", {32}, k8x4,
     [](In i, Out o, uint32_t n) { SplitArray<AudioDeinterleave16to16Array>(i, o, 8, n); }},
    {"Deinterleave16to16Array8Entry3Null", {32}, {4, 4, 4, 0, 4, 4, 4, 4},
     [](In i, Out o, uint32_t n) { SplitArray<AudioDeinterleave16to16Array>(i, o, 8, n); }},
    {"Deinterleave32to32Array4", {32}, k4x8,
     [](In i, Out o, uint32_t n) { SplitArray<AudioDeinterleave32to32Array>(i, o, 4, n); }},
    {"Deinterleave32to32Array8", {64}, k8x8,
     [](In i, Out o, uint32_t n) { SplitArray<AudioDeinterleave32to32Array>(i, o, 8, n); }},
    {"Deinterleave32to32Array6", {48}, std::vector<size_t>(6, 8),
     [](In i, Out o, uint32_t n) { SplitArray<AudioDeinterleave32to32Array>(i, o, 6, n); }},
    {"DeinterleavePair16", {4}, {4},
     [](In i, Out o, uint32_t n) { AudioDeinterleavePair(i[0], o[0], 0, 16, 2, n); }},
    {"DeinterleavePair32", {8}, {8},
     [](In i, Out o, uint32_t n) { AudioDeinterleavePair(i[0], o[0], 0, 32, 2, n); }},
    {"DeinterleaveStereo2Mono", {4}, {2},
     [](In i, Out o, uint32_t n) { AudioDeinterleaveStereo2Mono(P<uint16_t>(o[0]), P<uint16_t>(i[0]), n); }},
    {"Interleave16to16", k4x4, {16},
     [](In i, Out o, uint32_t n) {
       AudioInterleave16to16(P<uint16_t>(o[0]), P<uint16_t>(i[0]), P<uint16_t>(i[1]), P<uint16_t>(i[2]),
                             P<uint16_t>(i[3]), n, 8);
     }},
    {"Interleave16to16Pair2Null", {4, 4, 0, 4}, {16},
     [](In i, Out o, uint32_t n) {
       AudioInterleave16to16(P<uint16_t>(o[0]), P<uint16_t>(i[0]), P<uint16_t>(i[1]), nullptr, P<uint16_t>(i[3]), n, 8);
     }},
    {"Interleave16to16Channels6", k4x4, {12},
     [](In i, Out o, uint32_t n) {
       AudioInterleave16to16(P<uint16_t>(o[0]), P<uint16_t>(i[0]), P<uint16_t>(i[1]), P<uint16_t>(i[2]),
                             P<uint16_t>(i[3]), n, 6);
     }},
    {"Interleave16to16_16", k8x4, {32},
     [](In i, Out o, uint32_t n) {
       AudioInterleave16to16_16(P<uint16_t>(o[0]), P<uint16_t>(i[0]), P<uint16_t>(i[1]), P<uint16_t>(i[2]),
                                P<uint16_t>(i[3]), P<uint16_t>(i[4]), P<uint16_t>(i[5]), P<uint16_t>(i[6]),
                                P<uint16_t>(i[7]), n, 16);
     }},
    {"Interleave32to32", k4x8, {32},
     [](In i, Out o, uint32_t n) {
       AudioInterleave32to32(P<uint32_t>(o[0]), P<uint32_t>(i[0]), P<uint32_t>(i[1]), P<uint32_t>(i[2]),
                             P<uint32_t>(i[3]), n, 8);
     }},
    {"Interleave24to32", k4x8, {32},
     [](In i, Out o, uint32_t n) {
       AudioInterleave24to32(P<uint32_t>(o[0]), P<uint32_t>(i[0]), P<uint32_t>(i[1]), P<uint32_t>(i[2]),
                             P<uint32_t>(i[3]), n, 8);
     }},
    {"Interleave32to32_16", k8x8, {64},
     [](In i, Out o, uint32_t n) {
       AudioInterleave32to32_16(P<uint32_t>(o[0]), P<uint32_t>(i[0]), P<uint32_t>(i[1]), P<uint32_t>(i[2]),
                                P<uint32_t>(i[3]), P<uint32_t>(i[4]), P<uint32_t>(i[5]), P<uint32_t>(i[6]),
                                P<uint32_t>(i[7]), n, 16);
     }},
    {"Interleave24to32_16Pair5Null", {8, 8, 8, 8, 8, 0, 8, 8}, {64},
     [](In i, Out o, uint32_t n) {
       AudioInterleave24to32_16(P<uint32_t>(o[0]), P<uint32_t>(i[0]), P<uint32_t>(i[1]), P<uint32_t>(i[2]),
                                P<uint32_t>(i[3]), P<uint32_t>(i[4]), nullptr, P<uint32_t>(i[6]),
                                P<uint32_t>(i[7]), n, 16);
     }},
    {"Interleave16to24", k4x4, {32},
     [](In i, Out o, uint32_t n) {
       AudioInterleave16to24(P<uint32_t>(o[0]), P<uint16_t>(i[0]), P<uint16_t>(i[1]), P<uint16_t>(i[2]),
                             P<uint16_t>(i[3]), n, 8);
     }},
    {"Interleave16to32_16", k8x4, {64},
     [](In i, Out o, uint32_t n) {
       AudioInterleave16to32_16(P<uint32_t>(o[0]), P<uint16_t>(i[0]), P<uint16_t>(i[1]), P<uint16_t>(i[2]),
                                P<uint16_t>(i[3]), P<uint16_t>(i[4]), P<uint16_t>(i[5]), P<uint16_t>(i[6]),
                                P<uint16_t>(i[7]), n, 16);
     }},
    {"Interleave16to16Array4", k4x4, {16},
     [](In i, Out o, uint32_t n) { JoinArray<uint16_t, AudioInterleave16to16Array>(i, o, 4, n); }},
    {"Interleave16to16Array8", k8x4, {32},
     [](In i, Out o, uint32_t n) { JoinArray<uint16_t, AudioInterleave16to16Array>(i, o, 8, n); }},
    {"Interleave32to32Array4Entry0Null", {0, 8, 8, 8}, {32},
     [](In i, Out o, uint32_t n) { JoinArray<uint32_t, AudioInterleave32to32Array>(i, o, 4, n); }},
    {"Interleave32to32Array8", k8x8, {64},
     [](In i, Out o, uint32_t n) { JoinArray<uint32_t, AudioInterleave32to32Array>(i, o, 8, n); }},
    {"InterleavePair16", {4}, {4},
     [](In i, Out o, uint32_t n) { AudioInterleavePair(o[0], i[0], 0, 16, 2, n); }},
    {"InterleavePair32", {8}, {8},
     [](In i, Out o, uint32_t n) { AudioInterleavePair(o[0], i[0], 0, 24, 2, n); }},
    {"InterleavePair16to32", {4}, {8},
     [](In i, Out o, uint32_t n) { AudioInterleavePair16to32(o[0], i[0], 0, 16, 2, n); }},
    {"InterleaveMono2Stereo16", {2}, {4},
     [](In i, Out o, uint32_t n) { AudioInterleaveMono2Stereo(P<uint16_t>(o[0]), 16, n, P<uint16_t>(i[0])); }},
    {"InterleaveMono2Stereo32", {4}, {8},
     [](In i, Out o, uint32_t n) { AudioInterleaveMono2Stereo(P<uint16_t>(o[0]), 32, n, P<uint16_t>(i[0])); }},
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
