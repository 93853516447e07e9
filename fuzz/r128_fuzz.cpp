// Standard meter fuzzer: arbitrary rate, channels, flags, format, weights, call sizes and sample
// bytes (NaN and infinity included); the plain loops and the AVX2 kernels give the same readings.
#include <cstring>
#include <vector>

#include "fuzz_input.h"
#include "kvaudio/r128.h"

namespace {

struct Result {
  int32_t status[4];
  kvAudioLoudnessReading reading;
};

Result Measure(int avx2, const uint8_t *head, size_t headBytes, const uint8_t *samples, size_t bytes) {
  static const char *const kLayouts[] = {"none", "5.1", "stereo2", "7.1-dolby", "5.1-dts", "unknown"};
  static const size_t kWidth[] = {4, 2, 3, 4, 4, 4};  // planar float, KVAUDIO_SAMPLES_*, an unknown format
  kvaudio::frame::SetAvx2ForTesting(avx2);
  kvfuzz::Input in(head, headBytes);
  const uint32_t rate = 7990 + 3u * in.Take<uint16_t>(), channels = in.Take<uint8_t>() % 70;
  const uint32_t flags = in.Take<uint8_t>() & 0x1F, format = in.Take<uint8_t>() % 6;
  const uint8_t layout = in.Take<uint8_t>(), channel = in.Take<uint8_t>(), weight = in.Take<uint8_t>();
  const uint8_t split = in.Take<uint8_t>();
  Result r{};
  r.reading.size = 90 + 4u * in.Take<uint8_t>() % 1040;
  kvAudioLoudness *m = kvAudioLoudnessOpen(rate, channels, flags);
  r.status[0] = m != nullptr;
  r.status[1] = kvAudioLoudnessSetLayout(m, kLayouts[layout % 6]);
  r.status[2] = kvAudioLoudnessSetChannelWeight(m, channel % 70, weight / 20.0);
  if (m) {
    const size_t period = channels * kWidth[format], frames = bytes / period;
    kvfuzz::Block block(frames * period, samples, bytes);
    std::vector<const float *> planes(channels);
    for (size_t done = 0, n = split % 7; done < frames; done += n, n = n * 5 + 3) {
      n = std::min(n, frames - done);
      const uint8_t *at = block.data() + done * period;
      for (uint32_t c = 0; c < channels; ++c) planes[c] = reinterpret_cast<const float *>(at) + c * n;
      r.status[3] |= format ? kvAudioLoudnessAdd(m, at, format, n) : kvAudioLoudnessAddPlanar(m, planes.data(), n);
      if (split & 0x80 && done == 0) kvAudioLoudnessReset(m);
    }
  }
  kvAudioLoudnessRead(m, &r.reading);
  kvAudioLoudnessClose(m);
  return r;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  constexpr size_t kHead = 10;
  const size_t head = size < kHead ? size : kHead;
  const Result plain = Measure(0, data, head, data + head, size - head);
  const Result fast = Measure(kvfuzz::KernelPath(), data, head, data + head, size - head);
  kvaudio::frame::SetAvx2ForTesting(-1);
  if (std::memcmp(&plain, &fast, sizeof plain) != 0) kvfuzz::Fail("plain and AVX2 readings differ");
  return 0;
}
