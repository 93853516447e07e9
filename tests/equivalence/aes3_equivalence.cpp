// AES3 reader, packed 24-bit readers and re-interleavers: plain loop and AVX2 kernel give the same bytes.
#include <gtest/gtest.h>

#include "kvaudio/aes3.h"
#include "test_util.h"

namespace {

using kvtest::Guarded;

// One member run: bytes per frame of its one or two inputs (plus a fixed prefix such as a
// header) and of its outputs; outputs start as canary bytes, so unwritten elements compare too.
// Buffers sit at varied offsets that keep the alignment of their element type.
struct Family {
  const char *name;
  size_t inAlign;
  size_t inPrefix;
  size_t inBytes[2];
  size_t outAlign;
  size_t outs;
  size_t outBytes;
  void (*run)(uint8_t *const *in, uint8_t *const *out, uint32_t n);
};

// An offset below 32 bytes that keeps `align`.
size_t Offset(size_t raw, size_t align) { return raw % 32 / align * align; }

uint32_t *U32(uint8_t *p) { return reinterpret_cast<uint32_t *>(p); }
int16_t *I16(uint8_t *p) { return reinterpret_cast<int16_t *>(p); }
using In = uint8_t *const *;
using Out = uint8_t *const *;

const Family kFamilies[] = {
    {"DeinterleaveAES316to16", 1, 4, {32, 0}, 2, 4, 4,
     [](In i, Out o, uint32_t n) {
       KVAudioDeinterleaveAES316to16(i[0], I16(o[0]), I16(o[1]), I16(o[2]), I16(o[3]), n);
     }},
    {"Stereoto32LE", 1, 0, {6, 0}, 4, 1, 8,
     [](In i, Out o, uint32_t n) { KVAudioConvertAES324Stereoto32(U32(o[0]), i[0], n, 0, 0, 6); }},
    {"Stereoto32BE", 1, 0, {6, 0}, 4, 1, 8,
     [](In i, Out o, uint32_t n) { KVAudioConvertAES324Stereoto32(U32(o[0]), i[0], n, 1, 0, 6); }},
    {"DualMonoto32LE", 1, 0, {3, 3}, 4, 1, 8,
     [](In i, Out o, uint32_t n) { KVAudioConvertAES324DualMonoto32(U32(o[0]), i[0], i[1], n, 0, 0, 3); }},
    {"DualMonoto32BE", 1, 0, {3, 3}, 4, 1, 8,
     [](In i, Out o, uint32_t n) { KVAudioConvertAES324DualMonoto32(U32(o[0]), i[0], i[1], n, 1, 0, 3); }},
    {"Monoto32LE", 1, 0, {3, 0}, 4, 1, 4,
     [](In i, Out o, uint32_t n) { KVAudioConvertAES324Monoto32(U32(o[0]), i[0], n, 0); }},
    {"Monoto32BE", 1, 0, {3, 0}, 4, 1, 4,
     [](In i, Out o, uint32_t n) { KVAudioConvertAES324Monoto32(U32(o[0]), i[0], n, 1); }},
    {"Reinterleave24Left", 1, 0, {3, 0}, 4, 1, 8,
     [](In i, Out o, uint32_t n) { KVAudioReinterleaveAES3_24monoto32stereo(U32(o[0]), i[0], 0, n); }},
    {"Reinterleave24RightBE", 1, 0, {3, 0}, 4, 1, 8,
     [](In i, Out o, uint32_t n) { KVAudioReinterleaveAES3_24monoto32stereo_BE(U32(o[0]), i[0], 1, n); }},
    {"Reinterleave16Left", 2, 0, {2, 0}, 2, 1, 4,
     [](In i, Out o, uint32_t n) { KVAudioReinterleaveAES3_16monoto16stereo(I16(i[0]), I16(o[0]), 0, n); }},
    {"Reinterleave16Right", 2, 0, {2, 0}, 2, 1, 4,
     [](In i, Out o, uint32_t n) { KVAudioReinterleaveAES3_16monoto16stereo(I16(i[0]), I16(o[0]), 1, n); }},
    {"Reinterleave32Left", 4, 0, {4, 0}, 4, 1, 8,
     [](In i, Out o, uint32_t n) { KVAudioReinterleaveAES3_32monoto32stereo(U32(i[0]), U32(o[0]), 0, n); }},
    {"Reinterleave32Right", 4, 0, {4, 0}, 4, 1, 8,
     [](In i, Out o, uint32_t n) { KVAudioReinterleaveAES3_32monoto32stereo(U32(i[0]), U32(o[0]), 1, n); }},
};

class Aes3Equivalence : public testing::TestWithParam<Family> {};

TEST_P(Aes3Equivalence, SameBytesForEveryLength) {
  if (!kvaudio::frame::HostHasAvx2()) GTEST_SKIP() << "host without AVX2";
  const Family &f = GetParam();
  for (size_t n : kvtest::EquivalenceLengths()) {
    const size_t misalign = n % 32;
    std::vector<Guarded> ins;
    std::vector<uint8_t *> inPtrs;
    for (size_t k = 0; k < 2 && f.inBytes[k]; ++k) {
      const auto bytes = kvtest::RandomBytes(f.inPrefix + n * f.inBytes[k], n * 7919 + k + 1);
      ins.emplace_back(bytes.size(), Offset(misalign + 3 * k + 1, f.inAlign));
      std::copy(bytes.begin(), bytes.end(), ins.back().data());
    }
    for (auto &g : ins) inPtrs.push_back(g.data());
    std::vector<std::vector<Guarded>> outs(2);
    for (int path = 0; path < 2; ++path) {
      for (size_t k = 0; k < f.outs; ++k) outs[path].emplace_back(n * f.outBytes, Offset(misalign + 5 * k, f.outAlign));
      std::vector<uint8_t *> ptrs;
      for (auto &g : outs[path]) ptrs.push_back(g.data());
      kvtest::ScopedAvx2 force(path);
      f.run(inPtrs.data(), ptrs.data(), static_cast<uint32_t>(n));
    }
    for (size_t k = 0; k < f.outs; ++k) {
      ASSERT_EQ(outs[0][k].bytes(), outs[1][k].bytes()) << f.name << " n=" << n << " out " << k;
      ASSERT_TRUE(outs[0][k].GuardsIntact() && outs[1][k].GuardsIntact()) << f.name << " n=" << n;
    }
    for (auto &g : ins) ASSERT_TRUE(g.GuardsIntact());
  }
}

INSTANTIATE_TEST_SUITE_P(All, Aes3Equivalence, testing::ValuesIn(kFamilies),
                         [](const testing::TestParamInfo<Family> &i) { return std::string(i.param.name); });

}  // namespace
