// Encoder -> decoder round trips at every rate, sample rate and width, forwards and backwards.
#include <gtest/gtest.h>

#include <tuple>

#include "ltc_signal.h"

namespace {

const std::vector<size_t> kChunks = {1, 7, 333, 1601};
constexpr uint32_t kFirst = 1790;  // crosses the first dropped minute at 29.97
constexpr uint32_t kFrames = 300;

using Param = std::tuple<ltctest::Rate, uint32_t, uint32_t, bool>;  // rate, sample rate, bits, backwards
class LtcRoundTrip : public testing::TestWithParam<Param> {};

// After the chunk in which the first frame completes (read while the period still adapts), each
// chunk reports new exactly the last accepted frame that completes in it (a frame completes on
// the transition that opens the next one in playing order; backwards only frames whose first bit
// is 0 are accepted), and otherwise nothing or the previous report again.
TEST_P(LtcRoundTrip, ReportsEveryAcceptedFrameInTheChunkWhereItCompletes) {
  const auto &[rate, sampleRate, bits, backwards] = GetParam();
  SCOPED_TRACE(rate.name);
  const auto run = ltctest::EncodeRun(sampleRate, bits, rate, kFirst, kFrames);
  const size_t width = bits / 8, total = run.bytes.size() / width;
  std::vector<size_t> done(kFrames, SIZE_MAX);
  std::vector<bool> accepted(kFrames);
  for (size_t k = 0, start = 0; k < kFrames; start += run.lengths[k++]) {
    accepted[k] = ltctest::PassesPolarity(run.frames[k].bytes) && !(backwards && (run.frames[k].bytes[0] & 1));
    if (!backwards && k > 0) done[k - 1] = start;
    if (backwards && k > 0) done[k] = total - start;
  }
  std::vector<uint8_t> stream(run.bytes);
  for (size_t i = 0; backwards && i < total / 2; ++i)
    std::swap_ranges(&stream[i * width], &stream[(i + 1) * width], &stream[(total - 1 - i) * width]);
  const auto reports = ltctest::DecodeInChunks(stream, width, sampleRate, bits, 0, 0, rate, kChunks);
  bool started = false;
  size_t newCount = 0;
  uint32_t previous = 0xFFFFFFFF;
  for (size_t c = 0, at = 0; c < reports.size(); ++c) {
    const size_t end = std::min(at + kChunks[c % kChunks.size()], total);
    long want = -1;
    bool completes = false;
    for (size_t k = 0; k < kFrames; ++k) {
      if (done[k] < at || done[k] >= end) continue;
      completes = true;
      if (accepted[k] && (want < 0 || done[k] > done[want])) want = long(k);
    }
    const auto &r = reports[c];
    const bool isNew = r.result == 0 && r.timecode != previous;
    if (started) {
      ASSERT_TRUE(r.result == 0 || r.result == SMPTE_NO_FRAME) << "chunk " << c;
      ASSERT_EQ(isNew, want >= 0) << "chunk " << c << " frame " << want << " got " << r.timecode;
      newCount += isNew;
      if (r.result == 0 && newCount > 0) {  // from the first new report on
        ASSERT_EQ(r.timecode, isNew ? kFirst + want : previous) << "chunk " << c;
        ASSERT_EQ(r.userBits, ltctest::UserBitsOf(r.timecode)) << "frame " << r.timecode;
        ASSERT_EQ(r.flags, rate.decodeOut) << "frame " << r.timecode;
      }
    }
    started = started || completes;
    if (r.result == 0) previous = r.timecode;
    at = end;
  }
  EXPECT_GT(newCount, kFrames / 6);
  EXPECT_EQ(reports.back().result, 0u);
  EXPECT_EQ(decoder.position, 0u) << "samples since the last good decode";
  EXPECT_EQ(kvaudio::ltc::m_dwBadCount, 0u);
  EXPECT_EQ(kvaudio::ltc::m_dwTC, reports.back().timecode);
  // Silence reports nothing and leaves the outputs alone, unless asked for the last frame.
  std::vector<uint8_t> silence(6000, bits == 8 ? 128 : 0);
  for (uint32_t tcIn : {0u, 0xFFFFFFFFu}) {
    smpteDecodeSetBuffer(silence.data(), 3000);
    uint32_t tc = tcIn, ub = 0, flags = rate.decodeIn;
    EXPECT_EQ(smpteDecode(&tc, &ub, &flags), SMPTE_NO_FRAME);
    EXPECT_EQ(std::vector<uint32_t>({tc, ub}), tcIn ? std::vector<uint32_t>({previous, ltctest::UserBitsOf(previous)})
                                                   : std::vector<uint32_t>({0, 0}));
  }
  EXPECT_EQ(smpteDecode(nullptr, nullptr, nullptr), SMPTE_NO_FRAME);  // buffer drained
}

INSTANTIATE_TEST_SUITE_P(All, LtcRoundTrip, testing::Combine(testing::ValuesIn(ltctest::kRates), testing::Values(44100u, 48000u),
                                                         testing::Values(8u, 16u), testing::Bool()));

}  // namespace
