// Standard loudness meter: the plain loops and the AVX2 kernels give bit-identical readings.
#include <gtest/gtest.h>

#include <vector>

#include "equivalence.h"
#include "kvaudio/r128.h"

namespace {

TEST(R128Equivalence, ReadingsForEveryChannelCountFormatAndCallSize) {
  if (!kvaudio::frame::HostHasAvx2()) GTEST_SKIP() << "host without AVX2";
  const size_t width[] = {4, 2, 3, 4, 4};  // planar float, then KVAUDIO_SAMPLES_*
  for (uint32_t nch = 1; nch <= 9; ++nch)
    for (uint32_t format = 0; format <= 4; ++format) {
      const size_t periods = 4 * 8000 + nch * 37;
      auto in = kvtest::RandomBytes(periods * nch * width[format], nch * 10 + format);
      if (format == 0 && nch % 2)  // audio-like floats besides the random bit patterns
        for (size_t i = 0; i < in.size() / 4; ++i) reinterpret_cast<float *>(in.data())[i] = static_cast<int8_t>(in[i]) / 64.0f;
      const auto reading = kvtest::OnBothPaths([&] {
        kvAudioLoudness *m = kvAudioLoudnessOpen(8000, nch, KVAUDIO_LOUDNESS_ALL);
        kvAudioLoudnessSetLayout(m, nch == 6 ? "5.1" : "none");
        for (size_t done = 0, n = 1; done < periods; done += n, n = n * 3 + 1) {
          n = std::min(n, periods - done);
          const uint8_t *at = in.data() + done * nch * width[format];
          std::vector<const float *> planes;
          for (uint32_t c = 0; c < nch; ++c) planes.push_back(reinterpret_cast<const float *>(at) + c * n);
          EXPECT_EQ(format ? kvAudioLoudnessAdd(m, at, format, n) : kvAudioLoudnessAddPlanar(m, planes.data(), n), 0);
        }
        kvAudioLoudnessReading r{};
        r.size = sizeof r;
        kvAudioLoudnessRead(m, &r);
        kvAudioLoudnessClose(m);
        return r;
      });
      ASSERT_TRUE(kvtest::SameBits(reading)) << "channels " << nch << " format " << format;
    }
}

}  // namespace
