/* Interleave and deinterleave: interleaved multichannel PCM <-> stereo-pair buffers.
 * Counts are sample periods (one sample of every channel). Every function returns 0.
 * Pair k holds channels 2k and 2k+1; a 16-bit pair moves as one 32-bit unit, left sample first.
 * Source and destination must not overlap; no buffer needs any alignment. */
#ifndef KVAUDIO_INTERLEAVE_H
#define KVAUDIO_INTERLEAVE_H

#include <stdint.h>

#include "kvaudio/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* An audio buffer record of the host; the Array members read only `samples`. */
typedef struct KVAudioBuffer {
  void *samples;          /* sample memory */
  uint32_t capacityBytes; /* size of the sample memory */
  uint32_t validBytes;    /* bytes holding audio */
  uint32_t channels;      /* channels interleaved in the memory */
  uint32_t bitsPerSample; /* container width: 16 or 32 */
} KVAudioBuffer;

#ifdef __cplusplus
static_assert(sizeof(KVAudioBuffer) == 24, "KVAudioBuffer layout");
#else
_Static_assert(sizeof(KVAudioBuffer) == 24, "KVAudioBuffer layout");
#endif

/* ---- Deinterleave, four pairs (8 channels) ------------------------------------------------ */

/* 16-bit pairs as 32-bit units. A null pair takes no room in the source: the source period
 * holds only the present pairs, packed in pair order. */
KVAUDIO_API uint32_t AudioDeinterleave16to16(const uint32_t *src, uint32_t *pair0, uint32_t *pair1,
                                             uint32_t *pair2, uint32_t *pair3, uint32_t samples);
/* 32-bit containers copied unchanged; a null pair takes no room in the source. */
KVAUDIO_API uint32_t AudioDeinterleave32to32(const uint32_t *src, uint32_t *pair0, uint32_t *pair1,
                                             uint32_t *pair2, uint32_t *pair3, uint32_t samples);
/* Same body as AudioDeinterleave32to32. */
KVAUDIO_API uint32_t AudioDeinterleave24to24(const uint32_t *src, uint32_t *pair0, uint32_t *pair1,
                                             uint32_t *pair2, uint32_t *pair3, uint32_t samples);
/* Upper 16 bits of each 32-bit word. The source period is always 8 words; a null pair's words
 * are skipped. */
KVAUDIO_API uint32_t AudioDeinterleave24to16(const uint32_t *src, uint16_t *pair0, uint16_t *pair1,
                                             uint16_t *pair2, uint16_t *pair3, uint32_t samples);
/* Same body as AudioDeinterleave24to16. */
KVAUDIO_API uint32_t AudioDeinterleave32to16(const uint32_t *src, uint16_t *pair0, uint16_t *pair1,
                                             uint16_t *pair2, uint16_t *pair3, uint32_t samples);
/* Word AND 0xFFFFF000. The source period is always 8 words; a null pair's words are skipped. */
KVAUDIO_API uint32_t AudioDeinterleave24to20(const uint32_t *src, uint32_t *pair0, uint32_t *pair1,
                                             uint32_t *pair2, uint32_t *pair3, uint32_t samples);
/* Same body as AudioDeinterleave24to20. */
KVAUDIO_API uint32_t AudioDeinterleave32to20(const uint32_t *src, uint32_t *pair0, uint32_t *pair1,
                                             uint32_t *pair2, uint32_t *pair3, uint32_t samples);
/* Word with its lowest byte cleared; a null pair takes no room in the source. */
KVAUDIO_API uint32_t AudioDeinterleave32to24(const uint32_t *src, uint32_t *pair0, uint32_t *pair1,
                                             uint32_t *pair2, uint32_t *pair3, uint32_t samples);
/* Packed 24-bit little-endian samples to left-justified 32-bit words; a null pair takes no room. */
KVAUDIO_API uint32_t AudioDeinterleave24to32(const uint8_t *src, uint32_t *pair0, uint32_t *pair1,
                                             uint32_t *pair2, uint32_t *pair3, uint32_t samples);
/* 16-bit source of `channels` channels to 32-bit words holding the sample shifted left by 8.
 * Channels at or beyond `channels` are not written. */
KVAUDIO_API uint32_t AudioDeInterleave16to24(const uint16_t *src, uint32_t *pair0, uint32_t *pair1,
                                             uint32_t *pair2, uint32_t *pair3, uint32_t samples,
                                             uint32_t channels);
/* As AudioDeInterleave16to24 with the sample shifted left by 16. */
KVAUDIO_API uint32_t AudioDeInterleave16to32(const uint16_t *src, uint32_t *pair0, uint32_t *pair1,
                                             uint32_t *pair2, uint32_t *pair3, uint32_t samples,
                                             uint32_t channels);

/* ---- Deinterleave, eight pairs (16 channels) ---------------------------------------------- */

KVAUDIO_API uint32_t AudioDeinterleave16to16_16(const uint32_t *src, uint32_t *pair0, uint32_t *pair1,
                                                uint32_t *pair2, uint32_t *pair3, uint32_t *pair4,
                                                uint32_t *pair5, uint32_t *pair6, uint32_t *pair7,
                                                uint32_t samples);
KVAUDIO_API uint32_t AudioDeinterleave32to32_16(const uint32_t *src, uint32_t *pair0, uint32_t *pair1,
                                                uint32_t *pair2, uint32_t *pair3, uint32_t *pair4,
                                                uint32_t *pair5, uint32_t *pair6, uint32_t *pair7,
                                                uint32_t samples);
KVAUDIO_API uint32_t AudioDeinterleave32to16_16(const uint32_t *src, uint16_t *pair0, uint16_t *pair1,
                                                uint16_t *pair2, uint16_t *pair3, uint16_t *pair4,
                                                uint16_t *pair5, uint16_t *pair6, uint16_t *pair7,
                                                uint32_t samples);

/* ---- Deinterleave, array of buffer records ------------------------------------------------ */

/* The source period is pairCount pair units; a null entry (or null sample pointer) skips its
 * pair's data. */
KVAUDIO_API uint32_t AudioDeinterleave16to16Array(const uint32_t *src, KVAudioBuffer *const *pairs,
                                                  uint32_t pairCount, uint32_t samples);
KVAUDIO_API uint32_t AudioDeinterleave32to32Array(const uint32_t *src, KVAudioBuffer *const *pairs,
                                                  uint32_t pairCount, uint32_t samples);

/* ---- Interleave ----------------------------------------------------------------------------- */
/* Pair k goes to channels 2k and 2k+1 of each destination period of `channels` channels. A null
 * pair leaves its slot unwritten. With `channels` of 2 or less only pair 0 is taken. */

KVAUDIO_API uint32_t AudioInterleave16to16(uint16_t *dst, const uint16_t *pair0, const uint16_t *pair1,
                                           const uint16_t *pair2, const uint16_t *pair3,
                                           uint32_t samples, uint32_t channels);
KVAUDIO_API uint32_t AudioInterleave32to32(uint32_t *dst, const uint32_t *pair0, const uint32_t *pair1,
                                           const uint32_t *pair2, const uint32_t *pair3,
                                           uint32_t samples, uint32_t channels);
/* 16-bit pairs to 32-bit words holding the sample shifted left by 16. */
KVAUDIO_API uint32_t AudioInterleave16to24(uint32_t *dst, const uint16_t *pair0, const uint16_t *pair1,
                                           const uint16_t *pair2, const uint16_t *pair3,
                                           uint32_t samples, uint32_t channels);
/* Same body as AudioInterleave16to24. */
KVAUDIO_API uint32_t AudioInterleave16to32(uint32_t *dst, const uint16_t *pair0, const uint16_t *pair1,
                                           const uint16_t *pair2, const uint16_t *pair3,
                                           uint32_t samples, uint32_t channels);
/* 32-bit containers copied unchanged. */
KVAUDIO_API uint32_t AudioInterleave24to32(uint32_t *dst, const uint32_t *pair0, const uint32_t *pair1,
                                           const uint32_t *pair2, const uint32_t *pair3,
                                           uint32_t samples, uint32_t channels);
/* Same body as AudioInterleave24to32. */
KVAUDIO_API uint32_t AudioInterleave20to24(uint32_t *dst, const uint32_t *pair0, const uint32_t *pair1,
                                           const uint32_t *pair2, const uint32_t *pair3,
                                           uint32_t samples, uint32_t channels);
KVAUDIO_API uint32_t AudioInterleave20to32(uint32_t *dst, const uint32_t *pair0, const uint32_t *pair1,
                                           const uint32_t *pair2, const uint32_t *pair3,
                                           uint32_t samples, uint32_t channels);
KVAUDIO_API uint32_t AudioInterleave24to24(uint32_t *dst, const uint32_t *pair0, const uint32_t *pair1,
                                           const uint32_t *pair2, const uint32_t *pair3,
                                           uint32_t samples, uint32_t channels);

KVAUDIO_API uint32_t AudioInterleave16to16_16(uint16_t *dst, const uint16_t *pair0,
                                              const uint16_t *pair1, const uint16_t *pair2,
                                              const uint16_t *pair3, const uint16_t *pair4,
                                              const uint16_t *pair5, const uint16_t *pair6,
                                              const uint16_t *pair7, uint32_t samples,
                                              uint32_t channels);
KVAUDIO_API uint32_t AudioInterleave32to32_16(uint32_t *dst, const uint32_t *pair0,
                                              const uint32_t *pair1, const uint32_t *pair2,
                                              const uint32_t *pair3, const uint32_t *pair4,
                                              const uint32_t *pair5, const uint32_t *pair6,
                                              const uint32_t *pair7, uint32_t samples,
                                              uint32_t channels);
KVAUDIO_API uint32_t AudioInterleave16to32_16(uint32_t *dst, const uint16_t *pair0,
                                              const uint16_t *pair1, const uint16_t *pair2,
                                              const uint16_t *pair3, const uint16_t *pair4,
                                              const uint16_t *pair5, const uint16_t *pair6,
                                              const uint16_t *pair7, uint32_t samples,
                                              uint32_t channels);
KVAUDIO_API uint32_t AudioInterleave24to32_16(uint32_t *dst, const uint32_t *pair0,
                                              const uint32_t *pair1, const uint32_t *pair2,
                                              const uint32_t *pair3, const uint32_t *pair4,
                                              const uint32_t *pair5, const uint32_t *pair6,
                                              const uint32_t *pair7, uint32_t samples,
                                              uint32_t channels);

/* The destination period is pairCount pairs; a null entry leaves its slot unwritten. */
KVAUDIO_API uint32_t AudioInterleave16to16Array(uint16_t *dst, KVAudioBuffer *const *pairs,
                                                uint32_t pairCount, uint32_t samples);
KVAUDIO_API uint32_t AudioInterleave32to32Array(uint32_t *dst, KVAudioBuffer *const *pairs,
                                                uint32_t pairCount, uint32_t samples);

/* ---- Single pair, mono and dual mono ---------------------------------------------------------- */

/* Extracts pair pairIndex of an interleaved buffer of `channels` channels; bits 16 means 16-bit
 * samples, any other value 32-bit containers. With odd `channels` and 2*pairIndex+1 == channels
 * only the lone last channel moves. */
KVAUDIO_API uint32_t AudioDeinterleavePair(const void *src, void *dst, uint32_t pairIndex, uint32_t bits,
                                           uint32_t channels, uint32_t samples);
/* Writes pair pairIndex back into an interleaved buffer; other channels are left as they are. */
KVAUDIO_API uint32_t AudioInterleavePair(void *dst, const void *src, uint32_t pairIndex, uint32_t bits,
                                         uint32_t channels, uint32_t samples);
/* As AudioInterleavePair from a 16-bit pair to 32-bit words shifted left by 16; bits is unused. */
KVAUDIO_API uint32_t AudioInterleavePair16to32(void *dst, const void *src, uint32_t pairIndex,
                                               uint32_t bits, uint32_t channels, uint32_t samples);
/* Keeps the left sample of each 16-bit stereo pair. */
KVAUDIO_API uint32_t AudioDeinterleaveStereo2Mono(uint16_t *dst, const uint16_t *src, uint32_t samples);
/* Duplicates each mono sample into left and right; bits 8, 16, 20, 24 or 32 names the width. */
KVAUDIO_API uint32_t AudioInterleaveMono2Stereo(uint16_t *dst, uint16_t bits, uint32_t samples,
                                                const uint16_t *src);
/* Two 16-bit-family mono buffers (bits 8, 16, 20 or 24) to interleaved stereo of the same width. */
KVAUDIO_API uint32_t AudioInterleaveDualMono2Stereo16(void *dst, uint16_t bits, uint32_t samples,
                                                      const void *left, const void *right);
/* Two mono buffers (bits 16, 20, 24 or 32) to interleaved 32-bit stereo. */
KVAUDIO_API uint32_t AudioInterleaveDualMono2Stereo32(void *dst, uint8_t bits, uint32_t samples,
                                                      const void *left, const void *right);

#ifdef __cplusplus
}
#endif

#endif
