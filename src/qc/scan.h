// Per-channel sample scan of one video frame: level, DC, jumps, zero runs, clip runs, pair products.
#pragma once

#include <cstdint>

namespace kvaudio::qc {

constexpr uint32_t kMaxQcChannels = 64;

// Integer thresholds of the scan, in sample units of the configured width.
struct ScanLimits {
  int64_t clickJump;    // |s[n] - 2 s[n-1] + s[n-2]| at or above it is a click jump
  int64_t crackleJump;  // ... a crackle jump
  int64_t clipLevel;    // |s| at or above it is a clipped sample
  uint32_t clipRun;     // consecutive clipped samples that make clipping
  uint32_t dropoutRun;  // consecutive exact zeros that make a dropout
  int64_t floor;        // envelope at or above it is signal, below it noise floor or dither
};

// Samples in one block of the dropout level test.
constexpr uint32_t kDropBlock = 240;

// State of one channel that runs on from one frame to the next.
struct ChannelCarry {
  int64_t previous = 0, previous2 = 0;
  uint32_t havePrevious = 0;    // 0, 1 or 2 samples of history
  uint32_t sinceCrackle = 3;    // samples since the last counted crackle jump, up to 3
  int64_t envelope = 0;         // peak |s| decaying by 1/256 a sample (about 5 ms at 48 kHz)
  int64_t envelopeAtZero = 0;   // envelope at the last non-zero sample before the zero run
  uint64_t zeroRun = 0;
  uint64_t clipRun = 0;
  double blockPower = 0.0;      // sum of squares of the open dropout block
  uint32_t blockFill = 0;
  bool blockLoud = false;       // the previous block was signal well above the floor
};

// Figures of one channel over one frame.
struct ChannelStats {
  int64_t sum;              // sum of the samples
  double sumSquares;        // sum of the squared samples
  uint64_t maxAbs;          // largest |sample|
  uint64_t maxJump;         // largest second difference |s[n] - 2 s[n-1] + s[n-2]| (the prediction
                            // residual of a straight line), history from the previous frame included
  uint32_t clickJumps;      // second differences at or above ScanLimits::clickJump
  uint32_t crackleJumps;    // ... at or above ScanLimits::crackleJump, at least 3 samples apart
  uint32_t dropouts;        // zero runs that end here, at least dropoutRun and shorter than the frame
                            // long, after signal whose envelope reached ScanLimits::floor
  uint32_t levelDrops;      // blocks of kDropBlock samples below the floor right after a block
                            // 30 dB above it
  uint64_t longestDropout;  // longest of those, in samples
  uint32_t clippedSamples;  // samples of this frame inside a clip run of at least clipRun
  uint64_t longestClip;     // longest clip run reaching into this frame
};

// Scans channel c of `frames` interleaved periods (16-bit when wide is false, else 32-bit).
ChannelStats ScanChannel(const void *pcm, uint64_t frames, uint32_t channels, uint32_t c, bool wide,
                         const ScanLimits &limits, ChannelCarry &carry);

// How far the largest second difference of channel c inside the frame (from its third sample on)
// stands above the largest one within 32 samples either side of it, its own +-2 samples left
// out: a single-sample click stands alone, a drum or pluck onset is followed by more of the same.
double ClickIsolation(const void *pcm, uint64_t frames, uint32_t channels, uint32_t c, bool wide);

// Sum of the products of channels a and b over the frame.
double PairProducts(const void *pcm, uint64_t frames, uint32_t channels, uint32_t a, uint32_t b, bool wide);

}  // namespace kvaudio::qc
