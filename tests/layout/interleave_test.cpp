// Transforms, null-pair and channel-count rules of the interleave family, on both dispatch paths.
#include <gtest/gtest.h>

#include <vector>

#include "interleave_calls.h"
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

// Words 1..count, or `first`.. when given.
std::vector<uint32_t> Seq(size_t count, uint32_t first = 1) {
  std::vector<uint32_t> v(count);
  for (size_t i = 0; i < count; ++i) v[i] = first + static_cast<uint32_t>(i);
  return v;
}

// `count` untouched elements, then `tail`.
std::vector<uint32_t> Untouched(size_t count, std::vector<uint32_t> tail = {}) {
  std::vector<uint32_t> v(count, kC);
  v.insert(v.end(), tail.begin(), tail.end());
  return v;
}

struct LayoutCase {
  const char *name;
  std::vector<Buf> in;
  std::vector<Buf> expected;  // outputs, pre-filled with canary bytes before the call
  void (*run)(In in, Out out);
};

const LayoutCase kLayoutCases[] = {
    {"Deinterleave16to16NullPairTakesNoRoom", {{4, {10, 11, 12, 20, 21, 22}}},
     {{4, {10, 20}}, {0, {}}, {4, {11, 21}}, {4, {12, 22}}},
     [](In i, Out o) {
       AudioDeinterleave16to16(P<uint32_t>(i[0]), P<uint32_t>(o[0]), nullptr, P<uint32_t>(o[2]), P<uint32_t>(o[3]), 2);
     }},
    {"Deinterleave24to16NullPairIsSkipped", {{4, {0x10000, 0x20000, 0x30000, 0x40000, 0x50000, 0x60000, 0x70000,
                                                  0x80000, 0x90000, 0xA0000, 0xB0000, 0xC0000, 0xD0000, 0xE0000,
                                                  0xF0000, 0x100000}}},
     {{2, {1, 2, 9, 10}}, {0, {}}, {2, {5, 6, 13, 14}}, {2, {7, 8, 15, 16}}},
     [](In i, Out o) {
       AudioDeinterleave24to16(P<uint32_t>(i[0]), P<uint16_t>(o[0]), nullptr, P<uint16_t>(o[2]), P<uint16_t>(o[3]), 2);
     }},
    {"Deinterleave32to32NullPairTakesNoRoom", {{4, Seq(12)}},
     {{0, {}}, {4, {1, 2, 7, 8}}, {4, {3, 4, 9, 10}}, {4, {5, 6, 11, 12}}},
     [](In i, Out o) {
       AudioDeinterleave32to32(P<uint32_t>(i[0]), nullptr, P<uint32_t>(o[1]), P<uint32_t>(o[2]), P<uint32_t>(o[3]), 2);
     }},
    {"Deinterleave24to32PackedNullPairTakesNoRoom", {{3, {0x123456, 0x010203, 0xABCDEF, 0x000001, 0xFFFFFF, 0x800000}}},
     {{4, {0x12345600, 0x01020300}}, {0, {}}, {4, {0xABCDEF00, 0x00000100}}, {4, {0xFFFFFF00, 0x80000000}}},
     [](In i, Out o) { AudioDeinterleave24to32(i[0], P<uint32_t>(o[0]), nullptr, P<uint32_t>(o[2]), P<uint32_t>(o[3]), 1); }},
    {"Deinterleave32to24NullPairTakesNoRoom", {{4, {0x12345678, 0x9ABCDEF0, 0x000000FF, 0xFFFFFF80}}},
     {{0, {}}, {0, {}}, {4, {0x12345600, 0x9ABCDE00}}, {4, {0x00000000, 0xFFFFFF00}}},
     [](In i, Out o) { AudioDeinterleave32to24(P<uint32_t>(i[0]), nullptr, nullptr, P<uint32_t>(o[2]), P<uint32_t>(o[3]), 1); }},
    {"Deinterleave16to16ArrayNullEntryIsSkipped", {{4, Seq(8)}},
     {{4, {1, 5}}, {0, {}}, {4, {3, 7}}, {4, {4, 8}}},
     [](In i, Out o) {
       KVAudioBuffer b0{}, b2{}, b3{}, nullSamples{};
       b0.samples = o[0], b2.samples = o[2], b3.samples = o[3];
       KVAudioBuffer *const pairs[] = {&b0, &nullSamples, &b2, &b3};
       AudioDeinterleave16to16Array(P<uint32_t>(i[0]), pairs, 4, 2);
     }},
    {"Interleave32to32ArrayBeyondSixteenPairs", {}, {{4, Untouched(34, {7, 8})}},
     [](In, Out o) {
       const uint32_t pair17[] = {7, 8};
       KVAudioBuffer last{};
       last.samples = const_cast<uint32_t *>(pair17);
       KVAudioBuffer *pairs[18] = {};
       pairs[17] = &last;
       AudioInterleave32to32Array(P<uint32_t>(o[0]), pairs, 18, 1);
     }},
    {"Interleave16to16NullPairKeepsItsSlot", {{2, Seq(4)}, {0, {}}, {2, Seq(4, 5)}, {2, Seq(4, 9)}},
     {{2, {1, 2, kC, kC, 5, 6, 9, 10, 3, 4, kC, kC, 7, 8, 11, 12}}},
     [](In i, Out o) {
       AudioInterleave16to16(P<uint16_t>(o[0]), P<uint16_t>(i[0]), nullptr, P<uint16_t>(i[2]), P<uint16_t>(i[3]), 2, 8);
     }},
    {"Interleave32to32TwoChannelsTakePairZeroOnly", {{4, Seq(4)}, {4, Seq(4, 5)}, {4, Seq(4, 9)}, {4, Seq(4, 13)}},
     {{4, {1, 2, 3, 4, kC, kC, kC, kC}}},
     [](In i, Out o) {
       AudioInterleave32to32(P<uint32_t>(o[0]), P<uint32_t>(i[0]), P<uint32_t>(i[1]), P<uint32_t>(i[2]),
                             P<uint32_t>(i[3]), 2, 2);
     }},
    {"Interleave16to16FiveChannelsHalfLastPair", {{2, Seq(4)}, {2, Seq(4, 5)}, {2, Seq(4, 9)}, {2, Seq(4, 13)}},
     {{2, {1, 2, 5, 6, 9, 3, 4, 7, 8, 11, kC, kC}}},
     [](In i, Out o) {
       AudioInterleave16to16(P<uint16_t>(o[0]), P<uint16_t>(i[0]), P<uint16_t>(i[1]), P<uint16_t>(i[2]),
                             P<uint16_t>(i[3]), 2, 5);
     }},
    {"Interleave16to16PairZeroRequiredBelowEightChannels", {{0, {}}, {2, Seq(4)}, {2, Seq(4)}, {2, Seq(4)}},
     {{2, Untouched(12)}},
     [](In i, Out o) {
       AudioInterleave16to16(P<uint16_t>(o[0]), nullptr, P<uint16_t>(i[1]), P<uint16_t>(i[2]), P<uint16_t>(i[3]), 2, 6);
     }},
    {"Interleave32to32_16TenChannels", {{4, Seq(2)}, {4, Seq(2, 3)}, {4, Seq(2, 5)}, {4, Seq(2, 7)}, {4, Seq(2, 9)},
                                        {4, Seq(2, 11)}, {4, Seq(2, 13)}, {4, Seq(2, 15)}},
     {{4, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, kC, kC}}},
     [](In i, Out o) {
       AudioInterleave32to32_16(P<uint32_t>(o[0]), P<uint32_t>(i[0]), P<uint32_t>(i[1]), P<uint32_t>(i[2]),
                                P<uint32_t>(i[3]), P<uint32_t>(i[4]), P<uint32_t>(i[5]), P<uint32_t>(i[6]),
                                P<uint32_t>(i[7]), 1, 10);
     }},
    {"DeInterleave16to24ThreeChannels", {{2, Seq(6)}},
     {{4, {0x100, 0x200, 0x400, 0x500}}, {4, {0x300, kC, 0x600, kC}}, {4, Untouched(4)}, {4, Untouched(4)}},
     [](In i, Out o) {
       AudioDeInterleave16to24(P<uint16_t>(i[0]), P<uint32_t>(o[0]), P<uint32_t>(o[1]), P<uint32_t>(o[2]),
                               P<uint32_t>(o[3]), 2, 3);
     }},
    {"DeinterleavePairLoneLastChannel", {{2, Seq(6)}}, {{2, {3, kC, 6, kC}}},
     [](In i, Out o) { AudioDeinterleavePair(i[0], o[0], 1, 16, 3, 2); }},
    {"DeinterleavePairBeyondChannels", {{4, Seq(6)}}, {{4, {kC, kC}}},
     [](In i, Out o) { AudioDeinterleavePair(i[0], o[0], 2, 32, 3, 1); }},
    {"InterleavePairLoneLastChannel", {{4, {7, 8, 9, 10}}}, {{4, {kC, kC, 7, kC, kC, 9}}},
     [](In i, Out o) { AudioInterleavePair(o[0], i[0], 1, 32, 3, 2); }},
    {"InterleavePairMiddlePair", {{2, {7, 8, 9, 10}}}, {{2, {kC, kC, 7, 8, kC, kC, 9, 10}}},
     [](In i, Out o) { AudioInterleavePair(o[0], i[0], 1, 16, 4, 2); }},
    {"DeinterleaveStereo2MonoKeepsLeft", {{2, {1, 2, 3, 4}}}, {{2, {1, 3}}},
     [](In i, Out o) { AudioDeinterleaveStereo2Mono(P<uint16_t>(o[0]), P<uint16_t>(i[0]), 2); }},
    {"Mono2Stereo8", {{1, {1, 0x80}}}, {{1, {1, 1, 0x80, 0x80}}},
     [](In i, Out o) { AudioInterleaveMono2Stereo(P<uint16_t>(o[0]), 8, 2, P<uint16_t>(i[0])); }},
    {"Mono2Stereo24Packed", {{3, {0x123456, 0xABCDEF}}}, {{3, {0x123456, 0x123456, 0xABCDEF, 0xABCDEF}}},
     [](In i, Out o) { AudioInterleaveMono2Stereo(P<uint16_t>(o[0]), 24, 2, P<uint16_t>(i[0])); }},
    {"DualMono2Stereo16With20BitPacked", {{3, {0x12345, 0x6789A}}, {3, {0xBCDEF, 0x00001}}},
     {{3, {0x12345, 0xBCDEF, 0x6789A, 0x00001}}},
     [](In i, Out o) { AudioInterleaveDualMono2Stereo16(o[0], 20, 2, i[0], i[1]); }},
    {"DualMono2Stereo16RightNullLeavesRight", {{2, {1, 2}}, {0, {}}}, {{2, {1, kC, 2, kC}}},
     [](In i, Out o) { AudioInterleaveDualMono2Stereo16(o[0], 16, 2, i[0], nullptr); }},
    {"DualMono2Stereo32UnknownWidthWritesNothing", {{4, {1}}, {4, {2}}}, {{4, {kC, kC}}},
     [](In i, Out o) { AudioInterleaveDualMono2Stereo32(o[0], 8, 1, i[0], i[1]); }},
    {"ZeroSamplesWriteNothing", {{4, Seq(8)}}, {{4, {kC}}, {4, {kC}}, {4, {kC}}, {4, {kC}}},
     [](In i, Out o) {
       AudioDeinterleave16to16(P<uint32_t>(i[0]), P<uint32_t>(o[0]), P<uint32_t>(o[1]), P<uint32_t>(o[2]),
                               P<uint32_t>(o[3]), 0);
     }},
};

class InterleaveLayout : public testing::TestWithParam<LayoutCase> {};

TEST_P(InterleaveLayout, WritesExactlyTheExpectedElements) {
  const LayoutCase &c = GetParam();
  for (int path = 0; path < 2; ++path) {
    kvtest::ScopedAvx2 force(path);
    std::vector<std::vector<uint8_t>> in, out;
    std::vector<const uint8_t *> inPtrs;
    std::vector<uint8_t *> outPtrs;
    for (const Buf &b : c.in) inPtrs.push_back(b.width ? in.emplace_back(b.Bytes()).data() : nullptr);
    for (const Buf &b : c.expected)
      outPtrs.push_back(b.width ? out.emplace_back(b.values.size() * b.width, kCanary).data() : nullptr);
    c.run(inPtrs.data(), outPtrs.data());
    size_t k = 0;
    for (const Buf &b : c.expected) {
      if (!b.width) continue;
      EXPECT_EQ(out[k], b.Bytes()) << c.name << " path " << path << " output " << k;
      ++k;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(All, InterleaveLayout, testing::ValuesIn(kLayoutCases),
                         [](const testing::TestParamInfo<LayoutCase> &i) { return std::string(i.param.name); });

// One sample value through a member, on a length that spans kernel blocks and a remainder.
struct TransformCase {
  const char *name;
  uint32_t in, out;
  std::vector<uint32_t> (*run)(uint32_t word, uint32_t n);  // every output element
};

constexpr uint32_t kN = 19;

template <typename S, typename D, size_t kPairs, typename Fn>
std::vector<uint32_t> Split(uint32_t word, uint32_t n, size_t channels, Fn fn) {
  std::vector<S> src(n * channels, static_cast<S>(word));
  std::vector<std::vector<D>> pairs(kPairs, std::vector<D>(2 * n));
  fn(src.data(), pairs, n);
  std::vector<uint32_t> all;
  for (auto &p : pairs) all.insert(all.end(), p.begin(), p.end());
  return all;
}

template <typename S, typename D, size_t kPairs, typename Fn>
std::vector<uint32_t> Join(uint32_t word, uint32_t n, Fn fn) {
  std::vector<std::vector<S>> pairs(kPairs, std::vector<S>(2 * n, static_cast<S>(word)));
  std::vector<D> dst(2 * kPairs * n);
  fn(dst.data(), pairs, n);
  return std::vector<uint32_t>(dst.begin(), dst.end());
}

const TransformCase kTransformCases[] = {
    {"DeInterleave16to24ShiftsBy8", 0x8000, 0x00800000,
     [](uint32_t w, uint32_t n) {
       return Split<uint16_t, uint32_t, 4>(w, n, 8, [](const uint16_t *s, auto &p, uint32_t m) {
         AudioDeInterleave16to24(s, p[0].data(), p[1].data(), p[2].data(), p[3].data(), m, 8);
       });
     }},
    {"DeInterleave16to32ShiftsBy16", 0x8000, 0x80000000,
     [](uint32_t w, uint32_t n) {
       return Split<uint16_t, uint32_t, 4>(w, n, 8, [](const uint16_t *s, auto &p, uint32_t m) {
         AudioDeInterleave16to32(s, p[0].data(), p[1].data(), p[2].data(), p[3].data(), m, 8);
       });
     }},
    {"Deinterleave24to20KeepsTop20", 0x12345678, 0x12345000,
     [](uint32_t w, uint32_t n) {
       return Split<uint32_t, uint32_t, 4>(w, n, 8, [](const uint32_t *s, auto &p, uint32_t m) {
         AudioDeinterleave32to20(s, p[0].data(), p[1].data(), p[2].data(), p[3].data(), m);
       });
     }},
    {"Deinterleave32to24ClearsLowByte", 0x12345678, 0x12345600,
     [](uint32_t w, uint32_t n) {
       return Split<uint32_t, uint32_t, 4>(w, n, 8, [](const uint32_t *s, auto &p, uint32_t m) {
         AudioDeinterleave32to24(s, p[0].data(), p[1].data(), p[2].data(), p[3].data(), m);
       });
     }},
    {"Deinterleave24to16KeepsUpperHalf", 0x12345678, 0x1234,
     [](uint32_t w, uint32_t n) {
       return Split<uint32_t, uint16_t, 4>(w, n, 8, [](const uint32_t *s, auto &p, uint32_t m) {
         AudioDeinterleave24to16(s, p[0].data(), p[1].data(), p[2].data(), p[3].data(), m);
       });
     }},
    {"Deinterleave32to16_16KeepsUpperHalf", 0xFEDCBA98, 0xFEDC,
     [](uint32_t w, uint32_t n) {
       return Split<uint32_t, uint16_t, 8>(w, n, 16, [](const uint32_t *s, auto &p, uint32_t m) {
         AudioDeinterleave32to16_16(s, p[0].data(), p[1].data(), p[2].data(), p[3].data(), p[4].data(),
                                    p[5].data(), p[6].data(), p[7].data(), m);
       });
     }},
    {"Interleave16to24ShiftsBy16", 0x8000, 0x80000000,
     [](uint32_t w, uint32_t n) {
       return Join<uint16_t, uint32_t, 4>(w, n, [](uint32_t *d, auto &p, uint32_t m) {
         AudioInterleave16to24(d, p[0].data(), p[1].data(), p[2].data(), p[3].data(), m, 8);
       });
     }},
    {"Interleave16to32_16ShiftsBy16", 0xFFFF, 0xFFFF0000,
     [](uint32_t w, uint32_t n) {
       return Join<uint16_t, uint32_t, 8>(w, n, [](uint32_t *d, auto &p, uint32_t m) {
         AudioInterleave16to32_16(d, p[0].data(), p[1].data(), p[2].data(), p[3].data(), p[4].data(), p[5].data(),
                                  p[6].data(), p[7].data(), m, 16);
       });
     }},
    {"InterleavePair16to32ShiftsBy16", 0x8001, 0x80010000,
     [](uint32_t w, uint32_t n) {
       return Join<uint16_t, uint32_t, 1>(w, n, [](uint32_t *d, auto &p, uint32_t m) {
         AudioInterleavePair16to32(d, p[0].data(), 0, 0, 2, m);
       });
     }},
    {"DualMono2Stereo32From16ShiftsBy16", 0x7FFF, 0x7FFF0000,
     [](uint32_t w, uint32_t n) {
       return Join<uint16_t, uint32_t, 1>(w, n, [](uint32_t *d, auto &p, uint32_t m) {
         AudioInterleaveDualMono2Stereo32(d, 16, m, p[0].data(), p[0].data() + m);
       });
     }},
};

class InterleaveTransform : public testing::TestWithParam<TransformCase> {};

TEST_P(InterleaveTransform, EverySampleTransformedAlike) {
  const TransformCase &c = GetParam();
  for (int path = 0; path < 2; ++path) {
    kvtest::ScopedAvx2 force(path);
    const auto out = c.run(c.in, kN);
    for (size_t i = 0; i < out.size(); ++i) ASSERT_EQ(out[i], c.out) << c.name << " path " << path << " at " << i;
  }
}

INSTANTIATE_TEST_SUITE_P(All, InterleaveTransform, testing::ValuesIn(kTransformCases),
                         [](const testing::TestParamInfo<TransformCase> &i) { return std::string(i.param.name); });

}  // namespace
