// Transforms, null-pair and channel-count rules of the interleave family.
#include <gtest/gtest.h>

#include <vector>

#include "kernel_calls.h"
#include "test_util.h"

namespace {

using kvtest::In;
using kvtest::Out;
using kvtest::P;

constexpr uint32_t kC = 0xFFFFFFFFu;  // an element the call must leave untouched
constexpr uint8_t kCanary = 0xEE;

// A buffer of little-endian elements `width` bytes wide (3: packed 24-bit); width 0 passes null.
struct Buf {
  size_t width;
  std::vector<uint32_t> values;

  std::vector<uint8_t> Bytes() const {
    std::vector<uint8_t> out;
    for (uint32_t v : values)
      for (size_t b = 0; b < width; ++b) out.push_back(v == kC ? kCanary : static_cast<uint8_t>(v >> (8 * b)));
    return out;
  }
};

std::vector<uint32_t> Seq(size_t count, uint32_t first = 1, uint32_t step = 1) {
  std::vector<uint32_t> v(count);
  for (size_t i = 0; i < count; ++i) v[i] = first + step * static_cast<uint32_t>(i);
  return v;
}

std::vector<uint32_t> Untouched(size_t count, std::vector<uint32_t> tail = {}) {
  std::vector<uint32_t> v(count, kC);
  v.insert(v.end(), tail.begin(), tail.end());
  return v;
}

// A transform over kN periods of the given bytes a buffer, every element `width` wide and equal to
// `value`: spans kernel blocks and a remainder, so a wrong shift, mask or half shows on either path.
constexpr uint32_t kN = 19;
std::vector<Buf> Filled(const std::vector<size_t> &bytes, size_t width, uint32_t value) {
  std::vector<Buf> bufs;
  for (size_t b : bytes) bufs.push_back({width, std::vector<uint32_t>(kN * b / width, value)});
  return bufs;
}
using kvtest::k4x4, kvtest::k4x8, kvtest::k8x4;

struct LayoutCase {
  const char *name;
  std::vector<Buf> in;
  std::vector<Buf> expected;  // outputs, pre-filled with canary bytes before the call
  uint32_t n;
  void (*run)(In in, Out out, uint32_t n);
};

using kvtest::Join;
using kvtest::Split;
using U16 = uint16_t;
using U32 = uint32_t;

const LayoutCase kLayoutCases[] = {
    {"Deinterleave16to16NullPairTakesNoRoom", {{4, {10, 11, 12, 20, 21, 22}}},
     {{4, {10, 20}}, {0, {}}, {4, {11, 21}}, {4, {12, 22}}}, 2, Split<U32, U32, 4, AudioDeinterleave16to16>},
    {"Deinterleave24to16NullPairIsSkipped", {{4, Seq(16, 0x10000, 0x10000)}},
     {{2, {1, 2, 9, 10}}, {0, {}}, {2, {5, 6, 13, 14}}, {2, {7, 8, 15, 16}}}, 2,
     Split<U32, U16, 4, AudioDeinterleave24to16>},
    {"Deinterleave24to32PackedNullPairTakesNoRoom", {{3, {0x123456, 0x010203, 0xABCDEF, 0x000001, 0xFFFFFF, 0x800000}}},
     {{4, {0x12345600, 0x01020300}}, {0, {}}, {4, {0xABCDEF00, 0x00000100}}, {4, {0xFFFFFF00, 0x80000000}}}, 1,
     Split<uint8_t, U32, 4, AudioDeinterleave24to32>},
    {"Deinterleave16to16ArrayNullEntryIsSkipped", {{4, Seq(8)}}, {{4, {1, 5}}, {0, {}}, {4, {3, 7}}, {4, {4, 8}}}, 2,
     kvtest::SplitArray<4, AudioDeinterleave16to16Array>},
    {"Interleave32to32ArrayBeyondSixteenPairs", {}, {{4, Untouched(34, {7, 8})}}, 1,
     [](In, Out o, uint32_t n) {
       const uint32_t pair17[] = {7, 8};
       KVAudioBuffer last{};
       last.samples = const_cast<uint32_t *>(pair17);
       KVAudioBuffer *pairs[18] = {};
       pairs[17] = &last;
       AudioInterleave32to32Array(P<uint32_t>(o[0]), pairs, 18, n);
     }},
    {"Interleave16to16NullPairKeepsItsSlot", {{2, Seq(4)}, {0, {}}, {2, Seq(4, 5)}, {2, Seq(4, 9)}},
     {{2, {1, 2, kC, kC, 5, 6, 9, 10, 3, 4, kC, kC, 7, 8, 11, 12}}}, 2, Join<U16, U16, 4, AudioInterleave16to16, 8>},
    {"Interleave32to32TwoChannelsTakePairZeroOnly", {{4, Seq(4)}, {4, Seq(4, 5)}, {4, Seq(4, 9)}, {4, Seq(4, 13)}},
     {{4, {1, 2, 3, 4, kC, kC, kC, kC}}}, 2, Join<U32, U32, 4, AudioInterleave32to32, 2>},
    {"Interleave16to16FiveChannelsHalfLastPair", {{2, Seq(4)}, {2, Seq(4, 5)}, {2, Seq(4, 9)}, {2, Seq(4, 13)}},
     {{2, {1, 2, 5, 6, 9, 3, 4, 7, 8, 11, kC, kC}}}, 2, Join<U16, U16, 4, AudioInterleave16to16, 5>},
    {"Interleave16to16PairZeroRequiredBelowEightChannels", {{0, {}}, {2, Seq(4)}, {2, Seq(4)}, {2, Seq(4)}},
     {{2, Untouched(12)}}, 2, Join<U16, U16, 4, AudioInterleave16to16, 6>},
    {"Interleave32to32_16TenChannels", {{4, Seq(2)}, {4, Seq(2, 3)}, {4, Seq(2, 5)}, {4, Seq(2, 7)}, {4, Seq(2, 9)},
                                        {4, Seq(2, 11)}, {4, Seq(2, 13)}, {4, Seq(2, 15)}},
     {{4, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, kC, kC}}}, 1, Join<U32, U32, 8, AudioInterleave32to32_16, 10>},
    {"DeInterleave16to24ThreeChannels", {{2, Seq(6)}},
     {{4, {0x100, 0x200, 0x400, 0x500}}, {4, {0x300, kC, 0x600, kC}}, {4, Untouched(4)}, {4, Untouched(4)}}, 2,
     Split<U16, U32, 4, AudioDeInterleave16to24, 3>},
    {"DeinterleavePairLoneLastChannel", {{2, Seq(6)}}, {{2, {3, kC, 6, kC}}}, 2,
     [](In i, Out o, uint32_t n) { AudioDeinterleavePair(i[0], o[0], 1, 16, 3, n); }},
    {"InterleavePairLoneLastChannel", {{4, {7, 8, 9, 10}}}, {{4, {kC, kC, 7, kC, kC, 9}}}, 2,
     [](In i, Out o, uint32_t n) { AudioInterleavePair(o[0], i[0], 1, 32, 3, n); }},
    {"InterleavePairMiddlePair", {{2, {7, 8, 9, 10}}}, {{2, {kC, kC, 7, 8, kC, kC, 9, 10}}}, 2,
     [](In i, Out o, uint32_t n) { AudioInterleavePair(o[0], i[0], 1, 16, 4, n); }},
    {"DeinterleaveStereo2MonoKeepsLeft", {{2, {1, 2, 3, 4}}}, {{2, {1, 3}}}, 2,
     [](In i, Out o, uint32_t n) { AudioDeinterleaveStereo2Mono(P<U16>(o[0]), P<U16>(i[0]), n); }},
    {"Mono2Stereo8", {{1, {1, 0x80}}}, {{1, {1, 1, 0x80, 0x80}}}, 2,
     [](In i, Out o, uint32_t n) { AudioInterleaveMono2Stereo(P<U16>(o[0]), 8, n, P<U16>(i[0])); }},
    {"Mono2Stereo24Packed", {{3, {0x123456, 0xABCDEF}}}, {{3, {0x123456, 0x123456, 0xABCDEF, 0xABCDEF}}}, 2,
     [](In i, Out o, uint32_t n) { AudioInterleaveMono2Stereo(P<U16>(o[0]), 24, n, P<U16>(i[0])); }},
    {"DualMono2Stereo16With20BitPacked", {{3, {0x12345, 0x6789A}}, {3, {0xBCDEF, 0x00001}}},
     {{3, {0x12345, 0xBCDEF, 0x6789A, 0x00001}}}, 2,
     [](In i, Out o, uint32_t n) { AudioInterleaveDualMono2Stereo16(o[0], 20, n, i[0], i[1]); }},
    {"DualMono2Stereo16RightNullLeavesRight", {{2, {1, 2}}, {0, {}}}, {{2, {1, kC, 2, kC}}}, 2,
     [](In i, Out o, uint32_t n) { AudioInterleaveDualMono2Stereo16(o[0], 16, n, i[0], nullptr); }},
    {"DualMono2Stereo32UnknownWidthWritesNothing", {{4, {1}}, {4, {2}}}, {{4, {kC, kC}}}, 1,
     [](In i, Out o, uint32_t n) { AudioInterleaveDualMono2Stereo32(o[0], 8, n, i[0], i[1]); }},
    {"ZeroSamplesWriteNothing", {{4, Seq(8)}}, {{4, {kC}}, {4, {kC}}, {4, {kC}}, {4, {kC}}}, 0,
     Split<U32, U32, 4, AudioDeinterleave16to16>},
    {"DeInterleave16to32ShiftsBy16", Filled({16}, 2, 0x8000), Filled(k4x8, 4, 0x80000000), kN,
     Split<U16, U32, 4, AudioDeInterleave16to32, 8>},
    {"Deinterleave32to20KeepsTop20", Filled({32}, 4, 0x12345FF8), Filled(k4x8, 4, 0x12345000), kN,
     Split<U32, U32, 4, AudioDeinterleave32to20>},
    {"Deinterleave32to24ClearsLowByte", Filled({32}, 4, 0x12345FF8), Filled(k4x8, 4, 0x12345F00), kN,
     Split<U32, U32, 4, AudioDeinterleave32to24>},
    {"Deinterleave24to16KeepsUpperHalf", Filled({32}, 4, 0x12345678), Filled(k4x4, 2, 0x1234), kN,
     Split<U32, U16, 4, AudioDeinterleave24to16>},
    {"Deinterleave32to16_16KeepsUpperHalf", Filled({64}, 4, 0xFEDCBA98), Filled(k8x4, 2, 0xFEDC), kN,
     Split<U32, U16, 8, AudioDeinterleave32to16_16>},
    {"Interleave16to24ShiftsBy16", Filled(k4x4, 2, 0x8000), Filled({32}, 4, 0x80000000), kN,
     Join<U16, U32, 4, AudioInterleave16to24, 8>},
    {"Interleave16to32_16ShiftsBy16", Filled(k8x4, 2, 0xFFFF), Filled({64}, 4, 0xFFFF0000), kN,
     Join<U16, U32, 8, AudioInterleave16to32_16, 16>},
    {"InterleavePair16to32ShiftsBy16", Filled({4}, 2, 0x8001), Filled({8}, 4, 0x80010000), kN,
     [](In i, Out o, uint32_t n) { AudioInterleavePair16to32(o[0], i[0], 0, 0, 2, n); }},
};

// Outputs start as canary bytes and must end equal to their expected buffers (width 0: passed as null).
class InterleaveLayout : public testing::TestWithParam<LayoutCase> {};

TEST_P(InterleaveLayout, WritesExactlyTheExpectedElements) {
  const LayoutCase &c = GetParam();
  std::vector<std::vector<uint8_t>> ins, outs;
  std::vector<const uint8_t *> inPtrs;
  std::vector<uint8_t *> outPtrs;
  for (const Buf &b : c.in) inPtrs.push_back(b.width ? ins.emplace_back(b.Bytes()).data() : nullptr);
  for (const Buf &b : c.expected)
    outPtrs.push_back(b.width ? outs.emplace_back(b.values.size() * b.width, kCanary).data() : nullptr);
  c.run(inPtrs.data(), outPtrs.data(), c.n);
  size_t k = 0;
  for (const Buf &b : c.expected)
    if (b.width) {
      EXPECT_EQ(outs[k++], b.Bytes()) << "output " << k;
    }
}

INSTANTIATE_TEST_SUITE_P(All, InterleaveLayout, testing::ValuesIn(kLayoutCases),
                         [](const testing::TestParamInfo<LayoutCase> &i) { return std::string(i.param.name); });

}  // namespace
