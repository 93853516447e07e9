/* Linear timecode (SMPTE 12M LTC): the 80-bit frame, the process-wide encoder and decoder.
 *
 * Encoder and decoder are global objects without a lock: callers serialise every smpte* call.
 * Rate flags: the low byte selects the rate (1 or 128 = 24 fps; 8 or 16 = 25; 2, 4, 32 or 64 =
 * 29.97; any other value = 30), bit 0x4 marks drop-frame and bit 0x8 selects the 25-frame bit
 * layout. At load time both run at 44100 Hz, 16-bit mono, rate flags 2.
 *
 * Behaviours kept on purpose:
 * - smpteSetup leaves the decoder, its detector included, untouched when the low 16 bits of the
 *   sample rate equal the rate it was last set up for (44100 at load). A change of width, layout
 *   or channel at the same rate therefore needs a set-up at another rate first.
 * - The decoder's polarity test accepts a frame unless bit 59 differs from
 *   p = (1 + ones among bits 0-63) mod 2 while bit 27 equals p. Every frame the encoder builds has
 *   p = 0, so a 30-frame-layout frame whose bit 27 is 0, or a 25-frame-layout frame whose bit 59
 *   is 1, is never accepted: about half of all frames are not reported new, and the buffer in
 *   which such a frame ends reports the previous good frame again.
 * - A frame played backwards is recognised only when its frame-units bit 0 is 0.
 * - smpteEncodeSetSpeed changes only the sizes that smpteRequiredBuffer reports; smpteEncode
 *   always writes at nominal speed. */
#ifndef KVAUDIO_LTC_H
#define KVAUDIO_LTC_H

#include <stddef.h>
#include <stdint.h>

#include "kvaudio/export.h"

/* smpteDecode result when no frame is reported. */
#define SMPTE_NO_FRAME 100u
/* SMPTE_FRAME::DecodeFrame (and smpteDecode) result when the time address is not a valid address
 * at the rate in use; the frame count is then 0xFFFFFFFF. */
#define SMPTE_BAD_ADDRESS 101u
/* smpteSetup result for a sample width other than 8 or 16 bits. */
#define SMPTE_BAD_WIDTH 10u

#ifdef __cplusplus
extern "C" {
#endif

/* Sets up encoder and decoder. sampleRate: only its low 16 bits are used (96000 becomes 30464).
 * bitsPerSample: 8 (unsigned) or 16 (signed). stereo non-zero: the decoder reads one channel of
 * an interleaved pair, the first when channel is non-zero, else the second. extra is unused.
 * Returns 0, or SMPTE_BAD_WIDTH with nothing changed. */
KVAUDIO_API uint32_t smpteSetup(int32_t sampleRate, uint32_t bitsPerSample, int32_t stereo,
                                int32_t channel, uint32_t rateFlags, uint32_t extra);

/* Largest output of one smpteEncode call with maxSamples 0xFFFFFFFF: in samples for 8-bit
 * output, in bytes for 16-bit output. Includes 80 samples per unit of positive speed. */
KVAUDIO_API uint32_t smpteRequiredBuffer(void);

/* Stores speed clamped to -5..5 (samples per bit) and restarts both bit serialisers. */
KVAUDIO_API void smpteEncodeSetSpeed(int64_t speed);

/* The speed stored by smpteEncodeSetSpeed; 0 after smpteSetup and after every smpteEncode. */
KVAUDIO_API int64_t smpteEncodeGetSpeed(void);

/* Writes one LTC frame of frameCount and userBits as mono samples into buffer, at most
 * maxSamples samples (0xFFFFFFFF: one whole frame). Returns samples written, in bytes for
 * 16-bit output, as a 16-bit count; 0 when buffer is null. A short buffer truncates the frame. */
KVAUDIO_API uint16_t smpteEncode(uint32_t frameCount, uint32_t userBits, uint8_t *buffer,
                                 uint32_t maxSamples);

/* Hands the decoder the next buffer: count sample frames of the layout chosen by smpteSetup.
 * A null buffer or a count below 1 is an empty buffer. */
KVAUDIO_API void smpteDecodeSetBuffer(void *samples, int32_t count);

/* Decodes the buffer to its end. Returns SMPTE_NO_FRAME when no frame is reported; otherwise the
 * last accepted frame is decoded into the outputs (timecode = frame count) and the result of
 * SMPTE_FRAME::DecodeFrame is returned. *flags is in/out (expected rate flags). A *timecode of
 * 0xFFFFFFFF on entry always receives the last accepted frame. Null outputs are ignored. */
KVAUDIO_API uint32_t smpteDecode(uint32_t *timecode, uint32_t *userBits, uint32_t *flags);

#ifdef __cplusplus
}

/* Returns byte with its eight bits in reverse order. */
KVAUDIO_API uint8_t ReverseByte(uint8_t byte);

/* One 80-bit LTC frame: byte 0 first on the wire, bit 0 of each byte first. Bits 64-79 hold
 * the sync word 0xBFFC. */
struct KVAUDIO_API SMPTE_FRAME {
  uint8_t bytes[10];

  /* Builds the frame of frameCount at the rate in flags, with the 32 user bits (group k in bits
   * 4(k-1)..4(k-1)+3), the drop-frame flag (0x4), the 25- (0x8) or 30-frame layout and the
   * polarity bit that leaves an even number of zeros in the 80 bits. */
  void SetFrame(uint32_t frameCount, uint32_t userBits, uint32_t flags);
  /* Reads the frame back: flags (in: expected rate flags) becomes GetFlags(flags). Returns 0, or
   * SMPTE_BAD_ADDRESS when the address is not valid at that rate (frameCount 0xFFFFFFFF). */
  uint32_t DecodeFrame(uint32_t &frameCount, uint32_t &userBits, uint32_t &flags) const;
  /* Time address as BCD: frames in bits 24-31, seconds 16-23, minutes 8-15, hours 0-7. */
  uint32_t GetTimeCodeBCD() const;
  /* The 32 user bits. */
  uint32_t GetUserBits() const;
  /* Effective rate flags: 4 for a drop-frame frame; else 8 when the low byte of flags is 4;
   * else that low byte, or 2 when it is 0. */
  uint32_t GetFlags(uint32_t flags) const;
  /* Reverses the order of all 80 bits in place. */
  void ReverseBits();
};
static_assert(sizeof(SMPTE_FRAME) == 10, "SMPTE_FRAME layout");

/* ---- Encoder ---------------------------------------------------------------------------------- */

/* Serialises the bits of one frame as a biphase-mark square wave. */
struct LtcBitWriter {
  uint32_t levelIndex;     /* which of the two output levels is written */
  uint32_t bitState;       /* 1 first half of a one bit, 2 zero bit or second half, 0 next bit */
  uint64_t firstHalf;      /* samples still to write in the present half bits */
  uint64_t secondHalf;
  SMPTE_FRAME frame;       /* the frame being sent */
  uint32_t bitLength;      /* samples per bit: integer part, fraction, its denominator, running sum */
  uint32_t bitFraction;
  uint32_t bitDenominator;
  uint32_t bitAccumulator;
  int32_t bitIndex;        /* bit being sent; above 79 when no frame is loaded */
};

/* State of the process-wide encoder `encoder`. */
struct LtcEncoderState {
  int16_t level16[2];      /* 16-bit output levels: 12288, -12289 */
  uint8_t level8[2];       /* 8-bit output levels: 0x00, 0xFF */
  LtcBitWriter writer16;   /* serialiser of 16-bit output */
  LtcBitWriter writer8;    /* serialiser of 8-bit output */
  uint32_t sampleRate;     /* low 16 bits of the set-up rate */
  uint32_t sixteenBit;     /* 1 for 16-bit output, 0 for 8-bit */
  uint32_t frameLength;    /* samples per frame: integer part, fraction, denominator, running sum */
  uint32_t frameFraction;
  uint32_t frameDenominator;
  uint32_t frameAccumulator;
  uint32_t frameSamples;   /* samples of the frame being sent */
  uint32_t baseBitLength;  /* samples per bit at speed 0 */
  int64_t speed;           /* -5..5 samples per bit */
  uint32_t rateFlags;
};

static_assert(sizeof(LtcBitWriter) == 56 && offsetof(LtcBitWriter, frame) == 24 &&
                  offsetof(LtcBitWriter, bitLength) == 36 && offsetof(LtcBitWriter, bitIndex) == 52,
              "LtcBitWriter layout");
static_assert(sizeof(LtcEncoderState) == 168 && offsetof(LtcEncoderState, writer16) == 8 &&
                  offsetof(LtcEncoderState, writer8) == 64 && offsetof(LtcEncoderState, sampleRate) == 120 &&
                  offsetof(LtcEncoderState, speed) == 152 && offsetof(LtcEncoderState, rateFlags) == 160,
              "LtcEncoderState layout");

KVAUDIO_API extern LtcEncoderState encoder;

/* ---- Decoder ---------------------------------------------------------------------------------- */

/* Sample layouts of the zero-crossing detectors: a frame of kStride values of Value, the channel
 * read at kOffset. The signal goes high at a sample >= kHighAt and low at a sample < kLowBelow. */
struct KVAUDIO_API CSample8 {
  typedef uint8_t Value;
  static constexpr int kStride = 1, kOffset = 0, kHighAt = 133, kLowBelow = 124;
};
struct KVAUDIO_API CSample8L {
  typedef uint8_t Value;
  static constexpr int kStride = 2, kOffset = 0, kHighAt = 133, kLowBelow = 124;
};
struct KVAUDIO_API CSample8R {
  typedef uint8_t Value;
  static constexpr int kStride = 2, kOffset = 1, kHighAt = 133, kLowBelow = 124;
};
struct KVAUDIO_API CSample16 {
  typedef int16_t Value;
  static constexpr int kStride = 1, kOffset = 0, kHighAt = 401, kLowBelow = -400;
};
struct KVAUDIO_API CSample16L {
  typedef int16_t Value;
  static constexpr int kStride = 2, kOffset = 0, kHighAt = 401, kLowBelow = -400;
};
struct KVAUDIO_API CSample16R {
  typedef int16_t Value;
  static constexpr int kStride = 2, kOffset = 1, kHighAt = 401, kLowBelow = -400;
};

/* Finds the transitions of a two-level signal in buffers handed over one after the other. */
class KVAUDIO_API CCrossDetector {
 public:
  /* Forgets the signal: low, nothing accumulated, no buffer. */
  virtual void Reset() = 0;
  /* Takes the next buffer of count sample frames; a null buffer or count below 1 is empty. */
  virtual void NewBuffer(void *samples, int count) = 0;
  /* Finds the next crossing; interval (in/out) is the distance in samples from the previous
   * crossing, consumed the samples read by this call. Returns 0, or 100 at the buffer end. */
  virtual int FindZX(int &interval, unsigned &consumed) = 0;
  constexpr virtual ~CCrossDetector() = default;
};

template <typename S>
class KVAUDIO_API ZXDetect : public CCrossDetector {
 public:
  constexpr ZXDetect() : state(0), accumulated(0), remaining(0), cursor(nullptr) {}
  void Reset() override;
  void NewBuffer(void *samples, int count) override;
  int FindZX(int &interval, unsigned &consumed) override;
  constexpr ~ZXDetect() override = default;

  uint8_t state;          /* 1 while the signal was last seen high */
  uint32_t accumulated;   /* samples since the last crossing, across buffers */
  uint32_t remaining;     /* sample frames left in the buffer */
  const typename S::Value *cursor;  /* first value of the next sample frame */
};

extern template class ZXDetect<CSample8>;
extern template class ZXDetect<CSample8L>;
extern template class ZXDetect<CSample8R>;
extern template class ZXDetect<CSample16>;
extern template class ZXDetect<CSample16L>;
extern template class ZXDetect<CSample16R>;

/* State of the process-wide decoder `decoder`. */
struct LtcDecoderState {
  ZXDetect<CSample8> zx8;
  ZXDetect<CSample8L> zx8L;
  ZXDetect<CSample8R> zx8R;
  ZXDetect<CSample16> zx16;
  ZXDetect<CSample16L> zx16L;
  ZXDetect<CSample16R> zx16R;
  CCrossDetector *current;    /* the detector chosen by smpteSetup */
  uint32_t sampleRate;        /* low 16 bits of the set-up rate */
  uint32_t position;          /* samples consumed since the last good decode */
  uint64_t shiftLow;          /* 80-bit shift register, bits 0-63 and 64-79; the newest bit */
  uint16_t shiftTop;          /* enters at bit 79 */
  SMPTE_FRAME lastFrame;      /* last accepted frame */
  uint8_t frameReady;
  int32_t period;             /* bit period in samples, and the interval limits derived from it */
  int32_t mid;
  int32_t lo;
  int32_t hi;
  int32_t interval;
  int32_t pendingHalf;        /* first half of a one bit, or 0 */
  int32_t bitCount;           /* bits shifted in since the last accepted frame or reset */
  int32_t bitDurations[80];   /* lengths of the last 80 bits, their ring index and sum */
  int32_t bitIndex;
  int32_t bitSum;
  int32_t periodSquares[9];   /* squares of the last 9 period estimates, index, sum, mean */
  int32_t squareIndex;
  int32_t squareSum;
  int32_t squareMean;
  double periodRms;
  uint8_t rmsBusy;            /* set while periodRms is recomputed */
};

/* The detectors carry a vtable pointer, so only sizes are checked here. */
static_assert(sizeof(ZXDetect<CSample8>) == 32 && sizeof(ZXDetect<CSample16R>) == 32, "ZXDetect layout");
static_assert(sizeof(LtcDecoderState) == 656, "LtcDecoderState layout");

KVAUDIO_API extern LtcDecoderState decoder;

#endif /* __cplusplus */

#endif
