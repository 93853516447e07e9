// BS.1770 K-weighting biquads: the pre-filter (high shelf) and the RLB high-pass.
#include <cmath>
#include <cstring>

#include "kvaudio/loudness.h"

namespace {

// Published 48 kHz coefficients of BS.1770-4.
const double pre_coeff_a[3] = {1.0, -1.69065929318241, 0.73248077421585};
const double pre_coeff_b[3] = {1.53512485958697, -2.69169618940638, 1.19839281085285};
const double rlb_coeff_a[3] = {1.0, -1.99004745483398, 0.99007225036621};
const double rlb_coeff_b[3] = {1.0, -2.0, 1.0};

// Shelf design constants: pi * 1682 Hz, +4 dB and +2 dB gains, 1/Q.
constexpr double kPiTimesShelfHz = 5284.158843338032;
constexpr double kVh = 1.5848931924611136;
constexpr double kVb = 1.2589254117941673;
constexpr double kInvQ = 1.4140476204093013;

}  // namespace

extern "C" {

void filter_init(itu1770_filter *filter) {
  if (filter) std::memset(filter, 0, sizeof *filter);
}

void filter_set_coefficients(itu1770_filter *filter, const double a[3], const double b[3]) {
  if (!filter || !a || !b) return;
  filter->a0 = a[0];
  filter->a1 = a[1];
  filter->a2 = a[2];
  filter->b0 = b[0];
  filter->b1 = b[1];
  filter->b2 = b[2];
  filter->c1 = b[1] - b[0] * a[1];
  filter->c2 = b[2] - b[0] * a[2];
}

void filter_init_pre_filter(itu1770_filter *filter, uint32_t rate) {
  if (!filter) return;
  filter_init(filter);
  if (rate == 48000) {
    filter_set_coefficients(filter, pre_coeff_a, pre_coeff_b);
    return;
  }
  const double fs = static_cast<double>(rate);
  const double k = std::tan(kPiTimesShelfHz / fs);
  const double kk = k * k;
  const double d = 1.0 + k * kInvQ + kk;
  const double a[3] = {1.0, 2.0 * (kk - 1.0) / d, (1.0 - k * kInvQ + kk) / d};
  const double b[3] = {(kVh + kVb * k * kInvQ + kk) / d, 2.0 * (kk - kVh) / d,
                       (kVh - kVb * k * kInvQ + kk) / d};
  filter_set_coefficients(filter, a, b);
}

void filter_init_rlb_filter(itu1770_filter *filter, uint32_t /*rate*/) {
  if (!filter) return;
  filter_init(filter);
  filter_set_coefficients(filter, rlb_coeff_a, rlb_coeff_b);
}

double filter_calculate(itu1770_filter *filter, double x) {
  const double w = x - filter->a1 * filter->z1 - filter->a2 * filter->z2;
  const double y = filter->b0 * x + filter->c1 * filter->z1 + filter->c2 * filter->z2;
  filter->z2 = filter->z1;
  filter->z1 = w;
  return y;
}

void filter_destroy(itu1770_filter * /*filter*/) {}

float calculate_ampl_from_db(float x) { return std::pow(10.0f, x / 10.0f); }

float calculate_mean_square(const float *buf, size_t n) {
  if (!buf || n == 0) return 0.0f;
  double sum = 0.0;
  for (size_t i = 0; i < n; ++i) sum += static_cast<double>(buf[i]) * buf[i];
  return static_cast<float>(sum / static_cast<double>(n));
}

}  // extern "C"
