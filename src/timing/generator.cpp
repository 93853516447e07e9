// The generator's handle functions: open, set, restart, set-angle, buffer size, fill, close.
#include <algorithm>
#include <cmath>
#include <new>

#include "timing/generator_handle.h"

namespace kvaudio::timing {
namespace {

struct Params {
  uint32_t flags, frequency, endFrequency, sweepMs, sweepSteps, rightShape, leftShape;
  const WAVEFORMATEX *format;
  double rightAmplitude, leftAmplitude, markerReference;
};

// Stores the parameters, takes the format, rebuilds both tables and sets the phases. The
// caller holds the lock.
void Configure(tagAUDGENHANDLE *h, const Params &p) {
  h->flags = p.flags;
  h->frequency = p.frequency;
  h->endFrequency = p.endFrequency;
  h->sweepMs = p.sweepMs;
  h->sweepSteps = p.sweepSteps;
  h->rightShape = p.rightShape;
  h->leftShape = p.leftShape;
  h->rightAmplitude = p.rightAmplitude;
  h->leftAmplitude = p.leftAmplitude;
  h->markerReference = p.markerReference;
  if (p.format) {
    h->channels = p.format->nChannels;
    h->sampleRate = p.format->nSamplesPerSec;
    h->blockAlign = p.format->nBlockAlign;
    h->bitsPerSample = p.format->wBitsPerSample;
  }
  h->currentFrequency = p.frequency;
  h->stepFramesDone = 0;
  buildRightWaveTable(h);
  buildLeftWaveTable(h);
  h->rightPhase = h->leftPhase = 0;
  // Only the right channel is set ahead; the first flag set, in this order, wins.
  const uint64_t n = h->rightTableLength;
  if (h->flags & AUDGEN_RIGHT_HALF)
    h->rightPhase = static_cast<uint32_t>(n >> 1);
  else if (h->flags & AUDGEN_RIGHT_QUARTER)
    h->rightPhase = static_cast<uint32_t>(n >> 2);
  else if (h->flags & AUDGEN_RIGHT_THREE_QUARTERS)
    h->rightPhase = static_cast<uint32_t>((n * 3) >> 2);
}

void FreeTables(tagAUDGENHANDLE *h) {
  delete[] h->rightTable;
  delete[] h->leftTable;
  h->rightTable = h->leftTable = nullptr;
  h->rightTableLength = h->leftTableLength = 0;
}

}  // namespace
}  // namespace kvaudio::timing

using namespace kvaudio::timing;

extern "C" {

tagAUDGENHANDLE *audGenOpen(uint32_t flags, uint32_t frequency, uint32_t endFrequency, uint32_t sweepMs,
                            uint32_t sweepSteps, uint32_t rightShape, uint32_t leftShape,
                            const WAVEFORMATEX *format, double rightAmplitude, double leftAmplitude,
                            double markerReference) {
  auto *h = new (std::nothrow) tagAUDGENHANDLE{};
  if (!h) return nullptr;
  kvOSInitializeCriticalSection(&h->lock);
  // Stereo 44100 Hz 16-bit unless the caller gives a format.
  h->channels = 2;
  h->sampleRate = 44100;
  h->blockAlign = 4;
  h->bitsPerSample = 16;
  {
    HandleLock lock(h);
    Configure(h, {flags, frequency, endFrequency, sweepMs, sweepSteps, rightShape, leftShape, format,
                  rightAmplitude, leftAmplitude, markerReference});
  }
  if (!h->rightTable || !h->leftTable) {
    audGenClose(h);
    return nullptr;
  }
  return h;
}

uint32_t audGenSet(tagAUDGENHANDLE *handle, uint32_t flags, uint32_t frequency, uint32_t endFrequency,
                   uint32_t sweepMs, uint32_t sweepSteps, uint32_t rightShape, uint32_t leftShape,
                   const WAVEFORMATEX *format, double rightAmplitude, double leftAmplitude,
                   double markerReference) {
  if (!handle) return 0;
  HandleLock lock(handle);
  Configure(handle, {flags, frequency, endFrequency, sweepMs, sweepSteps, rightShape, leftShape, format,
                     rightAmplitude, leftAmplitude, markerReference});
  return 0;
}

uint32_t audGenRestart(tagAUDGENHANDLE *handle) {
  if (!handle) return 0;
  HandleLock lock(handle);
  handle->currentFrequency = handle->frequency;
  handle->stepFramesDone = 0;
  handle->rightPhase = handle->leftPhase = 0;
  return 0;
}

uint32_t audGenSetAngle(tagAUDGENHANDLE *handle, uint32_t degrees) {
  if (!handle) return 0;
  // Both channels get the same absolute point of the cycle; no lock is taken.
  const uint32_t product = degrees * handle->rightTableLength;
  const auto index = static_cast<uint32_t>(static_cast<float>(product) / 360.0f);
  handle->rightPhase = handle->leftPhase = index;
  return 0;
}

uint32_t audGenGetBufferSize(tagAUDGENHANDLE *handle) {
  if (!handle) return 0;
  HandleLock lock(handle);
  const uint32_t second = uint32_t{handle->blockAlign} * handle->sampleRate;
  if ((handle->flags & AUDGEN_TYPE_MASK) != AUDGEN_TONE || handle->frequency == 0) return second;
  const uint32_t cycle = second / handle->frequency;
  return cycle < 1000 ? 1000 : cycle;
}

uint32_t audGenFillBuffer(tagAUDGENHANDLE *handle, void *buffer, uint32_t bytes) {
  if (!handle || !buffer) return 0;
  HandleLock lock(handle);
  switch (handle->flags & AUDGEN_TYPE_MASK) {
    case AUDGEN_TONE: fillBufferTone(handle, buffer, bytes); break;
    case AUDGEN_SWEEP: fillBufferSweep(handle, buffer, bytes); break;
    case AUDGEN_WHITE_NOISE: fillBufferWhiteNoise(handle, buffer, bytes); break;
    case AUDGEN_PINK_NOISE: fillBufferPinkNoise(handle, buffer, bytes); break;
    case AUDGEN_SILENCE: fillBufferSilence(handle, buffer, bytes); break;
    default: kvOSZeroMemory(buffer, bytes); break;
  }
  if (handle->bitsPerSample > 16 && handle->blockAlign != 0) {
    // The generators wrote bytes / blockAlign frames of `channels` 16-bit samples.
    const uint64_t image = uint64_t{bytes / handle->blockAlign} * handle->channels;
    WidenTo32(buffer, std::min<uint64_t>(image, bytes / 4));
  }
  return 0;
}

uint32_t audGenClose(tagAUDGENHANDLE *handle) {
  if (!handle) return 0;
  {
    HandleLock lock(handle);
    FreeTables(handle);
  }
  kvOSDeleteCriticalSection(&handle->lock);
  delete handle;
  return 0;
}

double db_to_amplitude(int32_t attenuationDb) { return std::pow(10.0, -static_cast<double>(attenuationDb) / 20.0); }

}  // extern "C"
