// AES3 word buffer: 16- and 24-bit writers, silent frames and the two readers.
#include "kvaudio/aes3.h"

#include "frame/cpu.h"
#include "transport/aes3_avx2.h"
#include "transport/words.h"

namespace kvaudio::transport {
namespace {

constexpr uint32_t kFrameBytes = 32;
constexpr uint32_t kBlockStart = 1u << 3;
constexpr uint32_t kChannelStatus = 1u << 30;
constexpr int kParityShift = 31;

// Header byte 0: bit 7 set, the cadence phase (0 when noCadence, else 1-5) in bits 0-2.
uint8_t HeaderByte0(uint32_t cadence, uint8_t noCadence) {
  const uint32_t phase = noCadence ? 0 : (cadence - 1) % 5 + 1;
  return static_cast<uint8_t>(0x80 | phase);
}

// Popcount of the 24 bits 4-27 of a word, from the byte table.
uint32_t AudioBitCount(uint32_t word) {
  const uint32_t audio = (word >> 4) & 0xFFFFFF;
  return VposBitPop[audio & 0xFF] + VposBitPop[(audio >> 8) & 0xFF] + VposBitPop[audio >> 16];
}

// Control bits of a word at `slot` in the call's first frame or a later one.
uint32_t ControlBits(uint32_t slot, uint32_t first) {
  return (slot & 7) | (first ? kBlockStart | kChannelStatus : 0);
}

// 16-bit sample into a complete word: audio in bits 12-27, even parity over bits 4-31.
uint32_t Word16(int16_t sample, uint32_t slot, uint32_t first) {
  const uint32_t audio = uint32_t{static_cast<uint16_t>(sample)} << 12;
  const uint32_t parity = (AudioBitCount(audio) + first) & 1;
  return audio | ControlBits(slot, first) | parity << kParityShift;
}

// Silent frames from frame 0; frame 0 carries block start, C and hence P.
void ZeroFrames(void *buffer, uint32_t frames, uint32_t cadence, uint8_t noCadence) {
  uint8_t *out = static_cast<uint8_t *>(buffer);
  WriteTransportHeader(out, HeaderByte0(cadence, noCadence), frames);
  out += kHeaderBytes;
  for (uint32_t f = 0; f < frames; ++f)
    for (uint32_t s = 0; s < 8; ++s) {
      const uint32_t first = f == 0;
      StoreWord(out + (f * 8 + s) * 4, ControlBits(s, first) | first << kParityShift);
    }
}

// Frames [from, frames) of the 16-bit reader; a null output is skipped.
void DeinterleaveAES316to16Plain(const uint8_t *words, int16_t *const outs[4], size_t from, size_t frames) {
  for (size_t f = from; f < frames; ++f)
    for (int k = 0; k < 4; ++k) {
      if (!outs[k]) continue;
      for (int c = 0; c < 2; ++c)
        outs[k][2 * f + c] = static_cast<int16_t>((LoadWord(words + f * kFrameBytes + (2 * k + c) * 4) >> 12) & 0xFFFF);
    }
}

}  // namespace
}  // namespace kvaudio::transport

using namespace kvaudio::transport;

extern "C" {

uint64_t KVAudioInterleave16toAES316(void *buffer, const int16_t *stereo16, uint32_t slot, uint32_t frameOffset,
                                     uint32_t frames, uint32_t cadence, uint8_t noCadence) {
  uint8_t *out = static_cast<uint8_t *>(buffer);
  WriteTransportHeader(out, HeaderByte0(cadence, noCadence), frameOffset + frames);
  for (uint32_t i = 0; i < frames; ++i) {
    uint8_t *frame = out + kHeaderBytes + size_t{frameOffset + i} * kFrameBytes;
    const uint32_t first = i == 0;
    StoreWord(frame + (slot & 7) * 4, Word16(stereo16[2 * i], slot, first));
    StoreWord(frame + ((slot + 1) & 7) * 4, Word16(stereo16[2 * i + 1], slot + 1, first));
  }
  return 0;
}

uint64_t KVAudioInterleave24toAES324(void *buffer, const uint8_t *packed24, uint32_t slot, uint32_t frameOffset,
                                     uint32_t frames, uint32_t cadence, uint8_t noCadence) {
  uint8_t *out = static_cast<uint8_t *>(buffer);
  WriteTransportHeader(out, HeaderByte0(cadence, noCadence), frameOffset + frames);
  uint32_t running = 0;  // parity of all audio written so far in this call
  for (uint32_t i = 0; i < frames; ++i, packed24 += 3) {
    const uint32_t first = i == 0;
    const uint32_t audio = uint32_t{packed24[0]} << 4 | uint32_t{packed24[1]} << 12 | uint32_t{packed24[2]} << 20;
    running = (running + AudioBitCount(audio)) & 1;
    const uint32_t word = audio | ControlBits(slot, first) | (running ^ first) << kParityShift;
    StoreWord(out + kHeaderBytes + size_t{frameOffset + i} * kFrameBytes + (slot & 7) * 4, word);
  }
  return 0;
}

uint64_t KVAudioZero16toAES316(void *buffer, uint32_t frames, uint32_t cadence, uint8_t noCadence) {
  ZeroFrames(buffer, frames, cadence, noCadence);
  return 0;
}

// Cumulative parity over all-zero audio leaves P equal to C, so the 16-bit body serves.
uint64_t KVAudioZero24toAES324Stereo(void *buffer, uint32_t frames, uint32_t cadence, uint8_t noCadence) {
  ZeroFrames(buffer, frames, cadence, noCadence);
  return 0;
}

uint64_t KVAudioDeinterleaveAES324to32(uint32_t *stereo32, const void *buffer, uint32_t slot, uint32_t frames,
                                       uint32_t wordsPerFrame) {
  const uint8_t *frame = static_cast<const uint8_t *>(buffer) + kHeaderBytes + size_t{slot} * 4;
  for (uint32_t f = 0; f < frames; ++f, frame += size_t{wordsPerFrame} * 4) {
    stereo32[2 * f] = (LoadWord(frame) << 4) & 0xFFFFFF00;
    stereo32[2 * f + 1] = (LoadWord(frame + 4) << 4) & 0xFFFFFF00;
  }
  return 0;
}

uint64_t KVAudioDeinterleaveAES316to16(const void *buffer, int16_t *out01, int16_t *out23, int16_t *out45,
                                       int16_t *out67, uint32_t frames) {
  const uint8_t *words = static_cast<const uint8_t *>(buffer) + kHeaderBytes;
  int16_t *const outs[4] = {out01, out23, out45, out67};
  size_t done = 0;
  if (out01 && out23 && out45 && out67 && KVAudioCPUHasAVX2())
    done = KVAudioDeinterleaveAES316to16Avx2(words, outs, frames);
  DeinterleaveAES316to16Plain(words, outs, done, frames);
  return 0;
}

}  // extern "C"
