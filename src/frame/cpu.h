// Run-time choice between the AVX2 kernels and the plain loops.
#pragma once

#include <cstdint>

namespace kvaudio::frame {

struct CpuidRegs {
  uint32_t eax, ebx, ecx, edx;
};

// Source of CPUID and XGETBV results; the real processor or a fake in tests.
class CpuProbe {
 public:
  virtual ~CpuProbe() = default;
  virtual CpuidRegs Cpuid(uint32_t leaf, uint32_t subleaf) = 0;
  virtual uint64_t Xgetbv(uint32_t index) = 0;
};

// The five-step AVX2 test over a probe: returns 1 when AVX2 kernels may run, else 0.
// Leaf 7 is read only when leaf 0 reports it.
int DecideAvx2(CpuProbe &probe);

// The decision for the processor running this code, ignoring any forced value.
bool HostHasAvx2();

// Forces the cache to 0 or 1, or back to -1 (untested). For tests only; never exported.
void SetAvx2ForTesting(int value);

}  // namespace kvaudio::frame

// True when AVX2 kernels may be used; the first call settles the process-wide cache.
bool KVAudioCPUHasAVX2();
