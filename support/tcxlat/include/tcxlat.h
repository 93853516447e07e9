/* tcxlat: conversion between frame counts and SMPTE 12M time addresses. */
#ifndef TCXLAT_H
#define TCXLAT_H

#include <stdint.h>

#ifndef TCXLAT_API
#  define TCXLAT_API __attribute__((visibility("default")))
#endif

/*
 * Format word (u32):
 *   bits 0-7   rate flags: 0 = 30 fps; 0x01 or 0x80 = 24; 0x02, 0x04, 0x20 or 0x40 = 29.97;
 *              0x08 or 0x10 = 25. When several rate bits are set, 25 wins over 24, and 24 over 29.97.
 *              At 29.97, bit 0x04 selects drop-frame counting (SMPTE 12M: frame numbers 00 and 01
 *              are skipped at the start of every minute not divisible by ten); without it the
 *              count runs as at 30.
 *   0x00000200 time addresses are exchanged as BCD (required by tc2Frame).
 *   0x00001000 the time address is written as a string of bytes (required by tc2String).
 *   0x00020000 frame counts wrap at 24 hours.
 *   0x00100000 the four output bytes are ordered frames, seconds, minutes, hours.
 *   0x10000000 no 24-hour wrap even when 0x00020000 is set (hours run on to 39, then wrap to 0).
 * BCD time word: frames in bits 24-31, seconds 16-23, minutes 8-15, hours 0-7; each a byte of two
 * BCD digits, tens in the high nibble.
 */
#define TCXLAT_RATE_MASK 0x000000FFu
#define TCXLAT_DROP_FRAME 0x00000004u
#define TCXLAT_BCD 0x00000200u
#define TCXLAT_STRING 0x00001000u
#define TCXLAT_WRAP_24H 0x00020000u
#define TCXLAT_FRAMES_FIRST 0x00100000u
#define TCXLAT_NO_WRAP 0x10000000u
#define TCXLAT_INVALID 0xFFFFFFFFu

#ifdef __cplusplus
extern "C" {
#endif

/* Nominal frames per second of a rate-flags byte: 24, 25 or 30 (29.97 counts as 30). */
TCXLAT_API uint32_t tcNominalRate(uint32_t format);

/* Writes the time address of frameCount as four BCD bytes: frames, seconds, minutes, hours.
 * Returns 0, or -1 (nothing written) when out is null or the format word lacks 0x1000 or 0x100000. */
TCXLAT_API int32_t tc2String(uint32_t frameCount, uint32_t format, uint8_t out[4]);

/* Returns the frame count of a BCD time word, or TCXLAT_INVALID when the format word lacks 0x200,
 * a digit is not BCD, a field is out of range (frames >= rate, seconds or minutes > 59, hours > 23
 * unless 0x10000000 is set), or the address is one that drop-frame counting skips. */
TCXLAT_API uint32_t tc2Frame(uint32_t bcdTime, uint32_t format);

#ifdef __cplusplus
}
#endif

#endif
