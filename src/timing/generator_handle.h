// The generator handle's layout and the helpers its source files share.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kvaudio/generator.h"
#include "kvutil.h"

struct tagAUDGENHANDLE {
  uint32_t flags;             // signal type (low four bits) and options
  uint32_t frequency;         // tone frequency, sweep start frequency (Hz)
  uint32_t endFrequency;      // sweep end frequency (Hz)
  uint32_t sweepMs;           // sweep duration (ms)
  uint32_t sweepSteps;        // frequency steps per sweep
  uint32_t currentFrequency;  // present sweep frequency (Hz, integer part)
  uint32_t stepFramesDone;    // frames written at the present sweep step
  double markerReference;     // octave marker reference (Hz)
  uint32_t rightPhase;        // read index into rightTable
  uint32_t leftPhase;         // read index into leftTable
  uint32_t rightShape;
  uint32_t leftShape;
  uint16_t channels;
  uint32_t sampleRate;
  uint16_t blockAlign;
  uint16_t bitsPerSample;
  double rightAmplitude;  // linear, 1.0 = full scale
  double leftAmplitude;
  int16_t *rightTable;  // one cycle, owned
  uint32_t rightTableLength;
  int16_t *leftTable;
  uint32_t leftTableLength;
  KVCRITICAL_SECTION lock;  // guards every field above
};

namespace kvaudio::timing {

// Holds a handle's lock for its lifetime, so exceptions release it too; a null handle has none.
class HandleLock {
 public:
  explicit HandleLock(tagAUDGENHANDLE *h) : cs_(h ? &h->lock : nullptr) {
    if (cs_) kvOSEnterCriticalSection(cs_);
  }
  ~HandleLock() {
    if (cs_) kvOSLeaveCriticalSection(cs_);
  }
  HandleLock(const HandleLock &) = delete;
  HandleLock &operator=(const HandleLock &) = delete;

 private:
  KVCRITICAL_SECTION *cs_;
};

// A double to 16 bits as the x86 conversion does: truncated to 32 bits (0x80000000 when out
// of range or NaN), then the low 16 bits kept.
int16_t ToI16(double v);

// The 16-bit image a generator writes: `capacity` samples at most, `channels` per frame, of
// which channel 0 and, with two or more channels, channel 1 are written.
struct Image {
  int16_t *samples;
  size_t capacity;
  uint32_t channels;
  uint32_t written;  // channels written per frame: min(channels, 2)

  // Frames from `frame` on, at most `frames`, whose sample of `channel` lies inside the image.
  uint32_t Fit(uint64_t frame, uint32_t channel, uint32_t frames) const;
  void Put(uint64_t frame, uint32_t channel, int16_t v) const {
    const uint64_t at = frame * channels + channel;
    if (channel < written && at < capacity) samples[at] = v;
  }
};

// The image of `bytes` bytes of buffer: the first half when the format is wider than 16 bits,
// where widening to 32-bit containers will expand it.
Image ImageOf(const tagAUDGENHANDLE *h, void *buffer, uint32_t bytes);

// Runs body(image, frames) under the handle's lock, frames = bytes / block align; nothing
// happens for a null handle or buffer or a block align of 0.
template <typename Body>
void FillFrames(tagAUDGENHANDLE *h, void *buffer, uint32_t bytes, Body body) {
  if (!h || !buffer) return;
  HandleLock lock(h);
  if (h->blockAlign == 0) return;
  body(ImageOf(h, buffer, bytes), bytes / h->blockAlign);
}

// Expands the first `samples` 16-bit samples of buffer in place into 32-bit containers holding
// the sample in their top 16 bits.
void WidenTo32(void *buffer, uint64_t samples);

}  // namespace kvaudio::timing
