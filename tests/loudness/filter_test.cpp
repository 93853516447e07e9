// K-weighting filters: tables, the shelf design at other rates, and the filter recurrence.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstring>

#include "kvaudio/loudness.h"

namespace {

double GainDb(const itu1770_filter &f, double hz, double fs) {
  const std::complex<double> z = std::polar(1.0, -2 * M_PI * hz / fs);  // z^-1
  const auto num = f.b0 + f.b1 * z + f.b2 * z * z;
  const auto den = 1.0 + f.a1 * z + f.a2 * z * z;
  return 20 * std::log10(std::abs(num / den));
}

TEST(Filter, TablesAt48kHz) {
  itu1770_filter pre, rlb;
  filter_init_pre_filter(&pre, 48000);
  filter_init_rlb_filter(&rlb, 48000);
  const double preTable[] = {1.0, -1.69065929318241, 0.73248077421585, 1.53512485958697, -2.69169618940638,
                             1.19839281085285};
  const double rlbTable[] = {1.0, -1.99004745483398, 0.99007225036621, 1.0, -2.0, 1.0};
  for (const auto &[f, table] : {std::pair{&pre, preTable}, std::pair{&rlb, rlbTable}}) {
    EXPECT_EQ(0, std::memcmp(&f->a0, table, sizeof preTable));  // a0 a1 a2 b0 b1 b2 in order
    EXPECT_EQ(f->z1, 0.0);
  }
}

// The shelf design gives 0 dB at DC and about +4 dB at high frequencies at any rate, and the
// design at 48 kHz agrees with the published table.
TEST(Filter, ShelfDesignAtOtherRates) {
  for (uint32_t fs : {32000u, 44100u, 47999u, 88200u, 96000u}) {
    itu1770_filter f;
    filter_init_pre_filter(&f, fs);
    EXPECT_NEAR(GainDb(f, 1.0, fs), 0.0, 0.01) << fs;
    EXPECT_NEAR(GainDb(f, 12000.0, fs), 4.0, 0.1) << fs;
  }
  itu1770_filter designed, table;
  filter_init_pre_filter(&designed, 47999);
  filter_init_pre_filter(&table, 48000);
  EXPECT_NEAR(designed.a1, table.a1, 1e-4);
  EXPECT_NEAR(designed.b0, table.b0, 1e-4);
}

// The RLB table is used at every rate, so its corner moves with the rate.
TEST(Filter, RlbIgnoresRate) {
  itu1770_filter a, b;
  filter_init_rlb_filter(&a, 48000);
  filter_init_rlb_filter(&b, 8000);
  EXPECT_EQ(0, std::memcmp(&a, &b, sizeof a));
  EXPECT_NEAR(GainDb(a, 1000, 48000), 0.0, 0.05);
  EXPECT_LT(GainDb(a, 20, 48000), -6.0);
}

TEST(Filter, Helpers) {
  EXPECT_FLOAT_EQ(calculate_ampl_from_db(10.0f), 10.0f);
  EXPECT_FLOAT_EQ(calculate_ampl_from_db(1.5f), 1.4125376f);
  const float v[] = {1.0f, -2.0f, 3.0f};
  EXPECT_FLOAT_EQ(calculate_mean_square(v, 3), 14.0f / 3.0f);
  EXPECT_EQ(calculate_mean_square(v, 0), 0.0f);
}

}  // namespace
