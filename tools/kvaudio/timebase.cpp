// Frame rates, video-frame cutting and timecode text.
#include "timebase.h"

#include <cinttypes>
#include <cstdio>

#include "kvaudio/cadence.h"
#include "tool.h"

namespace kvtool {
namespace {

const FrameRate kRates[] = {  // not constexpr: clang 14 with libstdc++ 12 has no constexpr std::string
    {"23.976", 24000, 1001, 24, 23, false}, {"24", 24, 1, 24, 24, false},
    {"25", 25, 1, 25, 25, false},           {"29.97", 30000, 1001, 30, 29, false},
    {"29.97df", 30000, 1001, 30, 29, true}, {"30", 30, 1, 30, 30, false},
    {"50", 50, 1, 50, 50, false},           {"59.94", 60000, 1001, 60, 59, false},
    {"59.94df", 60000, 1001, 60, 59, true}, {"60", 60, 1, 60, 60, false},
};

// Frames dropped at each minute not divisible by ten: 2 at 29.97, 4 at 59.94.
uint64_t DropPerMinute(const FrameRate &fps) { return fps.dropFrame ? fps.nominal / 15 : 0; }

}  // namespace

const char *FrameRateNames() { return "23.976, 24, 25, 29.97, 29.97df, 30, 50, 59.94, 59.94df, 60"; }

FrameRate ParseFrameRate(const std::string &text) {
  for (const FrameRate &r : kRates)
    if (text == r.name) return r;
  throw ToolError("unknown frame rate '" + text + "' (use " + FrameRateNames() + ")");
}

FrameCutter::FrameCutter(const FrameRate &fps, uint32_t rate) : fps_(fps), rate_(rate) {
  // The cadence is used where it keeps time exactly. Codes 30 and 60 follow the fractional
  // cadences, and at 44.1 kHz 23.976 follows the 24 cadence while the 29.97 and 59.94 cadences
  // average 1471.5 and 735.67 samples; those combinations are cut exactly here instead.
  const uint32_t code = fps.cadenceCode;
  if (rate == 48000) library_ = code != 30 && code != 60;
  if (rate == 44100) library_ = code == 24 || code == 25 || code == 50;
  for (uint64_t f = 0; f < 10; ++f) max_ = Samples(f) > max_ ? Samples(f) : max_;
}

uint32_t FrameCutter::Samples(uint64_t frame) const {
  uint32_t samples = 0;
  if (library_) {
    auto cadence = rate_ == 48000 ? audSamplesPerFrame48kHz : audSamplesPerFrame441kHz;
    // 600000 is a whole number of every cadence cycle (2, 5 and 6 frames).
    cadence(uint32_t(frame % 600000u), fps_.cadenceCode, 1, &samples, nullptr);
    return samples;
  }
  // Sample periods up to the start of frame n: floor(n * rate * den / num).
  auto start = [&](uint64_t n) {
    return (unsigned __int128)n * rate_ * fps_.denominator / fps_.numerator;
  };
  return uint32_t(start(frame + 1) - start(frame));
}

std::string FormatTimecode(uint64_t frames, const FrameRate &fps) {
  const uint64_t nominal = fps.nominal, drop = DropPerMinute(fps);
  if (drop) {
    // SMPTE 12M: add back the frame numbers skipped before this frame.
    const uint64_t perTenMinutes = nominal * 600 - drop * 9, perMinute = nominal * 60 - drop;
    uint64_t tens = frames / perTenMinutes, rest = frames % perTenMinutes;
    frames += drop * 9 * tens + (rest > drop ? drop * ((rest - drop) / perMinute) : 0);
  }
  uint64_t ff = frames % nominal, secs = frames / nominal;
  char text[32];
  std::snprintf(text, sizeof(text), "%02" PRIu64 ":%02" PRIu64 ":%02" PRIu64 "%c%02" PRIu64,
                secs / 3600 % 24, secs / 60 % 60, secs % 60, drop ? ';' : ':', ff);
  return text;
}

uint64_t ParseTimecode(const std::string &text, const FrameRate &fps) {
  unsigned h, m, s, f;
  char sep, end;
  if (std::sscanf(text.c_str(), "%u:%u:%u%c%u%c", &h, &m, &s, &sep, &f, &end) != 5 ||
      (sep != ':' && sep != ';' && sep != '.'))
    throw ToolError("bad timecode '" + text + "' (use HH:MM:SS:FF)");
  const uint64_t drop = DropPerMinute(fps);
  if (h > 23 || m > 59 || s > 59 || f >= fps.nominal || (drop && s == 0 && m % 10 && f < drop))
    throw ToolError("timecode '" + text + "' does not exist at " + fps.name + " fps");
  uint64_t minutes = 60 * h + m;
  return (minutes * 60 + s) * fps.nominal + f - drop * (minutes - minutes / 10);
}

std::string FormatSeconds(double seconds) {
  char text[32];
  std::snprintf(text, sizeof(text), "%.3f s", seconds);
  return text;
}

}  // namespace kvtool
