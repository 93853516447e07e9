// Meter fuzzer: arbitrary modes, widths, channel counts, weights and sample bytes.
#include "fuzz_input.h"
#include "kvaudio/loudness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  kvfuzz::Input in(data, size);
  const uint8_t mode = in.Take<uint8_t>() % 5, resolution = in.Take<uint8_t>() % 40;
  const uint8_t channels = in.Take<uint8_t>() % 12;
  const uint32_t rate = in.Take<uint16_t>() % 20000;  // keeps the windows small
  const uint32_t layout = in.Take<uint8_t>(), wide = in.Take<uint8_t>() & 1;
  s_ebu_r128 s{};
  if (!ebu_r128_init(&s, 1, resolution, rate, mode, channels)) return 0;
  ebu_r128_set_exact(&s, layout < 200 ? layout : 100 + layout % 4);
  ebu_r128_adjust_gain(&s, in.Take<uint8_t>(), static_cast<float>(in.Take<int8_t>()));
  const size_t bytes = size_t{channels} * (resolution / 8 ? resolution / 8 : 1);
  const size_t frames = bytes ? in.rest_size() / bytes : 0;
  uint32_t result = 0;
  ebu_r128_process_samples(&s, in.rest(), frames / 2);
  ebu_r128_process_and_calculate(&s, static_cast<uint32_t>(frames - frames / 2),
                                 in.rest() + frames / 2 * bytes, &result, wide);
  ebu_r128_destroy(&s);
  return 0;
}
