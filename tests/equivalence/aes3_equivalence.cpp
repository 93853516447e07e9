// AES3 reader, packed 24-bit readers and re-interleavers: plain loop and AVX2 kernel give the same bytes.
#include <gtest/gtest.h>

#include "equivalence.h"
#include "kvaudio/aes3.h"

namespace {

using kvtest::BufferShape;
using In = uint8_t *const *;
using Out = uint8_t *const *;

uint32_t *U32(uint8_t *p) { return reinterpret_cast<uint32_t *>(p); }
int16_t *I16(uint8_t *p) { return reinterpret_cast<int16_t *>(p); }

// Outputs start as canary bytes, so elements a member must not write compare too.
struct Member {
  const char *name;
  BufferShape shape;
  void (*run)(In in, Out out, uint32_t n);
};

const Member kMembers[] = {
    {"DeinterleaveAES316to16", {{32}, {4, 4, 4, 4}, 1, 2, 4},
     [](In i, Out o, uint32_t n) {
       KVAudioDeinterleaveAES316to16(i[0], I16(o[0]), I16(o[1]), I16(o[2]), I16(o[3]), n);
     }},
    {"Stereoto32LE", {{6}, {8}, 1, 4},
     [](In i, Out o, uint32_t n) { KVAudioConvertAES324Stereoto32(U32(o[0]), i[0], n, 0, 0, 6); }},
    {"Stereoto32BE", {{6}, {8}, 1, 4},
     [](In i, Out o, uint32_t n) { KVAudioConvertAES324Stereoto32(U32(o[0]), i[0], n, 1, 0, 6); }},
    {"DualMonoto32LE", {{3, 3}, {8}, 1, 4},
     [](In i, Out o, uint32_t n) { KVAudioConvertAES324DualMonoto32(U32(o[0]), i[0], i[1], n, 0, 0, 3); }},
    {"DualMonoto32BE", {{3, 3}, {8}, 1, 4},
     [](In i, Out o, uint32_t n) { KVAudioConvertAES324DualMonoto32(U32(o[0]), i[0], i[1], n, 1, 0, 3); }},
    {"Monoto32LE", {{3}, {4}, 1, 4},
     [](In i, Out o, uint32_t n) { KVAudioConvertAES324Monoto32(U32(o[0]), i[0], n, 0); }},
    {"Monoto32BE", {{3}, {4}, 1, 4},
     [](In i, Out o, uint32_t n) { KVAudioConvertAES324Monoto32(U32(o[0]), i[0], n, 1); }},
    {"Reinterleave24Left", {{3}, {8}, 1, 4},
     [](In i, Out o, uint32_t n) { KVAudioReinterleaveAES3_24monoto32stereo(U32(o[0]), i[0], 0, n); }},
    {"Reinterleave24RightBE", {{3}, {8}, 1, 4},
     [](In i, Out o, uint32_t n) { KVAudioReinterleaveAES3_24monoto32stereo_BE(U32(o[0]), i[0], 1, n); }},
    {"Reinterleave16Left", {{2}, {4}, 2, 2},
     [](In i, Out o, uint32_t n) { KVAudioReinterleaveAES3_16monoto16stereo(I16(i[0]), I16(o[0]), 0, n); }},
    {"Reinterleave16Right", {{2}, {4}, 2, 2},
     [](In i, Out o, uint32_t n) { KVAudioReinterleaveAES3_16monoto16stereo(I16(i[0]), I16(o[0]), 1, n); }},
    {"Reinterleave32Left", {{4}, {8}, 4, 4},
     [](In i, Out o, uint32_t n) { KVAudioReinterleaveAES3_32monoto32stereo(U32(i[0]), U32(o[0]), 0, n); }},
    {"Reinterleave32Right", {{4}, {8}, 4, 4},
     [](In i, Out o, uint32_t n) { KVAudioReinterleaveAES3_32monoto32stereo(U32(i[0]), U32(o[0]), 1, n); }},
    {"Smpte302Exact24Stereo", {{7}, {8}, 1, 4, 4},
     [](In i, Out o, uint32_t n) { KVAudioDeinterleaveAES_302_24bitExact_toStereo32(U32(o[0]), i[0], 2, 0, n); }},
    {"Smpte302Exact24Pair4Of8", {{28}, {8}, 1, 4, 4},
     [](In i, Out o, uint32_t n) { KVAudioDeinterleaveAES_302_24bitExact_toStereo32(U32(o[0]), i[0], 8, 6, n); }},
};

class Aes3Equivalence : public testing::TestWithParam<Member> {};

TEST_P(Aes3Equivalence, SameBytesForEveryLength) {
  if (!kvaudio::frame::HostHasAvx2()) GTEST_SKIP() << "host without AVX2";
  kvtest::ExpectSameBytesForEveryLength(GetParam().name, GetParam().shape, GetParam().run);
}

INSTANTIATE_TEST_SUITE_P(All, Aes3Equivalence, testing::ValuesIn(kMembers),
                         [](const testing::TestParamInfo<Member> &i) { return std::string(i.param.name); });

}  // namespace
