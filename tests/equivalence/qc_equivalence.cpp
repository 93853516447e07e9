// QC true peak: plain loop and AVX2 kernel give identical records for every channel count.
#include <gtest/gtest.h>

#include <cstring>

#include "kvaudio/qc.h"
#include "test_util.h"

namespace {

TEST(QcEquivalence, TruePeakForEveryShape) {
  if (!kvaudio::frame::HostHasAvx2()) GTEST_SKIP() << "host without AVX2";
  for (uint32_t bits : {16u, 32u})
    for (uint32_t channels = 1; channels <= 32; ++channels)
      for (size_t frames : {1, 2, 7, 16, 31, 64, 257, 1601}) {
        const auto in = kvtest::RandomBytes(frames * channels * bits / 8, channels * 1000 + frames + bits);
        kvtest::Guarded buf(in.size(), (frames % 8) * (bits / 8));
        std::memcpy(buf.data(), in.data(), in.size());
        kvaudqcTruePeak out[2];
        for (int path = 0; path < 2; ++path) {
          kvtest::ScopedAvx2 force(path);
          ASSERT_EQ(kvqcAudioAnalyzeTruePeak(buf.data(), static_cast<uint32_t>(frames), channels, bits, 48000, 0,
                                             &out[path]),
                    0);
        }
        ASSERT_EQ(0, std::memcmp(&out[0], &out[1], sizeof out[0]))
            << "bits " << bits << " channels " << channels << " frames " << frames;
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
          const auto in = kvtest::RandomBytes(frames * channels * bits / 8, channels * 7 + frames + bits);
          kvtest::Guarded buf(in.size(), (frames % 8) * (bits / 8));
          std::memcpy(buf.data(), in.data(), in.size());
          kvaudqcLoudness out[2];
          for (int path = 0; path < 2; ++path) {
            kvtest::ScopedAvx2 force(path);
            ASSERT_EQ(kvqcAudioAnalyzeLoudness(buf.data(), static_cast<uint32_t>(frames), channels, bits, 130,
                                               layout, 1, &out[path]),
                      0);
          }
          ASSERT_EQ(0, std::memcmp(&out[0], &out[1], sizeof out[0]))
              << "bits " << bits << " channels " << channels << " frames " << frames << " layout "
              << (layout ? layout : "flat");
        }
}

}  // namespace
