/* Channel remap in place: every channel of a buffer rebuilt from chosen source channels of the
 * same buffer, with optional peak and RMS words per stereo pair.
 *
 * map[c] is a mask of source channels for destination channel c: no bit mutes it, one bit routes
 * or duplicates, several bits average (each source divided by the bit count, truncating, then
 * summed with 32-bit wrap). Mask bits at or above `channels` read as silence.
 * Results: 0 when buffer (or pairs[0]), channels, check, samples or map is 0/null or channels is
 * below 2, leaving everything untouched; KVAUDIO_REMAP_TOO_MANY_CHANNELS, with a message on the
 * error output, when channels exceeds 32; otherwise channels / 2.
 * Levels: peaks and rms (each optional) are cleared to `channels` words; word k holds pair k
 * (channels 2k, 2k+1) as two 16-bit halves, even channel in the low half. With the sample
 * left-justified to 32 bits: RMS half = (uint32)sqrt(mean square) >> 15; peak half = magnitude
 * peak limited to 0x7FFF0000, >> 15 (full scale reads 65534). */
#ifndef KVAUDIO_REMAP_H
#define KVAUDIO_REMAP_H

#include <stdint.h>

#include "kvaudio/export.h"

#define KVAUDIO_REMAP_TOO_MANY_CHANNELS 0xFFFFFFFFu /* more than 32 channels: nothing done */

#ifdef __cplusplus
extern "C" {
#endif

/* One interleaved buffer of `samples` periods of `channels` 32-bit samples. */
KVAUDIO_API uint32_t AudioRemap32Bit(void *buffer, uint32_t channels, uint32_t check, uint32_t samples,
                                     const uint32_t *map, uint32_t *peaks, uint32_t *rms);
/* As AudioRemap32Bit on packed 24-bit little-endian samples (3 bytes, sign bit 23). */
KVAUDIO_API uint32_t AudioRemap24Bit(void *buffer, uint32_t channels, uint32_t check, uint32_t samples,
                                     const uint32_t *map, uint32_t *peaks, uint32_t *rms);
/* As AudioRemap32Bit on signed 16-bit samples. */
KVAUDIO_API uint32_t AudioRemap16Bit(void *buffer, uint32_t channels, uint32_t check, uint32_t samples,
                                     const uint32_t *map, uint32_t *peaks, uint32_t *rms);

/* The same on stereo-pair buffers: pairs[k] holds channels 2k and 2k+1 interleaved (for an odd
 * channel count the last buffer's second element is not used). A null pairs[k] other than the
 * first reads as silence and is not written. */
KVAUDIO_API uint32_t AudioRemap32BitPairs(void *const *pairs, uint32_t channels, uint32_t check, uint32_t samples,
                                          const uint32_t *map, uint32_t *peaks, uint32_t *rms);
KVAUDIO_API uint32_t AudioRemap24BitPairs(void *const *pairs, uint32_t channels, uint32_t check, uint32_t samples,
                                          const uint32_t *map, uint32_t *peaks, uint32_t *rms);
KVAUDIO_API uint32_t AudioRemap16BitPairs(void *const *pairs, uint32_t channels, uint32_t check, uint32_t samples,
                                          const uint32_t *map, uint32_t *peaks, uint32_t *rms);

#ifdef __cplusplus
}
#endif

#endif
