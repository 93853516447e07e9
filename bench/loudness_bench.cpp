// Loudness: the R128 meter in each mode vs libebur128's integrated mode on the same audio, and the
// stand-alone loudness and true-peak analyses vs memcpy of the same bytes.
#include <ebur128.h>

#include "bench_util.h"
#include "kvaudio/loudness.h"
#include "kvaudio/qc.h"

namespace {

constexpr uint32_t kRate = 48000;
constexpr size_t kSeconds = 10;

// Ten seconds of 16-bit audio; counters report sample periods per second.
std::vector<uint8_t> Audio(size_t channels) { return kvbench::Filled(kSeconds * kRate * channels * 2); }

// Args: channels, mode, path (0 plain loop, 1 AVX2).
void BM_Meter(benchmark::State &state) {
  const auto nch = static_cast<uint8_t>(state.range(0));
  kvbench::ForcePath(state, static_cast<int>(state.range(2)));
  const auto audio = Audio(nch);
  s_ebu_r128 s{};
  ebu_r128_init(&s, 1, 16, kRate, static_cast<uint8_t>(state.range(1)), nch);
  for (auto _ : state) {
    ebu_r128_process_samples(&s, audio.data(), kSeconds * kRate);
    benchmark::DoNotOptimize(s.currentLoudness);
  }
  ebu_r128_destroy(&s);
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kSeconds * kRate));
  kvaudio::frame::SetAvx2ForTesting(-1);
}

// Args: channels.
void BM_Libebur128Integrated(benchmark::State &state) {
  const auto nch = static_cast<unsigned>(state.range(0));
  const auto audio = Audio(nch);
  ebur128_state *st = ebur128_init(nch, kRate, EBUR128_MODE_I);
  for (auto _ : state) {
    ebur128_add_frames_short(st, reinterpret_cast<const short *>(audio.data()), kSeconds * kRate);
    benchmark::ClobberMemory();
  }
  double lufs = 0;
  ebur128_loudness_global(st, &lufs);
  benchmark::DoNotOptimize(lufs);
  ebur128_destroy(&st);
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kSeconds * kRate));
}

// Stand-alone analyses of 16-bit stereo at 48 kHz; bytes per second to compare with memcpy.
double RunLoudness(const std::vector<uint8_t> &pcm) {
  kvaudqcLoudness out;
  kvqcAudioAnalyzeLoudness(pcm.data(), static_cast<uint32_t>(pcm.size() / 4), 2, 16, kRate, "stereo1", 1, &out);
  return out.integrated;
}

double RunTruePeak(const std::vector<uint8_t> &pcm) {
  kvaudqcTruePeak out;
  kvqcAudioAnalyzeTruePeak(pcm.data(), static_cast<uint32_t>(pcm.size() / 4), 2, 16, kRate, 0, &out);
  return out.maxPeakDb;
}

// Args: bytes, path.
void BM_Analyze(benchmark::State &state, double (*run)(const std::vector<uint8_t> &)) {
  const size_t bytes = static_cast<size_t>(state.range(0));
  kvbench::ForcePath(state, static_cast<int>(state.range(1)));
  const auto pcm = kvbench::Filled(bytes);
  for (auto _ : state) benchmark::DoNotOptimize(run(pcm));
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes));
  kvaudio::frame::SetAvx2ForTesting(-1);
}

BENCHMARK(kvbench::MemcpyBaseline)->Name("Analyze/Memcpy")->Arg(kvbench::kLarge);
BENCHMARK_CAPTURE(BM_Analyze, Loudness, RunLoudness)
    ->Name("Analyze/Loudness")
    ->ArgsProduct({{kvbench::kLarge}, {0, 1}});
BENCHMARK_CAPTURE(BM_Analyze, TruePeak, RunTruePeak)
    ->Name("Analyze/TruePeak")
    ->ArgsProduct({{kvbench::kLarge}, {0, 1}});
BENCHMARK(BM_Meter)->ArgsProduct({{2, 6}, {1, 2, 3}, {0, 1}})->ArgNames({"ch", "mode", "avx2"});
BENCHMARK(BM_Libebur128Integrated)->Arg(2)->Arg(6)->ArgNames({"ch"});

}  // namespace
