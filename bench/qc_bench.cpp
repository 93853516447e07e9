// QC engine throughput: 8-channel 48 kHz 16-bit programme at 25 fps with every rule enabled, as a
// real-time factor, on the plain loops and the dispatched kernels, against memcpy of the bytes.
#include <cmath>

#include "bench_util.h"
#include "kvaudio/qc.h"

namespace {

constexpr uint32_t kChannels = 8, kRate = 48000, kFrame = kRate / 25;
constexpr uint32_t kFrames = 250;  // 10 s per iteration

// Ten seconds of noise whose level moves a few dB every frame, a quieter surround group and a
// silent LFE, so that the level, pair and loudness checks all have work.
std::vector<int16_t> Programme() {
  std::vector<int16_t> pcm(size_t{kFrames} * kFrame * kChannels);
  uint32_t x = 0x2468ACE1;
  for (size_t f = 0; f < pcm.size() / kChannels; ++f) {
    const double level = 0.05 * (1.0 + 0.5 * std::sin(static_cast<double>(f / kFrame) * 0.7));
    for (uint32_t c = 0; c < kChannels; ++c) {
      x = x * 1664525u + 1013904223u;
      const double white = static_cast<double>(static_cast<int32_t>(x)) / 2147483648.0;
      const double gain = c == 3 ? 0.0 : (c >= 4 ? 0.5 : 1.0);
      pcm[f * kChannels + c] = static_cast<int16_t>(std::lround(white * level * gain * 32767.0));
    }
  }
  return pcm;
}

// Every rule group on (flags 15), true-peak maximum, R128 targets and range, and momentary and
// short-term maxima.
kvaudqcConfig EveryRule() {
  kvaudqcConfig c{};
  c.channels = kChannels;
  c.flags = 15 | 32;
  c.standard = 1;
  c.limits[7] = -10.0;
  c.limits[8] = -12.0;
  std::snprintf(c.layoutName, sizeof c.layoutName, "7.1");
  return c;
}

// Arg: path (0 plain loops, 1 AVX2). Counters: frames per second and the real-time factor.
void BM_QcEngine(benchmark::State &state) {
  kvbench::ForcePath(state, static_cast<int>(state.range(0)));
  const auto pcm = Programme();
  const kvaudqcConfig config = EveryRule();
  kvqcAudioEngine *e = kvqcAudioOpen(&config);
  kvaudqcFrameAnalyze rec;
  kvaudqcReport report;
  for (auto _ : state) {
    for (uint32_t i = 0; i < kFrames; ++i) kvqcAudioFrame(e, pcm.data() + size_t{i} * kFrame * kChannels, kFrame, &rec);
    kvqcAudioFinish(e, &report);
    kvqcAudioReset(e);
    benchmark::DoNotOptimize(report);
  }
  kvqcAudioClose(e);
  const double frames = static_cast<double>(state.iterations()) * kFrames;
  state.counters["frames"] = benchmark::Counter(frames, benchmark::Counter::kIsRate);
  state.counters["realtime"] = benchmark::Counter(frames / 25.0, benchmark::Counter::kIsRate);
  state.SetBytesProcessed(static_cast<int64_t>(frames) * kFrame * kChannels * 2);
  kvaudio::frame::SetAvx2ForTesting(-1);
}

BENCHMARK(kvbench::MemcpyBaseline)->Name("QcEngine/Memcpy")->Arg(int64_t{kFrames} * kFrame * kChannels * 2);
BENCHMARK(BM_QcEngine)->Name("QcEngine/8ch48k16")->Arg(0)->Arg(1)->ArgNames({"avx2"})->Unit(benchmark::kMillisecond);

}  // namespace
