// QC true peak and loudness: plain loop and AVX2 kernel give identical records for every shape.
#include <gtest/gtest.h>

#include <cstring>

#include "equivalence.h"
#include "kvaudio/qc.h"

namespace {

// Random frames of `channels` channels at `bits` in a guarded buffer misaligned by whole samples.
kvtest::Guarded Frames(size_t frames, uint32_t channels, uint32_t bits, uint64_t seed) {
  const auto in = kvtest::RandomBytes(frames * channels * bits / 8, seed);
  kvtest::Guarded buf(in.size(), (frames % 8) * (bits / 8));
  std::memcpy(buf.data(), in.data(), in.size());
  return buf;
}

TEST(QcEquivalence, TruePeakForEveryShape) {
  if (!kvaudio::frame::HostHasAvx2()) GTEST_SKIP() << "host without AVX2";
  for (uint32_t bits : {16u, 32u})
    for (uint32_t channels = 1; channels <= 32; ++channels)
      for (size_t frames : {1, 2, 7, 16, 31, 64, 257, 1601}) {
        kvtest::Guarded buf = Frames(frames, channels, bits, channels * 1000 + frames + bits);
        const auto r = kvtest::OnBothPaths([&] {
          kvaudqcTruePeak out;
          const auto n = static_cast<uint32_t>(frames);
          EXPECT_EQ(kvqcAudioAnalyzeTruePeak(buf.data(), n, channels, bits, 48000, 0, &out), 0);
          return out;
        });
        ASSERT_TRUE(kvtest::SameBits(r)) << "bits " << bits << " channels " << channels << " frames " << frames;
        ASSERT_TRUE(buf.GuardsIntact());
      }
}

// A low sample rate makes 400 ms and 3 s blocks short, so block edges fall everywhere.
TEST(QcEquivalence, LoudnessForEveryShape) {
  if (!kvaudio::frame::HostHasAvx2()) GTEST_SKIP() << "host without AVX2";
  for (uint32_t bits : {16u, 32u})
    for (uint32_t channels : {1u, 2u, 3u, 6u, 8u, 16u, 32u})
      for (const char *layout : {static_cast<const char *>(nullptr), "5.1", "stereo2", "7.1-dolby"})
        for (size_t frames : kvtest::EquivalenceLengths()) {
          if (frames == 0) continue;
          kvtest::Guarded buf = Frames(frames, channels, bits, channels * 7 + frames + bits);
          const auto r = kvtest::OnBothPaths([&] {
            kvaudqcLoudness out;
            EXPECT_EQ(kvqcAudioAnalyzeLoudness(buf.data(), static_cast<uint32_t>(frames), channels, bits, 130, layout,
                                               1, &out),
                      0);
            return out;
          });
          ASSERT_TRUE(kvtest::SameBits(r)) << "bits " << bits << " channels " << channels << " frames " << frames
                                           << " layout " << (layout ? layout : "flat");
        }
}

}  // namespace
