// Independent double-precision model of the meter's measurement, for comparison with the library.
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

namespace loudtest {

// Direct form I biquad in double: {b0, b1, b2, a1, a2} and its state.
struct Biquad {
  double b0, b1, b2, a1, a2, x1 = 0, x2 = 0, y1 = 0, y2 = 0;
  double Run(double x) {
    const double y = b0 * x + b1 * x1 + b2 * x2 - a1 * y1 - a2 * y2;
    x2 = x1, x1 = x, y2 = y1, y1 = y;
    return y;
  }
};

// BS.1770 shelf at fs: the published table at 48 kHz, else a +4 dB shelf above 1682 Hz, Q 0.70719.
inline Biquad ShelfFor(double fs) {
  if (fs == 48000.0) return {1.53512485958697, -2.69169618940638, 1.19839281085285, -1.69065929318241, 0.73248077421585};
  const double k = std::tan(M_PI * 1682.0 / fs), vh = std::pow(10.0, 0.2), vb = std::pow(10.0, 0.1);
  const double q = 0.707189761905293, d = 1.0 + k / q + k * k;
  return {(vh + vb * k / q + k * k) / d, 2.0 * (k * k - vh) / d, (vh - vb * k / q + k * k) / d,
          2.0 * (k * k - 1.0) / d, (1.0 - k / q + k * k) / d};
}

// Windows of W samples sliding by S, weighted channel powers; mode 3 keeps windows above -70 LKFS.
struct MeterModel {
  int mode;
  size_t window, step, channels;
  std::vector<double> weights;
  std::vector<Biquad> pre, rlb;
  std::vector<std::vector<float>> history;  // all filtered samples per channel, stored as float
  std::vector<double> stepLoudness, kept;    // current loudness after each step; mode 3 kept powers
  double current = 0.0;

  MeterModel(int m, double fs, size_t nch)
      : mode(m), channels(nch), weights(nch, 1.0), pre(nch, ShelfFor(fs)),
        rlb(nch, Biquad{1.0, -2.0, 1.0, -1.99004745483398, 0.99007225036621}), history(nch) {
    const double wms[] = {400, 3000, 10000}, sms[] = {200, 100, 1000};
    window = static_cast<size_t>(wms[m - 1] * fs / 1000);
    step = static_cast<size_t>(sms[m - 1] * fs / 1000);
  }

  // x: interleaved samples already scaled to [-1, 1].
  void Feed(const std::vector<double> &x) {
    for (size_t t = 0; t < x.size() / channels; ++t) {
      for (size_t c = 0; c < channels; ++c) history[c].push_back(static_cast<float>(rlb[c].Run(pre[c].Run(x[t * channels + c]))));
      if (history[0].size() % step) continue;
      const size_t end = history[0].size();
      double sum = 0.0;
      for (size_t c = 0; c < channels; ++c)
        for (size_t i = end > window ? end - window : 0; i < end; ++i)
          sum += double{history[c][i]} * history[c][i] / static_cast<double>(window) * weights[c];
      if (sum != 0.0) current = 10.0 * std::log10(sum) - 0.691;
      stepLoudness.push_back(current);
      if (mode == 3 && current > -70.0) kept.push_back(sum);
    }
  }

  double Integrated() const {
    double mean = 0.0, sum = 0.0;
    for (double p : kept) mean += p / static_cast<double>(kept.size());
    size_t n = 0;
    for (double p : kept)
      if (10.0 * std::log10(p) > 10.0 * std::log10(mean) - 8.0) sum += p, ++n;
    return 10.0 * std::log10(sum / static_cast<double>(n)) - 0.691;
  }
};

}  // namespace loudtest
