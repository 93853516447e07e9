/* Audio quality control: configuration, delivery-standard targets, channel layouts, rule events
 * and the stand-alone loudness and true-peak analyses of interleaved PCM.
 * Every record begins with its own size in bytes. Levels are in dB, dBFS or LUFS; -200.0 means
 * no signal or not measured. QC functions return 0 on success and -1 for a bad argument. */
#ifndef KVAUDIO_QC_H
#define KVAUDIO_QC_H

#include <stddef.h>
#include <stdint.h>

#include "kvaudio/export.h"

#define KVQC_OK 0                /* success */
#define KVQC_ERROR (-1)          /* bad argument; nothing done */
#define KVQC_NO_SIGNAL (-200.0)  /* level of no signal, or not measured */

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __cplusplus
#  define KVAUDQC_ASSERT(cond, msg) static_assert(cond, msg)
#else
#  define KVAUDQC_ASSERT(cond, msg) _Static_assert(cond, msg)
#endif

/* Configuration of a QC engine; every field left at zero takes its default (see docs/qc.md). */
typedef struct kvaudqcConfig {
  uint32_t size;             /* 512 */
  uint32_t sampleRate;       /* default 48000 */
  uint32_t channels;         /* default 2 */
  uint32_t bitsPerSample;    /* default 16 */
  uint32_t flags;            /* default 15. Rule groups: bit 0 rule 1; bit 1 channel and level
                                rules 2 4 11 12 14 15 17; bit 2 loudness rules 5 6 7 8 18; bit 3
                                sample-error rules 3 9 10 13 16. Bit 5: true-peak maximum -1.0;
                                bit 6: standard 1 */
  uint32_t channelMask32;    /* low 32 bits of the analysed-channel mask */
  uint64_t channelMask;      /* analysed channels, bit n = channel n */
  uint32_t standard;         /* delivery standard for kvqcAudioStandardDefaults */
  uint32_t layoutId;         /* programme layout id */
  char layoutName[64];       /* programme layout name; takes precedence over layoutId */
  uint32_t ruleSettings[22]; /* [0] window frames, [1..18] minimum run frames of rules 1..18,
                                [19] crackle jumps per frame, [20] dropout zeros, [21] clip run */
  uint32_t reservedA[3];     /* not defaulted. [0]: rule mask, bit r-1 keeps rule r of the enabled
                                groups (0: all of them); [1], [2] unused */
  uint32_t loudnessLayoutId; /* loudness layout id */
  uint32_t loudnessAllChannels; /* non-zero: per-channel checks cover all channels */
  uint32_t reservedB;        /* carried through unchanged */
  uint64_t loudnessMask;     /* channels of the loudness layout */
  uint64_t loudnessMask2;    /* second loudness mask */
  uint64_t checkMask;        /* channels of the per-channel checks */
  char loudnessLayoutName[64]; /* takes precedence over loudnessLayoutId */
  double levelFloor;         /* dB, default -70.0; absolute gate of the engine's loudness */
  double peakCeiling;        /* dBFS, default -0.1; a sample at or above it counts as clipped */
  double reservedC;          /* carried through unchanged */
  double limits[23];         /* rule thresholds, by rule in docs/qc.md; [3..8] from the standard */
} kvaudqcConfig;

/* Loudness targets of a delivery standard. */
typedef struct kvaudqcTargets {
  uint32_t size;       /* 56 */
  uint32_t standard;   /* the standard number asked for */
  double target;       /* integrated loudness, LUFS */
  double tolerance;    /* LU around the target */
  double truePeakMax;  /* dBTP */
  double rangeMax;     /* loudness range, LU */
  double momentaryMax; /* LUFS; 0.0 for every standard */
  double shortTermMax; /* LUFS; 0.0 for every standard */
} kvaudqcTargets;

/* A channel layout with its BS.1770 channel weights. */
typedef struct kvaudqcLayout {
  uint32_t size;         /* 344 */
  uint32_t id;           /* 0 for "None" */
  uint32_t channels;     /* 2, 6 or 8; 0 for "None" */
  uint32_t firstChannel; /* first channel of a stereo pair, else 0 */
  uint64_t channelMask;  /* bit n for each channel n of the layout */
  double weights[32];    /* loudness weight per channel position */
  char name[64];         /* display name */
} kvaudqcLayout;

/* One closed run of a rule: at least the rule's minimum number of consecutive frames. */
typedef struct kvaudqcEvent {
  uint32_t rule;          /* 1 to 18 */
  uint32_t channelMask32; /* low 32 bits of channelMask */
  uint64_t channelMask;   /* channels in which the rule held at some frame of the run */
  uint64_t startA;        /* first position counter at the first frame */
  uint64_t endA;          /* first position counter at the closing point minus 1 (0 at 0) */
  uint64_t startB;        /* second position counter at the first frame */
  uint64_t endB;          /* second position counter at the closing point */
  uint32_t frames;        /* frames in the run */
  uint32_t reserved;      /* 0 */
  uint64_t samples;       /* samples per channel in the run */
  double maxValue;        /* maximum value over the run, from 0.0 */
  double reference;       /* reference of the run's last frame */
  double maxAuxA;         /* maximum of the first further level, from -200.0 */
  double maxAuxB;         /* maximum of the second further level, from -200.0 */
  double ratio;           /* min(1, |maxValue| / |reference|); reference 0: 1 if maxValue > 0, else 0 */
} kvaudqcEvent;

/* Live state of one rule after the latest frame. */
typedef struct kvaudqcDetect {
  uint32_t state;         /* 0 before the first frame; 1 clear or run below minimum; 2 run at minimum */
  uint32_t runFrames;     /* current run, 0 when the rule does not hold */
  uint32_t runSamples;    /* samples of the current run, clamped to 4294967295 */
  uint32_t windowFill;    /* frames in the sliding window */
  uint32_t windowCount;   /* of those, frames in which the rule held */
  uint32_t eventCount;    /* events of this rule so far */
  uint32_t channelMask32; /* low 32 bits of channelMask */
  uint32_t reserved;
  uint64_t channelMask;   /* the frame's channels when the rule holds, else 0 */
  uint64_t info;          /* rule-specific value of the frame */
  double value;           /* the frame's measured quantity */
  double reference;       /* what it is compared with */
  double ratio;           /* min(1, |value| / |reference|); reference 0: 1 if value > 0, else 0 */
} kvaudqcDetect;

/* Per-channel peaks of a buffer (kvqcAudioAnalyzeTruePeak). */
typedef struct kvaudqcTruePeak {
  uint32_t size;          /* 560 */
  uint32_t channels;      /* 1 to 32 */
  uint32_t bitsPerSample; /* 16 or 32 */
  uint32_t sampleRate;    /* stored only */
  uint64_t channelMask;   /* channels measured */
  double peakDb[32];      /* 20 log10(peak); -200.0 for a zero peak or an unmeasured channel */
  double peakLinear[32];  /* peak as a linear value; 0.0 for unmeasured channels */
  double maxPeakDb;       /* largest peakDb of the measured channels; -200.0 when none */
  uint8_t reserved[16];   /* zero */
} kvaudqcTruePeak;

/* Loudness of a buffer against a delivery standard (kvqcAudioAnalyzeLoudness). */
typedef struct kvaudqcLoudness {
  uint32_t size;          /* 80 */
  uint32_t channels;
  uint32_t bitsPerSample; /* 16 or 32 */
  uint32_t sampleRate;
  uint32_t standard;      /* the standard checked */
  uint32_t layoutId;      /* resolved layout, 0 for the flat layout */
  uint64_t channelMask;   /* channels measured */
  double integrated;      /* whole buffer, LUFS */
  double momentary;       /* last 400 ms, LUFS */
  double shortTerm;       /* last 3 s, LUFS */
  double range;           /* LU: 95th minus 10th percentile of the block loudnesses */
  double truePeak;        /* dBFS; -200.0 if not measured */
  uint32_t violations;    /* bit 0 below target, 1 above target, 2 true peak, 3 range,
                             4 momentary, 5 short-term */
  uint32_t reserved;      /* zero */
} kvaudqcLoudness;

/* Result of one video frame of analysis (kvqcAudioFrame). */
typedef struct kvaudqcFrameAnalyze {
  uint32_t size;             /* 1856, written by the library */
  uint32_t channels;         /* channels per sample period, from the configuration */
  uint64_t frameIndex;       /* position counter A: index of this video frame, from 0 */
  uint64_t samplePosition;   /* position counter B: sample period of the frame's first sample */
  uint32_t samples;          /* sample periods in this frame */
  uint32_t activeRules;      /* bit r-1 set when rule r's condition held in this frame */
  double momentary;          /* momentary loudness (last 400 ms), LUFS; -200.0 when not measured */
  double shortTerm;          /* short-term loudness (last 3 s), LUFS; -200.0 when not measured */
  double peakDb[32];         /* per channel: sample peak of this frame, dBFS; -200.0 silent/unchecked */
  double rmsDb[32];          /* per channel: RMS of this frame, dBFS; -200.0 silent/unchecked */
  kvaudqcDetect detect[18];  /* live state of rule r at index r-1 */
} kvaudqcFrameAnalyze;

/* Summary of a whole run (kvqcAudioFinish). */
typedef struct kvaudqcReport {
  uint32_t size;             /* 152, written by the library */
  uint32_t channels;         /* channels per sample period */
  uint64_t frames;           /* video frames analysed */
  uint64_t samples;          /* sample periods analysed */
  double integrated;         /* gated integrated loudness (BS.1770-4), LUFS; -200.0 when none */
  double range;              /* loudness range (EBU Tech 3342), LU */
  double truePeak;           /* highest peak of the checked channels (4x linear interpolation, as
                                kvqcAudioAnalyzeTruePeak), dBTP; -200.0 silent */
  double maxMomentary;       /* highest momentary loudness, LUFS */
  double maxShortTerm;       /* highest short-term loudness, LUFS */
  uint32_t eventsPerRule[18];/* events of rule r at index r-1 */
  uint32_t totalEvents;      /* events in the event list */
  uint32_t standard;         /* delivery standard the loudness was checked against, 0 none */
  uint32_t violations;       /* bits as in kvaudqcLoudness, against the configured limits[3..8];
                                0 when flags bit 2 is clear */
  uint32_t passed;           /* 1 when there is no event and no violation, else 0 */
} kvaudqcReport;

KVAUDQC_ASSERT(sizeof(kvaudqcConfig) == 512, "kvaudqcConfig size");
KVAUDQC_ASSERT(offsetof(kvaudqcConfig, channelMask) == 24, "kvaudqcConfig layout");
KVAUDQC_ASSERT(offsetof(kvaudqcConfig, layoutName) == 40, "kvaudqcConfig layout");
KVAUDQC_ASSERT(offsetof(kvaudqcConfig, ruleSettings) == 104, "kvaudqcConfig layout");
KVAUDQC_ASSERT(offsetof(kvaudqcConfig, loudnessLayoutId) == 204, "kvaudqcConfig layout");
KVAUDQC_ASSERT(offsetof(kvaudqcConfig, loudnessMask) == 216, "kvaudqcConfig layout");
KVAUDQC_ASSERT(offsetof(kvaudqcConfig, checkMask) == 232, "kvaudqcConfig layout");
KVAUDQC_ASSERT(offsetof(kvaudqcConfig, loudnessLayoutName) == 240, "kvaudqcConfig layout");
KVAUDQC_ASSERT(offsetof(kvaudqcConfig, levelFloor) == 304, "kvaudqcConfig layout");
KVAUDQC_ASSERT(offsetof(kvaudqcConfig, limits) == 328, "kvaudqcConfig layout");
KVAUDQC_ASSERT(sizeof(kvaudqcTargets) == 56, "kvaudqcTargets size");
KVAUDQC_ASSERT(offsetof(kvaudqcTargets, target) == 8, "kvaudqcTargets layout");
KVAUDQC_ASSERT(offsetof(kvaudqcTargets, shortTermMax) == 48, "kvaudqcTargets layout");
KVAUDQC_ASSERT(sizeof(kvaudqcLayout) == 344, "kvaudqcLayout size");
KVAUDQC_ASSERT(offsetof(kvaudqcLayout, channelMask) == 16, "kvaudqcLayout layout");
KVAUDQC_ASSERT(offsetof(kvaudqcLayout, weights) == 24, "kvaudqcLayout layout");
KVAUDQC_ASSERT(offsetof(kvaudqcLayout, name) == 280, "kvaudqcLayout layout");
KVAUDQC_ASSERT(sizeof(kvaudqcEvent) == 104, "kvaudqcEvent size");
KVAUDQC_ASSERT(offsetof(kvaudqcEvent, endB) == 40, "kvaudqcEvent layout");
KVAUDQC_ASSERT(offsetof(kvaudqcEvent, frames) == 48, "kvaudqcEvent layout");
KVAUDQC_ASSERT(offsetof(kvaudqcEvent, samples) == 56, "kvaudqcEvent layout");
KVAUDQC_ASSERT(offsetof(kvaudqcEvent, ratio) == 96, "kvaudqcEvent layout");
KVAUDQC_ASSERT(sizeof(kvaudqcDetect) == 72, "kvaudqcDetect size");
KVAUDQC_ASSERT(offsetof(kvaudqcDetect, channelMask32) == 24, "kvaudqcDetect layout");
KVAUDQC_ASSERT(offsetof(kvaudqcDetect, channelMask) == 32, "kvaudqcDetect layout");
KVAUDQC_ASSERT(offsetof(kvaudqcDetect, ratio) == 64, "kvaudqcDetect layout");
KVAUDQC_ASSERT(sizeof(kvaudqcTruePeak) == 560, "kvaudqcTruePeak size");
KVAUDQC_ASSERT(offsetof(kvaudqcTruePeak, peakDb) == 24, "kvaudqcTruePeak layout");
KVAUDQC_ASSERT(offsetof(kvaudqcTruePeak, peakLinear) == 280, "kvaudqcTruePeak layout");
KVAUDQC_ASSERT(offsetof(kvaudqcTruePeak, maxPeakDb) == 536, "kvaudqcTruePeak layout");
KVAUDQC_ASSERT(sizeof(kvaudqcLoudness) == 80, "kvaudqcLoudness size");
KVAUDQC_ASSERT(offsetof(kvaudqcLoudness, channelMask) == 24, "kvaudqcLoudness layout");
KVAUDQC_ASSERT(offsetof(kvaudqcLoudness, truePeak) == 64, "kvaudqcLoudness layout");
KVAUDQC_ASSERT(offsetof(kvaudqcLoudness, violations) == 72, "kvaudqcLoudness layout");
KVAUDQC_ASSERT(sizeof(kvaudqcFrameAnalyze) == 1856, "kvaudqcFrameAnalyze size");
KVAUDQC_ASSERT(offsetof(kvaudqcFrameAnalyze, momentary) == 32, "kvaudqcFrameAnalyze layout");
KVAUDQC_ASSERT(offsetof(kvaudqcFrameAnalyze, peakDb) == 48, "kvaudqcFrameAnalyze layout");
KVAUDQC_ASSERT(offsetof(kvaudqcFrameAnalyze, detect) == 560, "kvaudqcFrameAnalyze layout");
KVAUDQC_ASSERT(sizeof(kvaudqcReport) == 152, "kvaudqcReport size");
KVAUDQC_ASSERT(offsetof(kvaudqcReport, eventsPerRule) == 64, "kvaudqcReport layout");
KVAUDQC_ASSERT(offsetof(kvaudqcReport, passed) == 148, "kvaudqcReport layout");

/* Opaque QC engine. */
typedef struct kvqcAudioEngine kvqcAudioEngine;

/* Creates an engine from a copy of *config (null: all defaults) with every zero field defaulted.
 * The caller's record is not written. Returns null when memory runs out. Release with
 * kvqcAudioClose. */
KVAUDIO_API kvqcAudioEngine *kvqcAudioOpen(const kvaudqcConfig *config);
/* Frees the engine and its event list. Returns 0, or -1 for a null engine (nothing done). */
KVAUDIO_API int32_t kvqcAudioClose(kvqcAudioEngine *engine);
/* Analyses one video frame: `frames` sample periods of interleaved PCM in the configured channel
 * count and width (16- or 32-bit signed). Feeds the enabled rule trackers and advances counter A
 * by 1 and counter B by `frames`. Fills *out when it is not null. Returns 0, or -1 for a null
 * engine, null pcm, 0 frames, an engine already finished (until kvqcAudioReset), or a
 * configuration the analysis does not take (1-64 channels, 16 or 32 bits, 8-384 kHz). */
KVAUDIO_API int32_t kvqcAudioFrame(kvqcAudioEngine *engine, const void *pcm, uint32_t frames,
                                   kvaudqcFrameAnalyze *out);
/* Ends the run: closes open rule runs (they become events when long enough) and fills *report
 * when it is not null. Returns 0, or -1 for a null engine or an engine already finished. */
KVAUDIO_API int32_t kvqcAudioFinish(kvqcAudioEngine *engine, kvaudqcReport *report);
/* Stores the number of events so far in *count. Returns 0, or -1 for a null argument. */
KVAUDIO_API int32_t kvqcAudioGetEventCount(const kvqcAudioEngine *engine, uint32_t *count);
/* Copies up to `capacity` events, from index `first` on, in the order their runs closed, into
 * out[] and stores how many were copied in *copied. Returns 0, or -1 for a null engine, null
 * `copied`, or null `out` with a non-zero capacity. */
KVAUDIO_API int32_t kvqcAudioGetEvents(const kvqcAudioEngine *engine, uint32_t first, uint32_t capacity,
                                       kvaudqcEvent *out, uint32_t *copied);
/* Returns the engine to its state right after kvqcAudioOpen, keeping the configuration: trackers,
 * events, meters and counters cleared. Returns 0, or -1 for a null engine. */
KVAUDIO_API int32_t kvqcAudioReset(kvqcAudioEngine *engine);
/* Fills *out with the targets of `standard` (0-7, 100). Returns 0, or -1 for a null record or an
 * unknown standard (the record then holds only size and standard). */
KVAUDIO_API int32_t kvqcAudioStandardDefaults(uint32_t standard, kvaudqcTargets *out);
/* Fills *out with the layout named `name` (case-insensitive; null, empty or "None" give the
 * empty "None" layout). Returns 0, or -1 for an unknown name (record untouched) or a null record. */
KVAUDIO_API int32_t kvqcAudioLayoutFromName(const char *name, kvaudqcLayout *out);

/* Per-channel peaks of `frames` interleaved frames of 16- or 32-bit signed samples; channelMask 0
 * measures every channel. Returns 0, or -1 (nothing written) for null pointers, 0 or more than 32
 * channels, 0 frames or another width. */
KVAUDIO_API int32_t kvqcAudioAnalyzeTruePeak(const uint8_t *pcm, uint32_t frames, uint32_t channels,
                                             uint32_t bitsPerSample, uint32_t sampleRate,
                                             uint64_t channelMask, kvaudqcTruePeak *out);
/* Un-gated, unfiltered loudness of a buffer (whole, last 400 ms, last 3 s), its loudness range,
 * peak and violations of `standard`, with channel weights of the layout `layoutName` (flat when
 * null or unknown). Returns 0, or -1 (nothing written) for the arguments refused by
 * kvqcAudioAnalyzeTruePeak. */
KVAUDIO_API int32_t kvqcAudioAnalyzeLoudness(const uint8_t *pcm, uint32_t frames, uint32_t channels,
                                             uint32_t bitsPerSample, uint32_t sampleRate,
                                             const char *layoutName, uint32_t standard,
                                             kvaudqcLoudness *out);

#undef KVAUDQC_ASSERT

#ifdef __cplusplus
}
#endif

#endif
