// The AVX2 decision over fake CPUID/XGETBV values, and the cache's forced states.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "frame/cpu.h"
#include "test_util.h"

namespace {

constexpr uint32_t kOsxsave = 1u << 27, kAvx = 1u << 28, kAvx2 = 1u << 5;

// Answers from fixed registers; a leaf above the maximum, or XGETBV without OSXSAVE (an invalid
// instruction then), is a failure.
struct FakeProbe : kvaudio::frame::CpuProbe {
  uint32_t maxLeaf, ecx1, ebx7;
  uint64_t xcr0;
  FakeProbe(uint32_t m, uint32_t e1, uint32_t b7, uint64_t x) : maxLeaf(m), ecx1(e1), ebx7(b7), xcr0(x) {}
  kvaudio::frame::CpuidRegs Cpuid(uint32_t leaf, uint32_t subleaf) override {
    EXPECT_TRUE(subleaf == 0 && leaf <= maxLeaf && (leaf <= 1 || leaf == 7)) << "leaf " << leaf;
    return {leaf == 0 ? maxLeaf : 0, leaf == 7 ? ebx7 : 0, leaf == 1 ? ecx1 : 0, 0};
  }
  uint64_t Xgetbv(uint32_t index) override {
    EXPECT_TRUE(index == 0 && (ecx1 & kOsxsave)) << "XGETBV only after OSXSAVE";
    return xcr0;
  }
};

TEST(CpuDecision, TruthTable) {
  struct Case { const char *name; uint32_t maxLeaf, ecx1, ebx7; uint64_t xcr0; int expected; };
  const Case cases[] = {
      {"all present", 7, kOsxsave | kAvx, kAvx2, 0x7, 1},
      {"higher max leaf, only SSE and AVX state", 0x16, kOsxsave | kAvx, 0xFFFFFFFF, 0x6, 1},
      {"no AVX2 bit", 7, kOsxsave | kAvx, ~kAvx2, 0x7, 0},
      {"no AVX state in XCR0", 7, kOsxsave | kAvx, kAvx2, 0x3, 0},
      {"no SSE state in XCR0", 7, kOsxsave | kAvx, kAvx2, 0x5, 0},
      {"no OSXSAVE", 7, kAvx, kAvx2, 0x7, 0},
      {"no AVX", 7, kOsxsave, kAvx2, 0x7, 0},
      {"max leaf 6", 6, kOsxsave | kAvx, kAvx2, 0x7, 0},
      {"max leaf 0", 0, kOsxsave | kAvx, kAvx2, 0x7, 0},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.name);
    FakeProbe p(c.maxLeaf, c.ecx1, c.ebx7, c.xcr0);
    EXPECT_EQ(kvaudio::frame::DecideAvx2(p), c.expected);
  }
}

// Forced states hold until reset; then the cache refills from the host. The no-AVX2 run sets
// KVAUDIO_EXPECT_AVX2=0 under an emulated CPU without AVX2.
TEST(CpuCache, ForcedStatesRefillAndExpectedHost) {
  for (int forced : {0, 1}) {
    kvtest::ScopedAvx2 force(forced);
    EXPECT_EQ(KVAudioCPUHasAVX2(), forced == 1 && kvaudio::frame::HostHasAvx2());
  }
  EXPECT_EQ(KVAudioCPUHasAVX2(), kvaudio::frame::HostHasAvx2());
  if (const char *expected = std::getenv("KVAUDIO_EXPECT_AVX2")) {
    EXPECT_EQ(KVAudioCPUHasAVX2(), std::string(expected) == "1");
  }
}

}  // namespace
