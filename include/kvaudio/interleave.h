/* Interleave and deinterleave: interleaved multichannel PCM <-> stereo-pair buffers.
 * Counts are sample periods (one sample of every channel). Every function returns 0; a count of 0
 * writes nothing. Pair k holds channels 2k and 2k+1; a 16-bit pair moves as one 32-bit unit, left
 * sample first. 20- and 24-bit samples in 32-bit words are left-justified. Width changes truncate.
 * A null interleaved buffer writes nothing. Source and destination must not overlap; no buffer
 * needs any alignment. */
#ifndef KVAUDIO_INTERLEAVE_H
#define KVAUDIO_INTERLEAVE_H

#include <stdint.h>

#include "kvaudio/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* An audio buffer record of the host; the Array members read only `samples` (null: no buffer). */
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
/* 16-bit source of `channels` channels a period to 32-bit words holding the sample shifted left
 * by 8 (AudioInterleave16to24 shifts by 16). Pair k takes channels 2k and 2k+1; those at or beyond `channels` are not written (a pair
 * cut by an odd count gets its left sample only), and a null pair's channels are passed over. */
KVAUDIO_API uint32_t AudioDeInterleave16to24(const uint16_t *src, uint32_t *pair0, uint32_t *pair1,
                                             uint32_t *pair2, uint32_t *pair3, uint32_t samples,
                                             uint32_t channels);
/* As AudioDeInterleave16to24 with the sample shifted left by 16. */
KVAUDIO_API uint32_t AudioDeInterleave16to32(const uint16_t *src, uint32_t *pair0, uint32_t *pair1,
                                             uint32_t *pair2, uint32_t *pair3, uint32_t samples,
                                             uint32_t channels);

/* ---- Deinterleave, eight pairs (16 channels) ---------------------------------------------- */
/* Each follows its four-pair sibling: in 16to16_16 and 32to32_16 a null pair takes no room in the
 * source; 32to16_16 reads fixed periods of 16 words and skips a null pair's words. */

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

/* The source period is pairCount pair units (any count); a null entry, or an entry with a null
 * sample pointer, skips its pair's data. A null `pairs` writes nothing. */
KVAUDIO_API uint32_t AudioDeinterleave16to16Array(const uint32_t *src, KVAudioBuffer *const *pairs,
                                                  uint32_t pairCount, uint32_t samples);
KVAUDIO_API uint32_t AudioDeinterleave32to32Array(const uint32_t *src, KVAudioBuffer *const *pairs,
                                                  uint32_t pairCount, uint32_t samples);

/* ---- Interleave ----------------------------------------------------------------------------- */
/* Pair k goes to channels 2k and 2k+1 of each destination period of `channels` channels. A null
 * pair leaves its slot unwritten; slots at or beyond `channels` are dropped (a slot cut by an odd
 * count gets the left sample only), and channels past the pairs are left as they are. Unless
 * `channels` is the full count (8, or 16 for `_16`), pair 0 is required: without it nothing is
 * written. */

/* 16-bit pairs to 16-bit channels. */
KVAUDIO_API uint32_t AudioInterleave16to16(uint16_t *dst, const uint16_t *pair0, const uint16_t *pair1,
                                           const uint16_t *pair2, const uint16_t *pair3,
                                           uint32_t samples, uint32_t channels);
/* 32-bit containers copied unchanged. */
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
/* Same body as AudioInterleave32to32, as are the 20to24, 20to32 and 24to24 members below. */
KVAUDIO_API uint32_t AudioInterleave24to32(uint32_t *dst, const uint32_t *pair0, const uint32_t *pair1,
                                           const uint32_t *pair2, const uint32_t *pair3,
                                           uint32_t samples, uint32_t channels);
KVAUDIO_API uint32_t AudioInterleave20to24(uint32_t *dst, const uint32_t *pair0, const uint32_t *pair1,
                                           const uint32_t *pair2, const uint32_t *pair3,
                                           uint32_t samples, uint32_t channels);
KVAUDIO_API uint32_t AudioInterleave20to32(uint32_t *dst, const uint32_t *pair0, const uint32_t *pair1,
                                           const uint32_t *pair2, const uint32_t *pair3,
                                           uint32_t samples, uint32_t channels);
KVAUDIO_API uint32_t AudioInterleave24to24(uint32_t *dst, const uint32_t *pair0, const uint32_t *pair1,
                                           const uint32_t *pair2, const uint32_t *pair3,
                                           uint32_t samples, uint32_t channels);

/* Eight pairs into periods of up to 16 channels, as the four-pair members. */
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
/* Sample shifted left by 16, as AudioInterleave16to24. */
KVAUDIO_API uint32_t AudioInterleave16to32_16(uint32_t *dst, const uint16_t *pair0,
                                              const uint16_t *pair1, const uint16_t *pair2,
                                              const uint16_t *pair3, const uint16_t *pair4,
                                              const uint16_t *pair5, const uint16_t *pair6,
                                              const uint16_t *pair7, uint32_t samples,
                                              uint32_t channels);
/* Same body as AudioInterleave32to32_16. */
KVAUDIO_API uint32_t AudioInterleave24to32_16(uint32_t *dst, const uint32_t *pair0,
                                              const uint32_t *pair1, const uint32_t *pair2,
                                              const uint32_t *pair3, const uint32_t *pair4,
                                              const uint32_t *pair5, const uint32_t *pair6,
                                              const uint32_t *pair7, uint32_t samples,
                                              uint32_t channels);

/* The destination period is pairCount pairs (any count); a null entry, or an entry with a null
 * sample pointer, leaves its slot unwritten. A null `pairs` writes nothing. */
KVAUDIO_API uint32_t AudioInterleave16to16Array(uint16_t *dst, KVAudioBuffer *const *pairs,
                                                uint32_t pairCount, uint32_t samples);
KVAUDIO_API uint32_t AudioInterleave32to32Array(uint32_t *dst, KVAudioBuffer *const *pairs,
                                                uint32_t pairCount, uint32_t samples);

/* ---- Single pair, mono and dual mono ---------------------------------------------------------- */

/* Extracts pair pairIndex of an interleaved buffer of `channels` channels into a stereo buffer;
 * bits 16 means 16-bit samples, any other value 32-bit containers. With odd `channels` and
 * 2*pairIndex+1 == channels only the lone last channel moves, into the left samples (the right
 * ones are left as they are). A pair beyond `channels`, or a null buffer, writes nothing. */
KVAUDIO_API uint32_t AudioDeinterleavePair(const void *src, void *dst, uint32_t pairIndex, uint32_t bits,
                                           uint32_t channels, uint32_t samples);
/* Writes a stereo buffer into pair pairIndex of an interleaved buffer; other channels are left as
 * they are. The same rules as AudioDeinterleavePair apply (a lone last channel takes the left). */
KVAUDIO_API uint32_t AudioInterleavePair(void *dst, const void *src, uint32_t pairIndex, uint32_t bits,
                                         uint32_t channels, uint32_t samples);
/* As AudioInterleavePair from a 16-bit pair to 32-bit words shifted left by 16; bits is unused. */
KVAUDIO_API uint32_t AudioInterleavePair16to32(void *dst, const void *src, uint32_t pairIndex,
                                               uint32_t bits, uint32_t channels, uint32_t samples);
/* Keeps the left sample of each 16-bit stereo pair; no averaging. */
KVAUDIO_API uint32_t AudioDeinterleaveStereo2Mono(uint16_t *dst, const uint16_t *src, uint32_t samples);
/* Duplicates each mono sample into left and right, at the width `bits` names: 8 (bytes), 16,
 * 20 or 24 (both packed in three little-endian bytes) or 32; other values write nothing. */
KVAUDIO_API uint32_t AudioInterleaveMono2Stereo(uint16_t *dst, uint16_t bits, uint32_t samples,
                                                const uint16_t *src);
/* Two mono buffers to interleaved stereo of the same width, laid out as for
 * AudioInterleaveMono2Stereo (8, 16, 20 or 24 bits; 32 also works). A null left or right leaves
 * that channel unwritten, so two calls can fill one stereo buffer side by side. */
KVAUDIO_API uint32_t AudioInterleaveDualMono2Stereo16(void *dst, uint16_t bits, uint32_t samples,
                                                      const void *left, const void *right);
/* Two mono buffers to interleaved 32-bit stereo: bits 16 reads 16-bit samples and shifts them
 * left by 16; 20, 24 and 32 copy 32-bit words; other values write nothing. A null left or right
 * leaves that channel unwritten. */
KVAUDIO_API uint32_t AudioInterleaveDualMono2Stereo32(void *dst, uint8_t bits, uint32_t samples,
                                                      const void *left, const void *right);

#ifdef __cplusplus
}
#endif

#endif
