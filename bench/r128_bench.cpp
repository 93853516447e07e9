// Standard loudness meter vs libebur128 in the same modes on the same 16-bit audio at 48 kHz:
// integrated alone, and integrated + loudness range + true peak.
#include <ebur128.h>

#include "bench_util.h"
#include "kvaudio/r128.h"

namespace {

constexpr uint32_t kRate = 48000;
constexpr size_t kFrames = 10 * kRate;

// Args: channels, modes (0 integrated, 1 integrated + range + true peak), path (0 plain, 1 AVX2).
void BM_R128(benchmark::State &state) {
  const auto nch = static_cast<uint32_t>(state.range(0));
  kvbench::ForcePath(state, static_cast<int>(state.range(2)));
  const auto audio = kvbench::Filled(kFrames * nch * 2);
  const uint32_t flags = state.range(1) ? KVAUDIO_LOUDNESS_INTEGRATED | KVAUDIO_LOUDNESS_RANGE | KVAUDIO_LOUDNESS_TRUE_PEAK
                                        : KVAUDIO_LOUDNESS_INTEGRATED;
  kvAudioLoudness *m = kvAudioLoudnessOpen(kRate, nch, flags);
  kvAudioLoudnessReading r{};
  r.size = sizeof r;
  for (auto _ : state) {
    kvAudioLoudnessAdd(m, audio.data(), KVAUDIO_SAMPLES_S16, kFrames);
    kvAudioLoudnessRead(m, &r);
    benchmark::DoNotOptimize(r.integrated);
  }
  kvAudioLoudnessClose(m);
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kFrames));
  kvaudio::frame::SetAvx2ForTesting(-1);
}

// Args: channels, modes as BM_R128.
void BM_Libebur128(benchmark::State &state) {
  const auto nch = static_cast<unsigned>(state.range(0));
  const auto audio = kvbench::Filled(kFrames * nch * 2);
  const int mode = state.range(1) ? EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_TRUE_PEAK : EBUR128_MODE_I;
  ebur128_state *st = ebur128_init(nch, kRate, mode);
  double lufs = 0;
  for (auto _ : state) {
    ebur128_add_frames_short(st, reinterpret_cast<const short *>(audio.data()), kFrames);
    ebur128_loudness_global(st, &lufs);
    benchmark::DoNotOptimize(lufs);
  }
  ebur128_destroy(&st);
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kFrames));
}

BENCHMARK(BM_R128)->ArgsProduct({{2, 6}, {0, 1}, {0, 1}})->ArgNames({"ch", "full", "avx2"})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Libebur128)->ArgsProduct({{2, 6}, {0, 1}})->ArgNames({"ch", "full"})->Unit(benchmark::kMillisecond);

}  // namespace
