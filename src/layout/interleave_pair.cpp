// Single-pair, mono and dual-mono members of the interleave family.
#include <algorithm>

#include "kvaudio/interleave.h"
#include "layout/interleave_avx2.h"
#include "layout/interleave_loops.h"

namespace kvaudio::layout {
namespace {

// A two-channel buffer moved whole: copy kernel for whole blocks, then the support copy.
// Returns the periods moved (all of them).
template <typename T>
size_t Straight(T *dst, const T *src, size_t samples) {
  const size_t bytes = samples * 2 * sizeof(T);
  auto *out = reinterpret_cast<uint8_t *>(dst);
  const auto *in = reinterpret_cast<const uint8_t *>(src);
  const size_t done = KVAudioCPUHasAVX2() ? AudioPairCopyAvx2(out, in, bytes) : 0;
  kvOSCopyMemory(out + done, in + done, bytes - done);
  return samples;
}

// 16-bit stereo to 32-bit stereo: the kernel takes whole blocks, the caller's loop the rest.
size_t Straight(uint32_t *dst, const uint16_t *src, size_t samples) {
  return KVAudioCPUHasAVX2() ? KVAudioStereo16ToStereo32Avx2(dst, src, samples) : 0;
}

// Where pair pairIndex sits in periods of `channels`: both channels, or the left alone when
// it is the incomplete last pair. False when the pair lies wholly beyond `channels`.
bool PairSlot(uint32_t pairIndex, uint32_t channels, size_t &offset, size_t &count) {
  offset = 2 * size_t{pairIndex};
  if (offset >= channels) return false;
  count = std::min<size_t>(2, channels - offset);
  return true;
}

template <typename T>
uint32_t SplitPair(const void *src, void *dst, uint32_t pairIndex, uint32_t channels, uint32_t samples) {
  size_t offset, count;
  if (!src || !dst || !PairSlot(pairIndex, channels, offset, count)) return 0;
  auto *out = static_cast<T *>(dst);
  const auto *in = static_cast<const T *>(src);
  const size_t done = channels == 2 ? Straight(out, in, samples) : 0;
  const SplitLane<Copy<T>> lane{out, offset, count};
  SplitLanes(in, channels, 2, &lane, 1, done, samples);
  return 0;
}

template <class F>
uint32_t JoinPair(void *dst, const void *src, uint32_t pairIndex, uint32_t channels, uint32_t samples) {
  size_t offset, count;
  if (!src || !dst || !PairSlot(pairIndex, channels, offset, count)) return 0;
  auto *out = static_cast<typename F::Out *>(dst);
  const auto *in = static_cast<const typename F::In *>(src);
  const size_t done = channels == 2 ? Straight(out, in, samples) : 0;
  const JoinLane<F> lane{in, offset, count};
  JoinLanes(out, channels, 2, &lane, 1, done, samples);
  return 0;
}

template <class F>
using MonoKernel = size_t (*)(typename F::Out *, const typename F::In *, const typename F::In *, size_t);

// Left and right mono buffers to stereo. A null side leaves its channel unwritten; the kernel
// runs only with both sides present.
template <class F>
uint32_t JoinMono(void *dst, const void *left, const void *right, uint32_t samples, MonoKernel<F> kernel) {
  if (!dst) return 0;
  auto *out = static_cast<typename F::Out *>(dst);
  const auto *l = static_cast<const typename F::In *>(left);
  const auto *r = static_cast<const typename F::In *>(right);
  const size_t done = l && r && kernel && KVAudioCPUHasAVX2() ? kernel(out, l, r, samples) : 0;
  for (size_t i = done; i < samples; ++i) {
    if (l) StoreAt(out + 2 * i, F::Get(l, i));
    if (r) StoreAt(out + 2 * i + 1, F::Get(r, i));
  }
  return 0;
}

// Same-width stereo from mono sources: 8-bit bytes, 16-bit words, 20/24-bit packed in three
// bytes, 32-bit words. Other widths write nothing.
uint32_t JoinMonoSameWidth(void *dst, unsigned bits, uint32_t samples, const void *left, const void *right) {
  switch (bits) {
    case 8:
      return JoinMono<Copy8>(dst, left, right, samples, nullptr);
    case 16:
      return JoinMono<Copy16>(dst, left, right, samples, AudioInterleaveDualMono16toStereo16Avx2);
    case 20:
    case 24:
      return JoinMono<Copy24>(dst, left, right, samples, nullptr);
    case 32:
      return JoinMono<Copy32>(dst, left, right, samples, AudioInterleaveDualMono32toStereo32Avx2);
    default:
      return 0;
  }
}

}  // namespace
}  // namespace kvaudio::layout

using namespace kvaudio::layout;

extern "C" {

uint32_t AudioDeinterleavePair(const void *src, void *dst, uint32_t pairIndex, uint32_t bits, uint32_t channels,
                               uint32_t samples) {
  return bits == 16 ? SplitPair<uint16_t>(src, dst, pairIndex, channels, samples)
                    : SplitPair<uint32_t>(src, dst, pairIndex, channels, samples);
}

uint32_t AudioInterleavePair(void *dst, const void *src, uint32_t pairIndex, uint32_t bits, uint32_t channels,
                             uint32_t samples) {
  return bits == 16 ? JoinPair<Copy16>(dst, src, pairIndex, channels, samples)
                    : JoinPair<Copy32>(dst, src, pairIndex, channels, samples);
}

uint32_t AudioInterleavePair16to32(void *dst, const void *src, uint32_t pairIndex, uint32_t, uint32_t channels,
                                   uint32_t samples) {
  return JoinPair<Widen16<16>>(dst, src, pairIndex, channels, samples);
}

uint32_t AudioDeinterleaveStereo2Mono(uint16_t *dst, const uint16_t *src, uint32_t samples) {
  if (!dst || !src) return 0;
  const size_t done = KVAudioCPUHasAVX2() ? AudioDeinterleaveStereo2MonoAvx2(dst, src, samples) : 0;
  for (size_t i = done; i < samples; ++i) StoreAt(dst + i, Copy16::Get(src, 2 * i));
  return 0;
}

uint32_t AudioInterleaveMono2Stereo(uint16_t *dst, uint16_t bits, uint32_t samples, const uint16_t *src) {
  return src ? JoinMonoSameWidth(dst, bits, samples, src, src) : 0;
}

uint32_t AudioInterleaveDualMono2Stereo16(void *dst, uint16_t bits, uint32_t samples, const void *left,
                                          const void *right) {
  return JoinMonoSameWidth(dst, bits, samples, left, right);
}

uint32_t AudioInterleaveDualMono2Stereo32(void *dst, uint8_t bits, uint32_t samples, const void *left,
                                          const void *right) {
  switch (bits) {
    case 16:
      return JoinMono<Widen16<16>>(dst, left, right, samples, AudioInterleaveDualMono16toStereo32Avx2);
    case 20:
    case 24:
    case 32:
      return JoinMono<Copy32>(dst, left, right, samples, AudioInterleaveDualMono32toStereo32Avx2);
    default:
      return 0;
  }
}

}  // extern "C"
