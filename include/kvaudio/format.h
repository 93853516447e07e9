/* Wave-format descriptors: a RIFF WAVE format record <-> a single 32-bit format code.
 * Codes are bit masks, one bit or nibble per rate, channel layout and width; mono codes carry
 * the marker 0x50000000. Errors are reported to the error output as "audioUtil(0x...)". */
#ifndef KVAUDIO_FORMAT_H
#define KVAUDIO_FORMAT_H

#include <stdint.h>

#include "kvaudio/errors.h"
#include "kvaudio/export.h"

/* Format codes as audGetFormatType returns them; audSetFormat takes them back (ignoring the top
 * four bits). Mono codes carry AUDFMT_MONO, except 44100 Hz mono wider than 16 bits. "16" stands
 * for every width but 8 where no wider code exists. */
#define AUDFMT_MONO 0x50000000u
#define AUDFMT_8000_MONO8 0x50100000u
#define AUDFMT_8000_STEREO8 0x00200000u
#define AUDFMT_8000_MONO16 0x50400000u
#define AUDFMT_8000_STEREO16 0x00800000u
#define AUDFMT_11025_MONO8 0x50000001u
#define AUDFMT_11025_STEREO8 0x00000002u
#define AUDFMT_11025_MONO16 0x50000004u
#define AUDFMT_11025_STEREO16 0x00000008u
#define AUDFMT_16000_MONO8 0x50000009u
#define AUDFMT_16000_STEREO8 0x0000000Au
#define AUDFMT_16000_MONO16 0x5000000Bu
#define AUDFMT_16000_STEREO16 0x0000000Cu
#define AUDFMT_22050_MONO8 0x50000010u
#define AUDFMT_22050_STEREO8 0x00000020u
#define AUDFMT_22050_MONO16 0x50000040u
#define AUDFMT_22050_STEREO16 0x00000080u
#define AUDFMT_24000_MONO16 0x50000090u
#define AUDFMT_24000_STEREO16 0x000000A0u
#define AUDFMT_32000_MONO8 0x51000000u
#define AUDFMT_32000_STEREO8 0x02000000u
#define AUDFMT_32000_MONO16 0x54000000u
#define AUDFMT_32000_STEREO16 0x08000000u
#define AUDFMT_44100_MONO8 0x50000100u
#define AUDFMT_44100_STEREO8 0x00000200u
#define AUDFMT_44100_MONO16 0x50000400u
#define AUDFMT_44100_MONO24 0x00000E00u /* any mono width but 8 and 16 */
#define AUDFMT_44100_STEREO16 0x00000800u
#define AUDFMT_44100_STEREO20 0x00000900u
#define AUDFMT_44100_STEREO24 0x00000A00u
#define AUDFMT_44100_STEREO32 0x00000C00u
#define AUDFMT_48000_MONO8 0x50001000u
#define AUDFMT_48000_STEREO8 0x00002000u
#define AUDFMT_48000_MONO16 0x50004000u
#define AUDFMT_48000_MONO24 0x5000E000u /* any mono width but 8 and 16 */
#define AUDFMT_48000_STEREO16 0x00008000u
#define AUDFMT_48000_STEREO20 0x00009000u
#define AUDFMT_48000_STEREO24 0x0000A000u
#define AUDFMT_48000_STEREO32 0x0000C000u
#define AUDFMT_76800_STEREO16 0x00010000u
#define AUDFMT_76800_STEREO32 0x00020000u /* any width but 16 */
#define AUDFMT_88200_STEREO16 0x000000C0u /* audSetFormat sets 32 bits */
#define AUDFMT_88200_STEREO32 0x000000D0u /* any width but 16 */
#define AUDFMT_96000_MONO16 0x50040000u
#define AUDFMT_96000_MONO24 0x500E0000u /* any mono width but 8 and 16 */
#define AUDFMT_96000_STEREO16 0x00080000u
#define AUDFMT_96000_STEREO20 0x00090000u
#define AUDFMT_96000_STEREO24 0x000A0000u
#define AUDFMT_96000_STEREO32 0x000C0000u

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
 * Returns KVAUDIO_ERR_NULL_ARGUMENT for a null record, KVAUDIO_ERR_UNSUPPORTED for a combination
 * without a code. */
KVAUDIO_API uint32_t audGetFormatType(const WAVEFORMATEX *format);

/* Sets PCM tag, channels, rate and bits from a code (its top four bits are ignored); cbSize is
 * cleared whatever the outcome, the byte rate and block align are left to audUpdateHeader.
 * Returns 0, KVAUDIO_ERR_UNSUPPORTED for an unknown code, KVAUDIO_ERR_NULL_ARGUMENT for a null
 * record. */
KVAUDIO_API uint32_t audSetFormat(uint32_t code, WAVEFORMATEX *format);

/* Completes nAvgBytesPerSec (packed width) and nBlockAlign (widths above 16 bits in 32-bit
 * containers) from channels, rate and bits. Returns 0, or KVAUDIO_ERR_NULL_ARGUMENT for a null
 * record. */
KVAUDIO_API uint32_t audUpdateHeader(WAVEFORMATEX *format);

#ifdef __cplusplus
}
#endif

#endif
