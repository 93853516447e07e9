// Per-channel sample scan of one video frame: level, DC, jumps, zero runs, clip runs, pair products.
#pragma once

#include <cstdint>

namespace kvaudio::qc {

constexpr uint32_t kMaxQcChannels = 64;

// Integer thresholds of the scan, in sample units of the configured width.
struct ScanLimits {
  int64_t clickJump;    // |s[n] - s[n-1]| at or above it is a click jump
  int64_t crackleJump;  // ... a crackle jump
  int64_t clipLevel;    // |s| at or above it is a clipped sample
  uint32_t clipRun;     // consecutive clipped samples that make clipping
  uint32_t dropoutRun;  // consecutive exact zeros that make a dropout
};

// State of one channel that runs on from one frame to the next.
struct ChannelCarry {
  int64_t previous = 0;
  bool havePrevious = false;
  bool seenSignal = false;  // a non-zero sample has been seen since the last reset
  uint64_t zeroRun = 0;
  uint64_t clipRun = 0;
};

// Figures of one channel over one frame.
struct ChannelStats {
  int64_t sum;              // sum of the samples
  double sumSquares;        // sum of the squared samples
  uint64_t maxAbs;          // largest |sample|
  uint64_t maxJump;         // largest |s[n] - s[n-1]|, the previous frame's last sample included
  uint32_t clickJumps;      // jumps at or above ScanLimits::clickJump
  uint32_t crackleJumps;    // jumps at or above ScanLimits::crackleJump
  uint32_t dropouts;        // zero runs between non-zero samples that end here, at least dropoutRun
                            // and shorter than the frame long
  uint64_t longestDropout;  // longest of those, in samples
  uint32_t clippedSamples;  // samples of this frame inside a clip run of at least clipRun
  uint64_t longestClip;     // longest clip run reaching into this frame
};

// Scans channel c of `frames` interleaved periods (16-bit when wide is false, else 32-bit).
ChannelStats ScanChannel(const void *pcm, uint64_t frames, uint32_t channels, uint32_t c, bool wide,
                         const ScanLimits &limits, ChannelCarry &carry);

// Sum of the products of channels a and b over the frame.
double PairProducts(const void *pcm, uint64_t frames, uint32_t channels, uint32_t a, uint32_t b, bool wide);

}  // namespace kvaudio::qc
