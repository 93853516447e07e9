/* Integer PCM to float32 and back, with optional TPDF dither from a caller-seeded generator.
 *
 * An n-bit sample s (n = 8..32) maps to the float s * 2^-(n-1): full scale is [-1, 1). 16-bit
 * samples are int16_t; wider ones are int32_t left-justified (an n-bit sample in the top n bits,
 * the low 32 - n bits 0 on output and ignored on input). Float to integer rounds to the nearest
 * integer (ties to even), saturates at the n-bit range and turns NaN into 0. Counts are samples;
 * a count of 0 writes nothing. Buffers need only the alignment of their element type. */
#ifndef KVAUDIO_FLOAT_PCM_H
#define KVAUDIO_FLOAT_PCM_H

#include <stdint.h>

#include "kvaudio/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Result codes of this family. */
#define KVAUDIO_PCM_OK 0u
#define KVAUDIO_PCM_NULL_BUFFER 1u /* a null buffer with a non-zero count; nothing written */
#define KVAUDIO_PCM_BAD_BITS 2u    /* bits outside 8..32; nothing written */

/* TPDF dither state. The caller sets `seed` and `position` (usually 0) once; each converting call
 * adds its count to `position`. Sample k of the stream gets the dither t(seed, position + k), a
 * triangular value in (-1, 1) LSB of the target width that depends on nothing else, so the same
 * seed gives the same bytes on every processor, path and split of the stream into calls. The
 * sequence repeats every 2^31 samples. */
typedef struct KVAudioDither {
  uint64_t seed;
  uint64_t position;
} KVAudioDither;

#ifdef __cplusplus
static_assert(sizeof(KVAudioDither) == 16, "KVAudioDither layout");
#else
_Static_assert(sizeof(KVAudioDither) == 16, "KVAudioDither layout");
#endif

/* 16-bit samples to float, s * 2^-15 (exact). Returns a KVAUDIO_PCM_ code. */
KVAUDIO_API uint32_t KVAudioInt16ToFloat(float *out, const int16_t *in, uint32_t count);
/* Left-justified `bits`-bit samples to float: the low 32 - bits bits are cleared, then s * 2^-31
 * (exact up to 24 bits, rounded to nearest-even above). Returns a KVAUDIO_PCM_ code. */
KVAUDIO_API uint32_t KVAudioInt32ToFloat(float *out, const int32_t *in, uint32_t count, uint32_t bits);
/* Float to 16-bit: round(x * 2^15 + dither) saturated to [-32768, 32767]; dither null adds none.
 * Returns a KVAUDIO_PCM_ code; on an error the dither position does not move. */
KVAUDIO_API uint32_t KVAudioFloatToInt16(int16_t *out, const float *in, uint32_t count, KVAudioDither *dither);
/* Float to left-justified `bits`-bit samples: round(x * 2^(bits-1) + dither) saturated to the
 * bits-bit range, shifted left by 32 - bits. Returns a KVAUDIO_PCM_ code. */
KVAUDIO_API uint32_t KVAudioFloatToInt32(int32_t *out, const float *in, uint32_t count, uint32_t bits,
                                         KVAudioDither *dither);

#ifdef __cplusplus
}
#endif

#endif
