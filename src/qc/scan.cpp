// Per-channel sample scan of the QC frame analysis, in integer sample units.
#include "qc/scan.h"

#include <cstring>

namespace kvaudio::qc {
namespace {

template <typename S>
int64_t Load(const uint8_t *p, uint64_t i) {
  S s;
  std::memcpy(&s, p + i * sizeof(S), sizeof(S));
  return s;
}

uint64_t Magnitude(int64_t v) { return static_cast<uint64_t>(v < 0 ? -v : v); }

template <typename S>
ChannelStats Scan(const uint8_t *pcm, uint64_t frames, uint32_t channels, uint32_t c, const ScanLimits &lim,
                  ChannelCarry &carry) {
  ChannelStats st{};
  const uint64_t click = static_cast<uint64_t>(lim.clickJump), crackle = static_cast<uint64_t>(lim.crackleJump);
  const uint64_t clip = static_cast<uint64_t>(lim.clipLevel);
  int64_t prev = carry.previous;
  bool havePrev = carry.havePrevious, seen = carry.seenSignal;
  uint64_t zeroRun = carry.zeroRun, clipRun = carry.clipRun;
  for (uint64_t f = 0; f < frames; ++f) {
    const int64_t s = Load<S>(pcm, f * channels + c);
    const uint64_t a = Magnitude(s);
    st.sum += s;
    st.sumSquares += static_cast<double>(s) * static_cast<double>(s);
    if (a > st.maxAbs) st.maxAbs = a;
    if (havePrev) {
      const uint64_t jump = Magnitude(s - prev);
      if (jump > st.maxJump) st.maxJump = jump;
      st.clickJumps += jump >= click;
      st.crackleJumps += jump >= crackle;
    }
    prev = s;
    havePrev = true;
    if (s == 0) {
      ++zeroRun;
    } else {
      if (seen && zeroRun >= lim.dropoutRun && zeroRun < frames) {
        ++st.dropouts;
        if (zeroRun > st.longestDropout) st.longestDropout = zeroRun;
      }
      zeroRun = 0;
      seen = true;
    }
    if (a >= clip) {
      ++clipRun;
      if (clipRun >= lim.clipRun) {
        ++st.clippedSamples;
        if (clipRun > st.longestClip) st.longestClip = clipRun;
      }
    } else {
      clipRun = 0;
    }
  }
  carry = ChannelCarry{prev, havePrev, seen, zeroRun, clipRun};
  return st;
}

template <typename S>
double Products(const uint8_t *pcm, uint64_t frames, uint32_t channels, uint32_t a, uint32_t b) {
  double sum = 0.0;
  for (uint64_t f = 0; f < frames; ++f)
    sum += static_cast<double>(Load<S>(pcm, f * channels + a)) * static_cast<double>(Load<S>(pcm, f * channels + b));
  return sum;
}

}  // namespace

ChannelStats ScanChannel(const void *pcm, uint64_t frames, uint32_t channels, uint32_t c, bool wide,
                         const ScanLimits &limits, ChannelCarry &carry) {
  const auto *p = static_cast<const uint8_t *>(pcm);
  return wide ? Scan<int32_t>(p, frames, channels, c, limits, carry)
              : Scan<int16_t>(p, frames, channels, c, limits, carry);
}

double PairProducts(const void *pcm, uint64_t frames, uint32_t channels, uint32_t a, uint32_t b, bool wide) {
  const auto *p = static_cast<const uint8_t *>(pcm);
  return wide ? Products<int32_t>(p, frames, channels, a, b) : Products<int16_t>(p, frames, channels, a, b);
}

}  // namespace kvaudio::qc
