// Channel remap: validation and messages, routing, averaging, sign extension and level words.
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "kvaudio/remap.h"

namespace {

using RemapFn = uint32_t (*)(void *, uint32_t, uint32_t, uint32_t, const uint32_t *, uint32_t *, uint32_t *);
using PairsFn = uint32_t (*)(void *const *, uint32_t, uint32_t, uint32_t, const uint32_t *, uint32_t *, uint32_t *);

// One width of the family: its interleaved form, its Pairs form and bytes a sample.
struct Form { const char *name; RemapFn interleaved; PairsFn pairs; size_t bytes; };

const Form kForms[] = {{"32", AudioRemap32Bit, AudioRemap32BitPairs, 4},
                       {"24", AudioRemap24Bit, AudioRemap24BitPairs, 3},
                       {"16", AudioRemap16Bit, AudioRemap16BitPairs, 2}};

std::vector<uint8_t> Pack(const std::vector<int32_t> &v, size_t bytes) {
  std::vector<uint8_t> out;
  for (int32_t x : v)
    for (size_t b = 0; b < bytes; ++b) out.push_back(static_cast<uint8_t>(x >> (8 * b)));
  return out;
}

// Degenerate calls return 0, more than 32 channels is reported on one line; none touches the buffer.
TEST(Remap, RejectsAndReportsTooManyChannels) {
  std::vector<uint32_t> map(40, 1);
  for (const Form &form : kForms) {
    std::vector<uint8_t> buf(40 * 4 * 4, 0x5A);
    const auto before = buf;
    struct Args { void *buffer; uint32_t channels, check, samples; const uint32_t *map; uint32_t result; };
    for (const Args a : {Args{buf.data(), 0, 1, 4, map.data(), 0}, {buf.data(), 1, 1, 4, map.data(), 0},
                         {buf.data(), 2, 0, 4, map.data(), 0}, {buf.data(), 2, 1, 0, map.data(), 0},
                         {buf.data(), 2, 1, 4, nullptr, 0}, {buf.data(), 33, 0, 4, map.data(), 0},
                         {nullptr, 2, 1, 4, map.data(), 0},
                         {buf.data(), 33, 1, 4, map.data(), KVAUDIO_REMAP_TOO_MANY_CHANNELS}})
      for (int pairs = 0; pairs < 2; ++pairs) {
        void *table[20] = {a.buffer};
        testing::internal::CaptureStderr();
        EXPECT_EQ(pairs ? form.pairs(table, a.channels, a.check, a.samples, a.map, nullptr, nullptr)
                        : form.interleaved(a.buffer, a.channels, a.check, a.samples, a.map, nullptr, nullptr),
                  a.result) << form.name << " channels " << a.channels << " pairs " << pairs;
        const std::string err = testing::internal::GetCapturedStderr();
        if (a.result) {
          EXPECT_NE(err.find("too many channels"), std::string::npos) << err;
          EXPECT_EQ(err.find('\n'), err.size() - 1) << err;
        }
      }
    EXPECT_EQ(buf, before);
  }
}

TEST(Remap, RoutesAveragesAndMutes) {
  // Each case: the map (its size is the channel count), the input periods and the result.
  struct Case { std::vector<uint32_t> map; std::vector<int32_t> in, out; };
  const Case cases[] = {
      {{2, 1}, {5, -6, 7, -8}, {-6, 5, -8, 7}},                              // stereo swap
      {{3, 0}, {3, 4, -3, -4}, {3, 0, -3, 0}},                                // divide before adding; mute
      {{7, 7, 4}, {-1, -1, -1, 9, 9, 9}, {0, 0, -1, 9, 9, 9}},                // each -1 / 3 truncates to 0
      {{0x80000001u, 1}, {-9, 1, 7, 2}, {-4, -9, 3, 7}},                      // bit 31 reads silence
  };
  for (const Form &form : kForms)
    for (const Case &c : cases) {
      const uint32_t channels = static_cast<uint32_t>(c.map.size());
      auto buf = Pack(c.in, form.bytes);
      const uint32_t periods = static_cast<uint32_t>(c.in.size() / channels);
      EXPECT_EQ(form.interleaved(buf.data(), channels, 1, periods, c.map.data(), nullptr, nullptr), channels / 2);
      EXPECT_EQ(buf, Pack(c.out, form.bytes)) << form.name;
    }
}

TEST(Remap, PairsFormWalksPairBuffers) {
  for (const Form &form : kForms) {
    auto p0 = Pack({1, 2, 10, 20}, form.bytes), p1 = Pack({3, 4, 30, 40}, form.bytes);
    void *pairs[] = {p0.data(), p1.data()};
    const uint32_t map[] = {8, 4, 1, 0x10};
    EXPECT_EQ(form.pairs(pairs, 4, 1, 2, map, nullptr, nullptr), 2u);
    EXPECT_EQ(p0, Pack({4, 3, 40, 30}, form.bytes));
    EXPECT_EQ(p1, Pack({1, 0, 10, 0}, form.bytes));
    void *half[] = {p0.data(), nullptr};  // a missing pair reads as silence
    const uint32_t fromMissing[] = {4, 1, 1, 1};
    form.pairs(half, 4, 1, 2, fromMissing, nullptr, nullptr);
    EXPECT_EQ(p0, Pack({0, 4, 0, 40}, form.bytes));
  }
}

TEST(Remap, LevelWordsPerPair) {
  // Identity map on 3 channels: pair 0 = channels 0, 1; pair 1 = channel 2 alone.
  const std::vector<int32_t> in32 = {0x40000000, INT_MIN, 0x10000, -0x40000000, 0, -0x10000};
  auto buf = Pack(in32, 4);
  const uint32_t map[] = {1, 2, 4};
  std::vector<uint32_t> peaks(4, 0xEEEEEEEE), rms(4, 0xEEEEEEEE);
  EXPECT_EQ(AudioRemap32Bit(buf.data(), 3, 1, 2, map, peaks.data(), rms.data()), 1u);
  // Peaks: 2^30 >> 15 = 0x8000; 2^31 limited to 0x7FFF0000 -> 0xFFFE; 0x10000 >> 15 = 2.
  EXPECT_EQ(peaks, (std::vector<uint32_t>{0xFFFE8000u, 2, 0, 0xEEEEEEEE}));
  // RMS: sqrt(2^60) >> 15 = 0x8000; sqrt(2^61) = 1518500249 >> 15 = 46340; sqrt(2^32) >> 15 = 2.
  EXPECT_EQ(rms, (std::vector<uint32_t>{46340u << 16 | 0x8000u, 2, 0, 0xEEEEEEEE}));

  // 16-bit levels follow the same rule with the sample left-justified: full scale reads 65534.
  auto buf16 = Pack({32767, -16384, -32768, 0}, 2);
  const uint32_t map16[] = {1, 2};
  std::vector<uint32_t> peak16(2, 9);
  AudioRemap16BitPairs(std::vector<void *>{buf16.data()}.data(), 2, 1, 2, map16, peak16.data(), nullptr);
  EXPECT_EQ(peak16, (std::vector<uint32_t>{65534u | 32768u << 16, 0}));
}

}  // namespace
