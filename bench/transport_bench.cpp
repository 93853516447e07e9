// AES3 reader, packed 24-bit readers and re-interleavers: kernel vs plain loop vs memcpy.
// Range 0 is the input size in bytes, range 1 the path (0 plain, 1 kernel).
#include "bench_util.h"
#include "kvaudio/aes3.h"

namespace {

// Runs `call(in, out, frames)` over an input of range(0) bytes split in frames of inBytes.
template <typename Call>
void RunFrames(benchmark::State &state, size_t inBytes, size_t outBytes, Call call) {
  const size_t bytes = static_cast<size_t>(state.range(0));
  const uint32_t frames = static_cast<uint32_t>(bytes / inBytes);
  kvbench::ForcePath(state, static_cast<int>(state.range(1)));
  auto in = kvbench::Filled(bytes + 8);
  std::vector<uint8_t> out(frames * outBytes + 64);
  for (auto _ : state) {
    call(in.data(), out.data(), frames);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes));
  kvaudio::frame::SetAvx2ForTesting(-1);
}

template <typename T>
T *As(uint8_t *p) { return reinterpret_cast<T *>(p); }

void BM_AES316to16(benchmark::State &state) {
  RunFrames(state, 32, 16, [](uint8_t *in, uint8_t *out, uint32_t n) {
    int16_t *o = As<int16_t>(out);
    KVAudioDeinterleaveAES316to16(in, o, o + 2 * n, o + 4 * n, o + 6 * n, n);
  });
}

void BM_Packed24Mono(benchmark::State &state) {
  RunFrames(state, 3, 4, [](uint8_t *in, uint8_t *out, uint32_t n) {
    KVAudioConvertAES324Monoto32(As<uint32_t>(out), in, n, 0);
  });
}

void BM_Packed24Stereo(benchmark::State &state) {
  RunFrames(state, 6, 8, [](uint8_t *in, uint8_t *out, uint32_t n) {
    KVAudioConvertAES324Stereoto32(As<uint32_t>(out), in, n, 1, 0, 6);
  });
}

void BM_Packed24DualMono(benchmark::State &state) {
  RunFrames(state, 6, 8, [](uint8_t *in, uint8_t *out, uint32_t n) {
    KVAudioConvertAES324DualMonoto32(As<uint32_t>(out), in, in + 3 * size_t{n}, n, 0, 0, 3);
  });
}

void BM_Reinterleave24(benchmark::State &state) {
  RunFrames(state, 3, 8, [](uint8_t *in, uint8_t *out, uint32_t n) {
    KVAudioReinterleaveAES3_24monoto32stereo(As<uint32_t>(out), in, 1, n);
  });
}

void BM_Reinterleave16(benchmark::State &state) {
  RunFrames(state, 2, 4, [](uint8_t *in, uint8_t *out, uint32_t n) {
    KVAudioReinterleaveAES3_16monoto16stereo(As<int16_t>(in), As<int16_t>(out), 0, n);
  });
}

void BM_Reinterleave32(benchmark::State &state) {
  RunFrames(state, 4, 8, [](uint8_t *in, uint8_t *out, uint32_t n) {
    KVAudioReinterleaveAES3_32monoto32stereo(As<uint32_t>(in), As<uint32_t>(out), 0, n);
  });
}

const std::vector<std::vector<int64_t>> kArgs = {{kvbench::kSmall, kvbench::kLarge}, {0, 1}};

BENCHMARK(kvbench::MemcpyBaseline)->Name("Transport/Memcpy")->Arg(kvbench::kSmall)->Arg(kvbench::kLarge);
BENCHMARK(BM_AES316to16)->Name("Transport/AES316to16")->ArgsProduct(kArgs);
BENCHMARK(BM_Packed24Mono)->Name("Transport/Packed24Mono")->ArgsProduct(kArgs);
BENCHMARK(BM_Packed24Stereo)->Name("Transport/Packed24Stereo")->ArgsProduct(kArgs);
BENCHMARK(BM_Packed24DualMono)->Name("Transport/Packed24DualMono")->ArgsProduct(kArgs);
BENCHMARK(BM_Reinterleave24)->Name("Transport/Reinterleave24")->ArgsProduct(kArgs);
BENCHMARK(BM_Reinterleave16)->Name("Transport/Reinterleave16")->ArgsProduct(kArgs);
BENCHMARK(BM_Reinterleave32)->Name("Transport/Reinterleave32")->ArgsProduct(kArgs);

}  // namespace
