// The 80-bit LTC frame: packing and unpacking of time address, user bits and flag bits.
#include <cstring>

#include "kvaudio/ltc.h"
#include "tcxlat.h"

namespace {

constexpr uint32_t kToStringFormat = 0x121200;  // frames-first BCD bytes, 24-hour wrap
constexpr uint32_t kToFrameFormat = 0x200;      // BCD time word in
constexpr uint32_t kDropFrame = 0x4;
constexpr uint32_t kLayout25 = 0x8;
constexpr int kDropBit = 10, kPolarity30 = 27, kLayout25Bit = 43, kPolarity25 = 59;

bool Bit(const uint8_t *b, int n) { return (b[n >> 3] >> (n & 7)) & 1; }

void SetBit(uint8_t *b, int n, bool v) {
  const uint8_t mask = static_cast<uint8_t>(1u << (n & 7));
  b[n >> 3] = static_cast<uint8_t>(v ? (b[n >> 3] | mask) : (b[n >> 3] & ~mask));
}

// Writes bit `n` so that the 64 data bits hold an odd number of zeros, which with the three zeros
// of the sync word makes the whole frame's count of zeros even.
void SetPolarityBit(uint8_t *b, int n) {
  SetBit(b, n, false);
  uint64_t data;
  std::memcpy(&data, b, sizeof data);
  const int zerosOfOthers = 63 - __builtin_popcountll(data);
  SetBit(b, n, zerosOfOthers & 1);
}

}  // namespace

uint8_t ReverseByte(uint8_t byte) {
  uint8_t out = 0;
  for (int i = 0; i < 8; ++i) out = static_cast<uint8_t>(out << 1 | ((byte >> i) & 1));
  return out;
}

void SMPTE_FRAME::SetFrame(uint32_t frameCount, uint32_t userBits, uint32_t flags) {
  uint8_t address[4] = {};  // frames, seconds, minutes, hours as two BCD digits each
  tc2String(frameCount, (flags & 0x100000FF) | kToStringFormat, address);
  for (int i = 0; i < 4; ++i) {
    const uint32_t units = address[i] & 0xF, tens = address[i] >> 4;
    bytes[2 * i] = static_cast<uint8_t>(units | ((userBits >> (8 * i)) & 0xF) << 4);
    bytes[2 * i + 1] = static_cast<uint8_t>(tens | ((userBits >> (8 * i + 4)) & 0xF) << 4);
  }
  SetBit(bytes, kDropBit, flags & kDropFrame);
  bytes[8] = 0xFC;
  bytes[9] = 0xBF;
  if (flags & kLayout25) {
    SetBit(bytes, kLayout25Bit, true);
    SetPolarityBit(bytes, kPolarity25);
  } else {
    SetBit(bytes, kPolarity25, true);
    SetPolarityBit(bytes, kPolarity30);
  }
}

uint32_t SMPTE_FRAME::DecodeFrame(uint32_t &frameCount, uint32_t &userBits, uint32_t &flags) const {
  flags = GetFlags(flags);
  frameCount = tc2Frame(GetTimeCodeBCD(), flags | kToFrameFormat);
  userBits = GetUserBits();
  return frameCount == TCXLAT_INVALID ? SMPTE_BAD_ADDRESS : 0;
}

uint32_t SMPTE_FRAME::GetTimeCodeBCD() const {
  const uint32_t hours = (bytes[7] & 0x3u) << 4 | (bytes[6] & 0xFu);
  const uint32_t minutes = (bytes[5] & 0x7u) << 4 | (bytes[4] & 0xFu);
  const uint32_t seconds = (bytes[3] & 0x7u) << 4 | (bytes[2] & 0xFu);
  const uint32_t frames = (bytes[1] & 0x3u) << 4 | (bytes[0] & 0xFu);
  return frames << 24 | seconds << 16 | minutes << 8 | hours;
}

uint32_t SMPTE_FRAME::GetUserBits() const {
  uint32_t word = 0;
  for (int i = 0; i < 4; ++i) {
    word |= static_cast<uint32_t>((bytes[2 * i + 1] & 0xF0) | bytes[2 * i] >> 4) << (8 * i);
  }
  return word;
}

uint32_t SMPTE_FRAME::GetFlags(uint32_t flags) const {
  const uint32_t f = flags & 0xFF;
  if (Bit(bytes, kDropBit)) return kDropFrame;
  if (f == kDropFrame) return kLayout25;  // drop-frame expected but not sent: read as 25 fps
  return f ? f : 2;
}

void SMPTE_FRAME::ReverseBits() {
  for (int i = 0; i < 5; ++i) {
    const uint8_t first = ReverseByte(bytes[i]);
    bytes[i] = ReverseByte(bytes[9 - i]);
    bytes[9 - i] = first;
  }
}
