// AoIP payloads and float conversion: plain loop and AVX2 kernel give the same bytes.
#include <gtest/gtest.h>

#include "equivalence.h"
#include "kvaudio/aoip.h"

namespace {

using kvtest::BufferShape;
using In = uint8_t *const *;
using Out = uint8_t *const *;

template <typename T>
T *As(uint8_t *p) { return reinterpret_cast<T *>(p); }

struct Member {
  const char *name;
  BufferShape shape;
  void (*run)(In in, Out out, uint32_t n);
};

// n counts periods of the channel count in the name; floats come from random bits, so NaN,
// infinities and out-of-range values meet the saturation.
const Member kMembers[] = {
    {"Pack16L16", {{2}, {2}, 2, 1}, [](In i, Out o, uint32_t n) { KVAudioAoipPack16(o[0], As<int16_t>(i[0]), 16, 1, n); }},
    {"Pack16L24x3", {{6}, {9}, 2, 1}, [](In i, Out o, uint32_t n) { KVAudioAoipPack16(o[0], As<int16_t>(i[0]), 24, 3, n); }},
    {"Pack32L16", {{4}, {2}, 4, 1}, [](In i, Out o, uint32_t n) { KVAudioAoipPack32(o[0], As<int32_t>(i[0]), 16, 1, n); }},
    {"Pack32L24x8", {{32}, {24}, 4, 1}, [](In i, Out o, uint32_t n) { KVAudioAoipPack32(o[0], As<int32_t>(i[0]), 24, 8, n); }},
    {"Unpack16L16", {{2}, {2}, 1, 2}, [](In i, Out o, uint32_t n) { KVAudioAoipUnpack16(As<int16_t>(o[0]), i[0], 16, 1, n); }},
    {"Unpack16L24", {{3}, {2}, 1, 2}, [](In i, Out o, uint32_t n) { KVAudioAoipUnpack16(As<int16_t>(o[0]), i[0], 24, 1, n); }},
    {"Unpack32L16x5", {{10}, {20}, 1, 4}, [](In i, Out o, uint32_t n) { KVAudioAoipUnpack32(As<int32_t>(o[0]), i[0], 16, 5, n); }},
    {"Unpack32L24", {{3}, {4}, 1, 4}, [](In i, Out o, uint32_t n) { KVAudioAoipUnpack32(As<int32_t>(o[0]), i[0], 24, 1, n); }},
    {"PackPair32L24", {{8}, {6}, 4, 1}, [](In i, Out o, uint32_t n) { KVAudioAoipPackPair32(o[0], As<int32_t>(i[0]), 24, 2, 0, n); }},
    {"UnpackPair16L16", {{4}, {4}, 1, 2}, [](In i, Out o, uint32_t n) { KVAudioAoipUnpackPair16(As<int16_t>(o[0]), i[0], 16, 2, 0, n); }},
    {"PackFloatL24Dither", {{8}, {6}, 4, 1},
     [](In i, Out o, uint32_t n) {
       KVAudioDither d{n, 3};
       KVAudioAoipPackFloat(o[0], As<float>(i[0]), 24, 2, n, &d);
     }},
    {"UnpackFloatL16", {{2}, {4}, 1, 4}, [](In i, Out o, uint32_t n) { KVAudioAoipUnpackFloat(As<float>(o[0]), i[0], 16, 1, n); }},
    {"Int16ToFloat", {{2}, {4}, 2, 4}, [](In i, Out o, uint32_t n) { KVAudioInt16ToFloat(As<float>(o[0]), As<int16_t>(i[0]), n); }},
    {"Int32ToFloat20", {{4}, {4}, 4, 4}, [](In i, Out o, uint32_t n) { KVAudioInt32ToFloat(As<float>(o[0]), As<int32_t>(i[0]), n, 20); }},
    {"Int32ToFloat32", {{4}, {4}, 4, 4}, [](In i, Out o, uint32_t n) { KVAudioInt32ToFloat(As<float>(o[0]), As<int32_t>(i[0]), n, 32); }},
    {"FloatToInt16", {{4}, {2}, 4, 2}, [](In i, Out o, uint32_t n) { KVAudioFloatToInt16(As<int16_t>(o[0]), As<float>(i[0]), n, nullptr); }},
    {"FloatToInt16Dither", {{4}, {2}, 4, 2},
     [](In i, Out o, uint32_t n) {
       KVAudioDither d{0x123456789ull * n, n};
       KVAudioFloatToInt16(As<int16_t>(o[0]), As<float>(i[0]), n, &d);
     }},
    {"FloatToInt24", {{4}, {4}, 4, 4}, [](In i, Out o, uint32_t n) { KVAudioFloatToInt32(As<int32_t>(o[0]), As<float>(i[0]), n, 24, nullptr); }},
    {"FloatToInt32", {{4}, {4}, 4, 4}, [](In i, Out o, uint32_t n) { KVAudioFloatToInt32(As<int32_t>(o[0]), As<float>(i[0]), n, 32, nullptr); }},
    {"FloatToInt32Dither", {{4}, {4}, 4, 4},
     [](In i, Out o, uint32_t n) {
       KVAudioDither d{~uint64_t{n}, 0xFFFFFFF0u};
       KVAudioFloatToInt32(As<int32_t>(o[0]), As<float>(i[0]), n, 32, &d);
     }},
};

class AoipEquivalence : public testing::TestWithParam<Member> {};

TEST_P(AoipEquivalence, SameBytesForEveryLength) {
  if (!kvaudio::frame::HostHasAvx2()) GTEST_SKIP() << "host without AVX2";
  kvtest::ExpectSameBytesForEveryLength(GetParam().name, GetParam().shape, GetParam().run);
}

INSTANTIATE_TEST_SUITE_P(All, AoipEquivalence, testing::ValuesIn(kMembers),
                         [](const testing::TestParamInfo<Member> &i) { return std::string(i.param.name); });

}  // namespace
