/* AES3 transport words, AESEBU bit-serial groups, packed 24-bit samples and SMPTE 302M payloads.
 *
 * AES3 word buffer: a 4-byte transport header (byte 0 = 0x80 | cadence phase, bytes 1-2 = frame
 * count little-endian, byte 3 = 0xFF), then frames of eight 32-bit words, one per slot 0-7.
 * Word bits: 0-2 slot, 3 block start, 4-27 audio (MSB at 27), 28 V, 29 U, 30 C, 31 P.
 * AESEBU group: one stereo pair as a bit stream, each subframe W audio bits LSB first then V, U,
 * C, P; stream bit q lies in byte q / 8 at bit 7 - q % 8. 5, 6 or 7 bytes for W = 16, 20, 24.
 * Packed 24-bit: 3 bytes a sample; read into 32-bit samples left-justified (low byte 0).
 * Counts are frames (sample periods) unless stated; a count of 0 writes nothing but the header
 * of the writers that have one. Buffers need only the alignment of their element type. */
#ifndef KVAUDIO_AES3_H
#define KVAUDIO_AES3_H

#include <stdint.h>

#include "kvaudio/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- AES3 word buffer: writers --------------------------------------------------------------
 * The header's phase is 0 when noCadence is non-zero, else ((cadence - 1) mod 5) + 1 in unsigned
 * 32-bit arithmetic (0 and 6 give 1). The first frame written by a call carries block start and
 * C = 1. Each returns 0. */

/* Interleaved 16-bit stereo into slots slot and slot + 1 (both modulo 8) of buffer frames
 * frameOffset.. frameOffset + frames - 1; audio in bits 12-27, even parity over bits 4-31.
 * Header count = frameOffset + frames (16 bits). The other six slots are not touched. */
KVAUDIO_API uint64_t KVAudioInterleave16toAES316(void *buffer, const int16_t *stereo16, uint32_t slot,
                                                 uint32_t frameOffset, uint32_t frames, uint32_t cadence,
                                                 uint8_t noCadence);
/* Packed 24-bit little-endian mono into slot `slot` (modulo 8) of frames frameOffset...; audio in
 * bits 4-27. P is cumulative: a running parity of all audio written by the call, XOR C. */
KVAUDIO_API uint64_t KVAudioInterleave24toAES324(void *buffer, const uint8_t *packed24, uint32_t slot,
                                                 uint32_t frameOffset, uint32_t frames, uint32_t cadence,
                                                 uint8_t noCadence);
/* Header and `frames` silent frames from frame 0: slot numbers only, frame 0 also block start,
 * C and P. The two give identical bytes. */
KVAUDIO_API uint64_t KVAudioZero16toAES316(void *buffer, uint32_t frames, uint32_t cadence, uint8_t noCadence);
KVAUDIO_API uint64_t KVAudioZero24toAES324Stereo(void *buffer, uint32_t frames, uint32_t cadence,
                                                 uint8_t noCadence);

/* ---- AES3 word buffer: readers (the 4-byte header is skipped) ------------------------------ */

/* Slots slot and slot + 1 of each frame to a 32-bit stereo pair, (word << 4) & 0xFFFFFF00;
 * frames are wordsPerFrame words apart. Returns 0. */
KVAUDIO_API uint64_t KVAudioDeinterleaveAES324to32(uint32_t *stereo32, const void *buffer, uint32_t slot,
                                                   uint32_t frames, uint32_t wordsPerFrame);
/* Each 8-word frame to four 16-bit stereo outputs (slots 0-1, 2-3, 4-5, 6-7), (word >> 12) &
 * 0xFFFF. A null output is skipped. Returns 0. */
KVAUDIO_API uint64_t KVAudioDeinterleaveAES316to16(const void *buffer, int16_t *out01, int16_t *out23,
                                                   int16_t *out45, int16_t *out67, uint32_t frames);

/* ---- AESEBU bit-serial groups --------------------------------------------------------------- */

/* 32-bit stereo (audio in bits 8-31) into whole blocks of a 4-byte header and 192 7-byte groups
 * (1348 bytes); a remainder below 192 frames is ignored. Header byte 0 keeps the buffer's phase
 * bits 0-2 unless resetPhase is non-zero (then 0x80). Returns input bytes consumed (1536 a block). */
KVAUDIO_API uint32_t KVAudioInterleave24toAESEBU24Stereo(uint8_t *blocks, const uint32_t *stereo32,
                                                         uint32_t frames, uint8_t resetPhase);
/* Pair pairIndex of a headerless stream of channels / 2 groups per frame to stereo: 16 bits; 16
 * bits in bits 16-31; 20 bits in bits 12-31; 24 bits in bits 8-31. V, U, C, P are ignored.
 * Each returns 0. */
KVAUDIO_API uint64_t KVAudioDeinterleave16AESEBUto16Stereo(const uint8_t *groups, int16_t *stereo16,
                                                           uint32_t pairIndex, uint32_t channels,
                                                           uint32_t frames);
KVAUDIO_API uint64_t KVAudioDeinterleave16AESEBUto32Stereo(const uint8_t *groups, uint32_t *stereo32,
                                                           uint32_t pairIndex, uint32_t channels,
                                                           uint32_t frames);
KVAUDIO_API uint64_t KVAudioDeinterleave20AESEBUto32Stereo(const uint8_t *groups, uint32_t *stereo32,
                                                           uint32_t pairIndex, uint32_t channels,
                                                           uint32_t frames);
KVAUDIO_API uint64_t KVAudioDeinterleave24AESEBUto32Stereo(const uint8_t *groups, uint32_t *stereo32,
                                                           uint32_t pairIndex, uint32_t channels,
                                                           uint32_t frames);

/* ---- Packed 24-bit readers (no header); bigEndian non-zero reads b0 as the top byte --------- */

/* Per frame the two samples at byte pairIndex * 6; frames are frameBytes bytes apart. Returns 0. */
KVAUDIO_API uint64_t KVAudioConvertAES324Stereoto32(uint32_t *stereo32, const uint8_t *packed, uint32_t frames,
                                                    uint32_t bigEndian, uint32_t pairIndex, uint32_t frameBytes);
/* Two mono sources to stereo (A left, B right). A starts at byte index * 6, B at its first byte;
 * both advance `stride` bytes a frame. Returns 0. */
KVAUDIO_API uint64_t KVAudioConvertAES324DualMonoto32(uint32_t *stereo32, const uint8_t *packedA,
                                                      const uint8_t *packedB, uint32_t frames, uint32_t bigEndian,
                                                      uint32_t index, uint32_t stride);
/* `count` contiguous samples to 32-bit mono. Returns 0. */
KVAUDIO_API uint64_t KVAudioConvertAES324Monoto32(uint32_t *mono32, const uint8_t *packed, uint32_t count,
                                                  uint32_t bigEndian);
/* Each packed sample (little- resp. big-endian) into element 2i + 1 of stereo32 when slot is 1,
 * element 2i otherwise; the other channel's elements are not written. Return 0. */
KVAUDIO_API uint64_t KVAudioReinterleaveAES3_24monoto32stereo(uint32_t *stereo32, const uint8_t *packed24,
                                                              uint32_t slot, uint32_t count);
KVAUDIO_API uint64_t KVAudioReinterleaveAES3_24monoto32stereo_BE(uint32_t *stereo32, const uint8_t *packed24,
                                                                 uint32_t slot, uint32_t count);
/* A mono run copied into the right (slot 1) or left (other slot) element of each stereo pair.
 * Source first. The 16-bit form rewrites the other channel's words with their own values; the
 * 32-bit form does not write them. Return 0. */
KVAUDIO_API uint64_t KVAudioReinterleaveAES3_16monoto16stereo(const int16_t *mono16, int16_t *stereo16,
                                                              uint32_t slot, uint32_t count);
KVAUDIO_API uint64_t KVAudioReinterleaveAES3_32monoto32stereo(const uint32_t *mono32, uint32_t *stereo32,
                                                              uint32_t slot, uint32_t count);

/* ---- SMPTE 302M payloads ---------------------------------------------------------------------
 * Header: the 302M header word stored little-endian: bits 4-5 = 1 (20-bit), 6-13 channel
 * identification, 14-15 channel-count code (2/4/6/8 channels -> 0-3; other counts keep the old
 * bits), 16-31 payload bytes frames * channels * 3. */

/* 16-bit stereo to a 20-bit payload (sample << 4). Left at payload byte channelId * 2 of each
 * frame, right (channels / 2) * 3 bytes later; frames are channels * 3 bytes apart. The header is
 * written even for 0 frames; `reserved` is not read. Returns 0. */
KVAUDIO_API uint64_t KVAudioInterleaveStereo16bitStereo_toAES_302_20bit(uint8_t *buffer, const int16_t *stereo16,
                                                                         uint32_t channels, uint8_t channelId,
                                                                         uint32_t reserved, uint32_t frames);
/* As above from 32-bit stereo (the sample's bits 12-31); left at payload byte channelId * 4. */
KVAUDIO_API uint64_t KVAudioInterleaveStereo32bitStereo_toAES_302_20bit(uint8_t *buffer, const uint32_t *stereo32,
                                                                         uint32_t channels, uint8_t channelId,
                                                                         uint32_t reserved, uint32_t frames);
/* Pair channel / 2 of each frame of a 16-bit payload to 16-bit stereo. Returns 0. */
KVAUDIO_API uint64_t KVAudioDeinterleaveAES_302_16bit_toStereo32(int16_t *stereo16, const uint8_t *buffer,
                                                                  uint32_t channels, uint32_t channel,
                                                                  uint32_t frames);
/* The group at payload byte channel * 3 of each 20-bit frame to 32-bit stereo in bits 12-31. */
KVAUDIO_API uint64_t KVAudioDeinterleaveAES_302_20bit_toStereo32(uint32_t *stereo32, const uint8_t *buffer,
                                                                  uint32_t channels, uint32_t channel,
                                                                  uint32_t frames);
/* Pair channel / 2 of a 24-bit payload to 32-bit stereo, audio in bits 8-31. Kept on purpose:
 * the right sample's four lowest audio bits are not read (its bits 8-11 are 0) and its bits 4-7
 * carry the left subframe's V, U, C, F bits. Returns frames * channels * 4 (32 bits). */
KVAUDIO_API uint64_t KVAudioDeinterleaveAES_302_24bit_toStereo32(uint32_t *stereo32, const uint8_t *buffer,
                                                                  uint32_t channels, uint32_t channel,
                                                                  uint32_t frames);

/* Pair channel / 2 of a 24-bit payload to 32-bit stereo, every bit of both samples in bits 8-31
 * (bits 0-7 are 0). Returns frames * channels * 4; 0 for a null pointer or fewer than 2 channels. */
KVAUDIO_API uint64_t KVAudioDeinterleaveAES_302_24bitExact_toStereo32(uint32_t *stereo32, const uint8_t *buffer,
                                                                       uint32_t channels, uint32_t channel,
                                                                       uint32_t frames);

#ifdef __cplusplus
}
#endif

#endif
