/* Audio over IP: L16/L24 RTP payloads, RTP headers, packet times and a receiver that checks
 * sequence numbers and timestamps.
 *
 * Payload: big-endian samples of `encoding` bits (KVAUDIO_AOIP_L16 or KVAUDIO_AOIP_L24), the
 * channels of one sample period side by side, periods one after another; a period takes
 * channels * encoding / 8 bytes. Host samples are interleaved int16_t, int32_t left-justified
 * (20- or 24-bit audio in the top bits) or float (full scale [-1, 1), see float_pcm.h). Writing a
 * wider sample into a narrower payload keeps its top bits (truncation); reading a narrower payload
 * into a wider sample fills the low bits with 0. Counts are frames (sample periods); a count of 0
 * writes nothing. Channels run 1 to KVAUDIO_AOIP_MAX_CHANNELS. Buffers need only the alignment of
 * their element type. Every function returns one of the result codes below. */
#ifndef KVAUDIO_AOIP_H
#define KVAUDIO_AOIP_H

#include <stdint.h>

#include "kvaudio/export.h"
#include "kvaudio/float_pcm.h"

#ifdef __cplusplus
extern "C" {
#endif

#define KVAUDIO_AOIP_L16 16u
#define KVAUDIO_AOIP_L24 24u
#define KVAUDIO_AOIP_MAX_CHANNELS 64u
#define KVAUDIO_RTP_HEADER_BYTES 12u

/* Result codes; on any code but OK nothing is written to the caller's buffers. */
#define KVAUDIO_AOIP_OK 0u
#define KVAUDIO_AOIP_NULL_BUFFER 1u      /* a null buffer or record where one is needed */
#define KVAUDIO_AOIP_BAD_CHANNELS 2u     /* channels 0 or above 64, or a pair beyond them */
#define KVAUDIO_AOIP_BAD_ENCODING 3u     /* encoding neither 16 nor 24 */
#define KVAUDIO_AOIP_SHORT_PACKET 4u     /* under 12 bytes, or CSRCs, extension or padding past the end */
#define KVAUDIO_AOIP_BAD_VERSION 5u      /* RTP version other than 2 */
#define KVAUDIO_AOIP_PARTIAL_PERIOD 6u   /* payload empty or not a whole number of periods */
#define KVAUDIO_AOIP_BAD_PAYLOAD_TYPE 7u /* payload type above 127, or not the one expected */
#define KVAUDIO_AOIP_BAD_PACKET_TIME 8u  /* packet time not a whole number of periods, or a bad rate */
#define KVAUDIO_AOIP_TOO_SMALL 9u        /* the output buffer cannot hold the result */
#define KVAUDIO_AOIP_DUPLICATE 10u       /* a packet already received; dropped */
#define KVAUDIO_AOIP_LATE 11u            /* its samples were already pulled; dropped */
#define KVAUDIO_AOIP_BUFFER_FULL 12u     /* lands beyond the receiver's buffer; dropped */
#define KVAUDIO_AOIP_BAD_CONFIG 13u      /* receiver configuration out of range */
#define KVAUDIO_AOIP_FLOAT_BITS 14u      /* the float conversion refused its arguments */

/* ---- Payloads --------------------------------------------------------------------------------- */

/* Interleaved samples to a payload of frames * channels samples, and back. */
KVAUDIO_API uint32_t KVAudioAoipPack16(uint8_t *payload, const int16_t *samples, uint32_t encoding,
                                       uint32_t channels, uint32_t frames);
KVAUDIO_API uint32_t KVAudioAoipPack32(uint8_t *payload, const int32_t *samples, uint32_t encoding,
                                       uint32_t channels, uint32_t frames);
KVAUDIO_API uint32_t KVAudioAoipUnpack16(int16_t *samples, const uint8_t *payload, uint32_t encoding,
                                         uint32_t channels, uint32_t frames);
KVAUDIO_API uint32_t KVAudioAoipUnpack32(int32_t *samples, const uint8_t *payload, uint32_t encoding,
                                         uint32_t channels, uint32_t frames);
/* Float samples: rounded (with dither when it is non-null, advancing it by frames * channels)
 * and saturated to the encoding's width as KVAudioFloatToInt32 does; read back exactly. */
KVAUDIO_API uint32_t KVAudioAoipPackFloat(uint8_t *payload, const float *samples, uint32_t encoding,
                                          uint32_t channels, uint32_t frames, KVAudioDither *dither);
KVAUDIO_API uint32_t KVAudioAoipUnpackFloat(float *samples, const uint8_t *payload, uint32_t encoding,
                                            uint32_t channels, uint32_t frames);

/* One stereo pair: channels 2 * pairIndex and 2 * pairIndex + 1 of each period, to or from an
 * interleaved stereo buffer. Packing writes no other channel of the payload. */
KVAUDIO_API uint32_t KVAudioAoipPackPair16(uint8_t *payload, const int16_t *stereo, uint32_t encoding,
                                           uint32_t channels, uint32_t pairIndex, uint32_t frames);
KVAUDIO_API uint32_t KVAudioAoipPackPair32(uint8_t *payload, const int32_t *stereo, uint32_t encoding,
                                           uint32_t channels, uint32_t pairIndex, uint32_t frames);
KVAUDIO_API uint32_t KVAudioAoipUnpackPair16(int16_t *stereo, const uint8_t *payload, uint32_t encoding,
                                             uint32_t channels, uint32_t pairIndex, uint32_t frames);
KVAUDIO_API uint32_t KVAudioAoipUnpackPair32(int32_t *stereo, const uint8_t *payload, uint32_t encoding,
                                             uint32_t channels, uint32_t pairIndex, uint32_t frames);

/* Planar 32-bit buffers, one per channel (planes[c] holds frames samples). Packing a null plane
 * writes silence; unpacking into a null plane skips that channel. */
KVAUDIO_API uint32_t KVAudioAoipPackPlanar32(uint8_t *payload, const int32_t *const *planes, uint32_t encoding,
                                             uint32_t channels, uint32_t frames);
KVAUDIO_API uint32_t KVAudioAoipUnpackPlanar32(int32_t *const *planes, const uint8_t *payload, uint32_t encoding,
                                               uint32_t channels, uint32_t frames);

/* ---- RTP headers and packet times --------------------------------------------------------------- */

/* The fields of an RTP header. The writer reads marker (0 or non-zero), payloadType, sequence,
 * timestamp and ssrc; the parser fills every field. */
typedef struct KVAudioRtpHeader {
  uint8_t marker;
  uint8_t payloadType;   /* 0..127 */
  uint16_t sequence;
  uint32_t timestamp;    /* in sample periods */
  uint32_t ssrc;
  uint32_t payloadOffset; /* parser: bytes before the payload (12 + CSRCs + extension) */
  uint32_t payloadBytes;  /* parser: payload bytes, padding excluded */
} KVAudioRtpHeader;

#ifdef __cplusplus
static_assert(sizeof(KVAudioRtpHeader) == 20, "KVAudioRtpHeader layout");
#else
_Static_assert(sizeof(KVAudioRtpHeader) == 20, "KVAudioRtpHeader layout");
#endif

/* Writes the 12-byte header (version 2, no padding, extension or CSRC) at packet[0..11];
 * capacity is the bytes available there. */
KVAUDIO_API uint32_t KVAudioRtpWriteHeader(uint8_t *packet, uint32_t capacity, const KVAudioRtpHeader *header);
/* Reads the header of a packet of `bytes` bytes into *header, skipping CSRCs and a header
 * extension and leaving out padding. */
KVAUDIO_API uint32_t KVAudioRtpParseHeader(const uint8_t *packet, uint32_t bytes, KVAudioRtpHeader *header);
/* Frames in a packet time of `microseconds` at `rate` Hz (8000..384000): the whole number n of
 * periods whose duration rounds to that many microseconds (333 us at 48 kHz is 16 periods; 125 us
 * at 44.1 kHz is refused). */
KVAUDIO_API uint32_t KVAudioAoipFramesPerPacket(uint32_t rate, uint32_t microseconds, uint32_t *frames);

/* ---- Receiver ----------------------------------------------------------------------------------
 * Packets are placed by RTP timestamp into a buffer read out in order; periods no packet filled
 * are read as silence, so the output stays sample-aligned through loss and reordering. The first
 * packet lands at the read position. A packet whose timestamp disagrees with the one its sequence
 * number implies (previous timestamp + sequence distance * previous packet's frames) counts as a
 * timestamp jump and is placed where its sequence number implies. A sequence number more than
 * 1000 away from the highest seen restarts the stream right after the last period placed (also
 * counted as a timestamp jump). */

typedef struct KVAudioAoipReceiverConfig {
  uint32_t channels;        /* 1..64 */
  uint32_t encoding;        /* KVAUDIO_AOIP_L16 or KVAUDIO_AOIP_L24 */
  uint32_t payloadType;     /* 0..127; 128 or more accepts any */
  uint32_t framesPerPacket; /* 0 accepts any size */
  uint32_t bufferFrames;    /* 1..262144: periods the receiver holds ahead of the read position */
  uint32_t reserved;        /* 0 */
} KVAudioAoipReceiverConfig;

/* Counts since the receiver opened. lost = sequence numbers between the lowest and highest seen
 * that never arrived (late ones count as arrived); reordered = arrived below the highest sequence
 * number seen (late or not). */
typedef struct KVAudioAoipStats {
  uint64_t received;       /* packets placed */
  uint64_t duplicated;
  uint64_t reordered;
  uint64_t late;
  uint64_t lost;
  uint64_t timestampJumps;
  uint64_t malformed;      /* refused by the header, payload or configuration checks */
  uint64_t overflows;      /* refused with KVAUDIO_AOIP_BUFFER_FULL */
  uint64_t silentFrames;   /* periods pulled that no packet filled */
} KVAudioAoipStats;

#ifdef __cplusplus
static_assert(sizeof(KVAudioAoipReceiverConfig) == 24, "KVAudioAoipReceiverConfig layout");
static_assert(sizeof(KVAudioAoipStats) == 72, "KVAudioAoipStats layout");
#else
_Static_assert(sizeof(KVAudioAoipReceiverConfig) == 24, "KVAudioAoipReceiverConfig layout");
_Static_assert(sizeof(KVAudioAoipStats) == 72, "KVAudioAoipStats layout");
#endif

typedef struct KVAudioAoipReceiver KVAudioAoipReceiver;

/* A receiver for the configured stream, or null for a null or out-of-range configuration or a
 * failed allocation. */
KVAUDIO_API KVAudioAoipReceiver *KVAudioAoipReceiverOpen(const KVAudioAoipReceiverConfig *config);
/* Checks one packet and places its samples; DUPLICATE, LATE and BUFFER_FULL drop the packet. */
KVAUDIO_API uint32_t KVAudioAoipReceiverPush(KVAudioAoipReceiver *receiver, const uint8_t *packet, uint32_t bytes);
/* Periods from the read position to the end of the furthest packet placed; 0 before the first
 * packet or for a null receiver. */
KVAUDIO_API uint32_t KVAudioAoipReceiverAvailable(const KVAudioAoipReceiver *receiver);
/* Reads `frames` periods of interleaved left-justified samples (silence where nothing arrived)
 * and advances the read position. */
KVAUDIO_API uint32_t KVAudioAoipReceiverPull(KVAudioAoipReceiver *receiver, int32_t *samples, uint32_t frames);
KVAUDIO_API uint32_t KVAudioAoipReceiverGetStats(const KVAudioAoipReceiver *receiver, KVAudioAoipStats *stats);
/* Releases the receiver; null is ignored. */
KVAUDIO_API void KVAudioAoipReceiverClose(KVAudioAoipReceiver *receiver);

#ifdef __cplusplus
}
#endif

#endif
