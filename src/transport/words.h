// Helpers shared by the AES3, AESEBU and 302M writers and readers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "transport/tables.h"

namespace kvaudio::transport {

constexpr uint32_t kHeaderBytes = 4;

// Writes the transport header: byte 0, the little-endian 16-bit frame count and 0xFF.
inline void WriteTransportHeader(uint8_t *buffer, uint8_t byte0, uint32_t frames) {
  buffer[0] = byte0;
  buffer[1] = static_cast<uint8_t>(frames);
  buffer[2] = static_cast<uint8_t>(frames >> 8);
  buffer[3] = 0xFF;
}

inline uint32_t LoadWord(const uint8_t *p) {
  uint32_t w;
  std::memcpy(&w, p, sizeof w);
  return w;
}

inline void StoreWord(uint8_t *p, uint32_t w) { std::memcpy(p, &w, sizeof w); }

// Bit-serial groups: stream position q lies in byte q / 8 at bit 7 - q % 8. These convert
// between group bytes and a value whose bit q is stream position q.
inline uint64_t ReadStream(const uint8_t *group, int bytes) {
  uint64_t stream = 0;
  for (int k = 0; k < bytes; ++k) stream |= uint64_t{BitReverseTable256[group[k]]} << (8 * k);
  return stream;
}

inline void WriteStream(uint8_t *group, uint64_t stream, int bytes) {
  for (int k = 0; k < bytes; ++k) group[k] = BitReverseTable256[(stream >> (8 * k)) & 0xFF];
}

// A bit-serial pair group: its size, audio width, the right subframe's first stream position,
// and the left shift that places the audio in the output sample.
struct GroupLayout {
  int bytes;
  int width;
  int rightAt;
  int shift;
};

constexpr GroupLayout kGroup16to16{5, 16, 20, 0};
constexpr GroupLayout kGroup16to32{5, 16, 20, 16};
constexpr GroupLayout kGroup20to32{6, 20, 24, 12};
constexpr GroupLayout kGroup24to32{7, 24, 28, 8};

// Reads one group a frame, `stride` bytes apart, into interleaved stereo samples of type T.
template <typename T>
void ReadGroups(const uint8_t *group, size_t stride, uint32_t frames, GroupLayout g, T *stereo) {
  const uint64_t mask = (uint64_t{1} << g.width) - 1;
  for (uint32_t f = 0; f < frames; ++f, group += stride) {
    const uint64_t stream = ReadStream(group, g.bytes);
    stereo[2 * f] = static_cast<T>((stream & mask) << g.shift);
    stereo[2 * f + 1] = static_cast<T>(((stream >> g.rightAt) & mask) << g.shift);
  }
}

// Packed 24-bit sample to a left-justified 32-bit sample, little- or big-endian.
inline uint32_t Packed24To32(const uint8_t *p, bool bigEndian) {
  return bigEndian ? uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8
                   : uint32_t{p[2]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[0]} << 8;
}

}  // namespace kvaudio::transport
