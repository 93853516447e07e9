// Shared pieces of the benchmarks: forced dispatch paths, memcpy baselines and buffer sizes.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "frame/cpu.h"

namespace kvbench {

constexpr int64_t kSmall = 64 << 10;  // one video frame of 16-channel audio, cache-resident
constexpr int64_t kLarge = 64 << 20;  // memory-bound

// Path argument: 0 plain loop, 1 AVX2 kernel.
inline void ForcePath(benchmark::State &state, int path) {
  if (path == 1 && !kvaudio::frame::HostHasAvx2()) state.SkipWithError("host without AVX2");
  kvaudio::frame::SetAvx2ForTesting(path);
}

inline std::vector<uint8_t> Filled(size_t bytes) {
  std::vector<uint8_t> v(bytes);
  uint32_t x = 0x12345678;
  for (auto &b : v) b = static_cast<uint8_t>((x = x * 1664525u + 1013904223u) >> 24);
  return v;
}

// memcpy of `bytes` bytes: the baseline every kernel is measured against.
inline void MemcpyBaseline(benchmark::State &state) {
  const size_t bytes = static_cast<size_t>(state.range(0));
  auto src = Filled(bytes);
  std::vector<uint8_t> dst(bytes);
  for (auto _ : state) {
    std::memcpy(dst.data(), src.data(), bytes);
    benchmark::DoNotOptimize(dst.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes));
}

}  // namespace kvbench
