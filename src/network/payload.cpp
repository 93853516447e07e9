// L16/L24 payloads: the exported converters, their plain loops and the float forms built on them.
#include "frame/cpu.h"
#include "kvaudio/aoip.h"
#include "network/payload_avx2.h"

namespace kvaudio::network {
namespace {

uint32_t Widen(int16_t s) { return static_cast<uint32_t>(static_cast<uint16_t>(s)) << 16; }
uint32_t Widen(int32_t s) { return static_cast<uint32_t>(s); }
void Narrow(uint32_t v, int16_t &s) { s = static_cast<int16_t>(v >> 16); }
void Narrow(uint32_t v, int32_t &s) { s = static_cast<int32_t>(v); }

// Samples [from, count): sample i at payload + i * stride and samples[i * step].
template <typename T>
void PackRun(uint8_t *payload, size_t stride, const T *samples, size_t step, size_t from, size_t count, bool l24) {
  for (size_t i = from; i < count; ++i) {
    const uint32_t v = Widen(samples[i * step]);
    uint8_t *p = payload + i * stride;
    p[0] = static_cast<uint8_t>(v >> 24);
    p[1] = static_cast<uint8_t>(v >> 16);
    if (l24) p[2] = static_cast<uint8_t>(v >> 8);
  }
}

template <typename T>
void UnpackRun(T *samples, size_t step, const uint8_t *payload, size_t stride, size_t from, size_t count, bool l24) {
  for (size_t i = from; i < count; ++i) {
    const uint8_t *p = payload + i * stride;
    const uint32_t v = uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | (l24 ? uint32_t{p[2]} << 8 : 0u);
    Narrow(v, samples[i * step]);
  }
}

size_t PackKernel(uint8_t *payload, const int16_t *in, size_t count, bool l24) {
  return l24 ? Pack16L24Avx2(payload, in, count) : Pack16L16Avx2(payload, in, count);
}
size_t PackKernel(uint8_t *payload, const int32_t *in, size_t count, bool l24) {
  return l24 ? Pack32L24Avx2(payload, in, count) : Pack32L16Avx2(payload, in, count);
}
size_t UnpackKernel(int16_t *out, const uint8_t *payload, size_t count, bool l24) {
  return l24 ? Unpack16L24Avx2(out, payload, count) : Unpack16L16Avx2(out, payload, count);
}
size_t UnpackKernel(int32_t *out, const uint8_t *payload, size_t count, bool l24) {
  return l24 ? Unpack32L24Avx2(out, payload, count) : Unpack32L16Avx2(out, payload, count);
}

// A contiguous run of count samples: the kernel when AVX2 may be used, then the plain loop.
template <typename T>
void PackContiguous(uint8_t *payload, const T *samples, size_t count, bool l24) {
  const size_t done = KVAudioCPUHasAVX2() ? PackKernel(payload, samples, count, l24) : 0;
  PackRun(payload, l24 ? 3 : 2, samples, 1, done, count, l24);
}

template <typename T>
void UnpackContiguous(T *samples, const uint8_t *payload, size_t count, bool l24) {
  const size_t done = KVAudioCPUHasAVX2() ? UnpackKernel(samples, payload, count, l24) : 0;
  UnpackRun(samples, 1, payload, l24 ? 3 : 2, done, count, l24);
}

uint32_t Check(const void *a, const void *b, uint32_t encoding, uint32_t channels) {
  if (encoding != KVAUDIO_AOIP_L16 && encoding != KVAUDIO_AOIP_L24) return KVAUDIO_AOIP_BAD_ENCODING;
  if (channels == 0 || channels > KVAUDIO_AOIP_MAX_CHANNELS) return KVAUDIO_AOIP_BAD_CHANNELS;
  if (!a || !b) return KVAUDIO_AOIP_NULL_BUFFER;
  return KVAUDIO_AOIP_OK;
}

uint32_t CheckPair(const void *a, const void *b, uint32_t encoding, uint32_t channels, uint32_t pairIndex) {
  const uint32_t r = Check(a, b, encoding, channels);
  if (r != KVAUDIO_AOIP_OK) return r;
  return pairIndex < channels / 2 ? KVAUDIO_AOIP_OK : KVAUDIO_AOIP_BAD_CHANNELS;
}

template <typename T>
uint32_t Pack(uint8_t *payload, const T *samples, uint32_t encoding, uint32_t channels, uint32_t frames) {
  if (frames == 0) return KVAUDIO_AOIP_OK;
  const uint32_t r = Check(payload, samples, encoding, channels);
  if (r == KVAUDIO_AOIP_OK) PackContiguous(payload, samples, size_t{frames} * channels, encoding == 24);
  return r;
}

template <typename T>
uint32_t Unpack(T *samples, const uint8_t *payload, uint32_t encoding, uint32_t channels, uint32_t frames) {
  if (frames == 0) return KVAUDIO_AOIP_OK;
  const uint32_t r = Check(payload, samples, encoding, channels);
  if (r == KVAUDIO_AOIP_OK) UnpackContiguous(samples, payload, size_t{frames} * channels, encoding == 24);
  return r;
}

// A stereo pair of a payload; a two-channel payload is one contiguous run.
template <typename T>
uint32_t PackPair(uint8_t *payload, const T *stereo, uint32_t encoding, uint32_t channels, uint32_t pairIndex,
                  uint32_t frames) {
  if (frames == 0) return KVAUDIO_AOIP_OK;
  const uint32_t r = CheckPair(payload, stereo, encoding, channels, pairIndex);
  if (r != KVAUDIO_AOIP_OK) return r;
  const bool l24 = encoding == 24;
  const size_t bytes = encoding / 8, frameBytes = bytes * channels;
  if (channels == 2) {
    PackContiguous(payload, stereo, size_t{frames} * 2, l24);
  } else {
    uint8_t *first = payload + 2 * pairIndex * bytes;
    PackRun(first, frameBytes, stereo, 2, 0, frames, l24);
    PackRun(first + bytes, frameBytes, stereo + 1, 2, 0, frames, l24);
  }
  return KVAUDIO_AOIP_OK;
}

template <typename T>
uint32_t UnpackPair(T *stereo, const uint8_t *payload, uint32_t encoding, uint32_t channels, uint32_t pairIndex,
                    uint32_t frames) {
  if (frames == 0) return KVAUDIO_AOIP_OK;
  const uint32_t r = CheckPair(payload, stereo, encoding, channels, pairIndex);
  if (r != KVAUDIO_AOIP_OK) return r;
  const bool l24 = encoding == 24;
  const size_t bytes = encoding / 8, frameBytes = bytes * channels;
  if (channels == 2) {
    UnpackContiguous(stereo, payload, size_t{frames} * 2, l24);
  } else {
    const uint8_t *first = payload + 2 * pairIndex * bytes;
    UnpackRun(stereo, 2, first, frameBytes, 0, frames, l24);
    UnpackRun(stereo + 1, 2, first + bytes, frameBytes, 0, frames, l24);
  }
  return KVAUDIO_AOIP_OK;
}

constexpr size_t kFloatBlock = 1024;

}  // namespace
}  // namespace kvaudio::network

using namespace kvaudio::network;

extern "C" {

uint32_t KVAudioAoipPack16(uint8_t *payload, const int16_t *samples, uint32_t encoding, uint32_t channels,
                           uint32_t frames) {
  return Pack(payload, samples, encoding, channels, frames);
}

uint32_t KVAudioAoipPack32(uint8_t *payload, const int32_t *samples, uint32_t encoding, uint32_t channels,
                           uint32_t frames) {
  return Pack(payload, samples, encoding, channels, frames);
}

uint32_t KVAudioAoipUnpack16(int16_t *samples, const uint8_t *payload, uint32_t encoding, uint32_t channels,
                             uint32_t frames) {
  return Unpack(samples, payload, encoding, channels, frames);
}

uint32_t KVAudioAoipUnpack32(int32_t *samples, const uint8_t *payload, uint32_t encoding, uint32_t channels,
                             uint32_t frames) {
  return Unpack(samples, payload, encoding, channels, frames);
}

// Floats go through a block of left-justified samples of the encoding's width.
uint32_t KVAudioAoipPackFloat(uint8_t *payload, const float *samples, uint32_t encoding, uint32_t channels,
                              uint32_t frames, KVAudioDither *dither) {
  if (frames == 0) return KVAUDIO_AOIP_OK;
  const uint32_t r = Check(payload, samples, encoding, channels);
  if (r != KVAUDIO_AOIP_OK) return r;
  const size_t count = size_t{frames} * channels, bytes = encoding / 8;
  int32_t block[kFloatBlock];
  for (size_t at = 0; at < count; at += kFloatBlock) {
    const size_t n = count - at < kFloatBlock ? count - at : kFloatBlock;
    KVAudioFloatToInt32(block, samples + at, static_cast<uint32_t>(n), encoding, dither);
    PackContiguous(payload + at * bytes, block, n, encoding == 24);
  }
  return KVAUDIO_AOIP_OK;
}

uint32_t KVAudioAoipUnpackFloat(float *samples, const uint8_t *payload, uint32_t encoding, uint32_t channels,
                                uint32_t frames) {
  if (frames == 0) return KVAUDIO_AOIP_OK;
  const uint32_t r = Check(payload, samples, encoding, channels);
  if (r != KVAUDIO_AOIP_OK) return r;
  const size_t count = size_t{frames} * channels, bytes = encoding / 8;
  int32_t block[kFloatBlock];
  for (size_t at = 0; at < count; at += kFloatBlock) {
    const size_t n = count - at < kFloatBlock ? count - at : kFloatBlock;
    UnpackContiguous(block, payload + at * bytes, n, encoding == 24);
    KVAudioInt32ToFloat(samples + at, block, static_cast<uint32_t>(n), encoding);
  }
  return KVAUDIO_AOIP_OK;
}

uint32_t KVAudioAoipPackPair16(uint8_t *payload, const int16_t *stereo, uint32_t encoding, uint32_t channels,
                               uint32_t pairIndex, uint32_t frames) {
  return PackPair(payload, stereo, encoding, channels, pairIndex, frames);
}

uint32_t KVAudioAoipPackPair32(uint8_t *payload, const int32_t *stereo, uint32_t encoding, uint32_t channels,
                               uint32_t pairIndex, uint32_t frames) {
  return PackPair(payload, stereo, encoding, channels, pairIndex, frames);
}

uint32_t KVAudioAoipUnpackPair16(int16_t *stereo, const uint8_t *payload, uint32_t encoding, uint32_t channels,
                                 uint32_t pairIndex, uint32_t frames) {
  return UnpackPair(stereo, payload, encoding, channels, pairIndex, frames);
}

uint32_t KVAudioAoipUnpackPair32(int32_t *stereo, const uint8_t *payload, uint32_t encoding, uint32_t channels,
                                 uint32_t pairIndex, uint32_t frames) {
  return UnpackPair(stereo, payload, encoding, channels, pairIndex, frames);
}

uint32_t KVAudioAoipPackPlanar32(uint8_t *payload, const int32_t *const *planes, uint32_t encoding,
                                 uint32_t channels, uint32_t frames) {
  if (frames == 0) return KVAUDIO_AOIP_OK;
  const uint32_t r = Check(payload, planes, encoding, channels);
  if (r != KVAUDIO_AOIP_OK) return r;
  const bool l24 = encoding == 24;
  const size_t bytes = encoding / 8, frameBytes = bytes * channels;
  static const int32_t kSilence = 0;
  for (uint32_t c = 0; c < channels; ++c) {
    if (planes[c]) PackRun(payload + c * bytes, frameBytes, planes[c], 1, 0, frames, l24);
    else PackRun(payload + c * bytes, frameBytes, &kSilence, 0, 0, frames, l24);
  }
  return KVAUDIO_AOIP_OK;
}

uint32_t KVAudioAoipUnpackPlanar32(int32_t *const *planes, const uint8_t *payload, uint32_t encoding,
                                   uint32_t channels, uint32_t frames) {
  if (frames == 0) return KVAUDIO_AOIP_OK;
  const uint32_t r = Check(payload, planes, encoding, channels);
  if (r != KVAUDIO_AOIP_OK) return r;
  const bool l24 = encoding == 24;
  const size_t bytes = encoding / 8, frameBytes = bytes * channels;
  for (uint32_t c = 0; c < channels; ++c)
    if (planes[c]) UnpackRun(planes[c], 1, payload + c * bytes, frameBytes, 0, frames, l24);
  return KVAUDIO_AOIP_OK;
}

}  // extern "C"
