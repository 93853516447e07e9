// AESEBU bit-serial pair groups: the 24-bit block writer and the four readers.
#include "kvaudio/aes3.h"
#include "transport/words.h"

namespace kvaudio::transport {
namespace {

constexpr uint32_t kBlockFrames = 192;
constexpr uint32_t kBlockBytes = kHeaderBytes + kBlockFrames * 7;  // 1348
constexpr uint32_t kBlockInputBytes = kBlockFrames * 8;            // 1536

// Groups of frame f start at pairIndex * G + f * stride.
template <typename T>
uint64_t ReadPair(const uint8_t *groups, T *stereo, uint32_t pairIndex, size_t stride, uint32_t frames,
                  GroupLayout g) {
  ReadGroups(groups + size_t{pairIndex} * g.bytes, stride, frames, g, stereo);
  return 0;
}

}  // namespace
}  // namespace kvaudio::transport

using namespace kvaudio::transport;

extern "C" {

uint32_t KVAudioInterleave24toAESEBU24Stereo(uint8_t *blocks, const uint32_t *stereo32, uint32_t frames,
                                             uint8_t resetPhase) {
  const uint32_t count = frames / kBlockFrames;
  for (uint32_t b = 0; b < count; ++b, blocks += kBlockBytes) {
    const uint8_t byte0 = resetPhase ? 0x80 : static_cast<uint8_t>((blocks[0] & 7) | 0x80);
    WriteTransportHeader(blocks, byte0, kBlockFrames);
    uint8_t *group = blocks + kHeaderBytes;
    for (uint32_t f = 0; f < kBlockFrames; ++f, group += 7, stereo32 += 2) {
      // 24 high bits of each sample; V, U, C and P stay 0.
      const uint64_t left = stereo32[0] >> 8, right = stereo32[1] >> 8;
      WriteStream(group, left | right << kGroup24to32.rightAt, 7);
    }
  }
  return count * kBlockInputBytes;
}

uint64_t KVAudioDeinterleave16AESEBUto16Stereo(const uint8_t *groups, int16_t *stereo16, uint32_t pairIndex,
                                               uint32_t channels, uint32_t frames) {
  return ReadPair(groups, stereo16, pairIndex, size_t{channels >> 1} * 5, frames, kGroup16to16);
}

uint64_t KVAudioDeinterleave16AESEBUto32Stereo(const uint8_t *groups, uint32_t *stereo32, uint32_t pairIndex,
                                               uint32_t channels, uint32_t frames) {
  return ReadPair(groups, stereo32, pairIndex, size_t{channels >> 1} * 5, frames, kGroup16to32);
}

uint64_t KVAudioDeinterleave20AESEBUto32Stereo(const uint8_t *groups, uint32_t *stereo32, uint32_t pairIndex,
                                               uint32_t channels, uint32_t frames) {
  return ReadPair(groups, stereo32, pairIndex, size_t{channels & ~1u} * 3, frames, kGroup20to32);
}

uint64_t KVAudioDeinterleave24AESEBUto32Stereo(const uint8_t *groups, uint32_t *stereo32, uint32_t pairIndex,
                                               uint32_t channels, uint32_t frames) {
  return ReadPair(groups, stereo32, pairIndex, size_t{channels >> 1} * 7, frames, kGroup24to32);
}

}  // extern "C"
