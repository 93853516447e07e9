// Test-signal generator through its public interface: tables, phases, sweeps, markers, noise.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "kvaudio/generator.h"
#include "test_util.h"

namespace {

struct Close {
  void operator()(tagAUDGENHANDLE *h) const { audGenClose(h); }
};
using Gen = std::unique_ptr<tagAUDGENHANDLE, Close>;
using Builder = int16_t *(*)(tagAUDGENHANDLE *, double, uint32_t *);
using Samples = std::vector<int16_t>;

WAVEFORMATEX Format(uint16_t channels, uint32_t rate, uint16_t bits) {
  WAVEFORMATEX f{1, channels, rate, 0, 0, bits, 0};
  audUpdateHeader(&f);
  return f;
}
const WAVEFORMATEX kStereo48 = Format(2, 48000, 16);

Gen Open(uint32_t flags, uint32_t frequency, const WAVEFORMATEX &f = kStereo48, uint32_t end = 0, uint32_t ms = 0,
         uint32_t steps = 0, double reference = 0.0, uint32_t shape = AUDGEN_SHAPE_SINE, double amplitude = 1.0) {
  return Gen(audGenOpen(flags, frequency, end, ms, steps, shape, shape, &f, amplitude, amplitude, reference));
}

Samples Fill(tagAUDGENHANDLE *h, uint32_t frames, uint32_t channels = 2) {
  Samples out(size_t{frames} * channels, 0);
  EXPECT_EQ(audGenFillBuffer(h, out.data(), static_cast<uint32_t>(out.size() * 2)), 0u);
  return out;
}

// A table from one of the public builders, copied out of its new[] block.
Samples Table(tagAUDGENHANDLE *h, Builder build, double amplitude) {
  uint32_t n = 0;
  int16_t *t = build(h, amplitude, &n);
  Samples v(t, t + n);
  delete[] t;
  return v;
}

// Channel ch of stereo `out` reads table t from `phase` on, `step` entries per frame.
void ExpectWave(const Samples &out, int ch, const Samples &t, uint32_t phase, uint32_t step) {
  for (size_t k = 0; k < out.size() / 2; ++k, phase = (phase + step) % t.size())
    ASSERT_EQ(out[2 * k + ch], t[phase]) << "channel " << ch << " frame " << k;
}

// Each shape's table (length, zeros, odd symmetry, peak, first step) and a tone reading it on
// the left while the right channel reads its own triangle of another amplitude.
TEST(GeneratorTone, TablesOfEveryShapeAndIndependentChannels) {
  struct Case {
    uint32_t shape, rate;
    double amplitude;
    Builder build;
    uint32_t length;
    int16_t peak, first;
  };
  for (const Case &c : {Case{AUDGEN_SHAPE_SINE, 48000, 1.0, buildSinTable, 48000, 32767, 4},
                        {AUDGEN_SHAPE_SINE, 44100, 0.5, buildSinTable, 44100, 16383, 2},
                        {AUDGEN_SHAPE_SQUARE, 48000, 0.5, buildSquareTable, 32768, 16383, 16383},
                        {AUDGEN_SHAPE_TRIANGLE, 48000, 1.0, buildTriangleTable, 32768, 32767, 3},
                        {AUDGEN_SHAPE_SAWTOOTH, 48000, 1.0, buildSawToothTable, 32768, 32765, 1},
                        {AUDGEN_SHAPE_SQUARE | AUDGEN_SHAPE_SAWTOOTH, 8000, 0.25, buildSquareTable, 32768, 8191, 8191},
                        {AUDGEN_SHAPE_TRIANGLE | AUDGEN_SHAPE_SAWTOOTH, 8000, 1.0, buildTriangleTable, 32768, 32767, 3}}) {
    SCOPED_TRACE(c.shape);
    const WAVEFORMATEX f = Format(2, c.rate, 16);
    Gen g(audGenOpen(AUDGEN_TONE, 1000, 0, 0, 0, AUDGEN_SHAPE_TRIANGLE, c.shape, &f, 0.1, c.amplitude, 0.0));
    const Samples t = Table(g.get(), c.build, c.amplitude), right = Table(g.get(), buildTriangleTable, 0.1);
    const uint32_t n = static_cast<uint32_t>(t.size());
    ASSERT_EQ(n, c.length);
    EXPECT_TRUE(t[0] == 0 && t[n / 2] == 0);
    EXPECT_EQ(t[1], c.first);
    for (uint32_t i = 1; i < n; ++i) ASSERT_EQ(t[n - i], -t[i]) << "odd symmetry at " << i;
    EXPECT_EQ(*std::max_element(t.begin(), t.end()), c.peak);
    const Samples out = Fill(g.get(), 500);
    ExpectWave(out, 0, t, 0, n * 1000 / c.rate);
    ExpectWave(out, 1, right, 0, 32768 * 1000 / c.rate);
  }
  Gen sine = Open(AUDGEN_TONE, 1000);
  const Samples s = Table(sine.get(), buildSinTable, 1.0);
  for (uint32_t i = 0; i < 48000; ++i) ASSERT_NEAR(s[i], 32767 * std::sin(2 * M_PI * i / 48000), 1.0);
  // A rate not divisible by 4 leaves entries no quarter-wave rule writes; they read as 0.
  Gen odd = Open(AUDGEN_TONE, 1000, Format(2, 22050, 16));
  EXPECT_EQ(Table(odd.get(), buildSinTable, 1.0)[5513], 0);
}

TEST(GeneratorTone, ConsecutiveOddFillsJoinWithoutAGap) {
  const uint32_t cases[][6] = {{AUDGEN_TONE, AUDGEN_SHAPE_SINE, 997, 0, 0, 0},
                               {AUDGEN_TONE | AUDGEN_RIGHT_QUARTER, AUDGEN_SHAPE_TRIANGLE, 440, 0, 0, 0},
                               {AUDGEN_SWEEP | AUDGEN_SWEEP_LINEAR, AUDGEN_SHAPE_SINE, 100, 1000, 1000, 10}};
  for (const auto &c : cases) {
    Gen whole = Open(c[0], c[2], kStereo48, c[3], c[4], c[5], 0.0, c[1], 0.8);
    Gen parts = Open(c[0], c[2], kStereo48, c[3], c[4], c[5], 0.0, c[1], 0.8);
    const auto once = Fill(whole.get(), 12345);
    Samples joined;
    for (uint32_t frames : {1u, 7u, 4799u, 4801u, 2737u}) {
      const auto part = Fill(parts.get(), frames);
      joined.insert(joined.end(), part.begin(), part.end());
    }
    ASSERT_EQ(joined, once) << "flags " << c[0];
  }
}

// Phase flags set the right channel ahead (half wins, then quarter); set-angle, restart and set.
TEST(GeneratorTone, PhaseFlagsSetAngleRestartAndSet) {
  const uint32_t cases[][2] = {{0, 0}, {AUDGEN_RIGHT_QUARTER, 12000}, {AUDGEN_RIGHT_HALF, 24000},
                               {AUDGEN_RIGHT_THREE_QUARTERS, 36000}, {AUDGEN_RIGHT_QUARTER | AUDGEN_RIGHT_HALF, 24000},
                               {AUDGEN_RIGHT_QUARTER | AUDGEN_RIGHT_THREE_QUARTERS, 12000}};
  Gen g = Open(AUDGEN_TONE, 1000);
  const Samples sine = Table(g.get(), buildSinTable, 1.0);
  for (const auto &c : cases) {
    g = Open(c[0], 1000);
    const Samples out = Fill(g.get(), 100);
    ExpectWave(out, 0, sine, 0, 1000);
    ExpectWave(out, 1, sine, c[1], 1000);
  }
  EXPECT_EQ(audGenSetAngle(g.get(), 90), 0u);  // both channels at the same point
  Samples out = Fill(g.get(), 10);
  ExpectWave(out, 0, sine, 12000, 1000);
  ExpectWave(out, 1, sine, 12000, 1000);
  EXPECT_EQ(audGenRestart(g.get()), 0u);  // both phases 0, the flag not applied again
  out = Fill(g.get(), 10);
  ExpectWave(out, 0, sine, 0, 1000);
  ExpectWave(out, 1, sine, 0, 1000);
  // Set applies the flag again; a null format keeps 48 kHz.
  EXPECT_EQ(audGenSet(g.get(), AUDGEN_RIGHT_QUARTER, 500, 0, 0, 0, 0, 0, nullptr, 1.0, 1.0, 0.0), 0u);
  out = Fill(g.get(), 100);
  ExpectWave(out, 0, sine, 0, 500);
  ExpectWave(out, 1, sine, 12000, 500);
}

TEST(GeneratorTone, BufferSizeIsOneSecondOrOneCycle) {
  const WAVEFORMATEX wide = Format(2, 44100, 32);
  const struct {
    uint32_t flags, frequency;
    const WAVEFORMATEX *format;  // null: stereo 44100 Hz 16-bit
    uint32_t bytes;
  } cases[] = {{AUDGEN_TONE, 10000, &kStereo48, 1000}, {AUDGEN_TONE, 100, &kStereo48, 1920},
               {AUDGEN_SWEEP, 100, &kStereo48, 192000}, {AUDGEN_PINK_NOISE, 0, &wide, 352800},
               {AUDGEN_TONE, 0, &kStereo48, 192000},    {AUDGEN_SWEEP, 1000, nullptr, 176400},
               {AUDGEN_TONE, 1000, nullptr, 1000}};
  for (const auto &c : cases) {
    Gen g(audGenOpen(c.flags, c.frequency, 0, 0, 0, 0, 0, c.format, 1.0, 1.0, 0.0));
    EXPECT_EQ(audGenGetBufferSize(g.get()), c.bytes) << c.flags << " " << c.frequency;
  }
}

// Sine sweeps at 48 kHz, where the table index advances by the present whole frequency: each
// fill of `frames` frames runs at the frequencies listed, `stepFrames` frames each.
TEST(GeneratorSweep, StepsRestartAndWholeHertzBetweenCalls) {
  const struct {
    uint32_t flags, start, end, ms, steps, frames, stepFrames;
    std::vector<uint32_t> frequencies;
  } cases[] = {
      {AUDGEN_SWEEP_LINEAR, 1000, 5000, 1000, 5, 48000, 9600, {1000, 2000, 3000, 4000, 5000, 1000, 2000, 3000, 4000, 5000}},
      {AUDGEN_SWEEP_LINEAR, 1000, 5000, 999, 5, 30, 30, {1000}},  // under a second: no increment
      {0, 100, 1000, 1000, 4, 12000, 12000, {100, 215, 463, 997, 100, 215}},  // ratio 10^(1/3), truncated
  };
  for (const auto &c : cases) {
    Gen g = Open(AUDGEN_SWEEP | c.flags, c.start, kStereo48, c.end, c.ms, c.steps);
    const Samples sine = Table(g.get(), buildSinTable, 1.0);
    uint32_t phase = 0;
    for (size_t step = 0; step < c.frequencies.size();) {
      const Samples out = Fill(g.get(), c.frames);
      for (uint32_t i = 0; i < c.frames; phase = (phase + c.frequencies[step + i / c.stepFrames]) % 48000, ++i)
        ASSERT_EQ(out[2 * i], sine[phase]) << c.start << " step " << step << " frame " << i;
      step += c.frames / c.stepFrames;
    }
  }
}

TEST(GeneratorSweep, MarkersAtTheStartOfTheirSteps) {
  const uint32_t lin = AUDGEN_SWEEP | AUDGEN_SWEEP_LINEAR;
  const struct {
    uint32_t flags, end, ms, steps;
    double reference;
    std::vector<uint32_t> markedSteps;
  } cases[] = {
      {lin | AUDGEN_MARK_START, 5000, 1000, 5, 0.0, {0}},
      {lin | AUDGEN_MARK_OCTAVES, 5000, 1000, 5, 1000.0, {0, 1, 3}},
      {lin | AUDGEN_MARK_SECONDS, 5000, 2000, 4, 0.0, {0, 2}},
      {AUDGEN_SWEEP | AUDGEN_MARK_OCTAVES, 8000, 1000, 4, 1000.0, {0, 1, 2, 3}},
      {lin, 5000, 1000, 5, 0.0, {}},
  };
  for (const auto &c : cases) {
    Gen g = Open(c.flags, 1000, kStereo48, c.end, c.ms, c.steps, c.reference);
    const uint32_t stepFrames = 48000 * (c.ms / 1000) / c.steps;
    // One frame short of the whole sweep, so every step ends inside this buffer.
    const auto out = Fill(g.get(), stepFrames * c.steps - 1);
    for (uint32_t step = 0; step + 1 < c.steps; ++step) {
      const int16_t *at = out.data() + size_t{step} * stepFrames * 2;
      const bool marked = std::find(c.markedSteps.begin(), c.markedSteps.end(), step) != c.markedSteps.end();
      // A marker is two pairs of frames (block align 4): the truncated amplitude, then zero.
      const bool click = at[0] == 1 && at[1] == 1 && at[2] == 0 && at[3] == 0 && at[4] == 1 && at[6] == 0;
      EXPECT_EQ(click, marked) << "flags " << c.flags << " step " << step;
    }
  }
}

// The same seed gives the same noise; left full scale, right the same noise at half amplitude.
TEST(GeneratorNoise, SeededChannelsRangeAndSpectrum) {
  for (uint32_t type : {AUDGEN_WHITE_NOISE, AUDGEN_PINK_NOISE}) {
    SCOPED_TRACE(type);
    Gen a(audGenOpen(type, 0, 0, 0, 0, 0, 0, &kStereo48, 0.5, 1.0, 0.0));
    Gen b(audGenOpen(type, 0, 0, 0, 0, 0, 0, &kStereo48, 0.5, 1.0, 0.0));
    std::srand(7);
    const auto v = Fill(a.get(), 20000);
    std::srand(7);
    EXPECT_EQ(Fill(b.get(), 20000), v);
    double num = 0, den = 0;
    for (size_t i = 0; i + 2 < v.size(); i += 2) num += double(v[i]) * v[i + 2], den += double(v[i]) * v[i];
    for (size_t i = 0; i < v.size(); i += 2) ASSERT_NEAR(v[i + 1], v[i] / 2.0, 1.0) << i;
    if (type == AUDGEN_WHITE_NOISE) {
      EXPECT_LT(std::fabs(num / den), 0.05) << "white noise is uncorrelated";
      EXPECT_GT(*std::max_element(v.begin(), v.end()), 32000) << "white noise spans the full scale";
    } else {
      EXPECT_GT(num / den, 0.5) << "pink noise leans to low frequencies";
    }
  }
}

TEST(GeneratorFill, SilenceUnknownTypesAndOtherChannels) {
  for (uint32_t type : {AUDGEN_SILENCE, 3u, 0xFu}) {
    Gen g = Open(type, 1000, Format(4, 48000, 16));
    std::vector<int16_t> out(4 * 50, 77);
    audGenFillBuffer(g.get(), out.data(), static_cast<uint32_t>(out.size() * 2));
    for (size_t i = 0; i < out.size(); ++i) {
      const bool silenced = type != AUDGEN_SILENCE || i % 4 < 2;  // silence leaves channels 2-3
      ASSERT_EQ(out[i], silenced ? 0 : 77) << "type " << type << " i " << i;
    }
  }
}

TEST(GeneratorFill, WideningTo32BitContainers) {
  for (uint32_t type : {AUDGEN_TONE, AUDGEN_SWEEP | AUDGEN_MARK_START, AUDGEN_WHITE_NOISE, AUDGEN_PINK_NOISE}) {
    for (uint16_t channels : {1, 2}) {
      Gen narrow = Open(type, 1000, Format(channels, 48000, 16), 4000, 1000, 5, 0.0, AUDGEN_SHAPE_SINE, 0.9);
      Gen wide = Open(type, 1000, Format(channels, 48000, 32), 4000, 1000, 5, 0.0, AUDGEN_SHAPE_SINE, 0.9);
      std::srand(3);
      const auto a = Fill(narrow.get(), 1001, channels);
      std::srand(3);
      std::vector<uint32_t> b(size_t{1001} * channels, 0xDEADBEEF);
      audGenFillBuffer(wide.get(), b.data(), static_cast<uint32_t>(b.size() * 4));
      for (size_t i = 0; i < a.size(); ++i)
        ASSERT_EQ(b[i], static_cast<uint32_t>(static_cast<uint16_t>(a[i])) << 16) << type << " ch " << channels << " " << i;
    }
  }
}

TEST(GeneratorFill, NeverWritesPastTheBuffer) {
  // Consistent records and inconsistent ones (block align smaller than the channels need).
  const uint16_t shapes[][3] = {{1, 16, 2}, {1, 32, 4}, {6, 16, 12}, {2, 16, 2}, {2, 16, 1}, {3, 24, 4}, {2, 16, 0}};
  for (const auto &s : shapes) {
    for (uint32_t type : {AUDGEN_TONE, AUDGEN_SWEEP | AUDGEN_MARK_START, AUDGEN_WHITE_NOISE, AUDGEN_PINK_NOISE,
                          AUDGEN_SILENCE, 5u}) {
      WAVEFORMATEX f = Format(s[0], 48000, s[1]);
      f.nBlockAlign = s[2];
      Gen g = Open(type, 1000, f, 3000, 1000, 1000);
      for (uint32_t bytes : {0u, 1u, 3u, 37u, 1000u}) {
        kvtest::Guarded buf(bytes);
        std::memset(buf.data(), 0, bytes);
        audGenFillBuffer(g.get(), buf.data(), bytes);
        ASSERT_TRUE(buf.GuardsIntact()) << s[0] << " ch, align " << s[2] << ", type " << type << ", " << bytes;
      }
    }
  }
  EXPECT_EQ(audGenFillBuffer(nullptr, nullptr, 10), 0u);
  EXPECT_EQ(audGenClose(nullptr), 0u);
}

TEST(GeneratorFill, ConcurrentFillsAdvanceThePhaseOnce) {
  Gen g = Open(AUDGEN_TONE, 1000);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&] {
      for (int i = 0; i < 200; ++i) Fill(g.get(), 37);
    });
  for (auto &t : threads) t.join();
  ExpectWave(Fill(g.get(), 10), 0, Table(g.get(), buildSinTable, 1.0), 4u * 200 * 37 * 1000 % 48000, 1000);
}

TEST(GeneratorFill, DbToAmplitude) {
  EXPECT_EQ(db_to_amplitude(0), 1.0);
  EXPECT_DOUBLE_EQ(db_to_amplitude(20), 0.1);
  EXPECT_DOUBLE_EQ(db_to_amplitude(-40), 100.0);
}

}  // namespace
