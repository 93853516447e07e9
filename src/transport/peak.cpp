// Peak meters of 16-bit PCM: stereo with packed doubled peaks, and mono.
#include "kvaudio/peak.h"

#include "frame/cpu.h"
#include "transport/peak_avx2.h"

namespace kvaudio::transport {
namespace {

// Magnitude as an unsigned 16-bit value: -32768 gives 32768.
uint16_t Magnitude(int16_t s) {
  return s > 0 ? static_cast<uint16_t>(s) : static_cast<uint16_t>(0u - static_cast<uint16_t>(s));
}

void Raise(uint16_t &peak, int16_t s) {
  if (Magnitude(s) > peak) peak = Magnitude(s);
}

// Words [from, count) pair by pair; an unpaired last word counts as left.
void PeakStereoPlain(const int16_t *samples, size_t from, size_t count, uint16_t &left, uint16_t &right) {
  size_t i = from;
  for (; i + 1 < count; i += 2) {
    Raise(left, samples[i]);
    Raise(right, samples[i + 1]);
  }
  if (i < count) Raise(left, samples[i]);
}

}  // namespace
}  // namespace kvaudio::transport

using namespace kvaudio::transport;

extern "C" {

// Doubled peaks packed lossily on purpose: bit 16 for a left 32768, nothing for a right 32768.
uint32_t audTestPeak16S(const int16_t *samples, uint32_t count) {
  if (!samples) return 0;
  uint16_t left = 0, right = 0;
  size_t done = 0;
  if (KVAudioCPUHasAVX2()) done = audTestPeak16SAvx2(samples, count, &left, &right);
  PeakStereoPlain(samples, done, count, left, right);
  return uint32_t{left} * 2 | uint32_t{right} << 17;
}

// A winning sample v <= 0 stores its raw 16-bit pattern, not its magnitude; kept on purpose.
uint32_t audTestPeak16M(const int16_t *samples, uint32_t count) {
  if (!samples) return 0;
  int32_t peak = 0;
  for (uint32_t i = 0; i < count; ++i) {
    const int32_t v = samples[i];
    if (v > 0) {
      if (v > peak) peak = v;
    } else if (peak < -v) {
      peak = static_cast<uint16_t>(v);
    }
  }
  return static_cast<uint32_t>(peak);
}

}  // extern "C"
