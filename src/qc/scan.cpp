// Per-channel sample scan of the QC frame analysis, in integer sample units.
#include "qc/scan.h"

#include <algorithm>
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
  const double floor = static_cast<double>(lim.floor);
  const double quietPower = floor * floor * kDropBlock, loudPower = quietPower * 1000.0;  // 30 dB above
  ChannelCarry k = carry;
  for (uint64_t f = 0; f < frames; ++f) {
    const int64_t s = Load<S>(pcm, f * channels + c);
    const uint64_t a = Magnitude(s);
    st.sum += s;
    const double sd = static_cast<double>(s);
    st.sumSquares += sd * sd;
    if (a > st.maxAbs) st.maxAbs = a;
    if (k.havePrevious == 2) {
      const uint64_t jump = Magnitude(s - 2 * k.previous + k.previous2);
      if (jump > st.maxJump) st.maxJump = jump;
      st.clickJumps += jump >= click;
      // Crackle counts separate impulses: the three second differences of one impulse count once.
      if (jump >= crackle && k.sinceCrackle > 2) {
        ++st.crackleJumps;
        k.sinceCrackle = 0;
      }
    } else {
      ++k.havePrevious;
    }
    if (k.sinceCrackle < 3) ++k.sinceCrackle;
    k.previous2 = k.previous;
    k.previous = s;
    k.envelope = std::max(static_cast<int64_t>(a), k.envelope - (k.envelope >> 8));
    if (s == 0) {
      ++k.zeroRun;
    } else {
      if (k.envelopeAtZero >= lim.floor && k.zeroRun >= lim.dropoutRun && k.zeroRun < frames) {
        ++st.dropouts;
        if (k.zeroRun > st.longestDropout) st.longestDropout = k.zeroRun;
      }
      k.zeroRun = 0;
      k.envelopeAtZero = k.envelope;
    }
    k.blockPower += sd * sd;
    if (++k.blockFill == kDropBlock) {
      if (k.blockLoud && k.blockPower < quietPower) ++st.levelDrops;
      k.blockLoud = k.blockPower >= loudPower;
      k.blockPower = 0.0;
      k.blockFill = 0;
    }
    if (a >= clip) {
      ++k.clipRun;
      if (k.clipRun >= lim.clipRun) {
        ++st.clippedSamples;
        if (k.clipRun > st.longestClip) st.longestClip = k.clipRun;
      }
    } else {
      k.clipRun = 0;
    }
  }
  carry = k;
  return st;
}

template <typename S>
double Products(const uint8_t *pcm, uint64_t frames, uint32_t channels, uint32_t a, uint32_t b) {
  double sum = 0.0;
  for (uint64_t f = 0; f < frames; ++f)
    sum += static_cast<double>(Load<S>(pcm, f * channels + a)) * static_cast<double>(Load<S>(pcm, f * channels + b));
  return sum;
}

template <typename S>
double Isolation(const uint8_t *pcm, uint64_t frames, uint32_t channels, uint32_t c) {
  constexpr uint64_t kReach = 32, kOwn = 2;
  auto residual = [&](uint64_t f) {
    return Magnitude(Load<S>(pcm, f * channels + c) - 2 * Load<S>(pcm, (f - 1) * channels + c) +
                     Load<S>(pcm, (f - 2) * channels + c));
  };
  uint64_t peak = 0, at = 0;
  for (uint64_t f = 2; f < frames; ++f) {
    const uint64_t r = residual(f);
    if (r > peak) peak = r, at = f;
  }
  uint64_t around = 0;
  const uint64_t from = at >= kReach + 2 ? at - kReach : 2, to = std::min(frames, at + kReach + 1);
  for (uint64_t f = from; f < to; ++f)
    if (f + kOwn < at || f > at + kOwn) around = std::max(around, residual(f));
  return around ? static_cast<double>(peak) / static_cast<double>(around) : (peak ? 1e9 : 0.0);
}

}  // namespace

double ClickIsolation(const void *pcm, uint64_t frames, uint32_t channels, uint32_t c, bool wide) {
  const auto *p = static_cast<const uint8_t *>(pcm);
  return wide ? Isolation<int32_t>(p, frames, channels, c) : Isolation<int16_t>(p, frames, channels, c);
}

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
