// RTP header writer and parser, and frames per packet time.
#include <cstdint>

#include "kvaudio/aoip.h"

extern "C" {

uint32_t KVAudioRtpWriteHeader(uint8_t *packet, uint32_t capacity, const KVAudioRtpHeader *header) {
  if (!packet || !header) return KVAUDIO_AOIP_NULL_BUFFER;
  if (header->payloadType > 127) return KVAUDIO_AOIP_BAD_PAYLOAD_TYPE;
  if (capacity < KVAUDIO_RTP_HEADER_BYTES) return KVAUDIO_AOIP_TOO_SMALL;
  const uint32_t words[3] = {0x80000000u | (header->marker ? 1u << 23 : 0u) | uint32_t{header->payloadType} << 16 |
                                 header->sequence,
                             header->timestamp, header->ssrc};
  for (int w = 0; w < 3; ++w)
    for (int b = 0; b < 4; ++b) packet[4 * w + b] = static_cast<uint8_t>(words[w] >> (24 - 8 * b));
  return KVAUDIO_AOIP_OK;
}

uint32_t KVAudioRtpParseHeader(const uint8_t *packet, uint32_t bytes, KVAudioRtpHeader *header) {
  if (!packet || !header) return KVAUDIO_AOIP_NULL_BUFFER;
  if (bytes < KVAUDIO_RTP_HEADER_BYTES) return KVAUDIO_AOIP_SHORT_PACKET;
  if (packet[0] >> 6 != 2) return KVAUDIO_AOIP_BAD_VERSION;
  auto be32 = [&](uint32_t at) {
    return uint32_t{packet[at]} << 24 | uint32_t{packet[at + 1]} << 16 | uint32_t{packet[at + 2]} << 8 | packet[at + 3];
  };
  // 64-bit sums: a 32-bit packet size plus CSRCs and an extension cannot wrap.
  uint64_t offset = KVAUDIO_RTP_HEADER_BYTES + 4u * (packet[0] & 0x0Fu);
  if ((packet[0] & 0x10) != 0) {
    if (offset + 4 > bytes) return KVAUDIO_AOIP_SHORT_PACKET;
    offset += 4 + 4 * uint64_t{be32(static_cast<uint32_t>(offset)) & 0xFFFFu};
  }
  if (offset > bytes) return KVAUDIO_AOIP_SHORT_PACKET;
  uint64_t padding = 0;
  if ((packet[0] & 0x20) != 0) {
    padding = packet[bytes - 1];
    if (padding == 0 || offset + padding > bytes) return KVAUDIO_AOIP_SHORT_PACKET;
  }
  header->marker = static_cast<uint8_t>(packet[1] >> 7);
  header->payloadType = static_cast<uint8_t>(packet[1] & 0x7F);
  header->sequence = static_cast<uint16_t>(packet[2] << 8 | packet[3]);
  header->timestamp = be32(4);
  header->ssrc = be32(8);
  header->payloadOffset = static_cast<uint32_t>(offset);
  header->payloadBytes = static_cast<uint32_t>(bytes - offset - padding);
  return KVAUDIO_AOIP_OK;
}

uint32_t KVAudioAoipFramesPerPacket(uint32_t rate, uint32_t microseconds, uint32_t *frames) {
  if (!frames) return KVAUDIO_AOIP_NULL_BUFFER;
  if (rate < 8000 || rate > 384000 || microseconds == 0) return KVAUDIO_AOIP_BAD_PACKET_TIME;
  // n = round(rate * us / 10^6); accepted when n periods last within half a microsecond of us,
  // i.e. |n * 10^6 - rate * us| * 2 <= rate.
  const uint64_t exact = uint64_t{rate} * microseconds;
  const uint64_t n = (exact + 500000) / 1000000;
  const uint64_t span = n * 1000000;
  const uint64_t error = span > exact ? span - exact : exact - span;
  if (n == 0 || n > 0xFFFFFFFFu || error * 2 > rate) return KVAUDIO_AOIP_BAD_PACKET_TIME;
  *frames = static_cast<uint32_t>(n);
  return KVAUDIO_AOIP_OK;
}

}  // extern "C"
