// Encoder -> decoder round trips at every rate, sample rate, width and layout, forwards and back.
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <tuple>

#include "ltc_signal.h"

namespace {

using ltctest::Rate;

const std::vector<size_t> kChunks = {1, 7, 333, 1601};
constexpr uint32_t kFirst = 1790;  // crosses the first dropped minute at 29.97
constexpr uint32_t kFrames = 300;

struct Layout {
  const char *name;
  int stereo, channel;  // as smpteSetup takes them: channel non-zero reads the first of the pair
  int slot;             // where the signal sits in the pair
};
const Layout kLayouts[] = {{"Mono", 0, 0, 0}, {"Left", 1, 1, 0}, {"Right", 1, 0, 1}};

using Param = std::tuple<Rate, uint32_t, uint32_t, Layout>;

class LtcRoundTrip : public testing::TestWithParam<Param> {
 protected:
  // The stream to decode and the sample at which each frame's sync completes in it.
  void Build(bool backwards) {
    const auto &[rate, sampleRate, bits, layout] = GetParam();
    run_ = ltctest::EncodeRun(sampleRate, bits, rate, kFirst, kFrames);
    const size_t width = bits / 8;
    frameBytes_ = layout.stereo ? 2 * width : width;
    stream_ = layout.stereo ? ltctest::ToStereo(run_.bytes, width, layout.slot) : run_.bytes;
    size_t start = 0;
    std::vector<size_t> starts;
    for (uint32_t n : run_.lengths) starts.push_back(start), start += n;
    const size_t total = start;
    // A frame completes on the transition that opens the frame after it in playing order.
    done_.assign(kFrames, SIZE_MAX);
    accepted_.assign(kFrames, false);
    for (size_t k = 0; k < kFrames; ++k) {
      accepted_[k] = ltctest::PassesPolarity(run_.frames[k].bytes);
      if (!backwards && k + 1 < kFrames) done_[k] = starts[k + 1];
      if (backwards) {
        accepted_[k] = accepted_[k] && (run_.frames[k].bytes[0] & 1) == 0;
        if (k > 0) done_[k] = total - starts[k];
      }
    }
    if (backwards) stream_ = ltctest::ReversedSamples(stream_, frameBytes_);
  }

  // The first frame in playing order may be read while the period still adapts; from the next
  // chunk on, every accepted frame is reported new in the chunk where it completes, and nothing
  // else is.
  void CheckReports() {
    const auto &[rate, sampleRate, bits, layout] = GetParam();
    const auto reports = ltctest::DecodeInChunks(stream_, frameBytes_, sampleRate, bits, layout.stereo,
                                                 layout.channel, rate, kChunks);
    std::vector<bool> all(kFrames, true);
    const auto firstDone = ltctest::ExpectedNew(done_, all, stream_.size() / frameBytes_, kChunks).at(0);
    auto want = ltctest::ExpectedNew(done_, accepted_, stream_.size() / frameBytes_, kChunks);
    std::erase_if(want, [&](const ltctest::Sighting &s) { return s.chunk <= firstDone.chunk; });
    ASSERT_GT(want.size(), kFrames / 6);
    const auto got = ltctest::NewReports(reports, firstDone.chunk + 1, kFirst);
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < got.size(); ++i) {
      ASSERT_EQ(got[i], want[i]) << "report " << i << " frame " << got[i].frame << " chunk " << got[i].chunk;
    }
    for (size_t c = got[0].chunk; c < reports.size(); ++c) {
      const auto &r = reports[c];
      ASSERT_TRUE(r.result == 0 || r.result == SMPTE_NO_FRAME);
      if (r.result != 0) continue;
      ASSERT_EQ(r.userBits, ltctest::UserBitsOf(r.timecode)) << "frame " << r.timecode;
      ASSERT_EQ(r.flags, rate.decodeOut) << "frame " << r.timecode;
    }
  }

  ltctest::Run run_;
  std::vector<uint8_t> stream_;
  size_t frameBytes_ = 0;
  std::vector<size_t> done_;
  std::vector<bool> accepted_;
};

TEST_P(LtcRoundTrip, ForwardReportsEveryAcceptedFrameInOrder) {
  Build(false);
  CheckReports();
}

TEST_P(LtcRoundTrip, BackwardFindsOnlyFramesEndingInAZeroBit) {
  Build(true);
  CheckReports();
}

INSTANTIATE_TEST_SUITE_P(
    All, LtcRoundTrip,
    testing::Combine(testing::ValuesIn(ltctest::kRates), testing::Values(44100u, 48000u), testing::Values(8u, 16u),
                     testing::ValuesIn(kLayouts)),
    [](const testing::TestParamInfo<Param> &i) {
      return std::string("R") + std::get<0>(i.param).name + "_" + std::to_string(std::get<1>(i.param)) + "_" +
             std::to_string(std::get<2>(i.param)) + "bit_" + std::get<3>(i.param).name;
    });

}  // namespace
