// SMPTE 302M payloads: the 20-bit writers with their header and the three readers.
#include "kvaudio/aes3.h"
#include "frame/cpu.h"
#include "transport/smpte302m_avx2.h"
#include "transport/words.h"

namespace kvaudio::transport {
namespace {

constexpr uint32_t kSampleBytes20 = 3;

// Header bytes in their order of work; a channel count other than 2, 4, 6, 8 keeps the
// buffer's channel-count bits.
void Write302Header(uint8_t *buffer, uint32_t channels, uint8_t channelId, uint32_t frames) {
  buffer[0] = static_cast<uint8_t>((buffer[0] & 0xC0) | 0x10);  // alignment 0, 20 bits per sample
  if (channels == 2 || channels == 4 || channels == 6 || channels == 8)
    buffer[1] = static_cast<uint8_t>((buffer[1] & 0x3F) | (channels / 2 - 1) << 6);
  buffer[0] = static_cast<uint8_t>((buffer[0] & 0x3F) | channelId << 6);
  buffer[1] = static_cast<uint8_t>((buffer[1] & 0xC0) | channelId >> 2);
  const uint32_t packetBytes = frames * channels * kSampleBytes20;
  buffer[2] = static_cast<uint8_t>(packetBytes);
  buffer[3] = static_cast<uint8_t>(packetBytes >> 8);
}

// Left 20-bit value at the frame start, right (channels / 2) * 3 bytes later; V, U, C, F are 0.
template <typename T>
uint64_t Write302(uint8_t *buffer, const T *stereo, uint32_t channels, uint8_t channelId, uint32_t frames,
                  uint32_t (*to20)(T)) {
  Write302Header(buffer, channels, channelId, frames);
  uint8_t *left = buffer + kHeaderBytes + size_t{channelId} * sizeof(T);
  const size_t rightAt = size_t{channels / 2} * kSampleBytes20, frameBytes = size_t{channels} * kSampleBytes20;
  for (uint32_t f = 0; f < frames; ++f, left += frameBytes) {
    WriteStream(left, to20(stereo[2 * f]), kSampleBytes20);
    WriteStream(left + rightAt, to20(stereo[2 * f + 1]), kSampleBytes20);
  }
  return 0;
}

uint32_t From16(int16_t s) { return uint32_t{static_cast<uint16_t>(s)} << 4; }
uint32_t From32(uint32_t s) { return s >> 12; }

uint32_t Reverse(uint8_t b) { return BitReverseTable256[b]; }

// Every bit of both 24-bit samples of a 7-byte group: left in g0-g2, right in the low nibble of
// g3, g4, g5 and the high nibble of g6 (bits arrive least significant first).
void Deinterleave302Exact24Plain(uint32_t *stereo32, const uint8_t *g, size_t stride, size_t frames) {
  for (size_t f = 0; f < frames; ++f, g += stride) {
    stereo32[2 * f] = Reverse(g[0]) << 8 | Reverse(g[1]) << 16 | Reverse(g[2]) << 24;
    stereo32[2 * f + 1] = Reverse(g[3] & 0x0F) << 4 | Reverse(g[4]) << 12 | Reverse(g[5]) << 20 |
                          Reverse(g[6] & 0xF0) << 28;
  }
}

}  // namespace
}  // namespace kvaudio::transport

using namespace kvaudio::transport;

extern "C" {

uint64_t KVAudioInterleaveStereo16bitStereo_toAES_302_20bit(uint8_t *buffer, const int16_t *stereo16,
                                                             uint32_t channels, uint8_t channelId, uint32_t,
                                                             uint32_t frames) {
  return Write302(buffer, stereo16, channels, channelId, frames, From16);
}

uint64_t KVAudioInterleaveStereo32bitStereo_toAES_302_20bit(uint8_t *buffer, const uint32_t *stereo32,
                                                             uint32_t channels, uint8_t channelId, uint32_t,
                                                             uint32_t frames) {
  return Write302(buffer, stereo32, channels, channelId, frames, From32);
}

uint64_t KVAudioDeinterleaveAES_302_16bit_toStereo32(int16_t *stereo16, const uint8_t *buffer, uint32_t channels,
                                                      uint32_t channel, uint32_t frames) {
  const size_t groupBytes = kGroup16to16.bytes;
  ReadGroups(buffer + kHeaderBytes + size_t{channel / 2} * groupBytes, size_t{channels / 2} * groupBytes, frames,
             kGroup16to16, stereo16);
  return 0;
}

uint64_t KVAudioDeinterleaveAES_302_20bit_toStereo32(uint32_t *stereo32, const uint8_t *buffer, uint32_t channels,
                                                      uint32_t channel, uint32_t frames) {
  ReadGroups(buffer + kHeaderBytes + size_t{channel} * kSampleBytes20, size_t{channels} * kSampleBytes20, frames,
             kGroup20to32, stereo32);
  return 0;
}

// The right sample keeps its established reading on purpose: bits 4-7 from the left subframe's
// V, U, C, F positions (high nibble of b3), bits 8-11 zero, the low nibble of b3 unread.
uint64_t KVAudioDeinterleaveAES_302_24bit_toStereo32(uint32_t *stereo32, const uint8_t *buffer, uint32_t channels,
                                                      uint32_t channel, uint32_t frames) {
  const size_t groupBytes = kGroup24to32.bytes, stride = size_t{channels / 2} * groupBytes;
  const uint8_t *g = buffer + kHeaderBytes + size_t{channel / 2} * groupBytes;
  for (uint32_t f = 0; f < frames; ++f, g += stride) {
    stereo32[2 * f] = Reverse(g[0]) << 8 | Reverse(g[1]) << 16 | Reverse(g[2]) << 24;
    stereo32[2 * f + 1] = Reverse(g[3] & 0xF0) << 4 | Reverse(g[4]) << 12 | Reverse(g[5]) << 20 |
                          Reverse(g[6] & 0xF0) << 28;
  }
  return frames ? frames * channels * 4 : 0;
}

uint64_t KVAudioDeinterleaveAES_302_24bitExact_toStereo32(uint32_t *stereo32, const uint8_t *buffer,
                                                           uint32_t channels, uint32_t channel, uint32_t frames) {
  if (!stereo32 || !buffer || channels < 2) return 0;
  const size_t groupBytes = kGroup24to32.bytes, stride = size_t{channels / 2} * groupBytes;
  const uint8_t *g = buffer + kHeaderBytes + size_t{channel / 2} * groupBytes;
  size_t done = 0;
  if (frames >= 8 && stride * 8 < (size_t{1} << 31) && KVAudioCPUHasAVX2())
    done = Deinterleave302Exact24Avx2(stereo32, g, stride, frames);
  Deinterleave302Exact24Plain(stereo32 + 2 * done, g + done * stride, stride, frames - done);
  return frames ? uint64_t{frames} * channels * 4 : 0;
}

}  // extern "C"
