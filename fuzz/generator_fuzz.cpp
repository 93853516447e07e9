// Generator with arbitrary flags, shapes, frequencies, amplitudes, formats and call sequences;
// every fill goes into a buffer of exactly the byte count asked for.
#include <cmath>

#include "fuzz_input.h"
#include "kvaudio/generator.h"

namespace {

struct Params {
  uint32_t flags, frequency, endFrequency, sweepMs, sweepSteps, rightShape, leftShape;
  WAVEFORMATEX format;
  bool withFormat;
  double rightAmplitude, leftAmplitude, markerReference;
};

// Any double of the input, so NaN, infinities and huge amplitudes occur.
Params TakeParams(kvfuzz::Input &in) {
  Params p{};
  p.flags = in.Take<uint32_t>();
  p.frequency = in.Take<uint32_t>() >> (in.Take<uint8_t>() % 32);
  p.endFrequency = in.Take<uint32_t>() >> (in.Take<uint8_t>() % 32);
  p.sweepMs = in.Take<uint16_t>() * 10u;
  p.sweepSteps = in.Take<uint16_t>();
  p.rightShape = in.Take<uint8_t>();
  p.leftShape = in.Take<uint8_t>();
  p.format = in.Take<WAVEFORMATEX>();
  // The sine table takes one entry per Hz of sample rate; keep it to broadcast rates.
  p.format.nSamplesPerSec %= 192001;
  p.withFormat = in.Take<uint8_t>() & 1;
  p.rightAmplitude = in.Take<double>();
  p.leftAmplitude = in.Take<double>();
  p.markerReference = in.Take<double>();
  return p;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  kvfuzz::Input in(data, size);
  Params p = TakeParams(in);
  tagAUDGENHANDLE *h = audGenOpen(p.flags, p.frequency, p.endFrequency, p.sweepMs, p.sweepSteps, p.rightShape,
                                  p.leftShape, p.withFormat ? &p.format : nullptr, p.rightAmplitude,
                                  p.leftAmplitude, p.markerReference);
  for (int calls = 0; in.rest_size() > 0 && calls < 16; ++calls) {
    switch (in.Take<uint8_t>() % 6) {
      case 0:
        p = TakeParams(in);
        audGenSet(h, p.flags, p.frequency, p.endFrequency, p.sweepMs, p.sweepSteps, p.rightShape, p.leftShape,
                  p.withFormat ? &p.format : nullptr, p.rightAmplitude, p.leftAmplitude, p.markerReference);
        break;
      case 1: audGenRestart(h); break;
      case 2: audGenSetAngle(h, in.Take<uint32_t>()); break;
      case 3: audGenGetBufferSize(h); break;
      default: {
        kvfuzz::Block buffer(in.Take<uint16_t>(), in.rest(), in.rest_size());
        audGenFillBuffer(h, buffer.data(), static_cast<uint32_t>(buffer.size()));
      }
    }
  }
  audGenClose(h);
  return 0;
}
