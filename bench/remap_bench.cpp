// Remap with a one-bit map and the stereo peak meter: kernel vs plain loop vs memcpy.
// Range 0 is the buffer size in bytes, range 1 the path (0 plain, 1 kernel).

#include "bench_util.h"
#include "kvaudio/peak.h"
#include "kvaudio/remap.h"

namespace {

using RemapFn = uint32_t (*)(void *, uint32_t, uint32_t, uint32_t, const uint32_t *, uint32_t *, uint32_t *);

// Reverses the channel order of every period, in place.
template <RemapFn kRemap, uint32_t kChannels, uint32_t kBytes>
void BM_Remap(benchmark::State &state) {
  const size_t bytes = static_cast<size_t>(state.range(0));
  const uint32_t periods = static_cast<uint32_t>(bytes / (kChannels * kBytes));
  kvbench::ForcePath(state, static_cast<int>(state.range(1)));
  auto buf = kvbench::Filled(bytes);
  uint32_t map[kChannels];
  for (uint32_t c = 0; c < kChannels; ++c) map[c] = 1u << (kChannels - 1 - c);
  for (auto _ : state) {
    kRemap(buf.data(), kChannels, 1, periods, map, nullptr, nullptr);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes));
  kvaudio::frame::SetAvx2ForTesting(-1);
}

void BM_PeakStereo(benchmark::State &state) {
  const size_t bytes = static_cast<size_t>(state.range(0));
  kvbench::ForcePath(state, static_cast<int>(state.range(1)));
  auto buf = kvbench::Filled(bytes);
  const auto *words = reinterpret_cast<const int16_t *>(buf.data());
  for (auto _ : state) benchmark::DoNotOptimize(audTestPeak16S(words, static_cast<uint32_t>(bytes / 2)));
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes));
  kvaudio::frame::SetAvx2ForTesting(-1);
}

const std::vector<std::vector<int64_t>> kArgs = {{kvbench::kSmall, kvbench::kLarge}, {0, 1}};

BENCHMARK(kvbench::MemcpyBaseline)->Name("Remap/Memcpy")->Arg(kvbench::kSmall)->Arg(kvbench::kLarge);
BENCHMARK(BM_Remap<AudioRemap32Bit, 2, 4>)->Name("Remap/32Bit2ch")->ArgsProduct(kArgs);
BENCHMARK(BM_Remap<AudioRemap32Bit, 4, 4>)->Name("Remap/32Bit4ch")->ArgsProduct(kArgs);
BENCHMARK(BM_Remap<AudioRemap32Bit, 8, 4>)->Name("Remap/32Bit8ch")->ArgsProduct(kArgs);
BENCHMARK(BM_Remap<AudioRemap24Bit, 2, 3>)->Name("Remap/24Bit2ch")->ArgsProduct(kArgs);
BENCHMARK(BM_Remap<AudioRemap16Bit, 2, 2>)->Name("Remap/16Bit2ch")->ArgsProduct(kArgs);
BENCHMARK(BM_Remap<AudioRemap16Bit, 8, 2>)->Name("Remap/16Bit8ch")->ArgsProduct(kArgs);
BENCHMARK(BM_Remap<AudioRemap16Bit, 16, 2>)->Name("Remap/16Bit16ch")->ArgsProduct(kArgs);
BENCHMARK(BM_Remap<AudioRemap32Bit, 16, 4>)->Name("Remap/32Bit16ch")->ArgsProduct(kArgs);
BENCHMARK(BM_PeakStereo)->Name("Peak/Stereo16")->ArgsProduct(kArgs);

}  // namespace
