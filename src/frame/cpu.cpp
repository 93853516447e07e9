// CPUID/XGETBV test for AVX2 and its process-wide -1/0/1 cache.
#include "frame/cpu.h"

#include <atomic>
#include <cpuid.h>

namespace kvaudio::frame {
namespace {

constexpr uint32_t kLeaf1EcxOsxsave = 1u << 27;  // CPUID.1:ECX, OS uses XSAVE/XGETBV
constexpr uint32_t kLeaf1EcxAvx = 1u << 28;      // CPUID.1:ECX
constexpr uint64_t kXcr0SseAvxState = 0x6;       // XCR0 bits 1 (SSE) and 2 (AVX)
constexpr uint32_t kLeaf7EbxAvx2 = 1u << 5;      // CPUID.(7,0):EBX

class HardwareProbe final : public CpuProbe {
 public:
  CpuidRegs Cpuid(uint32_t leaf, uint32_t subleaf) override {
    CpuidRegs r{};
    __cpuid_count(leaf, subleaf, r.eax, r.ebx, r.ecx, r.edx);
    return r;
  }
  uint64_t Xgetbv(uint32_t index) override {
    uint32_t lo, hi;
    // Encoded as bytes so that no -mxsave is needed in this plain translation unit.
    __asm__ volatile(".byte 0x0f, 0x01, 0xd0" : "=a"(lo), "=d"(hi) : "c"(index));
    return (static_cast<uint64_t>(hi) << 32) | lo;
  }
};

// -1 untested, 0 unusable, 1 usable. Relaxed atomics: racing first callers store the same value.
std::atomic<int> g_avx2{-1};

}  // namespace

int DecideAvx2(CpuProbe &probe) {
  if (probe.Cpuid(0, 0).eax == 0) return 0;
  const uint32_t ecx1 = probe.Cpuid(1, 0).ecx;
  if (!(ecx1 & kLeaf1EcxOsxsave) || !(ecx1 & kLeaf1EcxAvx)) return 0;
  if ((probe.Xgetbv(0) & kXcr0SseAvxState) != kXcr0SseAvxState) return 0;
  if (probe.Cpuid(0, 0).eax <= 6) return 0;
  return (probe.Cpuid(7, 0).ebx & kLeaf7EbxAvx2) ? 1 : 0;
}

bool HostHasAvx2() {
  HardwareProbe probe;
  return DecideAvx2(probe) == 1;
}

void SetAvx2ForTesting(int value) { g_avx2.store(value, std::memory_order_relaxed); }

}  // namespace kvaudio::frame

bool KVAudioCPUHasAVX2() {
  using namespace kvaudio::frame;
  int cached = g_avx2.load(std::memory_order_relaxed);
  if (cached < 0) {
    cached = HostHasAvx2() ? 1 : 0;
    g_avx2.store(cached, std::memory_order_relaxed);
  }
  return cached == 1;
}
