// Tone, stepped sweep and silence of the generator, and the widening to 32-bit containers.
#include <cmath>
#include <cstring>

#include "timing/generator_handle.h"

namespace kvaudio::timing {
namespace {

// An unsigned 32-bit value of a double as the x86 conversion gives it for doubles below 2^63
// (truncated, low 32 bits kept); NaN, negative and larger values give 0.
uint32_t ToU32(double v) {
  if (!(v >= 0.0) || !(v < 9223372036854775808.0)) return 0;
  return static_cast<uint32_t>(static_cast<uint64_t>(v));
}

// Writes channels 0 and 1 of `frames` frames from `frame` at frequency f, left table first.
void FillPair(tagAUDGENHANDLE *h, const Image &img, double f, uint64_t frame, uint64_t frames) {
  const uint32_t start = static_cast<uint32_t>(frame * img.channels);
  const uint32_t left = img.Fit(frame, 0, static_cast<uint32_t>(frames));
  const uint32_t right = img.Fit(frame, 1, static_cast<uint32_t>(frames));
  if (left) fillChannelWithWave(h, h->leftTable, h->leftTableLength, img.samples, f, &h->leftPhase, start, left, 0);
  if (right) fillChannelWithWave(h, h->rightTable, h->rightTableLength, img.samples, f, &h->rightPhase, start, right, 1);
}

// Step layout of a sweep: frames per step, steps, and the per-step change of frequency.
struct SweepPlan {
  uint32_t stepFrames;
  uint32_t steps;
  uint32_t increment;  // linear: (u32)(end - start) / (steps - 1); a downward sweep wraps
  double ratio;        // geometric: (end / start)^(1 / (steps - 1))
  bool linear;
};

SweepPlan PlanSweep(const tagAUDGENHANDLE *h) {
  SweepPlan s{};
  // Whole seconds only; the block align cancels out, in 32-bit arithmetic.
  const uint32_t totalFrames = (h->sweepMs / 1000 * h->blockAlign * h->sampleRate) / h->blockAlign;
  s.stepFrames = h->sweepSteps ? totalFrames / h->sweepSteps : 0;
  s.steps = h->sweepSteps;
  if (s.stepFrames < 8) {
    s.stepFrames = 8;
    s.steps = static_cast<uint32_t>(totalFrames * 0.125);
  }
  // A single step has nothing to divide by; it is treated as one interval.
  const uint32_t intervals = s.steps == 1 ? 1 : s.steps - 1;
  s.increment = (h->endFrequency - h->frequency) / intervals;
  s.ratio = std::exp(std::log(static_cast<double>(h->endFrequency) / h->frequency) / intervals);
  s.linear = (h->flags & AUDGEN_SWEEP_LINEAR) != 0;
  return s;
}

// True when a whole second of sweep time, 0 .. sweepMs / 1000 seconds, lies in
// [position - half step, position + half step).
bool NearWholeSecond(const tagAUDGENHANDLE *h, double position, double half) {
  if (!std::isfinite(position)) return false;
  const double rate = h->sampleRate;
  const double lastSecond = h->sweepMs / 1000;
  double k = rate > 0 ? std::floor((position + half) / rate) : 0.0;
  k = std::fmin(std::fmax(k, 0.0), lastSecond);
  const double second = k * rate;
  return second - half <= position && position < second + half;
}

bool MarkerDue(const tagAUDGENHANDLE *h, const SweepPlan &s, double f) {
  const double inc = s.increment;
  if ((h->flags & AUDGEN_MARK_OCTAVES) && h->markerReference > 0 && std::isfinite(f)) {
    for (double r = h->markerReference; f + 5.0 > r; r *= 2) {
      if (s.linear ? (r - inc < f && f < r + inc) : (f / s.ratio < r && r < f * s.ratio)) return true;
    }
  }
  if (h->flags & AUDGEN_MARK_SECONDS) {
    const double position = s.linear ? std::floor((f - h->frequency) / inc) * s.stepFrames
                                     : std::floor(std::log(f / h->frequency) / std::log(s.ratio) * s.stepFrames);
    if (NearWholeSecond(h, position, 0.5 * s.stepFrames)) return true;
  }
  return (h->flags & AUDGEN_MARK_START) && h->frequency >= f;
}

// A click of 8 / blockAlign frame pairs: the truncated linear amplitudes (not scaled), then 0.
// Returns the frames it takes.
uint32_t WriteMarker(const tagAUDGENHANDLE *h, const Image &img, uint64_t frame) {
  const uint32_t pairs = h->blockAlign <= 8 ? 8 / h->blockAlign : 0;
  const int16_t left = ToI16(h->leftAmplitude), right = ToI16(h->rightAmplitude);
  for (uint32_t i = 0; i < pairs; ++i, frame += 2) {
    img.Put(frame, 0, left);
    img.Put(frame, 1, right);
    img.Put(frame + 1, 0, 0);
    img.Put(frame + 1, 1, 0);
  }
  return 2 * pairs;
}

// Writes `frames` frames of the sweep, step by step, and keeps the position in the handle.
void Sweep(tagAUDGENHANDLE *h, const Image &img, uint64_t frames) {
  const SweepPlan s = PlanSweep(h);
  if (h->stepFramesDone > s.stepFrames) h->stepFramesDone = s.stepFrames;  // a step never overfills
  // Step boundaries inside this buffer: ceil((frames + done) / stepFrames) - 1.
  const int64_t boundaries = static_cast<int64_t>((frames + h->stepFramesDone + s.stepFrames - 1) / s.stepFrames) - 1;
  double f = h->currentFrequency;
  uint64_t at = 0;
  for (int64_t b = 0; b < boundaries; ++b) {
    const uint64_t segment = b > 0 ? s.stepFrames : s.stepFrames - h->stepFramesDone;
    uint64_t from = at, fill = segment;
    if (MarkerDue(h, s, f)) {
      const uint32_t marker = WriteMarker(h, img, at);
      from += marker;
      fill = segment > marker ? segment - marker : 0;
    }
    FillPair(h, img, f, from, fill);
    at += segment;
    f = s.linear ? f + s.increment : f * s.ratio;
    h->stepFramesDone = 0;
    if (h->endFrequency < ToU32(f)) f = h->frequency;  // the sweep starts over
  }
  const uint64_t rest = frames - at;
  FillPair(h, img, f, at, rest);
  h->stepFramesDone += static_cast<uint32_t>(rest);
  h->currentFrequency = ToU32(f);
}

}  // namespace

uint32_t Image::Fit(uint64_t frame, uint32_t channel, uint32_t frames) const {
  const uint64_t first = frame * channels + channel;
  if (channel >= written || first >= capacity) return 0;
  const uint64_t room = (capacity - first - 1) / channels + 1;
  return room < frames ? static_cast<uint32_t>(room) : frames;
}

Image ImageOf(const tagAUDGENHANDLE *h, void *buffer, uint32_t bytes) {
  Image img{};
  img.samples = static_cast<int16_t *>(buffer);
  img.capacity = h->bitsPerSample > 16 ? bytes / 4 : bytes / 2;
  img.channels = h->channels;
  img.written = h->channels < 2 ? h->channels : 2;
  return img;
}

void WidenTo32(void *buffer, uint64_t samples) {
  auto *bytes = static_cast<uint8_t *>(buffer);
  // From the end backwards, so each sample is read before its place is written. A stereo word
  // w (left in the low half) becomes w << 16 and w & 0xFFFF0000.
  for (uint64_t i = samples; i-- > 0;) {
    uint16_t s;
    std::memcpy(&s, bytes + 2 * i, 2);
    const uint32_t w = uint32_t{s} << 16;
    std::memcpy(bytes + 4 * i, &w, 4);
  }
}

}  // namespace kvaudio::timing

using namespace kvaudio::timing;

void fillChannelWithWave(tagAUDGENHANDLE *handle, const int16_t *table, uint32_t length, int16_t *out,
                         double frequency, uint32_t *phase, uint32_t start, uint32_t frames, uint32_t channel) {
  if (!handle || !table || length == 0 || !out || !phase) return;
  HandleLock lock(handle);
  const uint32_t step = ToU32(std::floor(length * frequency / handle->sampleRate));
  const uint32_t advance = step ? step : 1;
  const size_t stride = handle->channels;
  int16_t *dst = out + start + channel;
  uint32_t p = *phase;
  for (uint32_t k = 0; k < frames; ++k, dst += stride) {
    const uint32_t index = p % length;
    *dst = table[index];
    p = index + advance;
  }
  *phase = p;
}

void fillBufferTone(tagAUDGENHANDLE *handle, void *buffer, uint32_t bytes) {
  FillFrames(handle, buffer, bytes,
             [&](const Image &img, uint32_t frames) { FillPair(handle, img, handle->frequency, 0, frames); });
}

void fillBufferSweep(tagAUDGENHANDLE *handle, void *buffer, uint32_t bytes) {
  FillFrames(handle, buffer, bytes, [&](const Image &img, uint32_t frames) { Sweep(handle, img, frames); });
}

void fillBufferSilence(tagAUDGENHANDLE *handle, void *buffer, uint32_t bytes) {
  FillFrames(handle, buffer, bytes, [&](const Image &img, uint32_t frames) {
    for (uint32_t i = 0; i < frames; ++i) {
      img.Put(i, 0, 0);
      img.Put(i, 1, 0);
    }
  });
}
