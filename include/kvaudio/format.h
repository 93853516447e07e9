/* Wave-format descriptors: a RIFF WAVE format record <-> a single 32-bit format code.
 * Codes are bit masks, one bit or nibble per rate, channel layout and width; mono codes carry
 * the marker 0x50000000. Errors are reported to the error output as "audioUtil(0x...)". */
#ifndef KVAUDIO_FORMAT_H
#define KVAUDIO_FORMAT_H

#include <stdint.h>

#include "kvaudio/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The RIFF WAVE format record, byte-packed (18 bytes). */
#pragma pack(push, 1)
typedef struct tWAVEFORMATEX {
  uint16_t wFormatTag;      /* 1 = PCM */
  uint16_t nChannels;       /* channels per sample period */
  uint32_t nSamplesPerSec;  /* sample rate in Hz */
  uint32_t nAvgBytesPerSec; /* bytes per second */
  uint16_t nBlockAlign;     /* bytes per sample period */
  uint16_t wBitsPerSample;  /* bits per sample */
  uint16_t cbSize;          /* bytes of extra format data that follow */
} WAVEFORMATEX;
#pragma pack(pop)

#ifdef __cplusplus
static_assert(sizeof(WAVEFORMATEX) == 18, "WAVEFORMATEX layout");
#else
_Static_assert(sizeof(WAVEFORMATEX) == 18, "WAVEFORMATEX layout");
#endif

/* Format code of the record's rate, channel count (one or other) and width.
 * Returns 0xA80A2005 for a null record, 0xA80A8003 for a combination without a code. */
KVAUDIO_API uint32_t audGetFormatType(const WAVEFORMATEX *format);

/* Sets PCM tag, channels, rate and bits from a code (its top four bits are ignored); cbSize is
 * cleared whatever the outcome, the byte rate and block align are left to audUpdateHeader.
 * Returns 0, 0xA80A8003 for an unknown code, 0xA80A2005 for a null record. */
KVAUDIO_API uint32_t audSetFormat(uint32_t code, WAVEFORMATEX *format);

/* Completes nAvgBytesPerSec (packed width) and nBlockAlign (widths above 16 bits in 32-bit
 * containers) from channels, rate and bits. Returns 0, or 0xA80A2005 for a null record. */
KVAUDIO_API uint32_t audUpdateHeader(WAVEFORMATEX *format);

#ifdef __cplusplus
}
#endif

#endif
