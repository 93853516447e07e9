// Per-frame audio sample cadences at 48 kHz and 44.1 kHz, and the frame-size bounds.
#include "kvaudio/cadence.h"

namespace kvaudio::timing {
namespace {

constexpr uint32_t kUnknownRate = 0xFFFFFFFF;

// Samples of frame `frame` at 48000 Hz, or 0 for a code without a cadence.
uint32_t Samples48k(uint32_t frame, uint32_t rateCode) {
  switch (rateCode) {
    case 23: return 2002;
    case 24: return 2000;
    case 25: return 1920;
    case 29:
    case 30: return (frame % 5 == 1 || frame % 5 == 3) ? 1601 : 1602;  // 8008 per 5 frames
    case 50: return 960;
    case 59:
    case 60: return frame % 5 == 4 ? 800 : 801;  // 4004 per 5 frames
    default: return 0;
  }
}

// Samples of frame `frame` at 44100 Hz, or 0 for a code without a cadence.
uint32_t Samples441k(uint32_t frame, uint32_t rateCode) {
  switch (rateCode) {
    case 23:
    case 24: return frame % 2 ? 1838 : 1837;
    case 25: return 1764;
    case 29:
    case 30: return frame % 2 ? 1472 : 1471;  // 8829 per 6 frames
    case 50: return 882;
    case 59:
    case 60: return frame % 6 >= 4 ? 735 : 736;  // 4414 per 6 frames
    default: return 0;
  }
}

uint32_t Store(uint32_t count, uint32_t bytesPerSample, uint32_t *samples, uint32_t *bytes) {
  if (count == 0) return kUnknownRate;
  if (samples) *samples = count;
  if (bytes) *bytes = bytesPerSample * count;
  return 0;
}

struct Bounds {
  uint32_t rateCode, minimum, maximum;
};

// Fixed bounds at 48000 Hz; 23 and 30 deliberately differ from the per-frame cadence.
constexpr Bounds kBounds48k[] = {{23, 2000, 2000}, {24, 2000, 2000}, {25, 1920, 1920},
                                 {29, 1601, 1602}, {30, 1600, 1600}, {50, 960, 960},
                                 {59, 800, 801},   {60, 800, 800}};

}  // namespace
}  // namespace kvaudio::timing

using namespace kvaudio::timing;

extern "C" {

uint32_t audSamplesPerFrame48kHz(uint32_t frameNumber, uint32_t rateCode, uint32_t bytesPerSample,
                                 uint32_t *samples, uint32_t *bytes) {
  return Store(Samples48k(frameNumber, rateCode), bytesPerSample, samples, bytes);
}

uint32_t audSamplesPerFrame441kHz(uint32_t frameNumber, uint32_t rateCode, uint32_t bytesPerSample,
                                  uint32_t *samples, uint32_t *bytes) {
  return Store(Samples441k(frameNumber, rateCode), bytesPerSample, samples, bytes);
}

uint32_t audMinMaxSamplesPerFrame(uint32_t *minimum, uint32_t *maximum, uint32_t rateCode,
                                  uint32_t sampleRate) {
  if (rateCode == 0) return 0;  // no frame rate: nothing to divide by, nothing stored
  uint32_t lo = rateCode % 10 == 9 ? sampleRate / (rateCode - 1) : sampleRate / rateCode;
  uint32_t hi = sampleRate / rateCode;
  if (sampleRate == 48000) {
    for (const Bounds &b : kBounds48k) {
      if (b.rateCode != rateCode) continue;
      lo = b.minimum;
      hi = b.maximum;
    }
  }
  if (minimum) *minimum = lo;
  if (maximum) *maximum = hi;
  return 0;
}

}  // extern "C"
