// Meters on their own records, QC engines and the stand-alone analyses, from many threads at once.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "frame/cpu.h"
#include "kvaudio/loudness.h"
#include "kvaudio/qc.h"
#include "test_util.h"

namespace {

struct Readings {
  float current = 0;
  double integrated = 0, peak = 0;
};

Readings Measure(const std::vector<uint8_t> &pcm, uint32_t frames) {
  Readings r;
  s_ebu_r128 s{};
  ebu_r128_init(&s, 1, 16, 48000, 1, 2);
  ebu_r128_process_samples(&s, pcm.data(), frames);
  r.current = s.currentLoudness;
  ebu_r128_destroy(&s);
  kvaudqcLoudness l;
  kvqcAudioAnalyzeLoudness(pcm.data(), frames, 2, 16, 48000, "stereo1", 1, &l);
  r.integrated = l.integrated;
  r.peak = l.truePeak;
  kvqcAudioClose(kvqcAudioOpen(nullptr));
  return r;
}

TEST(Threads, LoudnessFamiliesOnSharedInput) {
  const uint32_t frames = 48000;
  const auto pcm = kvtest::RandomBytes(frames * 4, 99);
  const Readings expected = Measure(pcm, frames);
  kvaudio::frame::SetAvx2ForTesting(-1);
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t)
    threads.emplace_back([&] {
      for (int round = 0; round < 3; ++round) {
        const Readings r = Measure(pcm, frames);
        EXPECT_EQ(r.current, expected.current);
        EXPECT_EQ(r.integrated, expected.integrated);
        EXPECT_EQ(r.peak, expected.peak);
      }
    });
  for (auto &th : threads) th.join();
}

}  // namespace
