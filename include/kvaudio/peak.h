/* Peak levels of signed 16-bit PCM buffers; each call measures only the buffer it is given. */
#ifndef KVAUDIO_PEAK_H
#define KVAUDIO_PEAK_H

#include <stdint.h>

#include "kvaudio/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Interleaved stereo of `count` 16-bit words (left at even words). With L and R the peak
 * magnitudes as unsigned 16-bit values (-32768 gives 32768), returns (L * 2) | (R << 17) in 32
 * bits: full scale reads 65534 in each half; a left 32768 sets only bit 16, a right 32768 reads 0.
 * A final unpaired word of an odd count counts as left. Count 0 or null samples return 0. */
KVAUDIO_API uint32_t audTestPeak16S(const int16_t *samples, uint32_t count);
/* Mono peak of `count` samples, compared as signed 32-bit values: a positive sample above the
 * peak replaces it; a sample v <= 0 whose magnitude beats the peak stores v's raw 16-bit pattern
 * (-5 stores 65531), which no later sample can beat. Count 0 or null samples return 0. */
KVAUDIO_API uint32_t audTestPeak16M(const int16_t *samples, uint32_t count);

#ifdef __cplusplus
}
#endif

#endif
