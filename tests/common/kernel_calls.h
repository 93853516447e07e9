// Every kernel-capable member of the interleave, AES3 and AoIP families, in the shapes that run its
// kernel and in the null-pointer and channel-count shapes that must fall back; shared by the
// equivalence, layout and thread tests and the benchmarks.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "kvaudio/aes3.h"
#include "kvaudio/aoip.h"
#include "kvaudio/interleave.h"

namespace kvtest {

using In = const uint8_t *const *;
using Out = uint8_t *const *;

template <typename T>
inline T *P(uint8_t *p) { return reinterpret_cast<T *>(p); }
template <typename T>
inline const T *P(const uint8_t *p) { return reinterpret_cast<const T *>(p); }

// One member in one shape: bytes a period of each input and output buffer (0: pass null), a
// runner that calls the member on them, the element alignment that misaligned placements keep,
// and the bytes (such as a header) before the inputs' periods.
struct KernelCall {
  const char *name;
  std::vector<size_t> inBytes;
  std::vector<size_t> outBytes;
  void (*run)(In in, Out out, uint32_t n);
  size_t inAlign = 1, outAlign = 1, inPrefix = 0;
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
using I16 = int16_t;
using I32 = int32_t;

inline const KernelCall kKernelCalls[] = {
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
    // AES3 words, packed 24-bit, re-interleavers and 302M exact 24-bit (inputs behind a 4-byte header).
    {"DeinterleaveAES316to16", {32}, k4x4,
     [](In i, Out o, uint32_t n) {
       KVAudioDeinterleaveAES316to16(i[0], P<I16>(o[0]), P<I16>(o[1]), P<I16>(o[2]), P<I16>(o[3]), n);
     }, 1, 2, 4},
    {"Stereoto32LE", {6}, {8}, [](In i, Out o, uint32_t n) { KVAudioConvertAES324Stereoto32(P<U32>(o[0]), i[0], n, 0, 0, 6); }, 1, 4},
    {"Stereoto32BE", {6}, {8}, [](In i, Out o, uint32_t n) { KVAudioConvertAES324Stereoto32(P<U32>(o[0]), i[0], n, 1, 0, 6); }, 1, 4},
    {"DualMonoto32LE", {3, 3}, {8},
     [](In i, Out o, uint32_t n) { KVAudioConvertAES324DualMonoto32(P<U32>(o[0]), i[0], i[1], n, 0, 0, 3); }, 1, 4},
    {"DualMonoto32BE", {3, 3}, {8},
     [](In i, Out o, uint32_t n) { KVAudioConvertAES324DualMonoto32(P<U32>(o[0]), i[0], i[1], n, 1, 0, 3); }, 1, 4},
    {"Monoto32LE", {3}, {4}, [](In i, Out o, uint32_t n) { KVAudioConvertAES324Monoto32(P<U32>(o[0]), i[0], n, 0); }, 1, 4},
    {"Monoto32BE", {3}, {4}, [](In i, Out o, uint32_t n) { KVAudioConvertAES324Monoto32(P<U32>(o[0]), i[0], n, 1); }, 1, 4},
    {"Reinterleave24Left", {3}, {8},
     [](In i, Out o, uint32_t n) { KVAudioReinterleaveAES3_24monoto32stereo(P<U32>(o[0]), i[0], 0, n); }, 1, 4},
    {"Reinterleave24RightBE", {3}, {8},
     [](In i, Out o, uint32_t n) { KVAudioReinterleaveAES3_24monoto32stereo_BE(P<U32>(o[0]), i[0], 1, n); }, 1, 4},
    {"Reinterleave16Left", {2}, {4},
     [](In i, Out o, uint32_t n) { KVAudioReinterleaveAES3_16monoto16stereo(P<I16>(i[0]), P<I16>(o[0]), 0, n); }, 2, 2},
    {"Reinterleave16Right", {2}, {4},
     [](In i, Out o, uint32_t n) { KVAudioReinterleaveAES3_16monoto16stereo(P<I16>(i[0]), P<I16>(o[0]), 1, n); }, 2, 2},
    {"Reinterleave32Left", {4}, {8},
     [](In i, Out o, uint32_t n) { KVAudioReinterleaveAES3_32monoto32stereo(P<U32>(i[0]), P<U32>(o[0]), 0, n); }, 4, 4},
    {"Reinterleave32Right", {4}, {8},
     [](In i, Out o, uint32_t n) { KVAudioReinterleaveAES3_32monoto32stereo(P<U32>(i[0]), P<U32>(o[0]), 1, n); }, 4, 4},
    {"Smpte302Exact24Stereo", {7}, {8},
     [](In i, Out o, uint32_t n) { KVAudioDeinterleaveAES_302_24bitExact_toStereo32(P<U32>(o[0]), i[0], 2, 0, n); }, 1, 4, 4},
    {"Smpte302Exact24Pair4Of8", {28}, {8},
     [](In i, Out o, uint32_t n) { KVAudioDeinterleaveAES_302_24bitExact_toStereo32(P<U32>(o[0]), i[0], 8, 6, n); }, 1, 4, 4},
    // AoIP payloads and float conversion; n counts periods of the channel count in the name. Floats
    // come from random bits, so NaN, infinities and out-of-range values meet the saturation.
    {"Pack16L16", {2}, {2}, [](In i, Out o, uint32_t n) { KVAudioAoipPack16(o[0], P<I16>(i[0]), 16, 1, n); }, 2},
    {"Pack16L24x3", {6}, {9}, [](In i, Out o, uint32_t n) { KVAudioAoipPack16(o[0], P<I16>(i[0]), 24, 3, n); }, 2},
    {"Pack32L16", {4}, {2}, [](In i, Out o, uint32_t n) { KVAudioAoipPack32(o[0], P<I32>(i[0]), 16, 1, n); }, 4},
    {"Pack32L24x8", {32}, {24}, [](In i, Out o, uint32_t n) { KVAudioAoipPack32(o[0], P<I32>(i[0]), 24, 8, n); }, 4},
    {"Unpack16L16", {2}, {2}, [](In i, Out o, uint32_t n) { KVAudioAoipUnpack16(P<I16>(o[0]), i[0], 16, 1, n); }, 1, 2},
    {"Unpack16L24", {3}, {2}, [](In i, Out o, uint32_t n) { KVAudioAoipUnpack16(P<I16>(o[0]), i[0], 24, 1, n); }, 1, 2},
    {"Unpack32L16x5", {10}, {20}, [](In i, Out o, uint32_t n) { KVAudioAoipUnpack32(P<I32>(o[0]), i[0], 16, 5, n); }, 1, 4},
    {"Unpack32L24", {3}, {4}, [](In i, Out o, uint32_t n) { KVAudioAoipUnpack32(P<I32>(o[0]), i[0], 24, 1, n); }, 1, 4},
    {"PackPair32L24", {8}, {6}, [](In i, Out o, uint32_t n) { KVAudioAoipPackPair32(o[0], P<I32>(i[0]), 24, 2, 0, n); }, 4},
    {"UnpackPair16L16", {4}, {4},
     [](In i, Out o, uint32_t n) { KVAudioAoipUnpackPair16(P<I16>(o[0]), i[0], 16, 2, 0, n); }, 1, 2},
    {"PackFloatL24Dither", {8}, {6},
     [](In i, Out o, uint32_t n) {
       KVAudioDither d{n, 3};
       KVAudioAoipPackFloat(o[0], P<float>(i[0]), 24, 2, n, &d);
     }, 4},
    {"UnpackFloatL16", {2}, {4}, [](In i, Out o, uint32_t n) { KVAudioAoipUnpackFloat(P<float>(o[0]), i[0], 16, 1, n); }, 1, 4},
    {"Int16ToFloat", {2}, {4}, [](In i, Out o, uint32_t n) { KVAudioInt16ToFloat(P<float>(o[0]), P<I16>(i[0]), n); }, 2, 4},
    {"Int32ToFloat20", {4}, {4}, [](In i, Out o, uint32_t n) { KVAudioInt32ToFloat(P<float>(o[0]), P<I32>(i[0]), n, 20); }, 4, 4},
    {"Int32ToFloat32", {4}, {4}, [](In i, Out o, uint32_t n) { KVAudioInt32ToFloat(P<float>(o[0]), P<I32>(i[0]), n, 32); }, 4, 4},
    {"FloatToInt16", {4}, {2}, [](In i, Out o, uint32_t n) { KVAudioFloatToInt16(P<I16>(o[0]), P<float>(i[0]), n, nullptr); }, 4, 2},
    {"FloatToInt16Dither", {4}, {2},
     [](In i, Out o, uint32_t n) {
       KVAudioDither d{0x123456789ull * n, n};
       KVAudioFloatToInt16(P<I16>(o[0]), P<float>(i[0]), n, &d);
     }, 4, 2},
    {"FloatToInt24", {4}, {4},
     [](In i, Out o, uint32_t n) { KVAudioFloatToInt32(P<I32>(o[0]), P<float>(i[0]), n, 24, nullptr); }, 4, 4},
    {"FloatToInt32", {4}, {4},
     [](In i, Out o, uint32_t n) { KVAudioFloatToInt32(P<I32>(o[0]), P<float>(i[0]), n, 32, nullptr); }, 4, 4},
    {"FloatToInt32Dither", {4}, {4},
     [](In i, Out o, uint32_t n) {
       KVAudioDither d{~uint64_t{n}, 0xFFFFFFF0u};
       KVAudioFloatToInt32(P<I32>(o[0]), P<float>(i[0]), n, 32, &d);
     }, 4, 4},
};

}  // namespace kvtest
