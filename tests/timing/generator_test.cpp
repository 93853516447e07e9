// Test-signal generator: tables, phase handling, sweep steps and markers, noise, widening.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "kvaudio/generator.h"
#include "test_util.h"
#include "timing/generator_handle.h"

namespace {

struct Close {
  void operator()(tagAUDGENHANDLE *h) const { audGenClose(h); }
};
using Gen = std::unique_ptr<tagAUDGENHANDLE, Close>;

// A complete PCM record: byte rate and block align from audUpdateHeader.
WAVEFORMATEX Format(uint16_t channels, uint32_t rate, uint16_t bits) {
  WAVEFORMATEX f{1, channels, rate, 0, 0, bits, 0};
  audUpdateHeader(&f);
  return f;
}

Gen Open(uint32_t flags, uint32_t frequency, const WAVEFORMATEX &f, double amplitude = 1.0,
         uint32_t shape = AUDGEN_SHAPE_SINE, uint32_t end = 0, uint32_t ms = 0, uint32_t steps = 0,
         double reference = 0.0) {
  return Gen(audGenOpen(flags, frequency, end, ms, steps, shape, shape, &f, amplitude, amplitude, reference));
}

std::vector<int16_t> Fill(tagAUDGENHANDLE *h, uint32_t frames, uint32_t channels = 2) {
  std::vector<int16_t> out(size_t{frames} * channels, 0);
  EXPECT_EQ(audGenFillBuffer(h, out.data(), static_cast<uint32_t>(out.size() * 2)), 0u);
  return out;
}

TEST(GeneratorTables, ShapesPeaksAndSymmetry) {
  struct Case {
    uint32_t shape, rate;
    double amplitude;
    uint32_t length;
    int16_t peak, first;  // largest entry and t[1]
  };
  for (const Case &c : {Case{AUDGEN_SHAPE_SINE, 48000, 1.0, 48000, 32767, 4},
                        {AUDGEN_SHAPE_SINE, 44100, 0.5, 44100, 16383, 2},
                        {AUDGEN_SHAPE_SQUARE, 48000, 0.5, 32768, 16383, 16383},
                        {AUDGEN_SHAPE_TRIANGLE, 48000, 1.0, 32768, 32767, 3},
                        {AUDGEN_SHAPE_SAWTOOTH, 48000, 1.0, 32768, 32765, 1},
                        {AUDGEN_SHAPE_SQUARE | AUDGEN_SHAPE_SAWTOOTH, 8000, 0.25, 32768, 8191, 8191}}) {
    // Right and left tables come from different shapes and amplitudes.
    const WAVEFORMATEX f = Format(2, c.rate, 16);
    Gen g(audGenOpen(AUDGEN_TONE, 1000, 0, 0, 0, AUDGEN_SHAPE_TRIANGLE, c.shape, &f, 0.1, c.amplitude, 0.0));
    const int16_t *t = g->leftTable;
    const uint32_t n = g->leftTableLength;
    ASSERT_EQ(n, c.length) << c.shape;
    EXPECT_EQ(g->rightTableLength, 32768u);
    EXPECT_TRUE(t[0] == 0 && t[n / 2] == 0) << c.shape;
    EXPECT_EQ(t[1], c.first) << c.shape;
    for (uint32_t i = 1; i < n; ++i) ASSERT_EQ(t[n - i], -t[i]) << "odd symmetry, shape " << c.shape << " i " << i;
    EXPECT_EQ(*std::max_element(t, t + n), c.peak) << c.shape;
  }
  Gen sine = Open(AUDGEN_TONE, 1000, Format(2, 48000, 16));
  for (uint32_t i = 0; i < 48000; ++i) ASSERT_NEAR(sine->leftTable[i], 32767 * std::sin(2 * M_PI * i / 48000), 1.0);
  // A rate not divisible by 4 leaves entries no quarter-wave rule writes; they read as 0.
  Gen odd = Open(AUDGEN_TONE, 1000, Format(2, 22050, 16));
  EXPECT_EQ(odd->leftTable[5513], 0);
}

TEST(GeneratorTone, ConsecutiveOddFillsJoinWithoutAGap) {
  struct Case {
    uint32_t flags, shape, frequency, end, ms, steps;
  };
  const Case cases[] = {
      {AUDGEN_TONE, AUDGEN_SHAPE_SINE, 997, 0, 0, 0},
      {AUDGEN_TONE | AUDGEN_RIGHT_QUARTER, AUDGEN_SHAPE_TRIANGLE, 440, 0, 0, 0},
      {AUDGEN_SWEEP | AUDGEN_SWEEP_LINEAR, AUDGEN_SHAPE_SINE, 100, 1000, 1000, 10},
  };
  for (const Case &c : cases) {
    const WAVEFORMATEX f = Format(2, 48000, 16);
    Gen whole = Open(c.flags, c.frequency, f, 0.8, c.shape, c.end, c.ms, c.steps);
    Gen parts = Open(c.flags, c.frequency, f, 0.8, c.shape, c.end, c.ms, c.steps);
    const auto once = Fill(whole.get(), 12345);
    std::vector<int16_t> joined;
    for (uint32_t frames : {1u, 7u, 4799u, 4801u, 2737u}) {
      const auto part = Fill(parts.get(), frames);
      joined.insert(joined.end(), part.begin(), part.end());
    }
    ASSERT_EQ(joined, once) << "flags " << c.flags;
  }
}

TEST(GeneratorPhase, FlagsSetAngleAndRestart) {
  struct Case {
    uint32_t flags, rightPhase;
  };
  for (const Case &c : {Case{0, 0}, {AUDGEN_RIGHT_QUARTER, 12000}, {AUDGEN_RIGHT_HALF, 24000},
                        {AUDGEN_RIGHT_THREE_QUARTERS, 36000}, {AUDGEN_RIGHT_QUARTER | AUDGEN_RIGHT_HALF, 24000},
                        {AUDGEN_RIGHT_QUARTER | AUDGEN_RIGHT_THREE_QUARTERS, 12000}}) {
    Gen g = Open(c.flags, 1000, Format(2, 48000, 16));
    EXPECT_EQ(g->rightPhase, c.rightPhase) << c.flags;
    EXPECT_EQ(g->leftPhase, 0u);
  }
  // Half a cycle ahead: the right channel is the negated left one.
  Gen g = Open(AUDGEN_RIGHT_HALF, 1000, Format(2, 48000, 16));
  auto out = Fill(g.get(), 100);
  for (size_t k = 0; k < 100; ++k) ASSERT_EQ(out[2 * k + 1], -out[2 * k]) << k;
  // Set-angle puts both channels at the same point, whatever the phase flag did.
  EXPECT_EQ(audGenSetAngle(g.get(), 90), 0u);
  EXPECT_EQ(g->leftPhase, 12000u);
  EXPECT_EQ(g->rightPhase, 12000u);
  out = Fill(g.get(), 10);
  EXPECT_EQ(out[0], 32767);
  for (size_t k = 0; k < 10; ++k) ASSERT_EQ(out[2 * k + 1], out[2 * k]);
  // Restart zeroes both phases and does not re-apply the flag.
  EXPECT_EQ(audGenRestart(g.get()), 0u);
  EXPECT_EQ(g->rightPhase, 0u);
  EXPECT_EQ(g->leftPhase, 0u);
  // Set replaces parameters and applies the flag again; a null format keeps the old one.
  EXPECT_EQ(audGenSet(g.get(), AUDGEN_RIGHT_QUARTER, 500, 0, 0, 0, 0, 0, nullptr, 1.0, 1.0, 0.0), 0u);
  EXPECT_EQ(g->rightPhase, 12000u);
  EXPECT_EQ(g->sampleRate, 48000u);
  EXPECT_EQ(g->frequency, 500u);
}

TEST(GeneratorBufferSize, OneSecondOrOneCycle) {
  struct Case {
    uint32_t flags, frequency;
    WAVEFORMATEX format;
    uint32_t bytes;
  };
  const Case cases[] = {
      {AUDGEN_TONE, 10000, Format(2, 48000, 16), 1000}, {AUDGEN_TONE, 100, Format(2, 48000, 16), 1920},
      {AUDGEN_SWEEP, 100, Format(2, 48000, 16), 192000}, {AUDGEN_PINK_NOISE, 0, Format(2, 44100, 32), 352800},
      {AUDGEN_TONE, 0, Format(2, 48000, 16), 192000},
  };
  for (const Case &c : cases) {
    Gen g = Open(c.flags, c.frequency, c.format);
    EXPECT_EQ(audGenGetBufferSize(g.get()), c.bytes) << c.flags << " " << c.frequency;
  }
  Gen d(audGenOpen(0, 1000, 0, 0, 0, 0, 0, nullptr, 1.0, 1.0, 0.0));
  EXPECT_EQ(d->sampleRate, 44100u);
  EXPECT_EQ(audGenGetBufferSize(d.get()), 1000u) << "default stereo 44100 Hz 16-bit";
}

// Expected left channel of a sine sweep: the table index advances by the present frequency.
struct SweepModel {
  const int16_t *table;
  uint32_t n, index = 0;
  int16_t Next(uint32_t frequency) {
    const int16_t v = table[index];
    index = (index + frequency) % n;
    return v;
  }
};

TEST(GeneratorSweep, LinearStepsAndRestartAtTheEnd) {
  // 1 s, 5 steps: 9600 frames each at 1000, 2000, ... 5000 Hz, then over again.
  Gen g = Open(AUDGEN_SWEEP | AUDGEN_SWEEP_LINEAR, 1000, Format(2, 48000, 16), 1.0, AUDGEN_SHAPE_SINE, 5000, 1000, 5);
  SweepModel model{g->leftTable, 48000};
  for (int call = 0; call < 2; ++call) {
    const auto out = Fill(g.get(), 48000);
    for (uint32_t i = 0; i < 48000; ++i) ASSERT_EQ(out[2 * i], model.Next(1000 + 1000 * (i / 9600))) << i;
    EXPECT_EQ(g->currentFrequency, 5000u);
    EXPECT_EQ(g->stepFramesDone, 9600u);
  }
  // Under a second of sweep time: steps of 8 frames, a step count of 0, so no increment.
  Gen s = Open(AUDGEN_SWEEP | AUDGEN_SWEEP_LINEAR, 1000, Format(2, 48000, 16), 1.0, AUDGEN_SHAPE_SINE, 5000, 999, 5);
  Fill(s.get(), 30);
  EXPECT_EQ(s->currentFrequency, 1000u);
  EXPECT_EQ(s->stepFramesDone, 6u);
}

TEST(GeneratorSweep, GeometricStepsKeepTheWholeHertzBetweenCalls) {
  // 100 -> 1000 Hz in 4 steps of 12000 frames: ratio 10^(1/3); the stored frequency is truncated.
  Gen g = Open(AUDGEN_SWEEP, 100, Format(2, 48000, 16), 1.0, AUDGEN_SHAPE_SINE, 1000, 1000, 4);
  const uint32_t seen[] = {100, 215, 463, 997, 100, 215};
  for (uint32_t want : seen) {
    Fill(g.get(), 12000);
    EXPECT_EQ(g->currentFrequency, want);
  }
}

TEST(GeneratorSweep, MarkersAtTheStartOfTheirSteps) {
  struct Case {
    const char *name;
    uint32_t flags, end, ms, steps;
    double reference;
    std::vector<uint32_t> markedSteps;
  };
  const uint32_t lin = AUDGEN_SWEEP | AUDGEN_SWEEP_LINEAR;
  const Case cases[] = {
      {"start", lin | AUDGEN_MARK_START, 5000, 1000, 5, 0.0, {0}},
      {"octaves", lin | AUDGEN_MARK_OCTAVES, 5000, 1000, 5, 1000.0, {0, 1, 3}},
      {"seconds", lin | AUDGEN_MARK_SECONDS, 5000, 2000, 4, 0.0, {0, 2}},
      {"geometric octaves", AUDGEN_SWEEP | AUDGEN_MARK_OCTAVES, 8000, 1000, 4, 1000.0, {0, 1, 2, 3}},
      {"none", lin, 5000, 1000, 5, 0.0, {}},
  };
  for (const Case &c : cases) {
    Gen g = Open(c.flags, 1000, Format(2, 48000, 16), 1.0, AUDGEN_SHAPE_SINE, c.end, c.ms, c.steps, c.reference);
    const uint32_t stepFrames = 48000 * (c.ms / 1000) / c.steps;
    // One frame short of the whole sweep, so every step ends inside this buffer.
    const auto out = Fill(g.get(), stepFrames * c.steps - 1);
    for (uint32_t step = 0; step + 1 < c.steps; ++step) {
      const int16_t *at = out.data() + size_t{step} * stepFrames * 2;
      const bool marked = std::find(c.markedSteps.begin(), c.markedSteps.end(), step) != c.markedSteps.end();
      // A marker is two pairs of frames (block align 4): the truncated amplitude, then zero.
      const bool click = at[0] == 1 && at[1] == 1 && at[2] == 0 && at[3] == 0 && at[4] == 1 && at[6] == 0;
      EXPECT_EQ(click, marked) << c.name << " step " << step;
    }
  }
}

TEST(GeneratorNoise, RangesAndSpectrumShape) {
  const WAVEFORMATEX f = Format(2, 48000, 16);
  Gen white(audGenOpen(AUDGEN_WHITE_NOISE, 0, 0, 0, 0, 0, 0, &f, 0.5, 1.0, 0.0));
  Gen pink(audGenOpen(AUDGEN_PINK_NOISE, 0, 0, 0, 0, 0, 0, &f, 0.5, 1.0, 0.0));
  std::srand(7);
  const auto w = Fill(white.get(), 20000);
  std::srand(7);
  const auto p = Fill(pink.get(), 20000);
  auto lag1 = [](const std::vector<int16_t> &v) {
    double num = 0, den = 0;
    for (size_t i = 0; i + 2 < v.size(); i += 2) num += double(v[i]) * v[i + 2], den += double(v[i]) * v[i];
    return num / den;
  };
  // Left is the full-scale noise, right the same noise at half amplitude.
  for (const auto *v : {&w, &p})
    for (size_t i = 0; i < v->size(); i += 2) ASSERT_NEAR((*v)[i + 1], (*v)[i] / 2.0, 1.0) << i;
  EXPECT_LT(std::fabs(lag1(w)), 0.05) << "white noise is uncorrelated";
  EXPECT_GT(lag1(p), 0.5) << "pink noise leans to low frequencies";
  EXPECT_GT(*std::max_element(w.begin(), w.end()), 32000) << "white noise spans the full scale";
  // Pink noise redraws 256 + 128 + ... + 2 = 510 values per 256 frames; white one per frame.
  std::srand(11);
  for (int i = 0; i < 510 * 2 + 300; ++i) std::rand();
  const int after = std::rand();
  std::srand(11);
  Fill(pink.get(), 512);
  Fill(white.get(), 300);
  EXPECT_EQ(std::rand(), after);
}

TEST(GeneratorFill, SilenceUnknownTypesAndOtherChannels) {
  const WAVEFORMATEX quad = Format(4, 48000, 16);
  for (uint32_t type : {AUDGEN_SILENCE, 3u, 0xFu}) {
    Gen g = Open(type, 1000, quad);
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
      Gen narrow = Open(type, 1000, Format(channels, 48000, 16), 0.9, AUDGEN_SHAPE_SINE, 4000, 1000, 5);
      Gen wide = Open(type, 1000, Format(channels, 48000, 32), 0.9, AUDGEN_SHAPE_SINE, 4000, 1000, 5);
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
  struct Shape {
    uint16_t channels, bits, blockAlign;
  };
  // Consistent records and inconsistent ones (block align smaller than the channels need).
  for (const Shape s : {Shape{1, 16, 2}, {1, 32, 4}, {6, 16, 12}, {2, 16, 2}, {2, 16, 1}, {3, 24, 4}, {2, 16, 0}}) {
    for (uint32_t type : {AUDGEN_TONE, AUDGEN_SWEEP | AUDGEN_MARK_START, AUDGEN_WHITE_NOISE, AUDGEN_PINK_NOISE,
                          AUDGEN_SILENCE, 5u}) {
      WAVEFORMATEX f = Format(s.channels, 48000, s.bits);
      f.nBlockAlign = s.blockAlign;
      Gen g = Open(type, 1000, f, 1.0, AUDGEN_SHAPE_SINE, 3000, 1000, 1000);
      for (uint32_t bytes : {0u, 1u, 3u, 37u, 1000u}) {
        kvtest::Guarded buf(bytes);
        std::memset(buf.data(), 0, bytes);
        audGenFillBuffer(g.get(), buf.data(), bytes);
        ASSERT_TRUE(buf.GuardsIntact()) << s.channels << " ch, align " << s.blockAlign << ", type " << type
                                        << ", " << bytes << " bytes";
      }
    }
  }
  EXPECT_EQ(audGenFillBuffer(nullptr, nullptr, 10), 0u);
  EXPECT_EQ(audGenClose(nullptr), 0u);
}

TEST(GeneratorLock, ConcurrentFillsAdvanceThePhaseOnce) {
  Gen g = Open(AUDGEN_TONE, 1000, Format(2, 48000, 16));
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&] {
      for (int i = 0; i < 200; ++i) Fill(g.get(), 37);
    });
  for (auto &t : threads) t.join();
  EXPECT_EQ(g->leftPhase % 48000, 4u * 200 * 37 * 1000 % 48000);
}

TEST(DbToAmplitude, TenToTheMinusDbOverTwenty) {
  EXPECT_EQ(db_to_amplitude(0), 1.0);
  EXPECT_DOUBLE_EQ(db_to_amplitude(20), 0.1);
  EXPECT_DOUBLE_EQ(db_to_amplitude(-40), 100.0);
}

}  // namespace
