/* A C host that knows the meter only from its documented field lists: the library writes no byte
 * past the record it is handed, and every channel record reads back where the host looks. The
 * installed-package test builds it against the installed tree as well. */
#include <math.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kvaudio/export.h"

typedef struct { double a0, a1, a2, b0, b1, b2, c1, c2, z1, z2; } Filter;
typedef struct {
  Filter pre, rlb;
  float *window, *step;
  float weight, loudness;
} Channel;
typedef struct {
  uint8_t mode;
  uint32_t sampleRate;
  uint16_t windowMs;
  uint32_t windowSamples, stepSamples, stepMs, fillCount;
  uint8_t resolution, channels;
  Channel *channel;
  float *integrator;
  uint64_t integratorCount;
  uint8_t relativeGate;
  float currentLoudness, integratedLoudness;
} Meter;

KVAUDIO_API uint32_t ebu_r128_init(Meter *s, uint8_t check, uint8_t bits, uint32_t rate, uint8_t mode, uint8_t nch);
KVAUDIO_API uint32_t ebu_r128_process_samples(Meter *s, const void *samples, size_t frames);
KVAUDIO_API uint32_t ebu_r128_adjust_gain(Meter *s, uint8_t channel, float dB);
KVAUDIO_API uint32_t ebu_r128_destroy(Meter *s);
KVAUDIO_API float calculate_ampl_from_db(float x);

enum { kGuard = 64, kChannels = 3, kRate = 44101 }; /* mode 2: the window is not whole steps */
static int failures;
#define CHECK(cond) ((cond) ? (void)0 : (void)(printf("line %d: %s\n", __LINE__, #cond), ++failures))

static int GuardsIntact(const unsigned char *p) {
  for (size_t i = sizeof(Meter); i < sizeof(Meter) + kGuard; ++i)
    if (p[i] != 0xA5) return 0;
  return 1;
}

int main(void) {
  unsigned char *block = malloc(sizeof(Meter) + kGuard);
  Meter *s = (Meter *)block;
  memset(block, 0, sizeof(Meter));
  memset(block + sizeof(Meter), 0xA5, kGuard);
  CHECK(sizeof(Meter) == 72 && sizeof(Channel) == 184);
  CHECK(ebu_r128_init(s, 1, 16, kRate, 2, kChannels) == 1);
  CHECK(s->mode == 2 && s->sampleRate == kRate && s->windowMs == 3000 && s->stepMs == 100);
  CHECK(s->windowSamples == 132303 && s->stepSamples == 4410 && s->resolution == 16);
  CHECK(s->channels == kChannels && s->relativeGate == 8 && s->integrator && s->integratorCount == 0);
  for (uint8_t c = 0; c < kChannels; ++c) CHECK(ebu_r128_adjust_gain(s, c, 1.5f * c) == 1);

  /* Channel c carries noise at 1/(c+1) of the level; the input goes in one step per call. */
  const uint32_t n = s->stepSamples, w = s->windowSamples;
  int16_t *pcm = malloc(sizeof(int16_t) * n * kChannels);
  float *previous = calloc(kChannels * n, sizeof(float));
  uint32_t seed = 1;
  for (uint32_t k = 0; k < 40; ++k) {
    for (uint32_t i = 0; i < n * kChannels; ++i, seed = seed * 1664525u + 1013904223u)
      pcm[i] = (int16_t)(((int32_t)(seed >> 16) - 32768) % 16000 / (int32_t)(i % kChannels + 1));
    for (int c = 0; c < kChannels && k > 0; ++c) memcpy(previous + c * n, s->channel[c].step, n * sizeof(float));
    CHECK(ebu_r128_process_samples(s, pcm, n) == 1 && s->fillCount == 0);
  }
  for (int c = 0; c < kChannels; ++c) {
    const Channel *ch = &s->channel[c];
    /* The window holds its samples oldest first: the last two steps at its end, in order. */
    CHECK(memcmp(ch->window + (w - n), ch->step, n * sizeof(float)) == 0);
    CHECK(memcmp(ch->window + (w - 2 * n), previous + c * n, n * sizeof(float)) == 0);
    CHECK(ch->pre.a0 == 1.0 && ch->rlb.b0 == 1.0 && ch->rlb.b1 == -2.0 && ch->pre.z1 != 0.0 && ch->rlb.z2 != 0.0);
    CHECK(ch->weight == calculate_ampl_from_db(1.5f * c));
    double sum = 0.0;
    for (uint32_t i = 0; i < w; ++i) sum += (double)ch->window[i] * ch->window[i];
    CHECK(fabs(ch->loudness - (10 * log10(sum / w * ch->weight) - 0.691)) < 1e-5);
  }
  CHECK(s->channel[0].loudness > s->channel[1].loudness + 3 && s->channel[1].loudness > s->channel[2].loudness);
  CHECK(GuardsIntact(block));
  CHECK(ebu_r128_destroy(s) == 1 && !s->channel && !s->integrator && GuardsIntact(block));
  free(previous);
  free(pcm);
  free(block);
  printf("meter layout: %s\n", failures ? "FAILED" : "ok");
  return failures != 0;
}
