// The AVX2 decision over fake CPUID/XGETBV values, and the cache's forced states.
#include <gtest/gtest.h>

#include <cstdlib>
#include <set>
#include <string>

#include "frame/cpu.h"
#include "test_util.h"

namespace {

using kvaudio::frame::CpuidRegs;

class FakeProbe : public kvaudio::frame::CpuProbe {
 public:
  uint32_t maxLeaf = 7, ecx1 = (1u << 27) | (1u << 28), ebx7 = 1u << 5;
  uint64_t xcr0 = 0x7;
  std::multiset<uint32_t> leavesRead;
  int xgetbvCalls = 0;

  CpuidRegs Cpuid(uint32_t leaf, uint32_t subleaf) override {
    EXPECT_EQ(subleaf, 0u);
    leavesRead.insert(leaf);
    if (leaf == 0) return {maxLeaf, 0, 0, 0};
    if (leaf == 1) return {0, 0, ecx1, 0};
    if (leaf == 7) return {0, ebx7, 0, 0};
    ADD_FAILURE() << "unexpected leaf " << leaf;
    return {};
  }
  uint64_t Xgetbv(uint32_t index) override {
    EXPECT_EQ(index, 0u);
    ++xgetbvCalls;
    return xcr0;
  }
};

TEST(CpuDecision, TruthTable) {
  struct Case {
    const char *name;
    uint32_t maxLeaf, ecx1, ebx7;
    uint64_t xcr0;
    int expected;
    bool leaf7Read;
  };
  const uint32_t osxsave = 1u << 27, avx = 1u << 28;
  const Case cases[] = {
      {"all present", 7, osxsave | avx, 1u << 5, 0x7, 1, true},
      {"higher max leaf", 0x16, osxsave | avx, 0xFFFFFFFF, 0x7, 1, true},
      {"no AVX2 bit", 7, osxsave | avx, ~(1u << 5), 0x7, 0, true},
      {"no AVX state in XCR0", 7, osxsave | avx, 1u << 5, 0x3, 0, false},
      {"no SSE state in XCR0", 7, osxsave | avx, 1u << 5, 0x5, 0, false},
      {"no OSXSAVE", 7, avx, 1u << 5, 0x7, 0, false},
      {"no AVX", 7, osxsave, 1u << 5, 0x7, 0, false},
      {"max leaf 6", 6, osxsave | avx, 1u << 5, 0x7, 0, false},
      {"max leaf 0", 0, osxsave | avx, 1u << 5, 0x7, 0, false},
  };
  for (const Case &c : cases) {
    FakeProbe p;
    p.maxLeaf = c.maxLeaf;
    p.ecx1 = c.ecx1;
    p.ebx7 = c.ebx7;
    p.xcr0 = c.xcr0;
    EXPECT_EQ(kvaudio::frame::DecideAvx2(p), c.expected) << c.name;
    EXPECT_EQ(p.leavesRead.count(7) == 1, c.leaf7Read) << c.name;
    if (!(c.ecx1 & osxsave)) {
      EXPECT_EQ(p.xgetbvCalls, 0) << c.name << ": XGETBV only after OSXSAVE";
    }
    if (c.maxLeaf == 0) {
      EXPECT_EQ(p.leavesRead.size(), 1u) << c.name;
    }
  }
}

// The no-AVX2 run sets KVAUDIO_EXPECT_AVX2=0 under an emulated CPU without AVX2.
TEST(CpuCache, MatchesExpectedHost) {
  const char *expected = std::getenv("KVAUDIO_EXPECT_AVX2");
  if (!expected) GTEST_SKIP() << "no expectation set";
  EXPECT_EQ(KVAudioCPUHasAVX2(), std::string(expected) == "1");
}

TEST(CpuCache, ForcedStatesAndRefill) {
  {
    kvtest::ScopedAvx2 off(0);
    EXPECT_FALSE(KVAudioCPUHasAVX2());
  }
  {
    kvtest::ScopedAvx2 on(1);
    EXPECT_EQ(KVAudioCPUHasAVX2(), kvaudio::frame::HostHasAvx2());
  }
  EXPECT_EQ(KVAudioCPUHasAVX2(), kvaudio::frame::HostHasAvx2());
}

}  // namespace
