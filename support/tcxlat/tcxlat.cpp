// tcxlat: frame count <-> time address at 24, 25, 29.97 (drop-frame or not) and 30 fps.
#include "tcxlat.h"

namespace {

constexpr uint32_t kDropFramesPer10Min = 17982;  // 10 * 1800 - 9 * 2
constexpr uint32_t kDropFramesPerMinute = 1798;   // 1800 - 2

struct Rate {
  uint32_t fps;
  bool drop;
};

Rate RateOf(uint32_t format) {
  const uint32_t f = format & TCXLAT_RATE_MASK;
  if (f & 0x18u) return {25, false};
  if (f & 0x81u) return {24, false};
  if (f & 0x66u) return {30, (f & TCXLAT_DROP_FRAME) != 0};
  return {30, false};
}

uint32_t FramesPerDay(Rate r) {
  return r.drop ? 24u * 6u * kDropFramesPer10Min : 24u * 3600u * r.fps;
}

bool WrapsAtDay(uint32_t format) {
  return (format & TCXLAT_WRAP_24H) && !(format & TCXLAT_NO_WRAP);
}

uint8_t ToBcd(uint32_t v) { return static_cast<uint8_t>(((v / 10) << 4) | (v % 10)); }

// Decodes a two-digit BCD byte; returns false when a nibble is above 9.
bool FromBcd(uint32_t byte, uint32_t *value) {
  const uint32_t hi = (byte >> 4) & 0xF, lo = byte & 0xF;
  if (hi > 9 || lo > 9) return false;
  *value = hi * 10 + lo;
  return true;
}

}  // namespace

extern "C" {

uint32_t tcNominalRate(uint32_t format) { return RateOf(format).fps; }

int32_t tc2String(uint32_t frameCount, uint32_t format, uint8_t out[4]) {
  if (!out || !(format & TCXLAT_STRING) || !(format & TCXLAT_FRAMES_FIRST)) return -1;
  const Rate r = RateOf(format);
  uint64_t n = frameCount;
  if (WrapsAtDay(format)) n %= FramesPerDay(r);
  if (r.drop) {
    // Count of displayed addresses: add back the two numbers skipped in each dropped minute.
    const uint64_t tens = n / kDropFramesPer10Min, rest = n % kDropFramesPer10Min;
    n += 18 * tens + (rest > 1 ? 2 * ((rest - 2) / kDropFramesPerMinute) : 0);
  }
  const uint64_t seconds = n / r.fps;
  out[0] = ToBcd(static_cast<uint32_t>(n % r.fps));
  out[1] = ToBcd(static_cast<uint32_t>(seconds % 60));
  out[2] = ToBcd(static_cast<uint32_t>(seconds / 60 % 60));
  out[3] = ToBcd(static_cast<uint32_t>(seconds / 3600 % (WrapsAtDay(format) ? 24 : 40)));
  return 0;
}

uint32_t tc2Frame(uint32_t bcdTime, uint32_t format) {
  if (!(format & TCXLAT_BCD)) return TCXLAT_INVALID;
  const Rate r = RateOf(format);
  uint32_t frames, seconds, minutes, hours;
  if (!FromBcd(bcdTime >> 24, &frames) || !FromBcd(bcdTime >> 16, &seconds) ||
      !FromBcd(bcdTime >> 8, &minutes) || !FromBcd(bcdTime, &hours))
    return TCXLAT_INVALID;
  if (frames >= r.fps || seconds > 59 || minutes > 59) return TCXLAT_INVALID;
  if (hours > 23 && !(format & TCXLAT_NO_WRAP)) return TCXLAT_INVALID;
  const uint32_t totalMinutes = hours * 60 + minutes;
  if (r.drop && seconds == 0 && frames < 2 && minutes % 10 != 0) return TCXLAT_INVALID;
  uint32_t n = (totalMinutes * 60 + seconds) * r.fps + frames;
  if (r.drop) n -= 2 * (totalMinutes - totalMinutes / 10);
  return n;
}

}  // extern "C"
