// LTC encoder: one frame at a time as a biphase-mark square wave of 8- or 16-bit mono samples.
#include <algorithm>
#include <cstring>
#include <numeric>

#include "kvaudio/ltc.h"
#include "timing/ltc_internal.h"

namespace {

constexpr uint32_t kDefaultRate = 44100;
constexpr uint32_t kDefaultFlags = 2;
constexpr int kFrameBits = 80;
constexpr int32_t kNoFrame = 81;
constexpr int64_t kMaxSpeed = 5;

struct FrameRate {
  uint32_t framesPerSecond;  // per 1001 s when rateTimes1001
  uint32_t bitsPerSecond;
  bool rateTimes1001;
};

constexpr FrameRate RateOf(uint32_t rateFlags) {
  constexpr FrameRate k24{24, 1920, false}, k25{25, 2000, false}, k30{30, 2400, false},
      k2997{30000, 2400000, true};
  const uint32_t r = rateFlags & 0xFF;
  if (r > 64) return r == 128 ? k24 : k30;
  if (r == 1) return k24;
  if (r == 2 || r == 4 || r == 32 || r == 64) return k2997;
  if (r == 8 || r == 16) return k25;
  return k30;
}

// factor / per as an integer part and a reduced fraction.
struct Split {
  uint32_t whole, numerator, denominator;
};

constexpr Split Divide(uint32_t factor, uint32_t per) {
  const uint32_t g = std::gcd(factor, per), n = factor / g, d = per / g;
  return {n / d, n % d, d};
}

constexpr void RestartWriter(LtcBitWriter &w, uint32_t bitLength) {
  w.bitLength = bitLength;
  w.bitAccumulator = 0;
  w.bitIndex = kNoFrame;
}

// Samples per frame and per bit from the stored rate and rate flags, at speed 0. The frame
// accumulator runs on, so frame lengths follow their cadence from call to call.
constexpr void ApplyTiming(LtcEncoderState &e) {
  const FrameRate rate = RateOf(e.rateFlags);
  const uint32_t factor = rate.rateTimes1001 ? e.sampleRate * 1001 : e.sampleRate;
  e.speed = 0;
  e.frameSamples = 0;
  const Split frame = Divide(factor, rate.framesPerSecond);
  e.frameLength = frame.whole;
  e.frameFraction = frame.numerator;
  e.frameDenominator = frame.denominator;
  const Split bit = Divide(factor, rate.bitsPerSecond);
  e.baseBitLength = bit.whole;
  for (LtcBitWriter *w : {&e.writer16, &e.writer8}) {
    w->bitFraction = bit.numerator;
    w->bitDenominator = bit.denominator;
    RestartWriter(*w, bit.whole);
  }
}

constexpr LtcEncoderState InitialEncoder() {
  constexpr SMPTE_FRAME kSyncOnly{{0, 0, 0, 0, 0, 0, 0, 0, 0xFC, 0xBF}};
  LtcEncoderState e{};
  e.level16[0] = 0x3000;
  e.level16[1] = static_cast<int16_t>(0xCFFF - 0x10000);
  e.level8[0] = 0x00;
  e.level8[1] = 0xFF;
  e.writer16.frame = kSyncOnly;
  e.writer8.frame = kSyncOnly;
  e.sampleRate = kDefaultRate;
  e.sixteenBit = 1;
  e.rateFlags = kDefaultFlags;
  ApplyTiming(e);
  return e;
}

uint32_t OneFrameSamples(const LtcEncoderState &e) {
  uint32_t n = e.frameLength + (e.frameFraction != 0 ? 1 : 0);
  if (e.speed > 0) n += static_cast<uint32_t>(kFrameBits * e.speed);
  return n;
}

// Loads the halves of the next bit; the bit length carries the running fraction.
void StartBit(LtcBitWriter &w) {
  uint32_t len = w.bitLength;
  w.bitAccumulator += w.bitFraction;
  if (w.bitAccumulator >= w.bitDenominator) {
    w.bitAccumulator -= w.bitDenominator;
    ++len;
  }
  const bool one = (w.frame.bytes[w.bitIndex >> 3] >> (w.bitIndex & 7)) & 1;
  w.firstHalf = one ? len / 2 : 0;
  w.secondHalf = one ? len - len / 2 : len;
  w.bitState = one ? 1 : 2;
  ++w.bitIndex;
}

// Writes the loaded frame as samples of type T at most `room` samples; the level toggles at every
// bit boundary and in the middle of a one bit. Returns the samples written.
template <typename T>
uint32_t WriteFrame(LtcBitWriter &w, const T *levels, uint8_t *out, uint32_t room) {
  uint32_t n = 0;
  for (;;) {
    if (w.bitState == 0) {
      if (w.bitIndex >= kFrameBits) break;
      StartBit(w);
    }
    uint64_t &half = w.bitState == 1 ? w.firstHalf : w.secondHalf;
    const uint32_t count = static_cast<uint32_t>(std::min<uint64_t>(half, room - n));
    const T level = levels[w.levelIndex];
    for (uint32_t k = 0; k < count; ++k) std::memcpy(out + (n + k) * sizeof(T), &level, sizeof(T));
    n += count;
    half -= count;
    if (half != 0) return n;  // out of room: the rest of the frame is dropped
    w.levelIndex ^= 1;
    w.bitState = w.bitState == 1 ? 2 : 0;
  }
  if (room - n == 1 && n > 0) {
    std::memcpy(out + n * sizeof(T), out + (n - 1) * sizeof(T), sizeof(T));
    ++n;
  }
  return n;
}

}  // namespace

constinit LtcEncoderState encoder = InitialEncoder();

namespace kvaudio::ltc {
void ResetEncoderForTesting() { encoder = InitialEncoder(); }
}  // namespace kvaudio::ltc

extern "C" {

uint32_t smpteSetup(int32_t sampleRate, uint32_t bitsPerSample, int32_t stereo, int32_t channel,
                    uint32_t rateFlags, uint32_t /*extra*/) {
  if (((bitsPerSample - 8) & 0xF7) != 0) return SMPTE_BAD_WIDTH;
  const uint32_t rate = static_cast<uint16_t>(sampleRate);
  kvaudio::ltc::SetUpDecoder(rate, bitsPerSample, stereo, channel);
  encoder.sampleRate = rate;
  encoder.rateFlags = rateFlags;
  encoder.sixteenBit = bitsPerSample == 16 ? 1 : 0;
  ApplyTiming(encoder);
  return 0;
}

uint32_t smpteRequiredBuffer(void) {
  const uint32_t n = OneFrameSamples(encoder);
  return encoder.sixteenBit ? 2 * n : n;
}

void smpteEncodeSetSpeed(int64_t speed) {
  encoder.speed = std::clamp<int64_t>(speed, -kMaxSpeed, kMaxSpeed);
  const uint32_t bitLength = encoder.baseBitLength + static_cast<uint32_t>(encoder.speed);
  RestartWriter(encoder.writer16, bitLength);
  RestartWriter(encoder.writer8, bitLength);
}

int64_t smpteEncodeGetSpeed(void) { return encoder.speed; }

uint16_t smpteEncode(uint32_t frameCount, uint32_t userBits, uint8_t *buffer, uint32_t maxSamples) {
  if (!buffer) return 0;
  if (maxSamples == 0xFFFFFFFF) maxSamples = OneFrameSamples(encoder);
  ApplyTiming(encoder);  // resets the speed: the waveform is always sent at nominal speed
  encoder.frameAccumulator += encoder.frameFraction;
  encoder.frameSamples = encoder.frameLength;
  if (encoder.frameAccumulator >= encoder.frameDenominator) {
    encoder.frameAccumulator -= encoder.frameDenominator;
    ++encoder.frameSamples;
  }
  LtcBitWriter &w = encoder.sixteenBit ? encoder.writer16 : encoder.writer8;
  w.frame.SetFrame(frameCount, userBits, encoder.rateFlags & 0xA000FF);
  w.bitIndex = 0;
  w.bitState = 0;
  const uint32_t written = encoder.sixteenBit ? 2 * WriteFrame(w, encoder.level16, buffer, maxSamples)
                                              : WriteFrame(w, encoder.level8, buffer, maxSamples);
  return static_cast<uint16_t>(written);
}

}  // extern "C"
