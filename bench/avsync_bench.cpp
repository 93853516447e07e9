// AV-sync detection over 1 s of 48 kHz audio: the library's detector vs a direct correlation
// that recomputes every channel mean for every start.
#include <cstdint>
#include <map>
#include <vector>

#include "../tests/common/avsync_direct.h"
#include "bench_util.h"
#include "kvaudio/avsync.h"
#include "layout/avsync_internal.h"

namespace {

constexpr uint32_t kRate = 48000;
constexpr uint32_t kFrames = 48000;

using Found = kvtest::AvSyncFound;

// One second of low-level noise with the burst at a fixed offset.
std::vector<int16_t> Signal(uint32_t channels) {
  std::vector<int16_t> buf(size_t{kFrames} * channels);
  uint32_t x = 12345;
  for (auto &s : buf) s = static_cast<int16_t>(static_cast<int32_t>((x = x * 1664525u + 1013904223u) >> 20) - 2048);
  KVAudioAVSyncPulseGenerate(buf.data(), kFrames, channels, 16, kRate, 20000, 0);
  return buf;
}

// The naive result for each channel count, computed once and shared by both benchmarks.
const Found &NaiveResult(uint32_t channels, const std::vector<int16_t> &buf) {
  static std::map<uint32_t, Found> cache;
  auto it = cache.find(channels);
  if (it == cache.end()) {
    const auto direct = kvtest::AvSyncDirect(buf.data(), kFrames, channels, kvaudio::layout::AvSyncBurst(kRate));
    it = cache.emplace(channels, direct).first;
  }
  return it->second;
}

void Report(benchmark::State &state, const Found &f, const Found &naive) {
  state.counters["position"] = f.position;
  state.counters["identical"] = f.position == naive.position && f.score == naive.score;
  state.SetItemsProcessed(state.iterations() * kFrames);
}

void BM_AvSyncDetect(benchmark::State &state) {
  const auto channels = static_cast<uint32_t>(state.range(0));
  kvbench::ForcePath(state, static_cast<int>(state.range(1)));
  const auto buf = Signal(channels);
  Found f{};
  for (auto _ : state) {
    KVAudioAVSyncPulseDetect(buf.data(), kFrames, channels, 16, kRate, &f.position, &f.score, 0.0);
    benchmark::DoNotOptimize(f);
  }
  kvaudio::frame::SetAvx2ForTesting(-1);
  Report(state, f, NaiveResult(channels, buf));
}

void BM_AvSyncNaive(benchmark::State &state) {
  const auto channels = static_cast<uint32_t>(state.range(0));
  const auto buf = Signal(channels);
  const auto p = kvaudio::layout::AvSyncBurst(kRate);
  Found f{};
  for (auto _ : state) {
    f = kvtest::AvSyncDirect(buf.data(), kFrames, channels, p);
    benchmark::DoNotOptimize(f);
  }
  Report(state, f, NaiveResult(channels, buf));
}

BENCHMARK(BM_AvSyncNaive)->Arg(2)->Arg(16)->Unit(benchmark::kMillisecond);
// Second argument: 0 plain loop, 1 AVX2 kernel.
BENCHMARK(BM_AvSyncDetect)->ArgsProduct({{2, 16}, {0, 1}})->Unit(benchmark::kMillisecond);

}  // namespace
