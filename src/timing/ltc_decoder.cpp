// LTC decoder: zero-crossing detectors, bit assembly against an adaptive period, sync and checks.
#include <cmath>
#include <cstring>

#include "frame/cpu.h"
#include "kvaudio/ltc.h"
#include "timing/ltc_decoder_avx2.h"
#include "timing/ltc_internal.h"

namespace {

constexpr int kFindZXEnd = 100;
constexpr uint16_t kSyncForward = 0xBFFC;
constexpr uint16_t kSyncBackward = 0x3FFD;  // the sync word as it arrives when played backwards
constexpr int32_t kSyncAfterBits = 69;
// Register contents after an accepted frame: no sync can match before 80 new bits.
constexpr uint64_t kRestartLow = 0x0040430300404303ull;
constexpr uint16_t kRestartTop = 0x4003;
constexpr uint32_t kBadCountAtLoad = 10;

struct Limits {
  int32_t period, mid, lo, hi;
};

// First period estimate of a sample rate: about 2160 bits a second.
constexpr Limits SetUpLimits(uint32_t rate) {
  const double n = rate / 2160.0;
  return {static_cast<int32_t>(n + 0.5), static_cast<int32_t>(0.75 * n + 0.5),
          static_cast<int32_t>(0.25 * n + 0.5), static_cast<int32_t>(1.25 * n)};
}

// Stores the rate and the period estimate and limits derived from it.
constexpr void SetRate(LtcDecoderState &d, uint32_t rate) {
  const Limits l = SetUpLimits(rate);
  d.sampleRate = rate;
  d.period = l.period;
  d.mid = l.mid;
  d.lo = l.lo;
  d.hi = l.hi;
}

// Load-time state: 16-bit mono at 44100 Hz.
constexpr LtcDecoderState InitialDecoder() {
  LtcDecoderState d{};
  d.current = &decoder.zx16;
  SetRate(d, 44100);
  return d;
}

// Signed sums and squares wrap modulo 2^32 instead of overflowing.
int32_t WrapAdd(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}
int32_t WrapSquare(int32_t a) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(a));
}

// Replaces the oldest entry of a ring (index steps first, then wraps) and updates its sum.
void PushRing(int32_t *ring, int32_t size, int32_t &index, int32_t &sum, int32_t value) {
  if (++index >= size) index = 0;
  sum = WrapAdd(WrapAdd(sum, -ring[index]), value);
  ring[index] = value;
}

void PushPeriodSquare(LtcDecoderState &d, int32_t square) {
  constexpr int32_t kSize = 9;
  PushRing(d.periodSquares, kSize, d.squareIndex, d.squareSum, square);
  d.squareMean = d.squareSum / kSize;
  d.rmsBusy = 1;
  const double rms = std::sqrt(std::fabs(static_cast<double>(d.squareSum)) / kSize);
  d.periodRms = d.squareSum < 0 ? -rms : rms;
  d.rmsBusy = 0;
  const int32_t n = static_cast<int32_t>(d.periodRms + 0.5);
  d.period = n;
  if (n <= 2) {
    d.lo = 0;
    d.mid = n / 2;
    d.hi = 2 * n + 2;
  } else {
    d.mid = (3 * n) >> 2;
    d.hi = 2 * d.mid;
    d.lo = (3 * n) / 12;
  }
}

void ShiftIn(LtcDecoderState &d, uint32_t bit, int32_t duration) {
  constexpr int32_t kBits = 80;
  PushRing(d.bitDurations, kBits, d.bitIndex, d.bitSum, duration);
  d.shiftLow = d.shiftLow >> 1 | static_cast<uint64_t>(d.shiftTop & 1) << 63;
  d.shiftTop = static_cast<uint16_t>(d.shiftTop >> 1 | bit << 15);
  ++d.bitCount;
}

SMPTE_FRAME RegisterFrame(const LtcDecoderState &d) {
  SMPTE_FRAME f;
  std::memcpy(f.bytes, &d.shiftLow, 8);
  std::memcpy(f.bytes + 8, &d.shiftTop, 2);
  return f;
}

uint32_t Field(const SMPTE_FRAME &f, int firstBit, int bits) {
  uint64_t data;
  std::memcpy(&data, f.bytes, sizeof data);
  return static_cast<uint32_t>(data >> firstBit) & ((1u << bits) - 1);
}

// Digit ranges of the time address and the polarity test.
bool Acceptable(const SMPTE_FRAME &f) {
  if (Field(f, 0, 4) > 9 || Field(f, 16, 4) > 9 || Field(f, 24, 3) > 5 || Field(f, 32, 4) > 9 ||
      Field(f, 40, 3) > 5 || Field(f, 48, 4) > 9)
    return false;
  uint64_t data;
  std::memcpy(&data, f.bytes, sizeof data);
  const uint32_t p = (1 + __builtin_popcountll(data)) & 1;
  return !(Field(f, 59, 1) != p && Field(f, 27, 1) == p);
}

void Validate(LtcDecoderState &d) {
  const SMPTE_FRAME f = RegisterFrame(d);
  if (!Acceptable(f)) return;
  d.lastFrame = f;
  d.frameReady = 1;
  d.shiftLow = kRestartLow;
  d.shiftTop = kRestartTop;
  d.bitCount = 0;
}

void RestartBits(LtcDecoderState &d) {
  d.pendingHalf = 0;
  d.bitCount = 0;
}

// One interval between crossings: period tracking, then a half bit, a one bit or a zero bit.
void TakeInterval(LtcDecoderState &d, int32_t len) {
  if (len > d.period) {
    PushPeriodSquare(d, WrapSquare(len));
  } else if (len < (d.period >> 1)) {
    PushPeriodSquare(d, WrapSquare(WrapAdd(len, len)));
  }
  if (len <= d.mid) {
    if (len < d.lo) {
      RestartBits(d);
    } else if (d.pendingHalf == 0) {
      d.pendingHalf = len;
    } else {
      ShiftIn(d, 1, WrapAdd(d.pendingHalf, len));
      d.pendingHalf = 0;
      if (d.bitCount > kSyncAfterBits && d.shiftTop == kSyncForward) Validate(d);
    }
    return;
  }
  if (len > d.hi || d.pendingHalf != 0) {
    RestartBits(d);
    return;
  }
  ShiftIn(d, 0, len);
  if (d.bitCount > kSyncAfterBits && (d.shiftLow & 0xFFFF) == kSyncBackward) {
    SMPTE_FRAME f = RegisterFrame(d);
    f.ReverseBits();
    std::memcpy(&d.shiftLow, f.bytes, 8);
    std::memcpy(&d.shiftTop, f.bytes + 8, 2);
    if (d.shiftTop == kSyncForward) Validate(d);
  }
}

// The channel value of sample frame i; buffers need no alignment.
template <typename S>
int ChannelValue(const typename S::Value *p, uint32_t i) {
  typename S::Value v;
  std::memcpy(&v, p + static_cast<size_t>(i) * S::kStride + S::kOffset, sizeof v);
  return v;
}

// Index of the first sample frame in [from, n) whose channel value meets the threshold that the
// detector's state waits for; n when there is none.
template <typename S>
uint32_t ScanPlain(const typename S::Value *p, uint32_t from, uint32_t n, bool waitHigh) {
  if (waitHigh) {
    for (uint32_t i = from; i < n; ++i)
      if (ChannelValue<S>(p, i) >= S::kHighAt) return i;
  } else {
    for (uint32_t i = from; i < n; ++i)
      if (ChannelValue<S>(p, i) < S::kLowBelow) return i;
  }
  return n;
}

// The kernel searches whole vectors; when they hold no crossing the plain scan finishes the rest.
template <typename S>
uint32_t Scan(const typename S::Value *p, uint32_t from, uint32_t n, bool waitHigh) {
  constexpr uint32_t kFramesPerVector = 32 / (sizeof(typename S::Value) * S::kStride);
  if (n - from >= kFramesPerVector && KVAudioCPUHasAVX2()) {
    const uint32_t wholeEnd = from + (n - from) / kFramesPerVector * kFramesPerVector;
    const int threshold = waitHigh ? S::kHighAt : S::kLowBelow;
    if constexpr (sizeof(typename S::Value) == 1) {
      from = kvaudio::ltc::FindCrossing8Avx2(p, from, n, S::kStride, S::kOffset, threshold, waitHigh);
    } else {
      from = kvaudio::ltc::FindCrossing16Avx2(p, from, n, S::kStride, S::kOffset, threshold, waitHigh);
    }
    if (from < wholeEnd) return from;
  }
  return ScanPlain<S>(p, from, n, waitHigh);
}

// Stereo detectors read the first channel of the pair when `first` is set, else the second.
CCrossDetector *DetectorFor(LtcDecoderState &d, bool eightBit, bool stereo, bool first) {
  if (eightBit) {
    if (!stereo) return &d.zx8;
    return first ? static_cast<CCrossDetector *>(&d.zx8L) : &d.zx8R;
  }
  if (!stereo) return &d.zx16;
  return first ? static_cast<CCrossDetector *>(&d.zx16L) : &d.zx16R;
}

}  // namespace

constinit LtcDecoderState decoder = InitialDecoder();

template <typename S>
void ZXDetect<S>::Reset() {
  state = 0;
  accumulated = 0;
  remaining = 0;
  cursor = nullptr;
}

template <typename S>
void ZXDetect<S>::NewBuffer(void *samples, int count) {
  cursor = static_cast<const typename S::Value *>(samples);
  remaining = samples && count > 0 ? static_cast<uint32_t>(count) : 0;
}

template <typename S>
int ZXDetect<S>::FindZX(int &interval, unsigned &consumed) {
  // A sample at index i counts only when interval + i > 1.
  const int64_t firstAllowed = 2 - static_cast<int64_t>(interval);
  const uint32_t from = firstAllowed <= 0 ? 0
                        : firstAllowed >= remaining ? remaining
                                                    : static_cast<uint32_t>(firstAllowed);
  const uint32_t i = Scan<S>(cursor, from, remaining, state == 0);
  if (i == remaining) {
    accumulated += remaining;
    if (cursor) cursor += static_cast<size_t>(remaining) * S::kStride;
    consumed = remaining;
    remaining = 0;
    return kFindZXEnd;
  }
  cursor += static_cast<size_t>(i + 1) * S::kStride;
  remaining -= i + 1;
  consumed = i + 1;
  interval = static_cast<int>(accumulated + i + 1);
  accumulated = 0;
  state ^= 1;
  return 0;
}

template class ZXDetect<CSample8>;
template class ZXDetect<CSample8L>;
template class ZXDetect<CSample8R>;
template class ZXDetect<CSample16>;
template class ZXDetect<CSample16L>;
template class ZXDetect<CSample16R>;

namespace kvaudio::ltc {

uint32_t m_dwBadCount = kBadCountAtLoad;
uint32_t m_dwTC = 0;

void SetUpDecoder(uint32_t rate, uint32_t bitsPerSample, int32_t stereo, int32_t channel) {
  if (rate == decoder.sampleRate) return;
  LtcDecoderState &d = decoder;
  d.current = DetectorFor(d, bitsPerSample == 8, stereo != 0, channel != 0);
  SetRate(d, rate);
  d.current->Reset();
}

void ResetDecoderForTesting() {
  decoder = InitialDecoder();
  m_dwBadCount = kBadCountAtLoad;
  m_dwTC = 0;
}

}  // namespace kvaudio::ltc

extern "C" {

void smpteDecodeSetBuffer(void *samples, int32_t count) { decoder.current->NewBuffer(samples, count); }

uint32_t smpteDecode(uint32_t *timecode, uint32_t *userBits, uint32_t *flags) {
  uint32_t spare[3] = {0, 0, 0};
  uint32_t &tc = timecode ? *timecode : spare[0];
  uint32_t &ub = userBits ? *userBits : spare[1];
  uint32_t &fl = flags ? *flags : spare[2];
  LtcDecoderState &d = decoder;
  d.frameReady = 0;
  bool seen = false;
  uint32_t total = 0;
  unsigned consumed = 0;
  while (d.current->FindZX(d.interval, consumed) != kFindZXEnd) {
    total += consumed;
    if (d.interval != 0) TakeInterval(d, d.interval);
    seen = true;
  }
  if (seen && d.lastFrame.bytes[8] == (kSyncForward & 0xFF) && d.lastFrame.bytes[9] == kSyncForward >> 8 &&
      Acceptable(d.lastFrame))
    d.frameReady = 1;
  d.position += total;
  if (tc == 0xFFFFFFFF) d.lastFrame.DecodeFrame(tc, ub, fl);
  if (!d.frameReady) return SMPTE_NO_FRAME;
  const uint32_t result = d.lastFrame.DecodeFrame(tc, ub, fl);
  if (result == 0) {
    kvaudio::ltc::m_dwBadCount = 0;
    kvaudio::ltc::m_dwTC = tc;
    d.position = 0;
  }
  return result;
}

}  // extern "C"
