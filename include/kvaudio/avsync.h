/* AV-sync pulse: a 4800 Hz burst, sign-switched by a 63-chip pseudo-random sequence with
 * raised-cosine edges, mixed into interleaved PCM and found again by normalised correlation.
 * Buffers hold `channels` interleaved signed samples of `bits` 16 or 32; counts are periods. */
#ifndef KVAUDIO_AVSYNC_H
#define KVAUDIO_AVSYNC_H

#include <stdint.h>

#include "kvaudio/export.h"

/* Results of the AV-sync functions. */
#define KVAUDIO_AVSYNC_OK 0u           /* done; for detection: the burst was found */
#define KVAUDIO_AVSYNC_BAD_ARGUMENT 1u /* null pointer, 0 channels, bits not 16 or 32, rate < 16000,
                                          or no memory for the burst */
#define KVAUDIO_AVSYNC_NOT_FOUND 2u    /* best score under the threshold, or only silence */
#define KVAUDIO_AVSYNC_TOO_SHORT 3u    /* the buffer is shorter than the burst */

#ifdef __cplusplus
extern "C" {
#endif

/* Burst length in periods at `rate`: 63 x ((rate + 2000) / 4000), 756 at 48000 Hz.
 * Returns KVAUDIO_AVSYNC_OK; KVAUDIO_AVSYNC_BAD_ARGUMENT for a null `length`, or for a rate
 * below 16000 (then *length = 0). */
KVAUDIO_API uint32_t KVAudioAVSyncPulseGetLength(uint32_t rate, uint32_t *length);

/* Adds the burst, scaled to `amplitude` (0: 12000 for 16-bit, 0x30000000 for 32-bit; otherwise
 * its magnitude limited to full scale), to every channel from period `offset` on, saturating.
 * Returns KVAUDIO_AVSYNC_OK; KVAUDIO_AVSYNC_BAD_ARGUMENT for a null buffer, 0 channels, bits not
 * 16 or 32, or rate below 16000; KVAUDIO_AVSYNC_TOO_SHORT when the burst does not fit in
 * bufferFrames. */
KVAUDIO_API uint32_t KVAudioAVSyncPulseGenerate(void *buffer, uint32_t bufferFrames, uint32_t channels,
                                                uint32_t bits, uint32_t rate, uint32_t offset,
                                                int32_t amplitude);

/* Finds the burst in the channel mean: the first start period with the largest |correlation|
 * score (0..1). *position = that period (else 0xFFFFFFFF), *score = best score (else 0).
 * threshold <= 0 means 0.35. Returns KVAUDIO_AVSYNC_OK when found; KVAUDIO_AVSYNC_NOT_FOUND when
 * the best score is under the threshold or nothing but silence was seen;
 * KVAUDIO_AVSYNC_BAD_ARGUMENT for a null position or buffer, 0 channels, bits not 16 or 32, or
 * rate below 16000; KVAUDIO_AVSYNC_TOO_SHORT when frames is shorter than the burst. `score` may
 * be null. */
KVAUDIO_API uint32_t KVAudioAVSyncPulseDetect(const void *buffer, uint32_t frames, uint32_t channels,
                                              uint32_t bits, uint32_t rate, uint32_t *position,
                                              double *score, double threshold);

#ifdef __cplusplus
}
#endif

#endif
