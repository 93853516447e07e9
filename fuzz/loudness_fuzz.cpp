// Meter fuzzer: arbitrary init arguments, weights, gates and sample bytes; the plain and AVX2
// K-weighting give the same readings.
#include <cstring>

#include "fuzz_input.h"
#include "kvaudio/loudness.h"

namespace {

struct Reading {
  uint32_t ok, result;
  float current, integrated;
};

Reading Measure(int avx2, const uint8_t *head, size_t headBytes, const uint8_t *samples, size_t bytes) {
  kvaudio::frame::SetAvx2ForTesting(avx2);
  kvfuzz::Input in(head, headBytes);
  const uint8_t check = in.Take<uint8_t>(), mode = in.Take<uint8_t>(), resolution = in.Take<uint8_t>();
  const uint8_t channels = in.Take<uint8_t>() % 12;
  const uint32_t rate = in.Take<uint16_t>();  // windows of up to 10 s at this rate stay small
  const uint32_t layout = in.Take<uint8_t>(), wide = in.Take<uint8_t>(), weights = in.Take<uint8_t>();
  Reading r{};
  s_ebu_r128 s{};
  r.ok = ebu_r128_init(&s, check, resolution, rate, mode, channels);
  if (r.ok) {
    if (weights & 1) ebu_r128_set_5_1(&s);
    if (weights & 2) ebu_r128_set_7_1(&s);
    if (weights & 4) ebu_r128_set_flat(&s);
    if (weights & 8) ebu_r128_set_exact(&s, layout < 200 ? layout : 100 + layout % 4);
    ebu_r128_adjust_gain(&s, in.Take<uint8_t>(), static_cast<float>(in.Take<int8_t>()));
    ebu_r128_adjust_relative_gain(&s, in.Take<int8_t>());
    const size_t period = size_t{channels} * (resolution / 8 ? resolution / 8 : 1);
    const size_t frames = period ? bytes / period : 0;
    kvfuzz::Block block(frames * period, samples, bytes);
    ebu_r128_process_samples(&s, block.data(), frames / 2);
    ebu_r128_get_integrated_lufs(&s);
    ebu_r128_process_and_calculate(&s, static_cast<uint32_t>(frames - frames / 2), block.data() + frames / 2 * period,
                                   &r.result, wide & 1);
    r.current = s.currentLoudness;
    r.integrated = s.integratedLoudness;
  }
  ebu_r128_destroy(&s);
  return r;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  constexpr size_t kHead = 12;
  const size_t head = size < kHead ? size : kHead;
  const Reading plain = Measure(0, data, head, data + head, size - head);
  const Reading fast = Measure(kvfuzz::KernelPath(), data, head, data + head, size - head);
  kvaudio::frame::SetAvx2ForTesting(-1);
  if (std::memcmp(&plain, &fast, sizeof plain) != 0) kvfuzz::Fail("plain and AVX2 K-weighting differ");
  return 0;
}
