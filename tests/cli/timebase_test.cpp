// The tool's timecode text and video-frame cutting, tested directly.
#include <gtest/gtest.h>

#include <string>

#include "timebase.h"
#include "tool.h"

namespace {

using namespace kvtool;

const char *const kRates[] = {"23.976", "24", "25", "29.97", "29.97df", "30", "50", "59.94", "59.94df", "60"};

// Every frame of the first 20 minutes and the last minute reads back to itself; the day then wraps to zero.
TEST(Timecode, TextRoundTripsEveryFrame) {
  for (const char *name : kRates) {
    const FrameRate fps = ParseFrameRate(name);
    const std::string zero = fps.dropFrame ? "00:00:00;00" : "00:00:00:00";
    const uint64_t perDay = ParseTimecode("23:59:59" + zero.substr(8, 1) + std::to_string(fps.nominal - 1), fps) + 1;
    for (uint64_t n = 0; n < perDay; n = n == 20 * 60 * fps.nominal ? perDay - 60 * fps.nominal : n + 1)
      ASSERT_EQ(ParseTimecode(FormatTimecode(n, fps), fps), n) << name << " " << FormatTimecode(n, fps);
    EXPECT_EQ(FormatTimecode(perDay, fps), zero) << name;
  }
}

TEST(Timecode, DropFrameSkipsTheFirstNumbersOfMostMinutes) {
  const FrameRate df30 = ParseFrameRate("29.97df"), df60 = ParseFrameRate("59.94df");
  EXPECT_EQ(FormatTimecode(1799, df30) + " " + FormatTimecode(1800, df30) + " " + FormatTimecode(17982, df30),
            "00:00:59;29 00:01:00;02 00:10:00;00");
  EXPECT_EQ(FormatTimecode(3600, df60), "00:01:00;04");
  for (const char *missing : {"00:01:00;00", "00:01:00;01", "01:59:00;01"})
    EXPECT_THROW(ParseTimecode(missing, df30), ToolError) << missing;
  for (const char *bad : {"00:00:00:25", "24:00:00:00", "00:60:00:00", "1:2:3", "00:00:00:00x", ""})
    EXPECT_THROW(ParseTimecode(bad, ParseFrameRate("25")), ToolError) << bad;
}

// After n video frames the cut has used n x rate / fps samples, give or take one: it never drifts.
TEST(FrameCutter, KeepsTimeWithTheSampleClock) {
  for (uint64_t rate : {32000u, 44100u, 48000u, 96000u})
    for (const char *name : kRates) {
      const FrameRate fps = ParseFrameRate(name);
      FrameCutter cutter(fps, uint32_t(rate));
      for (uint64_t n = 1, used = 0; n <= 30000; ++n) {
        used += cutter.Samples(n - 1);
        const uint64_t exact = n * rate * fps.denominator / fps.numerator;
        ASSERT_LE(used > exact ? used - exact : exact - used, 1u) << name << " at " << rate << " frame " << n;
        ASSERT_LE(cutter.Samples(n - 1), cutter.MaxSamples());
      }
    }
}

}  // namespace
