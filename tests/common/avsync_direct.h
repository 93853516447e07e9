// AV-sync detection as directly as it is defined, the reference for tests and benchmarks.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace kvtest {

struct AvSyncFound {
  uint32_t position;  // 0xFFFFFFFF when no start position has power
  double score;       // -1 then
};

// Per start, per sample, per channel: the channel mean, then its correlation with the burst p and
// its power; the best normalised score wins, the earliest start among equals.
template <typename T>
AvSyncFound AvSyncDirect(const T *in, size_t frames, size_t channels, const std::vector<double> &p) {
  double energy = 0.0;
  for (double v : p) energy += v * v;
  AvSyncFound best{0xFFFFFFFF, -1.0};
  for (size_t t = 0; t + p.size() <= frames; ++t) {
    double c = 0.0, power = 0.0;
    for (size_t j = 0; j < p.size(); ++j) {
      double sum = 0.0;
      for (size_t ch = 0; ch < channels; ++ch) sum += static_cast<double>(in[(t + j) * channels + ch]);
      const double m = sum / static_cast<double>(channels);
      c += m * p[j];
      power += m * m;
    }
    if (power == 0.0) continue;
    const double score = std::fabs(c) / std::sqrt(power * energy);
    if (score > best.score) best = {static_cast<uint32_t>(t), score};
  }
  return best;
}

}  // namespace kvtest
