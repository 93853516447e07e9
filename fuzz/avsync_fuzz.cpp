// AV-sync burst: generation and detection with arbitrary rates, shapes, offsets and samples in
// exact-size buffers. A burst written into silence is found where it was put, and detection
// gives the same position and score on the plain loop and the AVX2 kernel.
#include "fuzz_input.h"
#include "kvaudio/avsync.h"

namespace {

struct Found {
  uint32_t result, position;
  double score;
  bool operator==(const Found &o) const {
    return result == o.result && position == o.position && score == o.score;
  }
};

Found Detect(const void *buffer, uint32_t frames, uint32_t channels, uint32_t bits, uint32_t rate, double threshold) {
  Found f{0, 0, -1.0};
  f.result = KVAudioAVSyncPulseDetect(buffer, frames, channels, bits, rate, &f.position, &f.score, threshold);
  return f;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  kvfuzz::Input in(data, size);
  const uint8_t shape = in.Take<uint8_t>();
  const uint32_t channels = shape % 5, bits = shape & 8 ? 32 : (shape & 16 ? 16 : shape % 40);
  const uint32_t rawRate = in.Take<uint32_t>();
  // Mostly rates near the supported minimum, so bursts stay short and fit the payload.
  const uint32_t rate = shape & 32 ? rawRate : 15990 + rawRate % 8000;
  const uint32_t offset = in.Take<uint16_t>() % 2048, bufferFrames = in.Take<uint16_t>() % 2048;
  const int32_t amplitude = in.Take<int32_t>();
  const double threshold = in.Take<int8_t>() / 100.0;
  const size_t sampleBytes = bits == 32 ? 4 : 2;

  uint32_t length = 0;
  KVAudioAVSyncPulseGetLength(rate, &length);

  // Generation into silence, then detection of what was written.
  kvfuzz::Block clean(size_t{bufferFrames} * channels * sampleBytes);
  const uint32_t made = KVAudioAVSyncPulseGenerate(clean.data(), bufferFrames, channels, bits, rate, offset, 0);
  if (made == 0) {
    const Found f = Detect(clean.data(), bufferFrames, channels, bits, rate, 0.0);
    if (f.result != 0 || f.position != offset) kvfuzz::Fail("burst not found where it was written");
  }

  // Generation over arbitrary samples, then detection on both paths.
  const size_t frames = channels ? in.rest_size() / (channels * sampleBytes) : in.rest_size() / 2;
  kvfuzz::Block mixed(frames * channels * sampleBytes, in.rest(), in.rest_size());
  KVAudioAVSyncPulseGenerate(mixed.data(), static_cast<uint32_t>(frames), channels, bits, rate, offset, amplitude);
  kvaudio::frame::SetAvx2ForTesting(0);
  const Found plain = Detect(mixed.data(), static_cast<uint32_t>(frames), channels, bits, rate, threshold);
  kvaudio::frame::SetAvx2ForTesting(kvfuzz::KernelPath());
  const Found fast = Detect(mixed.data(), static_cast<uint32_t>(frames), channels, bits, rate, threshold);
  kvaudio::frame::SetAvx2ForTesting(-1);
  if (!(plain == fast)) kvfuzz::Fail("plain and AVX2 detection differ");
  return 0;
}
