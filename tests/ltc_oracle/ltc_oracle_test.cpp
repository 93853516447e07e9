// Interoperability with libltc, an independent LTC implementation: each side reads the other.
#include <gtest/gtest.h>
#include <ltc.h>

#include <string>

#include "../timing/ltc_signal.h"
#include "tcxlat.h"

namespace {

constexpr uint32_t kSampleRate = 48000;
constexpr uint32_t kFirst = 17900;  // 29.97 DF: runs over the tenth minute, where no frame is dropped
constexpr uint32_t kFrames = 150;

struct Case {
  const char *name;
  const ltctest::Rate &rate;
  double fps;
  LTC_TV_STANDARD standard;
};
const Case kCases[] = {{"25", ltctest::kRates[1], 25.0, LTC_TV_625_50},
                       {"2997DF", ltctest::kRates[2], 30000.0 / 1001.0, LTC_TV_525_60}};

// h:m:s:f of a frame count, as our timecode library counts it at the rate.
SMPTETimecode TimeOf(uint32_t frame, uint32_t flags) {
  uint8_t t[4];
  tc2String(frame, flags | 0x121200, t);
  auto dec = [](uint8_t b) { return static_cast<unsigned char>((b >> 4) * 10 + (b & 0xF)); };
  SMPTETimecode tc{};
  tc.frame = dec(t[0]);
  tc.secs = dec(t[1]);
  tc.mins = dec(t[2]);
  tc.hours = dec(t[3]);
  return tc;
}

class LtcOracle : public testing::TestWithParam<Case> {};

// Every frame our encoder writes, 8-bit and 16-bit, is read by libltc with our exact 80 bits
// (time address, user bits, flags) and the time address we meant.
TEST_P(LtcOracle, LibltcReadsEveryFrameWeWrite) {
  const Case &c = GetParam();
  for (uint32_t bits : {8u, 16u}) {
    SCOPED_TRACE(bits);
    // One frame more than checked: a frame's last bit ends at the next frame's first transition.
    const auto run = ltctest::EncodeRun(kSampleRate, bits, c.rate, kFirst, kFrames + 1);
    LTCDecoder *d = ltc_decoder_create(static_cast<int>(kSampleRate / c.fps), 32);
    ASSERT_NE(d, nullptr);
    std::vector<uint8_t> copy(run.bytes);
    size_t at = 0, next = 0;
    for (uint32_t k = 0; k <= kFrames; ++k) {
      const uint32_t n = run.lengths[k];
      if (bits == 8) ltc_decoder_write(d, copy.data() + at, n, static_cast<ltc_off_t>(at));
      else ltc_decoder_write_s16(d, reinterpret_cast<short *>(copy.data() + 2 * at), n, static_cast<ltc_off_t>(at));
      at += n;
      LTCFrameExt got;
      while (ltc_decoder_read(d, &got)) {
        ASSERT_LT(next, kFrames);
        ASSERT_EQ(0, memcmp(&got.ltc, run.frames[next].bytes, 10)) << "frame " << next;
        SMPTETimecode t;
        ltc_frame_to_time(&t, &got.ltc, 0);
        const SMPTETimecode want = TimeOf(kFirst + static_cast<uint32_t>(next), c.rate.flags);
        ASSERT_EQ(t.hours * 1000000 + t.mins * 10000 + t.secs * 100 + t.frame,
                  want.hours * 1000000 + want.mins * 10000 + want.secs * 100 + want.frame);
        ASSERT_EQ(ltc_frame_get_user_bits(&got.ltc), ltctest::UserBitsOf(kFirst + static_cast<uint32_t>(next)));
        ASSERT_EQ(got.reverse, 0);
        ++next;
      }
    }
    EXPECT_EQ(next, kFrames);
    ltc_decoder_free(d);
  }
}

// libltc's waveform (unsigned 8-bit, and scaled to 16-bit) read by our decoder: exactly the frames
// that pass our polarity test are reported new, with libltc's time address and user bits.
TEST_P(LtcOracle, WeReadExactlyTheAcceptedFramesLibltcWrites) {
  const Case &c = GetParam();
  LTCEncoder *e = ltc_encoder_create(kSampleRate, c.fps, c.standard, 0);
  ASSERT_NE(e, nullptr);
  std::vector<uint8_t> signal;
  std::vector<size_t> starts;
  std::vector<bool> accepted;
  std::vector<uint8_t> frameSamples(ltc_encoder_get_buffersize(e));
  for (uint32_t k = 0; k <= kFrames; ++k) {
    SMPTETimecode t = TimeOf(kFirst + k, c.rate.flags);
    ltc_encoder_set_timecode(e, &t);
    ltc_encoder_set_user_bits(e, ltctest::UserBitsOf(kFirst + k));
    LTCFrame f;
    ltc_encoder_get_frame(e, &f);
    f.dfbit = (c.rate.flags & 4) ? 1 : 0;  // libltc leaves the drop-frame bit to its caller
    ltc_frame_set_parity(&f, c.standard);
    ltc_encoder_set_frame(e, &f);
    uint8_t raw[10];
    std::memcpy(raw, &f, 10);
    accepted.push_back(ltctest::PassesPolarity(raw));
    ltc_encoder_encode_frame(e);
    const int n = ltc_encoder_copy_buffer(e, frameSamples.data());
    starts.push_back(signal.size());
    signal.insert(signal.end(), frameSamples.begin(), frameSamples.begin() + n);
  }
  ltc_encoder_free(e);
  starts.push_back(signal.size());

  for (uint32_t bits : {8u, 16u}) {
    SCOPED_TRACE(bits);
    std::vector<uint8_t> stream;
    for (uint8_t s : signal) {
      if (bits == 8) {
        stream.push_back(s);
      } else {
        const int16_t v = static_cast<int16_t>((s - 128) * 256);
        stream.insert(stream.end(), reinterpret_cast<const uint8_t *>(&v), reinterpret_cast<const uint8_t *>(&v) + 2);
      }
    }
    // Chunk j ends half a frame after frame j + 1 starts, so it holds frame j's completion only.
    std::vector<size_t> chunks;
    size_t cut = 0;
    for (uint32_t k = 1; k <= kFrames; ++k) {
      const size_t end = (starts[k] + starts[k + 1]) / 2;
      chunks.push_back(end - cut);
      cut = end;
    }
    const auto reports = ltctest::DecodeInChunks(std::vector<uint8_t>(stream.begin(), stream.begin() + cut * bits / 8),
                                                 bits / 8, kSampleRate, bits, 0, 0, c.rate, chunks);
    ASSERT_EQ(reports.size(), kFrames);
    // Chunk 0 may hold a frame read while the period adapts; from chunk 1 on, every report is new
    // exactly when its frame is accepted.
    uint32_t previous = reports[0].result == 0 ? reports[0].timecode : 0xFFFFFFFF;
    size_t newCount = 0;
    for (uint32_t j = 1; j < kFrames; ++j) {
      const auto &r = reports[j];
      const uint32_t frame = kFirst + j;
      if (accepted[j]) {
        ASSERT_EQ(r.result, 0u) << "frame " << frame;
        ASSERT_EQ(r.timecode, frame);
        ASSERT_EQ(r.userBits, ltctest::UserBitsOf(frame));
        ASSERT_EQ(r.flags, c.rate.decodeOut);
        ++newCount;
      } else if (r.result == 0) {
        ASSERT_EQ(r.timecode, previous) << "frame " << frame << " is not accepted but reported";
      }
      if (r.result == 0) previous = r.timecode;
    }
    EXPECT_GT(newCount, kFrames / 4);
  }
}

INSTANTIATE_TEST_SUITE_P(All, LtcOracle, testing::ValuesIn(kCases),
                         [](const testing::TestParamInfo<Case> &i) { return std::string(i.param.name); });

}  // namespace
