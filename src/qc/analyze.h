// Measurements shared by the stand-alone analyses and the QC report.
#pragma once

#include <cstdint>
#include <vector>

#include "kvaudio/qc.h"

namespace kvaudio::qc {

// Loudness (LUFS, no filter, no gate) of frames firstFrame .. firstFrame + frameCount - 1: the mean
// over frames of the per-frame sum of (sample * scale * weights[c])^2 over the channels in
// channelMask (channels of weight 0.0 skipped, channels from 32 on unweighted), as
// 10 log10(mean) - 0.691. -200.0 for no frames or a mean of 0. Samples are 16-bit when
// bitsPerSample is 16, else 32-bit.
double LoudnessForRange(const uint8_t *pcm, uint64_t firstFrame, uint64_t frameCount, uint32_t channels,
                        uint32_t bitsPerSample, const kvaudqcLayout &layout, uint64_t channelMask);

// Linear interpolation at position (n - 1) * p of the sorted values; 0.0 for none.
double Percentile(std::vector<double> values, double p);

}  // namespace kvaudio::qc
