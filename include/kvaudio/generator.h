/* Test-signal generator: tone, stepped sweep with markers, white and pink noise, or silence, as
 * 16-bit audio widened to 32-bit containers when the format is wider than 16 bits. A handle keeps
 * phase and sweep position between fills, so consecutive buffers join without a discontinuity.
 * Every call on a handle holds the handle's own lock, except audGenSetAngle. */
#ifndef KVAUDIO_GENERATOR_H
#define KVAUDIO_GENERATOR_H

#include <stdint.h>

#include "kvaudio/export.h"
#include "kvaudio/format.h"

/* Signal type: the value of the low four bits of the flags. Other values give zero bytes. */
#define AUDGEN_TONE 0x0u
#define AUDGEN_SWEEP 0x1u
#define AUDGEN_WHITE_NOISE 0x2u
#define AUDGEN_PINK_NOISE 0x4u
#define AUDGEN_SILENCE 0x8u
#define AUDGEN_TYPE_MASK 0xFu
/* Options. */
#define AUDGEN_SWEEP_LINEAR 0x10u          /* sweep steps linear in Hz, else geometric */
#define AUDGEN_RIGHT_QUARTER 0x80u         /* right channel starts a quarter cycle ahead */
#define AUDGEN_RIGHT_HALF 0x100u           /* ... half a cycle ahead (wins over the others) */
#define AUDGEN_RIGHT_THREE_QUARTERS 0x200u /* ... three quarters ahead */
#define AUDGEN_MARK_OCTAVES 0x800u         /* marker when the sweep passes an octave of the reference */
#define AUDGEN_MARK_SECONDS 0x1000u        /* marker at each whole second of sweep time */
#define AUDGEN_MARK_START 0x2000u          /* marker while at or below the start frequency */

/* Waveform shapes, tested in the order square, triangle, sawtooth; anything else is a sine. */
#define AUDGEN_SHAPE_SINE 0x0u
#define AUDGEN_SHAPE_SQUARE 0x2u
#define AUDGEN_SHAPE_TRIANGLE 0x4u
#define AUDGEN_SHAPE_SAWTOOTH 0x8u

#ifdef __cplusplus
extern "C" {
#endif

/* The generator state; opaque to callers. */
typedef struct tagAUDGENHANDLE tagAUDGENHANDLE;

/* Opens a generator. Frequencies in Hz, sweepMs in milliseconds (whole seconds count),
 * amplitudes linear (1.0 = full scale), markerReference in Hz. A null format means stereo
 * 44100 Hz 16-bit (block align 4). Returns the handle, or null when memory runs out. */
KVAUDIO_API tagAUDGENHANDLE *audGenOpen(uint32_t flags, uint32_t frequency, uint32_t endFrequency,
                                        uint32_t sweepMs, uint32_t sweepSteps, uint32_t rightShape,
                                        uint32_t leftShape, const WAVEFORMATEX *format,
                                        double rightAmplitude, double leftAmplitude,
                                        double markerReference);
/* Replaces every parameter as audGenOpen sets them (a null format keeps the previous one),
 * rebuilds the tables and resets both phases. Returns 0; when memory runs out a table stays
 * empty and fills leave its channel untouched. */
KVAUDIO_API uint32_t audGenSet(tagAUDGENHANDLE *handle, uint32_t flags, uint32_t frequency,
                               uint32_t endFrequency, uint32_t sweepMs, uint32_t sweepSteps,
                               uint32_t rightShape, uint32_t leftShape, const WAVEFORMATEX *format,
                               double rightAmplitude, double leftAmplitude, double markerReference);
/* Restarts the sweep at its start frequency and sets both phases to 0. Returns 0. */
KVAUDIO_API uint32_t audGenRestart(tagAUDGENHANDLE *handle);
/* Sets both phases to the same point of the cycle, degrees x right table length / 360 (float).
 * Takes no lock. Returns 0. */
KVAUDIO_API uint32_t audGenSetAngle(tagAUDGENHANDLE *handle, uint32_t degrees);
/* Suggested buffer size in bytes: one second of audio; for a tone, one cycle but at least
 * 1000 bytes (one second when the frequency is 0). Returns 0 for a null handle. */
KVAUDIO_API uint32_t audGenGetBufferSize(tagAUDGENHANDLE *handle);
/* Writes `bytes` bytes of the signal into buffer. Channels 0 and 1 of each frame are written,
 * other channels keep their contents. Returns 0; null handle or buffer write nothing. */
KVAUDIO_API uint32_t audGenFillBuffer(tagAUDGENHANDLE *handle, void *buffer, uint32_t bytes);
/* Frees the handle and its tables. Returns 0, also for a null handle. */
KVAUDIO_API uint32_t audGenClose(tagAUDGENHANDLE *handle);
/* Linear factor of an attenuation in dB: 10^(-attenuationDb / 20). */
KVAUDIO_API double db_to_amplitude(int32_t attenuationDb);

#ifdef __cplusplus
}

/* C++ building blocks of the generator. Each takes the handle's lock (it is recursive). */

/* One waveform cycle of amplitude x 32767, allocated with new[] (16 spare entries) and owned by
 * the caller; *length receives the entries: sampleRate for the sine, 32768 for the others.
 * Null, with *length 0, when memory runs out. */
KVAUDIO_API int16_t *buildSinTable(tagAUDGENHANDLE *handle, double amplitude, uint32_t *length);
KVAUDIO_API int16_t *buildTriangleTable(tagAUDGENHANDLE *handle, double amplitude, uint32_t *length);
KVAUDIO_API int16_t *buildSawToothTable(tagAUDGENHANDLE *handle, double amplitude, uint32_t *length);
KVAUDIO_API int16_t *buildSquareTable(tagAUDGENHANDLE *handle, double amplitude, uint32_t *length);
/* Replaces the right (left) channel's table by one of its shape and amplitude. */
KVAUDIO_API void buildRightWaveTable(tagAUDGENHANDLE *handle);
KVAUDIO_API void buildLeftWaveTable(tagAUDGENHANDLE *handle);

/* Reads `frames` entries of a table at `frequency` Hz from *phase into 16-bit position
 * start + channel + k x channels (k = 0, 1, ...) of out, and stores the phase back.
 * The step is floor(length x frequency / sampleRate), at least 1. */
KVAUDIO_API void fillChannelWithWave(tagAUDGENHANDLE *handle, const int16_t *table, uint32_t length,
                                     int16_t *out, double frequency, uint32_t *phase, uint32_t start,
                                     uint32_t frames, uint32_t channel);

/* The signal generators behind audGenFillBuffer: each writes the 16-bit image of `bytes` bytes of
 * audio (frames = bytes / block align), without widening, and never past `bytes` (nor past the
 * first half of the buffer when the format is wider than 16 bits). */
KVAUDIO_API void fillBufferTone(tagAUDGENHANDLE *handle, void *buffer, uint32_t bytes);
KVAUDIO_API void fillBufferSweep(tagAUDGENHANDLE *handle, void *buffer, uint32_t bytes);
KVAUDIO_API void fillBufferWhiteNoise(tagAUDGENHANDLE *handle, void *buffer, uint32_t bytes);
KVAUDIO_API void fillBufferPinkNoise(tagAUDGENHANDLE *handle, void *buffer, uint32_t bytes);
KVAUDIO_API void fillBufferSilence(tagAUDGENHANDLE *handle, void *buffer, uint32_t bytes);

#endif

#endif
