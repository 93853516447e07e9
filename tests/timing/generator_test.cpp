// Test-signal generator through its public interface: tables, phases, sweeps, markers, noise.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <functional>
#include <memory>
#include <vector>

#include "kvaudio/generator.h"

namespace {

struct Close { void operator()(tagAUDGENHANDLE *h) const { audGenClose(h); } };
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
         uint32_t steps = 0, double reference = 0.0, double amplitude = 1.0) {
  return Gen(audGenOpen(flags, frequency, end, ms, steps, 0, 0, &f, amplitude, amplitude, reference));
}

// Fills pieces of the given frame counts one after the other and joins them.
Samples Fill(tagAUDGENHANDLE *h, std::vector<uint32_t> pieces, uint32_t channels = 2) {
  Samples out;
  for (uint32_t frames : pieces) {
    out.resize(out.size() + size_t{frames} * channels);
    EXPECT_EQ(audGenFillBuffer(h, &out[out.size() - size_t{frames} * channels], frames * channels * 2), 0u);
  }
  return out;
}
const std::vector<uint32_t> kOddPieces = {1, 7, 4799, 4801, 2737};

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

// Tones filled in odd pieces: the left channel reads its shape's table from 0, the right channel
// its triangle from the flag's phase, each floor(length x frequency / rate) entries a frame, at
// least 1. Each table is odd around its middle; the buffer size is one cycle (at least 1000
// bytes) or, for frequency 0, one second.
TEST(GeneratorTone, ShapesPhasesAndBufferSizes) {
  const WAVEFORMATEX f8k = Format(2, 8000, 16);
  const struct {
    uint32_t flags, frequency, shape;
    const WAVEFORMATEX *format;  // null: stereo 44100 Hz 16-bit
    double amplitude;
    Builder build;
    uint32_t length, rightPhase, bytes, peak, first;
  } cases[] = {
      {0, 1000, AUDGEN_SHAPE_SINE, &kStereo48, 1.0, buildSinTable, 48000, 0, 1000, 32767, 4},
      {AUDGEN_RIGHT_QUARTER, 1000, AUDGEN_SHAPE_SINE, nullptr, 0.5, buildSinTable, 44100, 8192, 1000, 16383, 2},
      {AUDGEN_RIGHT_HALF, 100, AUDGEN_SHAPE_SQUARE, &kStereo48, 0.5, buildSquareTable, 32768, 16384, 1920, 16383, 16383},
      {AUDGEN_RIGHT_THREE_QUARTERS, 0, AUDGEN_SHAPE_TRIANGLE, &kStereo48, 1.0, buildTriangleTable, 32768, 24576, 192000, 32767, 3},
      {AUDGEN_RIGHT_QUARTER | AUDGEN_RIGHT_HALF, 997, AUDGEN_SHAPE_SAWTOOTH, &kStereo48, 1.0, buildSawToothTable, 32768, 16384, 1000, 32765, 1},
      {AUDGEN_RIGHT_QUARTER | AUDGEN_RIGHT_THREE_QUARTERS, 440, AUDGEN_SHAPE_SQUARE | AUDGEN_SHAPE_SAWTOOTH, &f8k, 0.25, buildSquareTable, 32768, 8192, 1000, 8191, 8191},
      {0, 10000, AUDGEN_SHAPE_TRIANGLE | AUDGEN_SHAPE_SAWTOOTH, &kStereo48, 1.0, buildTriangleTable, 32768, 0, 1000, 32767, 3},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(testing::Message() << "flags " << c.flags << " shape " << c.shape);
    Gen g(audGenOpen(c.flags, c.frequency, 0, 0, 0, AUDGEN_SHAPE_TRIANGLE, c.shape, c.format, 0.1, c.amplitude, 0.0));
    EXPECT_EQ(audGenGetBufferSize(g.get()), c.bytes);
    const Samples t = Table(g.get(), c.build, c.amplitude), right = Table(g.get(), buildTriangleTable, 0.1);
    const uint32_t n = static_cast<uint32_t>(t.size()), rate = c.format ? c.format->nSamplesPerSec : 44100;
    ASSERT_EQ(n, c.length);
    EXPECT_EQ(std::vector<int>({t[0], t[n / 2], t[1], *std::max_element(t.begin(), t.end())}),
              std::vector<int>({0, 0, int(c.first), int(c.peak)}));
    for (uint32_t i = 1; i < n; ++i) ASSERT_EQ(t[n - i], -t[i]) << "odd symmetry at " << i;
    const Samples out = Fill(g.get(), kOddPieces);
    ExpectWave(out, 0, t, 0, std::max(1u, n * c.frequency / rate));
    ExpectWave(out, 1, right, c.rightPhase, std::max(1u, 32768 * c.frequency / rate));
  }
  Gen g = Open(AUDGEN_TONE, 1000);
  const Samples sine = Table(g.get(), buildSinTable, 1.0);
  for (uint32_t i = 0; i < 48000; ++i) ASSERT_NEAR(sine[i], 32767 * std::sin(2 * M_PI * i / 48000), 1.0);
  // A rate not divisible by 4 leaves entries no quarter-wave rule writes; they read as 0.
  EXPECT_EQ(Table(Open(AUDGEN_TONE, 1000, Format(2, 22050, 16)).get(), buildSinTable, 1.0)[5513], 0);
  // Set-angle puts both channels at the same point; restart sets both to 0 without the phase
  // flag; set applies it again and a null format keeps 48 kHz.
  g = Open(AUDGEN_RIGHT_HALF, 1000);
  const struct {
    std::function<uint32_t()> call;
    uint32_t left, right, step;
  } calls[] = {{[&] { return audGenSetAngle(g.get(), 90); }, 12000, 12000, 1000},
               {[&] { return audGenRestart(g.get()); }, 0, 0, 1000},
               {[&] { return audGenSet(g.get(), AUDGEN_RIGHT_QUARTER, 500, 0, 0, 0, 0, 0, nullptr, 1, 1, 0); }, 0, 12000, 500}};
  for (const auto &c : calls) {
    EXPECT_EQ(c.call(), 0u);
    const Samples out = Fill(g.get(), {100});
    ExpectWave(out, 0, sine, c.left, c.step);
    ExpectWave(out, 1, sine, c.right, c.step);
  }
}

// Sine sweeps at 48 kHz, where the table index advances by the present whole frequency, filled
// in pieces: `stepFrames` frames at each frequency listed. A geometric sweep keeps the whole
// hertz between calls (ratio 10^(1/4): 177.8 is kept as 177).
TEST(GeneratorSweep, StepsRestartAndWholeHertzBetweenCalls) {
  const struct {
    uint32_t flags, start, end, ms, steps, stepFrames;
    std::vector<uint32_t> pieces, frequencies;
  } cases[] = {
      {AUDGEN_SWEEP_LINEAR, 1000, 5000, 1000, 5, 9600, {1, 7, 47992, 4801, 43199},
       {1000, 2000, 3000, 4000, 5000, 1000, 2000, 3000, 4000, 5000}},
      {AUDGEN_SWEEP_LINEAR, 1000, 5000, 999, 5, 30, {30}, {1000}},  // under a second: no increment
      {0, 100, 1000, 1000, 5, 9600, {9600, 9600, 9600, 9600, 9600, 9600, 9600}, {100, 177, 314, 558, 992, 100, 177}},
  };
  for (const auto &c : cases) {
    Gen g = Open(AUDGEN_SWEEP | c.flags, c.start, kStereo48, c.end, c.ms, c.steps);
    EXPECT_EQ(audGenGetBufferSize(g.get()), 192000u);
    const Samples sine = Table(g.get(), buildSinTable, 1.0), out = Fill(g.get(), c.pieces);
    for (uint32_t i = 0, phase = 0; i < out.size() / 2; phase = (phase + c.frequencies[i / c.stepFrames]) % 48000, ++i)
      ASSERT_EQ(out[2 * i], sine[phase]) << c.start << " frame " << i;
  }
}

TEST(GeneratorSweep, MarkersAtTheStartOfTheirSteps) {
  const uint32_t lin = AUDGEN_SWEEP | AUDGEN_SWEEP_LINEAR;
  const uint32_t cases[][7] = {  // flags, end, ms, steps, octave reference, frames a step, marked steps (bits)
      {lin | AUDGEN_MARK_START, 5000, 1000, 5, 0, 9600, 0x1},   {lin | AUDGEN_MARK_OCTAVES, 5000, 1000, 5, 1000, 9600, 0xB},
      {lin | AUDGEN_MARK_SECONDS, 5000, 2000, 4, 0, 24000, 0x5}, {AUDGEN_SWEEP | AUDGEN_MARK_OCTAVES, 8000, 1000, 4, 1000, 12000, 0xF},
      {lin, 5000, 1000, 5, 0, 9600, 0}, {lin | AUDGEN_MARK_START, 5000, 999, 5, 0, 8, 0xF}};  // under a second: 8 frames
  for (const auto &c : cases) {
    Gen g = Open(c[0], 1000, kStereo48, c[1], c[2], c[3], c[4]);
    // One frame short of the whole sweep, so every step ends inside this buffer.
    const auto out = Fill(g.get(), {c[5] * c[3] - 1});
    for (uint32_t step = 0; step + 1 < c[3]; ++step) {
      // A marker is two pairs of frames (block align 4): the truncated amplitude, then zero.
      const int16_t *at = out.data() + size_t{step} * c[5] * 2;
      const bool click = at[0] == 1 && at[1] == 1 && at[2] == 0 && at[3] == 0 && at[4] == 1 && at[6] == 0;
      EXPECT_EQ(click, bool(c[6] >> step & 1)) << "flags " << c[0] << " step " << step;
    }
  }
}

// The same seed gives the same noise; left full scale, right the same noise at half amplitude.
TEST(GeneratorNoise, SeededChannelsRangeAndSpectrum) {
  for (uint32_t type : {AUDGEN_WHITE_NOISE, AUDGEN_PINK_NOISE}) {
    SCOPED_TRACE(type);
    std::srand(7);
    const auto v = Fill(Gen(audGenOpen(type, 0, 0, 0, 0, 0, 0, &kStereo48, 0.5, 1.0, 0.0)).get(), {20000});
    std::srand(7);
    EXPECT_EQ(Fill(Gen(audGenOpen(type, 0, 0, 0, 0, 0, 0, &kStereo48, 0.5, 1.0, 0.0)).get(), {20000}), v);
    double num = 0, den = 0, repeats = 0;
    for (size_t i = 0; i + 2 < v.size(); i += 2)
      num += double(v[i]) * v[i + 2], den += double(v[i]) * v[i], repeats += v[i] == v[i + 2];
    for (size_t i = 0; i < v.size(); i += 2) ASSERT_NEAR(v[i + 1], v[i] / 2.0, 1.0) << i;
    // Both change at every frame. White noise is uniform over the full scale (RMS 32768 / sqrt(3))
    // and uncorrelated; pink noise is about 9 dB lower and leans to low frequencies.
    EXPECT_LT(repeats, 100);
    const bool white = type == AUDGEN_WHITE_NOISE;
    EXPECT_NEAR(std::sqrt(den / (v.size() / 2)), white ? 18918 : 6689, white ? 380 : 270);
    EXPECT_TRUE(white ? std::fabs(num / den) < 0.05 : num / den > 0.5) << num / den;
    // From an even frame to the next only pink noise's fastest row changes: 1/8 of the range each way.
    for (size_t i = 2; !white && i < v.size(); i += 4) ASSERT_LE(std::abs(v[i] - v[i - 2]), 8193) << i;
  }
  EXPECT_DOUBLE_EQ(db_to_amplitude(20), 0.1);
}

// Silence writes channels 0-1 only, other types zero everything; a wide format holds the 16-bit
// signal in the top halves of 32-bit containers.
TEST(GeneratorFill, SilenceUnknownTypesAndWidening) {
  for (uint32_t type : {AUDGEN_SILENCE, 3u, 0xFu}) {
    Gen g = Open(type, 1000, Format(4, 48000, 16));
    std::vector<int16_t> out(4 * 50, 77);
    audGenFillBuffer(g.get(), out.data(), static_cast<uint32_t>(out.size() * 2));
    for (size_t i = 0; i < out.size(); ++i) ASSERT_EQ(out[i], type != AUDGEN_SILENCE || i % 4 < 2 ? 0 : 77) << type;
  }
  for (uint32_t type : {AUDGEN_TONE, AUDGEN_SWEEP | AUDGEN_MARK_START, AUDGEN_WHITE_NOISE, AUDGEN_PINK_NOISE}) {
    for (uint16_t channels : {1, 2}) {
      Gen narrow = Open(type, 1000, Format(channels, 48000, 16), 4000, 1000, 5, 0.0, 0.9);
      Gen wide = Open(type, 1000, Format(channels, 48000, 32), 4000, 1000, 5, 0.0, 0.9);
      std::srand(3);
      const auto a = Fill(narrow.get(), {1001}, channels);
      std::srand(3);
      std::vector<uint32_t> b(size_t{1001} * channels, 0xDEADBEEF);
      audGenFillBuffer(wide.get(), b.data(), static_cast<uint32_t>(b.size() * 4));
      for (size_t i = 0; i < a.size(); ++i)
        ASSERT_EQ(b[i], static_cast<uint32_t>(static_cast<uint16_t>(a[i])) << 16) << type << " ch " << channels << " " << i;
    }
  }
}

}  // namespace
