/* Loudness and true peak by ITU-R BS.1770-4 and EBU R128 (Tech 3341, Tech 3342): momentary,
 * short-term, integrated loudness, loudness range, true peak and sample peak of 1 to 64 channels
 * at 8 kHz to 192 kHz, in constant memory for any duration.
 * A meter is an opaque handle used by one thread at a time; readings are taken on a 100 ms grid. */
#ifndef KVAUDIO_R128_H
#define KVAUDIO_R128_H

#include <stddef.h>
#include <stdint.h>

#include "kvaudio/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Result codes. */
#define KVAUDIO_LOUDNESS_OK 0
#define KVAUDIO_LOUDNESS_BAD_ARGUMENT (-1) /* null pointer, unknown format or flag, size too small */
#define KVAUDIO_LOUDNESS_UNKNOWN_LAYOUT (-2) /* layout name not known */

/* What a meter measures (flags of kvAudioLoudnessOpen). Momentary and short-term loudness and
 * their maxima are always measured. */
#define KVAUDIO_LOUDNESS_INTEGRATED 0x1u  /* gated integrated loudness */
#define KVAUDIO_LOUDNESS_RANGE 0x2u       /* loudness range */
#define KVAUDIO_LOUDNESS_TRUE_PEAK 0x4u   /* per-channel true peak (oversampled) */
#define KVAUDIO_LOUDNESS_SAMPLE_PEAK 0x8u /* per-channel sample peak */
#define KVAUDIO_LOUDNESS_ALL 0xFu

/* Sample formats of kvAudioLoudnessAdd: interleaved, channel 0 first in each sample period. */
#define KVAUDIO_SAMPLES_S16 1u   /* int16_t */
#define KVAUDIO_SAMPLES_S24 2u   /* packed 24-bit little-endian, 3 bytes a sample */
#define KVAUDIO_SAMPLES_S32 3u   /* int32_t, left-justified (20- and 24-bit audio in the top bits) */
#define KVAUDIO_SAMPLES_F32 4u   /* float, full scale 1.0; values above it are measured as they are */

/* Loudness of silence, or of a reading not measured (a disabled flag, too little audio). */
#define KVAUDIO_LOUDNESS_NONE (-200.0)

#define KVAUDIO_LOUDNESS_MAX_CHANNELS 64

typedef struct kvAudioLoudness kvAudioLoudness;

/* A meter's readings. The caller sets `size` to sizeof(kvAudioLoudnessReading) before reading. */
typedef struct kvAudioLoudnessReading {
  uint32_t size;           /* sizeof(kvAudioLoudnessReading) */
  uint32_t channels;       /* channels of the meter */
  uint64_t frames;         /* sample periods measured since open or reset */
  uint64_t steps;          /* 100 ms steps completed; momentary and short-term change per step */
  uint64_t invalidSamples; /* NaN and infinite samples, measured as 0 */
  double momentary;        /* LUFS, the latest 400 ms window */
  double shortTerm;        /* LUFS, the latest 3 s window */
  double momentaryMax;     /* LUFS, highest momentary reading so far */
  double shortTermMax;     /* LUFS, highest short-term reading so far */
  double integrated;       /* LUFS, gated (-70 LUFS absolute, -10 LU relative) */
  double loudnessRange;    /* LU (EBU Tech 3342); 0.0 until two short-term values pass the gates */
  double truePeak;         /* dBTP, highest channel */
  double samplePeak;       /* dBFS, highest channel */
  double channelTruePeak[KVAUDIO_LOUDNESS_MAX_CHANNELS];   /* dBTP per channel */
  double channelSamplePeak[KVAUDIO_LOUDNESS_MAX_CHANNELS]; /* dBFS per channel */
} kvAudioLoudnessReading;

#ifdef __cplusplus
static_assert(sizeof(kvAudioLoudnessReading) == 1120, "kvAudioLoudnessReading size");
#else
_Static_assert(sizeof(kvAudioLoudnessReading) == 1120, "kvAudioLoudnessReading size");
#endif

/* Opens a meter for `channels` (1 to 64) channels at `sampleRate` Hz (8000 to 192000) measuring
 * `flags` (KVAUDIO_LOUDNESS_*). Channel weights start at 1.0. Returns null on a bad argument or
 * allocation failure. */
KVAUDIO_API kvAudioLoudness *kvAudioLoudnessOpen(uint32_t sampleRate, uint32_t channels, uint32_t flags);

/* Sets the channel weights of a layout name as kvqcAudioLayoutFromName resolves it (LFE 0,
 * surrounds +1.5 dB; channels outside the layout 0). Applies to audio added from now on.
 * Returns KVAUDIO_LOUDNESS_OK, _BAD_ARGUMENT or _UNKNOWN_LAYOUT (weights unchanged). */
KVAUDIO_API int32_t kvAudioLoudnessSetLayout(kvAudioLoudness *meter, const char *layoutName);

/* Sets the power weight of one channel (1.0 front, 1.41 surround, 0.0 excluded; 0 to 10).
 * Returns KVAUDIO_LOUDNESS_OK or _BAD_ARGUMENT. */
KVAUDIO_API int32_t kvAudioLoudnessSetChannelWeight(kvAudioLoudness *meter, uint32_t channel, double weight);

/* Measures `frames` interleaved sample periods in `format` (KVAUDIO_SAMPLES_*). frames 0 is a
 * no-op. Returns KVAUDIO_LOUDNESS_OK or _BAD_ARGUMENT (nothing measured). */
KVAUDIO_API int32_t kvAudioLoudnessAdd(kvAudioLoudness *meter, const void *samples, uint32_t format,
                                       size_t frames);

/* Measures `frames` sample periods of planar float: planes[c] holds channel c. */
KVAUDIO_API int32_t kvAudioLoudnessAddPlanar(kvAudioLoudness *meter, const float *const *planes,
                                             size_t frames);

/* Fills `out` with the readings after the last completed 100 ms step (peaks: after the last sample
 * added). out->size is set by the caller, at least 96 (the fields up to samplePeak); fields past it
 * are not written. Returns KVAUDIO_LOUDNESS_OK or _BAD_ARGUMENT. */
KVAUDIO_API int32_t kvAudioLoudnessRead(const kvAudioLoudness *meter, kvAudioLoudnessReading *out);

/* Forgets all audio; keeps rate, channels, flags and weights. Null is ignored. */
KVAUDIO_API void kvAudioLoudnessReset(kvAudioLoudness *meter);

/* Releases the meter. Null is ignored. */
KVAUDIO_API void kvAudioLoudnessClose(kvAudioLoudness *meter);

#ifdef __cplusplus
}
#endif

#endif
