// Channel remap in place with optional per-pair peak and RMS words.
#include "kvaudio/remap.h"

#include <bit>
#include <cmath>
#include <cstring>

#include "frame/cpu.h"
#include "kvutil.h"
#include "layout/remap_avx2.h"

namespace kvaudio::layout {
namespace {

constexpr uint32_t kMaxChannels = 32;
constexpr uint32_t kTooManyChannels = 0xFFFFFFFF;
constexpr uint32_t kPeakLimit = 0x7FFF0000;

// Sample widths: load sign-extended, store truncated; levelShift left-justifies to 32 bits.
struct Width32 {
  static constexpr size_t kBytes = 4;
  static constexpr int kLevelShift = 0;
  static int32_t Load(const uint8_t *p) {
    int32_t v;
    std::memcpy(&v, p, 4);
    return v;
  }
  static void Store(uint8_t *p, uint32_t v) { std::memcpy(p, &v, 4); }
};

struct Width24 {
  static constexpr size_t kBytes = 3;
  static constexpr int kLevelShift = 8;
  static int32_t Load(const uint8_t *p) {
    const uint32_t v = uint32_t{p[0]} << 8 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 24;
    return static_cast<int32_t>(v) >> 8;  // sign bit 23
  }
  static void Store(uint8_t *p, uint32_t v) {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
    p[2] = static_cast<uint8_t>(v >> 16);
  }
};

struct Width16 {
  static constexpr size_t kBytes = 2;
  static constexpr int kLevelShift = 16;
  static int32_t Load(const uint8_t *p) {
    int16_t v;
    std::memcpy(&v, p, 2);
    return v;
  }
  static void Store(uint8_t *p, uint32_t v) {
    const uint16_t s = static_cast<uint16_t>(v);
    std::memcpy(p, &s, 2);
  }
};

// Sample addresses of one interleaved buffer.
struct Interleaved {
  uint8_t *base;
  uint32_t channels;
  uint8_t *At(size_t period, uint32_t c, size_t bytes) const { return base + (period * channels + c) * bytes; }
};

// Sample addresses of stereo-pair buffers; a null pair buffer has none.
struct Paired {
  void *const *pairs;
  uint8_t *At(size_t period, uint32_t c, size_t bytes) const {
    uint8_t *pair = static_cast<uint8_t *>(pairs[c >> 1]);
    return pair ? pair + (period * 2 + (c & 1)) * bytes : nullptr;
  }
};

// Running peak magnitude and sum of squares of each channel's left-justified written samples.
class Levels {
 public:
  void Add(uint32_t c, int32_t sample) {
    const uint32_t magnitude = sample < 0 ? 0u - static_cast<uint32_t>(sample) : static_cast<uint32_t>(sample);
    if (magnitude > peak_[c]) peak_[c] = magnitude;
    sum_[c] += static_cast<double>(sample) * static_cast<double>(sample);
  }

  // Word k packs pair k: even channel in the low half, odd in the high half.
  void Write(uint32_t *peaks, uint32_t *rms, uint32_t channels, uint32_t samples) const {
    for (uint32_t c = 0; c < channels; ++c) {
      const int shift = (c & 1) * 16;
      if (peaks) peaks[c >> 1] |= ((peak_[c] > kPeakLimit ? kPeakLimit : peak_[c]) >> 15) << shift;
      if (rms) {
        const uint32_t root = static_cast<uint32_t>(std::sqrt(sum_[c] / samples));
        rms[c >> 1] |= ((root >> 15) & 0xFFFF) << shift;
      }
    }
  }

 private:
  uint32_t peak_[kMaxChannels] = {};
  double sum_[kMaxChannels] = {};
};

// Each destination is the wrapping sum of its sources, each divided by the bit count first.
template <typename W, typename Layout>
void RemapPlain(Layout layout, uint32_t channels, size_t from, uint32_t samples, const uint32_t *map,
                Levels *levels) {
  int32_t count[kMaxChannels];
  for (uint32_t c = 0; c < channels; ++c) count[c] = std::popcount(map[c]);
  int32_t source[kMaxChannels] = {};  // bits at or above `channels` read these zeros
  for (size_t i = from; i < samples; ++i) {
    for (uint32_t c = 0; c < channels; ++c) {
      const uint8_t *p = layout.At(i, c, W::kBytes);
      source[c] = p ? W::Load(p) : 0;
    }
    for (uint32_t c = 0; c < channels; ++c) {
      uint32_t sum = 0;
      for (uint32_t bits = map[c]; bits; bits &= bits - 1)
        sum += static_cast<uint32_t>(source[std::countr_zero(bits)] / count[c]);
      if (uint8_t *p = layout.At(i, c, W::kBytes)) W::Store(p, sum);
      if (levels) levels->Add(c, static_cast<int32_t>(sum << W::kLevelShift));
    }
  }
}

// Source channel of each destination when every mask has exactly one bit below `channels`.
bool OneBitSources(const uint32_t *map, uint32_t channels, uint32_t source[kMaxChannels]) {
  for (uint32_t c = 0; c < channels; ++c) {
    if (!std::has_single_bit(map[c]) || std::countr_zero(map[c]) >= static_cast<int>(channels)) return false;
    source[c] = static_cast<uint32_t>(std::countr_zero(map[c]));
  }
  return true;
}

// Runs a kernel over whole vectors for a one-bit map; returns the periods done (0 to decline).
size_t RemapKernel(uint8_t *buffer, size_t sampleBytes, uint32_t channels, uint32_t samples, const uint32_t *map) {
  uint32_t source[kMaxChannels];
  if (!OneBitSources(map, channels, source)) return 0;
  const size_t periodBytes = sampleBytes * channels;
  if (sampleBytes == 4 && channels == 8) {
    int32_t index[8];
    for (int c = 0; c < 8; ++c) index[c] = static_cast<int32_t>(source[c]);
    return AudioRemap32Bit8Avx2(reinterpret_cast<uint32_t *>(buffer), samples, index);
  }
  if (periodBytes == 32 || periodBytes == 64) {
    const size_t vectors = periodBytes / 32;
    uint8_t control[2 * 2 * 2 * 32];
    for (size_t out = 0; out < periodBytes; ++out) {
      const size_t within = out % sampleBytes;
      const size_t from = source[out / sampleBytes] * sampleBytes + within;
      const size_t j = out / 32, b = out % 32, order = (from % 32) / 16 != b / 16;
      for (size_t i = 0; i < vectors; ++i)
        for (size_t k = 0; k < 2; ++k)
          control[((j * vectors + i) * 2 + k) * 32 + b] =
              i == from / 32 && k == order ? static_cast<uint8_t>(from % 16) : 0x80;
    }
    return RemapCrossLaneAvx2(buffer, samples, vectors, control);
  }
  if (periodBytes > 16) return 0;
  const size_t laneBytes = 16 / periodBytes * periodBytes;
  uint8_t control[16];
  for (size_t b = 0; b < 16; ++b) {
    const size_t within = b % periodBytes;
    const size_t from = b - within + source[within / sampleBytes] * sampleBytes + within % sampleBytes;
    control[b] = static_cast<uint8_t>(b < laneBytes ? from : b);
  }
  return RemapLaneShuffleAvx2(buffer, size_t{samples} * periodBytes, laneBytes, control) / periodBytes;
}

bool Rejected(const void *first, uint32_t channels, uint32_t check, uint32_t samples, const uint32_t *map) {
  return !first || channels < 2 || !check || !samples || !map;
}

// Validation, level set-up and the plain loop shared by every form; `kernel` runs first when
// no levels are asked for and AVX2 is usable, and returns the periods it finished.
template <typename W, typename Layout, typename Kernel>
uint32_t Remap(Layout layout, const void *first, uint32_t channels, uint32_t check, uint32_t samples,
               const uint32_t *map, uint32_t *peaks, uint32_t *rms, const char *tooMany, Kernel kernel) {
  if (Rejected(first, channels, check, samples, map)) return 0;
  if (channels > kMaxChannels) {
    ErrFmtOut(0xC0000000, 0, 0, "ERROR(audRemapping): %s\n\r", tooMany);
    return kTooManyChannels;
  }
  if (!peaks && !rms) {
    const size_t done = KVAudioCPUHasAVX2() ? kernel() : 0;
    RemapPlain<W>(layout, channels, done, samples, map, nullptr);
    return channels >> 1;
  }
  if (peaks) kvOSZeroMemory(peaks, channels * sizeof *peaks);
  if (rms) kvOSZeroMemory(rms, channels * sizeof *rms);
  Levels levels;
  RemapPlain<W>(layout, channels, 0, samples, map, &levels);
  levels.Write(peaks, rms, channels, samples);
  return channels >> 1;
}

template <typename W>
uint32_t RemapInterleaved(void *buffer, uint32_t channels, uint32_t check, uint32_t samples, const uint32_t *map,
                          uint32_t *peaks, uint32_t *rms, const char *tooMany) {
  uint8_t *base = static_cast<uint8_t *>(buffer);
  return Remap<W>(Interleaved{base, channels}, buffer, channels, check, samples, map, peaks, rms, tooMany,
                  [=] { return RemapKernel(base, W::kBytes, channels, samples, map); });
}

template <typename W>
uint32_t RemapPairs(void *const *pairs, uint32_t channels, uint32_t check, uint32_t samples, const uint32_t *map,
                    uint32_t *peaks, uint32_t *rms, const char *tooMany) {
  if (!pairs) return 0;
  return Remap<W>(Paired{pairs}, pairs[0], channels, check, samples, map, peaks, rms, tooMany,
                  [] { return size_t{0}; });
}

}  // namespace
}  // namespace kvaudio::layout

using namespace kvaudio::layout;

extern "C" {

uint32_t AudioRemap32Bit(void *buffer, uint32_t channels, uint32_t check, uint32_t samples, const uint32_t *map,
                         uint32_t *peaks, uint32_t *rms) {
  return RemapInterleaved<Width32>(buffer, channels, check, samples, map, peaks, rms,
                                   "AudioRemap32Bit too many channels ");
}

uint32_t AudioRemap24Bit(void *buffer, uint32_t channels, uint32_t check, uint32_t samples, const uint32_t *map,
                         uint32_t *peaks, uint32_t *rms) {
  return RemapInterleaved<Width24>(buffer, channels, check, samples, map, peaks, rms,
                                   "AudioRemap24Bit too many channels ");
}

uint32_t AudioRemap16Bit(void *buffer, uint32_t channels, uint32_t check, uint32_t samples, const uint32_t *map,
                         uint32_t *peaks, uint32_t *rms) {
  return RemapInterleaved<Width16>(buffer, channels, check, samples, map, peaks, rms,
                                   "AudioRemap16Bit too many channels ");
}

uint32_t AudioRemap32BitPairs(void *const *pairs, uint32_t channels, uint32_t check, uint32_t samples,
                              const uint32_t *map, uint32_t *peaks, uint32_t *rms) {
  return RemapPairs<Width32>(pairs, channels, check, samples, map, peaks, rms,
                             "AudioRemap32BitPairs too many channels ");
}

uint32_t AudioRemap24BitPairs(void *const *pairs, uint32_t channels, uint32_t check, uint32_t samples,
                              const uint32_t *map, uint32_t *peaks, uint32_t *rms) {
  return RemapPairs<Width24>(pairs, channels, check, samples, map, peaks, rms,
                             "AudioRemap24BitPairs too many channels ");
}

// The 16-bit Pairs form reports with the 32-bit Pairs text on purpose.
uint32_t AudioRemap16BitPairs(void *const *pairs, uint32_t channels, uint32_t check, uint32_t samples,
                              const uint32_t *map, uint32_t *peaks, uint32_t *rms) {
  return RemapPairs<Width16>(pairs, channels, check, samples, map, peaks, rms,
                             "AudioRemap32BitPairs too many channels ");
}

}  // extern "C"
