// Generator fill throughput: a sine tone and pink noise, stereo 48 kHz, in samples per second.
#include <vector>

#include "bench_util.h"
#include "kvaudio/generator.h"

namespace {

void BM_GeneratorFill(benchmark::State &state) {
  const auto flags = static_cast<uint32_t>(state.range(0));
  const auto bits = static_cast<uint16_t>(state.range(1));
  WAVEFORMATEX f{1, 2, 48000, 0, 0, bits, 0};
  audUpdateHeader(&f);
  tagAUDGENHANDLE *g = audGenOpen(flags, 997, 0, 0, 0, AUDGEN_SHAPE_SINE, AUDGEN_SHAPE_SINE, &f, 0.5, 0.5, 0.0);
  const uint32_t frames = 1920;  // one 25 fps video frame
  std::vector<uint8_t> buf(size_t{frames} * f.nBlockAlign);
  for (auto _ : state) {
    audGenFillBuffer(g, buf.data(), static_cast<uint32_t>(buf.size()));
    benchmark::ClobberMemory();
  }
  audGenClose(g);
  state.SetItemsProcessed(state.iterations() * frames * 2);  // samples of both channels
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(buf.size()));
}

BENCHMARK(BM_GeneratorFill)
    ->ArgNames({"type", "bits"})
    ->Args({AUDGEN_TONE, 16})
    ->Args({AUDGEN_TONE, 32})
    ->Args({AUDGEN_PINK_NOISE, 16})
    ->Args({AUDGEN_WHITE_NOISE, 16});

}  // namespace
