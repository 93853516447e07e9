// LTC: frame bit layout, encoder waveform, crossing detector and decoder set-up, encoder -> decoder round trips.
#include <gtest/gtest.h>

#include <bitset>
#include <string>
#include <tuple>

#include "ltc_signal.h"
#include "tcxlat.h"
#include "test_util.h"

namespace {

using Bits = std::bitset<80>;

Bits ToBits(const SMPTE_FRAME &f) {
  Bits b;
  for (int i = 0; i < 80; ++i) b[i] = (f.bytes[i / 8] >> (i % 8)) & 1;
  return b;
}

void Put(Bits &b, int first, int width, uint32_t value) {
  for (int i = 0; i < width; ++i) b[first + i] = (value >> i) & 1;
}

// The frame as the field table lays it out, from the time address that tcxlat gives.
Bits HandBuilt(uint32_t count, uint32_t user, uint32_t flags) {
  uint8_t t[4];
  tc2String(count, (flags & 0xFF) | 0x121200, t);
  Bits b;
  const int unitsAt[4] = {0, 16, 32, 48}, tensAt[4] = {8, 24, 40, 56}, tensWidth[4] = {2, 3, 3, 2};
  for (int i = 0; i < 4; ++i) {
    Put(b, unitsAt[i], 4, t[i] & 0xF);
    Put(b, tensAt[i], tensWidth[i], t[i] >> 4);
  }
  for (int g = 0; g < 8; ++g) Put(b, 4 + 8 * g, 4, (user >> (4 * g)) & 0xF);
  b[10] = flags & 4;
  Put(b, 64, 16, 0xBFFC);
  const bool layout25 = flags & 8;
  b[43] = layout25;
  b[59] = !layout25;
  b[layout25 ? 59 : 27] = (80 - b.count()) % 2;  // even count of zeros over all 80 bits
  return b;
}

// Over many counts, user words and rate flags: the layout matches the hand-built frame and reads
// back (counts wrap at a day).
TEST(SmpteFrame, LayoutReadBackAndPolarityOverManyFrames) {
  const uint32_t rates[] = {0x00, 0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x40, 0x80, 0x06, 0x1000008};
  kvtest::Rng rng(7);
  for (uint32_t flags : rates) {
    const uint32_t perDay = tcNominalRate(flags) * 86400;
    for (int i = 0; i < 3000; ++i) {
      const uint32_t count = i < 100 ? static_cast<uint32_t>(i) : rng.Next32() % (2 * perDay);
      const uint32_t user = rng.Next32();
      SMPTE_FRAME f;
      f.SetFrame(count, user, flags);
      ASSERT_EQ(ToBits(f), HandBuilt(count, user, flags)) << "count " << count << " flags " << flags;
      uint32_t c = 0, u = 0, fl = flags & 0xFF;
      ASSERT_EQ(f.DecodeFrame(c, u, fl), 0u);
      ASSERT_EQ(c, flags & 4 ? count % 2589408 : count % perDay);
      ASSERT_EQ(u, user);
    }
  }
}

// Effective flags, and addresses valid at 30 but not at the rate expected.
TEST(SmpteFrame, FlagsAndAddressesInvalidAtTheRate) {
  SMPTE_FRAME nonDrop, drop;
  nonDrop.SetFrame(27, 0, 0);  // 00:00:00:27
  drop.SetFrame(100, 0, 4);
  const uint32_t cases[][3] = {{0, 0, 2}, {0, 4, 8}, {0, 0x101, 1}, {0, 0x400, 2}, {1, 0xFF, 4}};  // drop bit, in, out
  for (const auto &c : cases) EXPECT_EQ((c[0] ? drop : nonDrop).GetFlags(c[1]), c[2]) << c[0] << " " << c[1];
  for (uint32_t expected : {8u, 4u}) {  // drop-frame expected, non-drop sent: read as 25 fps
    uint32_t count = 0, user = 0, flags = expected;
    EXPECT_EQ(nonDrop.DecodeFrame(count, user, flags), SMPTE_BAD_ADDRESS);
    EXPECT_EQ(count, 0xFFFFFFFFu);
  }
}

int SampleAt(const std::vector<uint8_t> &buf, size_t width, size_t i) {
  int16_t s = buf[i];
  if (width == 2) std::memcpy(&s, &buf[2 * i], 2);
  return s;
}

// Lengths of the runs of equal samples in a mono buffer of 1- or 2-byte samples.
std::vector<uint32_t> Runs(const std::vector<uint8_t> &buf, size_t width) {
  std::vector<uint32_t> runs;
  for (size_t i = 0; i < buf.size() / width; ++i) {
    if (i == 0 || SampleAt(buf, width, i) != SampleAt(buf, width, i - 1)) runs.push_back(0);
    ++runs.back();
  }
  return runs;
}

// Every configuration: the waveform holds exactly the frame's 80 bits as biphase mark at the
// two output levels, the bit lengths follow sampleRate / bitsPerSecond exactly, and the frame has
// the size smpteRequiredBuffer announces (the last sample repeated to fill it).
TEST(LtcEncoder, WaveformCarriesTheFrameBitsAtExactLengths) {
  for (const ltctest::Rate &r : ltctest::kRates) {
    for (uint32_t sampleRate : {44100u, 48000u, 32000u}) {
      for (uint32_t bits : {8u, 16u}) {
        SCOPED_TRACE(std::string(r.name) + " " + std::to_string(sampleRate) + " " + std::to_string(bits));
        kvaudio::ltc::ResetEncoderForTesting();
        ASSERT_EQ(smpteSetup(static_cast<int32_t>(sampleRate), bits, 0, 0, r.flags, 0), 0u);
        const size_t width = bits / 8;
        const uint64_t num = uint64_t(sampleRate) * r.per, perBit = uint64_t(r.fps) * 80;
        const uint32_t required = static_cast<uint32_t>((num + r.fps - 1) / r.fps);
        ASSERT_EQ(smpteRequiredBuffer(), required * width);
        std::vector<uint8_t> buf(required * width + 64, 0x5A);
        const uint16_t written = smpteEncode(1234, 0xCAFEF00D, buf.data(), 0xFFFFFFFF);
        ASSERT_EQ(written, required * width);
        ASSERT_EQ(buf[written], 0x5A);
        buf.resize(written);
        const SMPTE_FRAME &f = bits == 16 ? encoder.writer16.frame : encoder.writer8.frame;
        const auto runs = Runs(buf, width);
        size_t run = 0, sum = 0;
        for (int i = 0; i < 80; ++i) {
          const uint32_t len = static_cast<uint32_t>((i + 1) * num / perBit - i * num / perBit);
          ASSERT_LT(run, runs.size());
          uint32_t got = runs[run++];
          if ((f.bytes[i / 8] >> (i % 8)) & 1) {  // a one has a transition in the middle
            ASSERT_EQ(got, len / 2) << "bit " << i;
            ASSERT_LT(run, runs.size());
            got += runs[run++];
          }
          sum += got;
          if (i < 79) ASSERT_EQ(got, len) << "bit " << i;
          else ASSERT_EQ(sum, required) << "frame end";  // the repeat sample joins the last run
        }
        for (size_t i = 0; i < required; ++i) {
          const int v = SampleAt(buf, width, i);
          ASSERT_TRUE(width == 2 ? v == 12288 || v == -12289 : v == 0 || v == 0xFF) << v;
        }
      }
    }
  }
}

// Sizes announced for the rate byte (other values run at 30 fps), at load time (44100 Hz, 16-bit,
// 29.97), after rejected widths, for a rate whose low 16 bits are kept, and with speed.
TEST(LtcEncoder, SetupRateBytesWidthsAndSpeed) {
  kvaudio::ltc::ResetEncoderForTesting();
  EXPECT_EQ(smpteRequiredBuffer(), 2 * 1472u);
  const uint32_t cases[][2] = {{0x80, 2000}, {0x88, 1600}, {0x10, 1920}, {0x20, 1602},
                               {0x40, 1602}, {0x03, 1600}, {0x0C, 1600}, {0xFF, 1600}, {0x08, 1920}};
  for (const auto &c : cases) {
    ASSERT_EQ(smpteSetup(48000, 8, 0, 0, c[0], 0), 0u);
    EXPECT_EQ(smpteRequiredBuffer(), c[1]) << c[0];
  }
  for (uint32_t bits : {0u, 7u, 9u, 12u, 24u, 32u, 0xFFFFFFFFu})
    EXPECT_EQ(smpteSetup(44100, bits, 0, 0, 0x00, 0), SMPTE_BAD_WIDTH) << bits;
  EXPECT_EQ(smpteRequiredBuffer(), 1920u) << "nothing changed";
  ASSERT_EQ(smpteSetup(96000, 16, 0, 0, 0x08, 0), 0u);
  EXPECT_EQ(smpteRequiredBuffer(), 2 * 1219u);
  // Speed only enlarges the announced size; the waveform stays at nominal speed and the speed is
  // back to 0 after each frame.
  ASSERT_EQ(smpteSetup(48000, 16, 0, 0, 0x04, 0), 0u);
  std::vector<uint8_t> buf(2 * 2002);
  const int64_t speeds[][4] = {{9, 5, 2 * 2002, 2 * 1601}, {-100, -5, 2 * 1602, 2 * 1602}};  // set, kept, size, written
  for (const auto &s : speeds) {
    smpteEncodeSetSpeed(s[0]);
    EXPECT_EQ(smpteEncodeGetSpeed(), s[1]);
    EXPECT_EQ(smpteRequiredBuffer(), s[2]);
    EXPECT_EQ(smpteEncode(0, 0, buf.data(), 0xFFFFFFFF), s[3]);  // room left after a frame is not one sample
    EXPECT_EQ(smpteEncodeGetSpeed(), 0);
  }
}

// A short buffer truncates the frame; the next call starts a new frame from its first bit.
TEST(LtcEncoder, ShortBufferTruncatesAndNextFrameStartsFresh) {
  ASSERT_EQ(smpteSetup(48000, 8, 0, 0, 0x08, 0), 0u);
  std::vector<uint8_t> buf(1920, 0x77);
  EXPECT_EQ(smpteEncode(10, 0, buf.data(), 100), 100);
  EXPECT_EQ(buf[100], 0x77);
  EXPECT_EQ(smpteEncode(10, 0, buf.data(), 0), 0);
  EXPECT_EQ(smpteEncode(11, 0, buf.data(), 0xFFFFFFFF), 1920);
  EXPECT_EQ(Runs(buf, 1)[0], encoder.writer8.frame.bytes[0] & 1 ? 12u : 24u);
}

// Channel values around the thresholds: stays low at kHighAt - 1, goes high at index 8, stays
// high at kLowBelow, goes low at index 13. The other channel of a pair is full scale and toggles
// at every frame, so reading it would show crossings everywhere. A crossing at index i counts only
// when the incoming interval + i > 1.
template <typename S>
void CheckThresholds() {
  using V = typename S::Value;
  const int mid = sizeof(V) == 1 ? 128 : 0, high = S::kHighAt, low = S::kLowBelow;
  const int channel[] = {mid, mid, mid, mid, mid, high - 1, high - 1, high - 1, high, mid, mid, low, low, low - 1,
                         mid, mid, mid};
  std::vector<V> samples;
  for (size_t i = 0; i < std::size(channel); ++i)
    for (int k = 0; k < S::kStride; ++k)
      samples.push_back(static_cast<V>(k == S::kOffset ? channel[i] : sizeof(V) == 1 ? 255 * (i % 2) : i % 2 ? 32767 : -32768));
  ZXDetect<S> d;
  int interval = 5;
  d.NewBuffer(samples.data(), static_cast<int>(std::size(channel)));
  const int want[][3] = {{0, 9, 9}, {0, 5, 5}, {100, 5, 3}};  // result, interval, consumed
  for (const auto &w : want) {
    unsigned consumed = 0;
    ASSERT_EQ(d.FindZX(interval, consumed), w[0]);
    EXPECT_EQ(interval, w[1]);
    EXPECT_EQ(consumed, unsigned(w[2]));
  }
  EXPECT_EQ(d.accumulated, 3u);
  for (int in : {-6, -7, -100}) {  // a fresh detector: the crossing at index 8 counts from -6 on
    ZXDetect<S> fresh;
    int interval = in;
    unsigned consumed = 0;
    fresh.NewBuffer(samples.data(), static_cast<int>(std::size(channel)));
    EXPECT_EQ(fresh.FindZX(interval, consumed), in == -6 ? 0 : 100) << in;
    EXPECT_EQ(consumed, in == -6 ? 9u : unsigned(std::size(channel))) << in;
  }
}

template <typename... S>
void CheckAll() { (CheckThresholds<S>(), ...); }

// Thresholds and channels of every detector (above), and empty buffers, which end at once.
TEST(LtcDetector, IgnoresCrossingsTooCloseToThePreviousOneAndEmptyBuffers) {
  CheckAll<CSample8, CSample8L, CSample8R, CSample16, CSample16L, CSample16R>();
  ZXDetect<CSample16> empty;
  for (int count : {0, -5, 100}) {
    int interval = 0;
    unsigned consumed = 7;
    empty.NewBuffer(count == 100 ? nullptr : &count, count);
    EXPECT_EQ(empty.FindZX(interval, consumed), 100);
    EXPECT_EQ(consumed, 0u);
  }
}

const std::vector<size_t> kChunks = {1, 7, 333, 1601};
constexpr uint32_t kFirst = 1790;  // crosses the first dropped minute at 29.97
constexpr uint32_t kFrames = 300;

enum Layout { kForwards, kBackwards, kStereo };
using Param = std::tuple<ltctest::Rate, uint32_t, uint32_t, Layout>;  // rate, sample rate, bits, layout
class LtcRoundTrip : public testing::TestWithParam<Param> {};

// The mono stream as one channel of a stereo pair (the first at 8 bits, the second at 16) whose
// other channel swings full scale at every sample.
std::vector<uint8_t> AsStereo(const std::vector<uint8_t> &mono, size_t width) {
  std::vector<uint8_t> out;
  for (size_t i = 0; i < mono.size(); i += width) {
    const uint8_t high = i / width % 2 ? 0xFF : 0x00;  // 16 bits: 0x7FFF or 0x8000, little-endian
    if (width == 1) out.insert(out.end(), {mono[i], high});
    else out.insert(out.end(), {high, uint8_t(high ^ 0x80), mono[i], mono[i + 1]});
  }
  return out;
}

// After the chunk in which the first frame completes (read while the period still adapts), each
// chunk reports new exactly the last accepted frame that completes in it (a frame completes on
// the transition that opens the next one in playing order; backwards only frames whose first bit
// is 0 are accepted), and otherwise nothing or the previous report again.
TEST_P(LtcRoundTrip, ReportsEveryAcceptedFrameInTheChunkWhereItCompletes) {
  const auto &[rate, sampleRate, bits, layout] = GetParam();
  const bool backwards = layout == kBackwards;
  SCOPED_TRACE(rate.name);
  auto run = ltctest::EncodeRun(sampleRate, bits, rate, kFirst, kFrames);
  const size_t width = bits / 8, total = run.bytes.size() / width;
  std::vector<size_t> done(kFrames, SIZE_MAX);
  std::vector<bool> accepted(kFrames);
  for (size_t k = 0, start = 0; k < kFrames; start += run.lengths[k++]) {
    accepted[k] = ltctest::PassesPolarity(run.frames[k].bytes) && !(backwards && (run.frames[k].bytes[0] & 1));
    if (k > 0) done[backwards ? k : k - 1] = backwards ? total - start : start;
  }
  for (size_t i = 0; backwards && i < total / 2; ++i)
    std::swap_ranges(&run.bytes[i * width], &run.bytes[(i + 1) * width], &run.bytes[(total - 1 - i) * width]);
  if (layout == kStereo) run.bytes = AsStereo(run.bytes, width);
  const auto reports = ltctest::DecodeInChunks(run.bytes, width * (layout == kStereo ? 2 : 1), sampleRate, bits,
                                               layout == kStereo, bits == 8, rate, kChunks);
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
  EXPECT_EQ(reports.back().result, 0u);
  EXPECT_EQ(decoder.position, 0u) << "samples since the last good decode";
  EXPECT_EQ(kvaudio::ltc::m_dwBadCount, 0u);
  // Silence reports nothing and leaves the outputs alone, unless asked for the last frame.
  std::vector<uint8_t> silence(12000, bits == 8 ? 128 : 0);
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
                                                         testing::Values(8u, 16u),
                                                         testing::Values(kForwards, kBackwards, kStereo)));

}  // namespace
