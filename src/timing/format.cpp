// Format codes of wave-format records, both directions, and the derived header fields.
#include "kvaudio/format.h"

#include <cstddef>

#include "frame/errors.h"

namespace kvaudio::timing {
namespace {

constexpr uint32_t kNone = 0;  // no code for this combination
constexpr uint32_t kCodeMask = 0x0FFFFFFF;

// Codes of one rate by channel layout and width; "Wide" is any width without its own column.
struct RateCodes {
  uint32_t rate;
  uint32_t mono8, other8;
  uint32_t mono16, monoWide;
  uint32_t other16, other20, other24, other32, otherWide;
};

constexpr RateCodes kRateCodes[] = {
    {5563, 0x50100000, 0x00200000, 0x50400000, 0x50400000, 0x00800000, 0x00800000, 0x00800000, 0x00800000, 0x00800000},
    {7418, 0x50100000, 0x00200000, 0x50400000, 0x50400000, 0x00800000, 0x00800000, 0x00800000, 0x00800000, 0x00800000},
    {8000, 0x50100000, 0x00200000, 0x50400000, 0x50400000, 0x00800000, 0x00800000, 0x00800000, 0x00800000, 0x00800000},
    {11025, 0x50000001, 0x00000002, 0x50000004, 0x50000004, 0x00000008, 0x00000008, 0x00000008, 0x00000008, 0x00000008},
    {11127, 0x50000001, 0x00000002, 0x50000004, 0x50000004, 0x00000008, 0x00000008, 0x00000008, 0x00000008, 0x00000008},
    {16000, 0x50000009, 0x0000000A, 0x5000000B, 0x5000000B, 0x0000000C, 0x0000000C, 0x0000000C, 0x0000000C, 0x0000000C},
    {22050, 0x50000010, 0x00000020, 0x50000040, 0x50000040, 0x00000080, 0x00000080, 0x00000080, 0x00000080, 0x00000080},
    {22254, 0x50000010, 0x00000020, 0x50000040, 0x50000040, 0x00000080, 0x00000080, 0x00000080, 0x00000080, 0x00000080},
    {24000, kNone, kNone, 0x50000090, 0x50000090, 0x000000A0, 0x000000A0, 0x000000A0, 0x000000A0, 0x000000A0},
    {32000, 0x51000000, 0x02000000, 0x54000000, 0x54000000, 0x08000000, 0x08000000, 0x08000000, 0x08000000, 0x08000000},
    {44100, 0x50000100, 0x00000200, 0x50000400, 0x00000E00, 0x00000800, 0x00000900, 0x00000A00, 0x00000C00, 0x00000800},
    {48000, 0x50001000, 0x00002000, 0x50004000, 0x5000E000, 0x00008000, 0x00009000, 0x0000A000, 0x0000C000, 0x00008000},
    {76800, kNone, kNone, kNone, kNone, 0x00010000, 0x00020000, 0x00020000, 0x00020000, 0x00020000},
    {88200, kNone, kNone, kNone, kNone, 0x000000C0, 0x000000D0, 0x000000D0, 0x000000D0, 0x000000D0},
    {96000, kNone, kNone, 0x50040000, 0x500E0000, 0x00080000, 0x00090000, 0x000A0000, 0x000C0000, 0x00080000},
};

uint32_t CodeOf(const RateCodes &r, uint16_t channels, uint16_t bits) {
  if (channels == 1) return bits == 8 ? r.mono8 : bits == 16 ? r.mono16 : r.monoWide;
  switch (bits) {
    case 8: return r.other8;
    case 16: return r.other16;
    case 20: return r.other20;
    case 24: return r.other24;
    case 32: return r.other32;
    default: return r.otherWide;
  }
}

struct CodeFormat {
  uint32_t code;
  uint16_t channels;
  uint32_t rate;
  uint16_t bits;
};

// The reverse table; 0xC0 and 0xD0 both set 32 bits, so 16-bit 88200 Hz does not come back.
constexpr CodeFormat kCodeFormats[] = {
    {0x1, 1, 11025, 8},        {0x2, 2, 11025, 8},        {0x4, 1, 11025, 16},
    {0x8, 2, 11025, 16},       {0x9, 1, 16000, 8},        {0xA, 2, 16000, 8},
    {0xB, 1, 16000, 16},       {0xC, 2, 16000, 16},       {0x10, 1, 22050, 8},
    {0x20, 2, 22050, 8},       {0x40, 1, 22050, 16},      {0x80, 2, 22050, 16},
    {0x90, 1, 24000, 16},      {0xA0, 2, 24000, 16},      {0xC0, 2, 88200, 32},
    {0xD0, 2, 88200, 32},      {0x100, 1, 44100, 8},      {0x200, 2, 44100, 8},
    {0x400, 1, 44100, 16},     {0x800, 2, 44100, 16},     {0x900, 2, 44100, 20},
    {0xA00, 2, 44100, 24},     {0xC00, 2, 44100, 32},     {0xE00, 1, 44100, 24},
    {0x1000, 1, 48000, 8},     {0x2000, 2, 48000, 8},     {0x4000, 1, 48000, 16},
    {0x8000, 2, 48000, 16},    {0x9000, 2, 48000, 20},    {0xA000, 2, 48000, 24},
    {0xC000, 2, 48000, 32},    {0xE000, 1, 48000, 24},    {0x10000, 2, 76800, 16},
    {0x20000, 2, 76800, 32},   {0x40000, 1, 96000, 16},   {0x80000, 2, 96000, 16},
    {0x90000, 2, 96000, 20},   {0xA0000, 2, 96000, 24},   {0xC0000, 2, 96000, 32},
    {0xE0000, 1, 96000, 24},   {0x100000, 1, 8000, 8},    {0x200000, 2, 8000, 8},
    {0x400000, 1, 8000, 16},   {0x800000, 2, 8000, 16},   {0x1000000, 1, 32000, 8},
    {0x2000000, 2, 32000, 8},  {0x4000000, 1, 32000, 16}, {0x8000000, 2, 32000, 16},
};

}  // namespace
}  // namespace kvaudio::timing

using namespace kvaudio::timing;
using kvaudio::ReportError;

extern "C" {

uint32_t audGetFormatType(const WAVEFORMATEX *format) {
  if (!format) return ReportError(kvaudio::kErrNullArgument);
  for (const RateCodes &r : kRateCodes) {
    if (r.rate != format->nSamplesPerSec) continue;
    const uint32_t code = CodeOf(r, format->nChannels, format->wBitsPerSample);
    if (code != kNone) return code;
    break;
  }
  return ReportError(kvaudio::kErrUnsupported);
}

uint32_t audSetFormat(uint32_t code, WAVEFORMATEX *format) {
  if (!format) return ReportError(kvaudio::kErrNullArgument);
  format->cbSize = 0;
  const uint32_t key = code & kCodeMask;
  for (const CodeFormat &c : kCodeFormats) {
    if (c.code != key) continue;
    format->wFormatTag = 1;
    format->nChannels = c.channels;
    format->nSamplesPerSec = c.rate;
    format->wBitsPerSample = c.bits;
    return 0;
  }
  return ReportError(kvaudio::kErrUnsupported);
}

uint32_t audUpdateHeader(WAVEFORMATEX *format) {
  if (!format) return ReportError(kvaudio::kErrNullArgument);
  const uint32_t channels = format->nChannels;
  const uint32_t bytesPerSample = (format->wBitsPerSample + 7u) / 8u;
  format->nAvgBytesPerSec = channels * format->nSamplesPerSec * bytesPerSample;
  // Samples wider than 16 bits sit in 32-bit containers; the byte rate keeps the packed width.
  uint32_t align = channels * bytesPerSample;
  if (format->wBitsPerSample > 16) align = channels < 2 ? 4 : channels * 4;
  format->nBlockAlign = static_cast<uint16_t>(align);
  return 0;
}

}  // extern "C"
