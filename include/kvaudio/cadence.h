/* Samples-per-frame cadence: audio samples belonging to each video frame at 48 kHz and 44.1 kHz.
 * Rate codes are the integer part of the frame rate: 23 (23.976), 24, 25, 29 (29.97), 30, 50,
 * 59 (59.94), 60; 30 and 60 follow the fractional cadences of 29 and 59. */
#ifndef KVAUDIO_CADENCE_H
#define KVAUDIO_CADENCE_H

#include <stdint.h>

#include "kvaudio/export.h"

#define KVAUDIO_CADENCE_UNKNOWN_RATE 0xFFFFFFFFu /* rate code without a cadence */

#ifdef __cplusplus
extern "C" {
#endif

/* Samples of video frame frameNumber at 48000 Hz into *samples (when non-null) and, when bytes
 * is non-null, bytesPerSample x samples into *bytes. Returns 0, or KVAUDIO_CADENCE_UNKNOWN_RATE
 * for an unknown rate code (nothing stored). */
KVAUDIO_API uint32_t audSamplesPerFrame48kHz(uint32_t frameNumber, uint32_t rateCode,
                                             uint32_t bytesPerSample, uint32_t *samples,
                                             uint32_t *bytes);
/* As audSamplesPerFrame48kHz at 44100 Hz; 23 follows the cadence of 24. */
KVAUDIO_API uint32_t audSamplesPerFrame441kHz(uint32_t frameNumber, uint32_t rateCode,
                                              uint32_t bytesPerSample, uint32_t *samples,
                                              uint32_t *bytes);
/* Smallest and largest frame sizes in samples to provide for: sampleRate / rateCode (the
 * minimum of a code ending in 9 uses rateCode - 1), with fixed values at 48000 Hz that differ
 * from the per-frame cadence for codes 23 and 30. Either pointer may be null. Returns 0;
 * a rateCode of 0 stores nothing. */
KVAUDIO_API uint32_t audMinMaxSamplesPerFrame(uint32_t *minimum, uint32_t *maximum,
                                              uint32_t rateCode, uint32_t sampleRate);

#ifdef __cplusplus
}
#endif

#endif
