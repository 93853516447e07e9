// Interoperability with libltc, an independent LTC implementation: each side reads the other.
#include <gtest/gtest.h>
#include <ltc.h>

#include <string>

#include "../timing/ltc_signal.h"

namespace {

constexpr uint32_t kSampleRate = 48000;
constexpr uint32_t kFirst = 17900;  // 29.97 DF: runs over the tenth minute, where no frame is dropped
constexpr uint32_t kFrames = 150;

struct Case {
  const char *name;
  const ltctest::Rate &rate;
  double fps;
  LTC_TV_STANDARD standard;
  SMPTETimecode first;  // the time address of frame kFirst; libltc counts on from it
};
const Case kCases[] = {{"25", ltctest::kRates[1], 25.0, LTC_TV_625_50, {"", 0, 0, 0, 0, 11, 56, 0}},
                       {"2997DF", ltctest::kRates[2], 30000.0 / 1001.0, LTC_TV_525_60, {"", 0, 0, 0, 0, 9, 57, 8}}};

class LtcOracle : public testing::TestWithParam<Case> {};

// Every frame our 8-bit encoder writes is read by libltc with our exact 80 bits (the layout of the
// time address, user bits and flags is pinned against the field table by the timing tests).
TEST_P(LtcOracle, LibltcReadsEveryFrameWeWrite) {
  const Case &c = GetParam();
  // One frame more than checked: a frame's last bit ends at the next frame's first transition.
  auto run = ltctest::EncodeRun(kSampleRate, 8, c.rate, kFirst, kFrames + 1);
  LTCDecoder *d = ltc_decoder_create(static_cast<int>(kSampleRate / c.fps), 32);
  size_t at = 0, next = 0;
  for (uint32_t k = 0; k <= kFrames; ++k) {
    ltc_decoder_write(d, run.bytes.data() + at, run.lengths[k], static_cast<ltc_off_t>(at));
    at += run.lengths[k];
    LTCFrameExt got;
    while (ltc_decoder_read(d, &got)) {
      ASSERT_LT(next, kFrames);
      ASSERT_EQ(0, memcmp(&got.ltc, run.frames[next].bytes, 10)) << "frame " << next;
      ++next;
    }
  }
  EXPECT_EQ(next, kFrames);
  ltc_decoder_free(d);
}

// libltc's unsigned 8-bit waveform read by our decoder: exactly the frames that pass our polarity
// test are reported new, with libltc's time address and user bits.
TEST_P(LtcOracle, WeReadExactlyTheAcceptedFramesLibltcWrites) {
  const Case &c = GetParam();
  LTCEncoder *e = ltc_encoder_create(kSampleRate, c.fps, c.standard, 0);
  std::vector<uint8_t> signal;
  std::vector<size_t> starts;
  std::vector<bool> accepted;
  std::vector<uint8_t> frameSamples(ltc_encoder_get_buffersize(e));
  ltc_encoder_set_timecode(e, const_cast<SMPTETimecode *>(&c.first));
  for (uint32_t k = 0; k <= kFrames; ++k) {
    ltc_encoder_set_user_bits(e, ltctest::UserBitsOf(kFirst + k));
    LTCFrame f;
    ltc_encoder_get_frame(e, &f);
    f.dfbit = (c.rate.flags & 4) ? 1 : 0;  // libltc leaves the drop-frame bit to its caller
    ltc_frame_set_parity(&f, c.standard);
    ltc_encoder_set_frame(e, &f);
    accepted.push_back(ltctest::PassesPolarity(reinterpret_cast<const uint8_t *>(&f)));
    ltc_encoder_encode_frame(e);
    const int n = ltc_encoder_copy_buffer(e, frameSamples.data());
    starts.push_back(signal.size());
    signal.insert(signal.end(), frameSamples.begin(), frameSamples.begin() + n);
    ltc_encoder_inc_timecode(e);
  }
  ltc_encoder_free(e);
  starts.push_back(signal.size());
  // Chunk j ends half a frame after frame j + 1 starts, so it holds frame j's completion only.
  std::vector<size_t> chunks;
  size_t cut = 0;
  for (uint32_t k = 1; k <= kFrames; ++k) {
    const size_t end = (starts[k] + starts[k + 1]) / 2;
    chunks.push_back(end - cut);
    cut = end;
  }
  const auto reports = ltctest::DecodeInChunks(std::vector<uint8_t>(signal.begin(), signal.begin() + cut), 1,
                                               kSampleRate, 8, 0, 0, c.rate, chunks);
  ASSERT_EQ(reports.size(), kFrames);
  // Chunk 0 may hold a frame read while the period adapts; from chunk 1 on, every report is new
  // exactly when its frame is accepted.
  uint32_t previous = reports[0].result == 0 ? reports[0].timecode : 0xFFFFFFFF;
  for (uint32_t j = 1; j < kFrames; ++j) {
    const auto &r = reports[j];
    if (accepted[j]) {
      ASSERT_EQ(r.result, 0u) << "frame " << kFirst + j;
      ASSERT_EQ(r.timecode, kFirst + j);
      ASSERT_EQ(r.userBits, ltctest::UserBitsOf(kFirst + j));
      ASSERT_EQ(r.flags, c.rate.decodeOut);
    } else if (r.result == 0) {
      ASSERT_EQ(r.timecode, previous) << "frame " << kFirst + j << " is not accepted but reported";
    }
    if (r.result == 0) previous = r.timecode;
  }
}

INSTANTIATE_TEST_SUITE_P(All, LtcOracle, testing::ValuesIn(kCases),
                         [](const testing::TestParamInfo<Case> &i) { return std::string(i.param.name); });

}  // namespace
