// Stand-alone loudness and true-peak analysis: arguments, edge cases, blocks and violation bits.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <tuple>
#include <vector>

#include "kvaudio/qc.h"
#include "qc/analyze.h"

namespace {

const uint8_t *Bytes(const std::vector<int16_t> &v) { return reinterpret_cast<const uint8_t *>(v.data()); }

kvaudqcLoudness Loudness(const std::vector<int16_t> &pcm, uint32_t channels, const char *layout = nullptr,
                         uint32_t standard = 1, uint32_t rate = 48000) {
  kvaudqcLoudness r;
  const auto frames = static_cast<uint32_t>(pcm.size() / channels);
  EXPECT_EQ(kvqcAudioAnalyzeLoudness(Bytes(pcm), frames, channels, 16, rate, layout, standard, &r), 0);
  EXPECT_EQ(r.size, 80u);
  return r;
}

// 1 kHz mono sine of the given peak amplitude, 48 kHz.
std::vector<int16_t> Tone(size_t frames, double amplitude) {
  std::vector<int16_t> v(frames);
  for (size_t f = 0; f < frames; ++f) v[f] = static_cast<int16_t>(std::lround(amplitude * 32767 * std::sin(2 * M_PI * 1000.0 * f / 48000)));
  return v;
}

TEST(QcAnalyze, RefusedArguments) {
  const std::vector<int16_t> pcm(64, 100);
  struct { const uint8_t *pcm; uint32_t frames, channels, bits; bool out; } cases[] = {{nullptr, 4, 2, 16, true}, {Bytes(pcm), 4, 2, 16, false}, {Bytes(pcm), 0, 2, 16, true},
               {Bytes(pcm), 1, 0, 16, true}, {Bytes(pcm), 1, 33, 16, true}, {Bytes(pcm), 4, 2, 24, true},
               {Bytes(pcm), 4, 2, 8, true}};
  for (const auto &c : cases) {
    kvaudqcLoudness l;
    kvaudqcTruePeak p;
    std::memset(&l, 0x3C, sizeof l);
    std::memset(&p, 0x3C, sizeof p);
    EXPECT_EQ(kvqcAudioAnalyzeLoudness(c.pcm, c.frames, c.channels, c.bits, 48000, "", 1, c.out ? &l : nullptr), KVQC_ERROR);
    EXPECT_EQ(kvqcAudioAnalyzeTruePeak(c.pcm, c.frames, c.channels, c.bits, 48000, 0, c.out ? &p : nullptr), KVQC_ERROR);
    EXPECT_EQ(std::tie(l.size, p.size), std::make_tuple(0x3C3C3C3Cu, 0x3C3C3C3Cu));
  }
}

// Digital silence: nothing measured, so not below target. One frame or no rate: every window is the whole buffer.
// Otherwise momentary is the loudness of the last 400 ms alone, short-term that of the last 3 s. The mean is over
// frames, not channels; weight-0 positions are skipped.
TEST(QcAnalyze, WindowsAndWeights) {
  const kvaudqcLoudness zero = Loudness(std::vector<int16_t>(2 * 48000 * 4, 0), 2);
  EXPECT_EQ(std::tie(zero.integrated, zero.momentary, zero.shortTerm, zero.truePeak, zero.range, zero.violations),
            std::make_tuple(-200.0, -200.0, -200.0, -200.0, 0.0, 0u));

  const kvaudqcLoudness one = Loudness({1000, -2000}, 2);
  EXPECT_EQ(std::tie(one.momentary, one.shortTerm, one.range), std::make_tuple(one.integrated, one.integrated, 0.0));
  EXPECT_GT(one.integrated, -100.0);
  const kvaudqcLoudness noRate = Loudness(Tone(100, 0.5), 1, nullptr, 1, 0);
  EXPECT_EQ(std::tie(noRate.momentary, noRate.shortTerm), std::tie(noRate.integrated, noRate.integrated));

  std::vector<int16_t> pcm = Tone(4 * 48000, 0.01);
  const std::vector<int16_t> loud = Tone(19200, 0.5);
  std::copy(loud.begin(), loud.end(), pcm.end() - 19200);
  const kvaudqcLoudness tail = Loudness(pcm, 1);
  EXPECT_NEAR(tail.momentary, Loudness(loud, 1).integrated, 1e-9);
  EXPECT_NEAR(tail.shortTerm, Loudness({pcm.begin() + 48000, pcm.end()}, 1).integrated, 1e-9);

  std::vector<int16_t> stereo(2 * 4800, 0);
  for (size_t f = 0; f < 4800; ++f) stereo[2 * f] = f % 2 ? 32767 : -32767;
  const kvaudqcLoudness r = Loudness(stereo, 2);
  EXPECT_DOUBLE_EQ(r.integrated, 20 * std::log10(32767.0 / 32768.0) - 0.691);
  EXPECT_EQ(std::tie(r.layoutId, r.channelMask), std::make_tuple(0u, 3ull));

  std::vector<int16_t> six(6 * 4800, 0);
  for (size_t f = 0; f < 4800; ++f) six[6 * f + 3] = 32767;
  const kvaudqcLoudness lfe = Loudness(six, 6, "5.1-smpte");
  EXPECT_EQ(std::tie(lfe.layoutId, lfe.integrated), std::make_tuple(3u, -200.0));
  EXPECT_NEAR(Loudness(six, 6, "unknown layout").integrated, -0.6913, 1e-4);
}

TEST(QcAnalyze, Percentile) {
  const struct { std::vector<double> values; double p, expected; } cases[] = {
      {{}, 0.5, 0}, {{7}, 0.95, 7}, {{4, 1, 3, 2}, 0.5, 2.5}, {{10, 0}, 0.95, 9.5}, {{5, 1, 2, 3, 4}, 0.10, 1.4}, {{5, 1, 2}, 1.0, 5}};
  for (const auto &k : cases) EXPECT_DOUBLE_EQ(kvaudio::qc::Percentile(k.values, k.p), k.expected) << k.p;
}

// Each violation bit from a signal built for it (EBU R128: -23 +-1 LUFS, -1 dBTP, 20 LU range).
TEST(QcAnalyze, ViolationBits) {
  // A sine of peak a has loudness 20 log10(a) - 3.01 - 0.691 here: -23 LUFS at a = 0.0995.
  const double onTarget = std::pow(10.0, (-23.0 + 0.691 + 3.0103) / 20.0);
  std::vector<int16_t> spike = Tone(48000 * 4, onTarget);
  spike[1000] = 32767;
  std::vector<int16_t> wide = Tone(48000 * 12, onTarget * 3);
  for (size_t f = 48000 * 6; f < wide.size(); ++f) wide[f] = static_cast<int16_t>(wide[f] / 100);
  const auto steady = [](double a) { return Tone(48000 * 4, a); };
  struct { const char *name; std::vector<int16_t> pcm; uint32_t standard, bits; } cases[] = {
      {"on target", steady(onTarget), 1, 0}, {"too quiet", steady(onTarget / 2), 1, 1},
      {"too loud", steady(onTarget * 2), 1, 2}, {"peak", spike, 1, 4}, {"range", wide, 1, 8 | 2},
      {"ATSC window", steady(onTarget), 2, 0},  // -24 +-2: -23 is inside
      {"unknown standard", steady(0.9), 8, 0}, {"no tolerance", steady(0.9), 100, 0},
  };
  for (const auto &c : cases) {
    const kvaudqcLoudness r = Loudness(c.pcm, 1, nullptr, c.standard);
    EXPECT_EQ(std::tie(r.violations, r.standard), std::tie(c.bits, c.standard))
        << c.name << ": integrated " << r.integrated << " peak " << r.truePeak << " range " << r.range;
  }
}

TEST(QcTruePeak, MasksAndValues) {
  std::vector<int16_t> pcm = {100, -32768, -50, 16384, 25, 0};
  kvaudqcTruePeak p;
  ASSERT_EQ(kvqcAudioAnalyzeTruePeak(Bytes(pcm), 3, 2, 16, 44100, 0, &p), 0);
  EXPECT_EQ(std::tie(p.size, p.sampleRate, p.channelMask), std::make_tuple(560u, 44100u, 3ull));
  EXPECT_DOUBLE_EQ(p.peakLinear[0], 100 / 32768.0);
  EXPECT_EQ(std::tie(p.peakLinear[1], p.peakDb[1], p.maxPeakDb, p.peakDb[2]), std::make_tuple(1.0, 0.0, 0.0, -200.0));
  for (uint8_t b : p.reserved) EXPECT_EQ(b, 0);

  ASSERT_EQ(kvqcAudioAnalyzeTruePeak(Bytes(pcm), 3, 2, 16, 48000, 2 | 0x100, &p), 0);
  EXPECT_EQ(std::tie(p.channelMask, p.peakDb[0], p.peakLinear[0], p.peakDb[1]), std::make_tuple(2ull, -200.0, 0.0, 0.0));

  const std::vector<int32_t> wide = {0, INT32_MIN, 0, 0};
  ASSERT_EQ(kvqcAudioAnalyzeTruePeak(reinterpret_cast<const uint8_t *>(wide.data()), 4, 1, 32, 48000, 0, &p), 0);
  EXPECT_EQ(p.peakLinear[0], 1.0);
}

}  // namespace
