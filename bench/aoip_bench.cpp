// AoIP payloads and float conversion: kernel vs plain loop vs memcpy, and RTP packets per second.
// Range 0 is the host-side size in bytes, range 1 the path (0 plain, 1 kernel).
#include "bench_util.h"
#include "kvaudio/aoip.h"

namespace {

// Runs `call(host, payload, samples)` over range(0) bytes of host samples of hostBytes each.
template <typename Call>
void RunSamples(benchmark::State &state, size_t hostBytes, size_t otherBytes, Call call) {
  const size_t bytes = static_cast<size_t>(state.range(0));
  const uint32_t n = static_cast<uint32_t>(bytes / hostBytes);
  kvbench::ForcePath(state, static_cast<int>(state.range(1)));
  auto host = kvbench::Filled(bytes + 64);
  auto other = kvbench::Filled(n * otherBytes + 64);
  for (auto _ : state) {
    call(host.data(), other.data(), n);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes));
  kvaudio::frame::SetAvx2ForTesting(-1);
}

template <typename T>
T *As(uint8_t *p) { return reinterpret_cast<T *>(p); }

void BM_Pack32L24(benchmark::State &s) {
  RunSamples(s, 4, 3, [](uint8_t *h, uint8_t *p, uint32_t n) { KVAudioAoipPack32(p, As<int32_t>(h), 24, 8, n / 8); });
}
void BM_Unpack32L24(benchmark::State &s) {
  RunSamples(s, 4, 3, [](uint8_t *h, uint8_t *p, uint32_t n) { KVAudioAoipUnpack32(As<int32_t>(h), p, 24, 8, n / 8); });
}
void BM_Pack16L16(benchmark::State &s) {
  RunSamples(s, 2, 2, [](uint8_t *h, uint8_t *p, uint32_t n) { KVAudioAoipPack16(p, As<int16_t>(h), 16, 2, n / 2); });
}
void BM_Unpack16L16(benchmark::State &s) {
  RunSamples(s, 2, 2, [](uint8_t *h, uint8_t *p, uint32_t n) { KVAudioAoipUnpack16(As<int16_t>(h), p, 16, 2, n / 2); });
}
void BM_Int32ToFloat(benchmark::State &s) {
  RunSamples(s, 4, 4, [](uint8_t *h, uint8_t *f, uint32_t n) { KVAudioInt32ToFloat(As<float>(f), As<int32_t>(h), n, 24); });
}
void BM_FloatToInt24(benchmark::State &s) {
  RunSamples(s, 4, 4, [](uint8_t *h, uint8_t *f, uint32_t n) { KVAudioFloatToInt32(As<int32_t>(h), As<float>(f), n, 24, nullptr); });
}
void BM_FloatToInt16Dither(benchmark::State &s) {
  RunSamples(s, 4, 2, [](uint8_t *h, uint8_t *o, uint32_t n) {
    KVAudioDither d{1, 0};
    KVAudioFloatToInt16(As<int16_t>(o), As<float>(h), n, &d);
  });
}

// 8-channel L24 packets of 125 us at 48 kHz (6 periods, 156 bytes): header and payload built,
// then parsed and read back. Items are packets.
void BM_RtpBuild8chL24(benchmark::State &state) {
  int32_t samples[48] = {};
  uint8_t packet[12 + 144];
  KVAudioRtpHeader h{0, 96, 0, 0, 1, 0, 0};
  for (auto _ : state) {
    ++h.sequence, h.timestamp += 6;
    KVAudioRtpWriteHeader(packet, sizeof(packet), &h);
    KVAudioAoipPack32(packet + 12, samples, 24, 8, 6);
    benchmark::DoNotOptimize(packet);
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_RtpParse8chL24(benchmark::State &state) {
  int32_t samples[48];
  uint8_t packet[12 + 144] = {0x80, 96};
  KVAudioRtpHeader h;
  for (auto _ : state) {
    KVAudioRtpParseHeader(packet, sizeof(packet), &h);
    KVAudioAoipUnpack32(samples, packet + h.payloadOffset, 24, 8, h.payloadBytes / 24);
    benchmark::DoNotOptimize(samples);
  }
  state.SetItemsProcessed(state.iterations());
}

// Through the receiver: push, and pull every 64 packets. Items are packets.
void BM_RtpReceive8chL24(benchmark::State &state) {
  const KVAudioAoipReceiverConfig cfg{8, 24, 96, 6, 4096, 0};
  KVAudioAoipReceiver *rx = KVAudioAoipReceiverOpen(&cfg);
  uint8_t packet[12 + 144] = {};
  int32_t out[64 * 6 * 8];
  KVAudioRtpHeader h{0, 96, 0, 0, 1, 0, 0};
  for (auto _ : state) {
    ++h.sequence, h.timestamp += 6;
    KVAudioRtpWriteHeader(packet, sizeof(packet), &h);
    KVAudioAoipReceiverPush(rx, packet, sizeof(packet));
    if (h.sequence % 64 == 0) KVAudioAoipReceiverPull(rx, out, KVAudioAoipReceiverAvailable(rx));
  }
  state.SetItemsProcessed(state.iterations());
  KVAudioAoipReceiverClose(rx);
}

const std::vector<std::vector<int64_t>> kArgs = {{kvbench::kSmall, kvbench::kLarge}, {0, 1}};

BENCHMARK(kvbench::MemcpyBaseline)->Name("Aoip/Memcpy")->Arg(kvbench::kSmall)->Arg(kvbench::kLarge);
BENCHMARK(BM_Pack32L24)->Name("Aoip/Pack32L24")->ArgsProduct(kArgs);
BENCHMARK(BM_Unpack32L24)->Name("Aoip/Unpack32L24")->ArgsProduct(kArgs);
BENCHMARK(BM_Pack16L16)->Name("Aoip/Pack16L16")->ArgsProduct(kArgs);
BENCHMARK(BM_Unpack16L16)->Name("Aoip/Unpack16L16")->ArgsProduct(kArgs);
BENCHMARK(BM_Int32ToFloat)->Name("Aoip/Int32ToFloat")->ArgsProduct(kArgs);
BENCHMARK(BM_FloatToInt24)->Name("Aoip/FloatToInt24")->ArgsProduct(kArgs);
BENCHMARK(BM_FloatToInt16Dither)->Name("Aoip/FloatToInt16Dither")->ArgsProduct(kArgs);
BENCHMARK(BM_RtpBuild8chL24)->Name("Aoip/RtpBuild8chL24_125us");
BENCHMARK(BM_RtpParse8chL24)->Name("Aoip/RtpParse8chL24_125us");
BENCHMARK(BM_RtpReceive8chL24)->Name("Aoip/RtpReceive8chL24_125us");

}  // namespace
