/* ITU-R BS.1770 K-weighting filters and an EBU R128 loudness meter over interleaved PCM.
 * The caller owns the meter record, hands it in zeroed to ebu_r128_init and releases it with
 * ebu_r128_destroy. A meter is used by one thread at a time. */
#ifndef KVAUDIO_LOUDNESS_H
#define KVAUDIO_LOUDNESS_H

#include <stddef.h>
#include <stdint.h>

#include "kvaudio/export.h"

/* Results of the meter functions, as each one documents them. */
#define EBU_R128_OK 1u                  /* init, intake, step close, gain: success */
#define EBU_R128_FAILED 0u              /* init, intake, gain: refused or allocation failed */
#define EBU_R128_NO_INTEGRATOR 0xFFFFFFFFu /* step close: the integrator cannot grow */

#ifdef __cplusplus
extern "C" {
#endif

/* One biquad in direct form II; c1 = b1 - b0*a1 and c2 = b2 - b0*a2 are precomputed.
 * a0 is stored (always 1.0) and never used. */
typedef struct itu1770_filter {
  double a0, a1, a2;
  double b0, b1, b2;
  double c1, c2;
  double z1, z2;
} itu1770_filter;

/* One measured channel: its two filter stages, its sample buffers and its power weight. */
typedef struct ebu_r128_channel {
  itu1770_filter pre; /* high-shelf pre-filter */
  itu1770_filter rlb; /* RLB high-pass */
  float *window;      /* windowSamples filtered samples, oldest first: the sliding window */
  float *step;        /* stepSamples filtered samples of the current step */
  float weight;       /* power weight G of the channel (1.0 by default) */
  float loudness;     /* latest loudness of the channel, LKFS */
} ebu_r128_channel;

/* The meter. The library keeps any further state of its own in the block it allocates behind
 * the channel records. */
typedef struct s_ebu_r128 {
  uint8_t mode;               /* 1 momentary, 2 short-term, 3 integrated */
  uint32_t sampleRate;        /* Hz */
  uint16_t windowMs;          /* window length, milliseconds */
  uint32_t windowSamples;     /* windowMs * sampleRate / 1000 */
  uint32_t stepSamples;       /* stepMs * sampleRate / 1000 */
  uint32_t stepMs;            /* step length, milliseconds */
  uint32_t fillCount;         /* filtered sample periods in the current step */
  uint8_t resolution;         /* bits per input sample: 8, 16, 24 or 32 */
  uint8_t channels;           /* number of channel records */
  ebu_r128_channel *channel;  /* the channel records */
  float *integrator;          /* one summed window power per kept window (mode 3) */
  uint64_t integratorCount;   /* kept windows */
  uint8_t relativeGate;       /* LU below the ungated mean (8 after init) */
  float currentLoudness;      /* LKFS */
  float integratedLoudness;   /* LUFS */
} s_ebu_r128;

#ifdef __cplusplus
#  define KVAUDIO_LOUDNESS_ASSERT(cond, msg) static_assert(cond, msg)
#else
#  define KVAUDIO_LOUDNESS_ASSERT(cond, msg) _Static_assert(cond, msg)
#endif
KVAUDIO_LOUDNESS_ASSERT(sizeof(itu1770_filter) == 80, "itu1770_filter layout");
KVAUDIO_LOUDNESS_ASSERT(offsetof(itu1770_filter, z2) == 72, "itu1770_filter layout");
KVAUDIO_LOUDNESS_ASSERT(sizeof(ebu_r128_channel) == 184, "ebu_r128_channel layout");
KVAUDIO_LOUDNESS_ASSERT(offsetof(ebu_r128_channel, rlb) == 80, "ebu_r128_channel layout");
KVAUDIO_LOUDNESS_ASSERT(offsetof(ebu_r128_channel, window) == 160, "ebu_r128_channel layout");
KVAUDIO_LOUDNESS_ASSERT(offsetof(ebu_r128_channel, step) == 168, "ebu_r128_channel layout");
KVAUDIO_LOUDNESS_ASSERT(offsetof(ebu_r128_channel, weight) == 176, "ebu_r128_channel layout");
KVAUDIO_LOUDNESS_ASSERT(offsetof(ebu_r128_channel, loudness) == 180, "ebu_r128_channel layout");
KVAUDIO_LOUDNESS_ASSERT(sizeof(s_ebu_r128) == 72, "s_ebu_r128 layout");
KVAUDIO_LOUDNESS_ASSERT(offsetof(s_ebu_r128, sampleRate) == 4, "s_ebu_r128 layout");
KVAUDIO_LOUDNESS_ASSERT(offsetof(s_ebu_r128, windowMs) == 8, "s_ebu_r128 layout");
KVAUDIO_LOUDNESS_ASSERT(offsetof(s_ebu_r128, windowSamples) == 12, "s_ebu_r128 layout");
KVAUDIO_LOUDNESS_ASSERT(offsetof(s_ebu_r128, stepSamples) == 16, "s_ebu_r128 layout");
KVAUDIO_LOUDNESS_ASSERT(offsetof(s_ebu_r128, stepMs) == 20, "s_ebu_r128 layout");
KVAUDIO_LOUDNESS_ASSERT(offsetof(s_ebu_r128, fillCount) == 24, "s_ebu_r128 layout");
KVAUDIO_LOUDNESS_ASSERT(offsetof(s_ebu_r128, resolution) == 28, "s_ebu_r128 layout");
KVAUDIO_LOUDNESS_ASSERT(offsetof(s_ebu_r128, channels) == 29, "s_ebu_r128 layout");
KVAUDIO_LOUDNESS_ASSERT(offsetof(s_ebu_r128, channel) == 32, "s_ebu_r128 layout");
KVAUDIO_LOUDNESS_ASSERT(offsetof(s_ebu_r128, integrator) == 40, "s_ebu_r128 layout");
KVAUDIO_LOUDNESS_ASSERT(offsetof(s_ebu_r128, integratorCount) == 48, "s_ebu_r128 layout");
KVAUDIO_LOUDNESS_ASSERT(offsetof(s_ebu_r128, relativeGate) == 56, "s_ebu_r128 layout");
KVAUDIO_LOUDNESS_ASSERT(offsetof(s_ebu_r128, currentLoudness) == 60, "s_ebu_r128 layout");
KVAUDIO_LOUDNESS_ASSERT(offsetof(s_ebu_r128, integratedLoudness) == 64, "s_ebu_r128 layout");
#undef KVAUDIO_LOUDNESS_ASSERT

/* ---- Filters --------------------------------------------------------------------------------- */

/* Zeroes the whole filter: coefficients and state. Null is ignored. */
KVAUDIO_API void filter_init(itu1770_filter *filter);
/* Sets a[0..2], b[0..2] and the derived c1, c2; the state is untouched. */
KVAUDIO_API void filter_set_coefficients(itu1770_filter *filter, const double a[3], const double b[3]);
/* Zeroes the filter and loads the BS.1770 high-shelf pre-filter for `rate` Hz (the published
 * table at exactly 48000 Hz, the bilinear design elsewhere). */
KVAUDIO_API void filter_init_pre_filter(itu1770_filter *filter, uint32_t rate);
/* Zeroes the filter and loads the 48 kHz RLB high-pass table; `rate` is ignored, so at other rates
 * the corner frequency scales with the rate. */
KVAUDIO_API void filter_init_rlb_filter(itu1770_filter *filter, uint32_t rate);
/* One filter step: returns the output for input x and advances the state. */
KVAUDIO_API double filter_calculate(itu1770_filter *filter, double x);
/* Nothing to release; present for symmetry. */
KVAUDIO_API void filter_destroy(itu1770_filter *filter);

/* ---- Helpers --------------------------------------------------------------------------------- */

/* powf(10, x / 10): a power ratio for x dB. */
KVAUDIO_API float calculate_ampl_from_db(float x);
/* Sum of the n squares accumulated in double, divided by n, as float; 0 for n == 0. */
KVAUDIO_API float calculate_mean_square(const float *buf, size_t n);

/* ---- Meter ----------------------------------------------------------------------------------- */

/* Sets up a zeroed record for `channels` channels of `resolution`-bit samples at `rate` Hz in
 * `mode` 1 (400 ms window, 200 ms step), 2 (3 s, 100 ms) or 3 (10 s, 1 s). `check` must be
 * non-zero. Returns 1, or 0 on bad arguments or failed allocation (nothing stays allocated). */
KVAUDIO_API uint32_t ebu_r128_init(s_ebu_r128 *s, uint8_t check, uint8_t resolution, uint32_t rate,
                                   uint8_t mode, uint8_t channels);
/* K-weights `frames` interleaved sample periods and closes a step whenever one fills.
 * Returns 1, or 0 for an unsupported resolution or a record without channels. */
KVAUDIO_API uint32_t ebu_r128_process_samples(s_ebu_r128 *s, const void *samples, size_t frames);
/* Closes a step: slides the windows, updates the channel and current loudness and, in mode 3,
 * keeps windows above -70 LKFS. Returns 1, or EBU_R128_NO_INTEGRATOR when the integrator cannot
 * grow. */
KVAUDIO_API uint32_t ebu_r128_calculate_lkfs(s_ebu_r128 *s);
/* Gates the kept windows (relative gate below their mean) into the integrated loudness; leaves it
 * unchanged when nothing is kept or passes the gate. Returns 0. */
KVAUDIO_API uint32_t ebu_r128_get_integrated_lufs(s_ebu_r128 *s);
/* Takes `frames` periods, closes one more step, updates the integrated loudness and stores the
 * reading (current loudness - 0.29, clamped to [-59, -5] with wideRange, else [-41, -14]) as the
 * current loudness. *result (if non-null) gets |100 * reading| (mode 3: |100 * integrated|)
 * truncated, in both 16-bit halves. Returns 0. */
KVAUDIO_API uint32_t ebu_r128_process_and_calculate(s_ebu_r128 *s, uint32_t frames, const void *samples,
                                                    uint32_t *result, uint32_t wideRange);
/* Sets the power weight of `channel` to calculate_ampl_from_db(dB). Returns 1, or 0 when
 * `channel` is not below the channel count. */
KVAUDIO_API uint32_t ebu_r128_adjust_gain(s_ebu_r128 *s, uint8_t channel, float dB);
/* Sets the relative gate in LU. Returns 1. */
KVAUDIO_API uint32_t ebu_r128_adjust_relative_gain(s_ebu_r128 *s, int8_t lu);
/* Weight sets; channels the record lacks are skipped. Each returns 0.
 * flat: all 1. 5.1: channels 3, 4 at +1.5 dB, 5 and up 0. 7.1: 3, 4 at +1.5 dB, 5, 6 at 1,
 * 7 and up 0. exact: all 1, then by layout code 3, 4, 5, 6, 100, 101, 102, 103 (see docs). */
KVAUDIO_API uint32_t ebu_r128_set_flat(s_ebu_r128 *s);
KVAUDIO_API uint32_t ebu_r128_set_5_1(s_ebu_r128 *s);
KVAUDIO_API uint32_t ebu_r128_set_7_1(s_ebu_r128 *s);
KVAUDIO_API uint32_t ebu_r128_set_exact(s_ebu_r128 *s, uint32_t layout);
/* Frees the buffers, the channel records and the integrator and clears the pointers. Returns 1. */
KVAUDIO_API uint32_t ebu_r128_destroy(s_ebu_r128 *s);
/* The same release as ebu_r128_destroy. */
KVAUDIO_API void ebu_r128_delete(s_ebu_r128 *s);

#ifdef __cplusplus
}
#endif

#endif
