// LTC: our decoder (plain scan and AVX2 scan) against libltc's on the same 48 kHz 16-bit signal,
// and encoder frames per second.
#include <ltc.h>

#include "../tests/timing/ltc_signal.h"
#include "bench_util.h"

namespace {

constexpr uint32_t kRate = 48000;
constexpr uint32_t kFrames = 1500;  // one minute at 25 fps
constexpr uint32_t kChunk = 1920;   // one video frame of samples per call

// One minute of 25 fps LTC as 16-bit mono samples.
const std::vector<uint8_t> &Signal() {
  static const std::vector<uint8_t> s = ltctest::EncodeRun(kRate, 16, ltctest::kRates[1], 0, kFrames).bytes;
  return s;
}

void BM_LtcDecode(benchmark::State &state) {
  kvbench::ForcePath(state, static_cast<int>(state.range(0)));
  std::vector<uint8_t> signal(Signal());
  const size_t samples = signal.size() / 2;
  kvaudio::ltc::ResetDecoderForTesting();
  smpteSetup(8000, 16, 0, 0, 8, 0);
  smpteSetup(kRate, 16, 0, 0, 8, 0);
  uint32_t frames = 0;
  for (auto _ : state) {
    for (size_t at = 0; at < samples; at += kChunk) {
      smpteDecodeSetBuffer(signal.data() + 2 * at, static_cast<int32_t>(std::min<size_t>(kChunk, samples - at)));
      uint32_t tc = 0, ub = 0, fl = 8;
      frames += smpteDecode(&tc, &ub, &fl) == 0;
    }
  }
  benchmark::DoNotOptimize(frames);
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(samples));
  kvaudio::frame::SetAvx2ForTesting(-1);
}

void BM_LibltcDecode(benchmark::State &state) {
  std::vector<uint8_t> signal(Signal());
  const size_t samples = signal.size() / 2;
  LTCDecoder *d = ltc_decoder_create(kRate / 25, 32);
  uint32_t frames = 0;
  ltc_off_t position = 0;
  for (auto _ : state) {
    for (size_t at = 0; at < samples; at += kChunk) {
      const size_t n = std::min<size_t>(kChunk, samples - at);
      ltc_decoder_write_s16(d, reinterpret_cast<short *>(signal.data() + 2 * at), n, position);
      position += static_cast<ltc_off_t>(n);
      LTCFrameExt f;
      while (ltc_decoder_read(d, &f)) ++frames;
    }
  }
  benchmark::DoNotOptimize(frames);
  ltc_decoder_free(d);
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(samples));
}

void BM_LtcEncode(benchmark::State &state) {
  const uint32_t bits = static_cast<uint32_t>(state.range(0));
  kvaudio::ltc::ResetEncoderForTesting();
  smpteSetup(kRate, bits, 0, 0, 8, 0);
  std::vector<uint8_t> buf(smpteRequiredBuffer());
  uint32_t frame = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(smpteEncode(frame, frame, buf.data(), 0xFFFFFFFF));
    ++frame;
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations());
}

BENCHMARK(BM_LtcDecode)->Arg(0)->Arg(1);
BENCHMARK(BM_LibltcDecode);
BENCHMARK(BM_LtcEncode)->Arg(8)->Arg(16);

}  // namespace
