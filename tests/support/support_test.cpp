// The support libraries: kvutil's recursive critical section, and tcxlat's frame count <-> BCD
// time address conversion.
#include <gtest/gtest.h>

#include <thread>

#include "kvutil.h"
#include "tcxlat.h"

namespace {

constexpr uint32_t kToString = 0x121200;  // frames-first byte string, BCD, 24-hour wrap
constexpr uint32_t kToFrame = 0x200;

uint32_t Bcd(uint32_t h, uint32_t m, uint32_t s, uint32_t f) {
  auto b = [](uint32_t v) { return ((v / 10) << 4) | (v % 10); };
  return b(f) << 24 | b(s) << 16 | b(m) << 8 | b(h);
}

// The four bytes written, frames first, as one word.
uint32_t Word(const uint8_t o[4]) { return uint32_t{o[0]} << 24 | o[1] << 16 | o[2] << 8 | o[3]; }

TEST(Tcxlat, KnownAddresses) {
  struct Case { uint32_t rate, frame, h, m, s, f; };
  const Case cases[] = {
      {0x08, 0, 0, 0, 0, 0},          {0x08, 24, 0, 0, 0, 24},        {0x08, 25, 0, 0, 1, 0},
      {0x08, 90000, 1, 0, 0, 0},      {0x10, 2159999, 23, 59, 59, 24}, {0x00, 29, 0, 0, 0, 29},
      {0x00, 1800, 0, 1, 0, 0},       {0x00, 2591999, 23, 59, 59, 29}, {0x01, 86400, 1, 0, 0, 0},
      {0x80, 24, 0, 0, 1, 0},         {0x02, 1800, 0, 1, 0, 0},        {0x06, 1800, 0, 1, 0, 2},
      {0x04, 1799, 0, 0, 59, 29},     {0x04, 17982, 0, 10, 0, 0},      {0x04, 17981, 0, 9, 59, 29},
      {0x04, 3598, 0, 2, 0, 2},       {0x04, 107892, 1, 0, 0, 0},      {0x04, 2589407, 23, 59, 59, 29},
  };
  for (const Case &c : cases) {
    uint8_t out[4] = {};
    ASSERT_EQ(tc2String(c.frame, c.rate | kToString, out), 0);
    const uint32_t word = Bcd(c.h, c.m, c.s, c.f);
    EXPECT_EQ(Word(out), word) << "rate " << c.rate << " frame " << c.frame;
    EXPECT_EQ(tc2Frame(word, c.rate | kToFrame), c.frame);
  }
}

TEST(Tcxlat, RejectsBadWords) {
  uint8_t out[4];
  EXPECT_EQ(tc2String(0, 0x08, out), -1);
  EXPECT_EQ(tc2String(0, 0x08 | kToString, nullptr), -1);
  EXPECT_EQ(tc2Frame(Bcd(0, 0, 0, 0), 0x08), TCXLAT_INVALID);
  EXPECT_EQ(tc2Frame(Bcd(0, 0, 0, 25), 0x08 | kToFrame), TCXLAT_INVALID);
  EXPECT_EQ(tc2Frame(Bcd(0, 60, 0, 0), kToFrame), TCXLAT_INVALID);
  EXPECT_EQ(tc2Frame(0x0A000000, kToFrame), TCXLAT_INVALID);
  EXPECT_EQ(tc2Frame(Bcd(0, 1, 0, 0), 0x04 | kToFrame), TCXLAT_INVALID);   // skipped address
  EXPECT_EQ(tc2Frame(Bcd(0, 10, 0, 0), 0x04 | kToFrame), 17982u);         // tenth minute kept
  EXPECT_EQ(tc2Frame(Bcd(25, 35, 35, 0), 0x10 | kToFrame), TCXLAT_INVALID);  // found by fuzzing
  EXPECT_EQ(tc2Frame(Bcd(25, 0, 0, 0), 0x10 | kToFrame | TCXLAT_NO_WRAP), 25u * 90000);
}

TEST(Kvutil, CriticalSectionIsRecursiveAndExcludes) {
  KVCRITICAL_SECTION cs;
  kvOSInitializeCriticalSection(&cs);
  kvOSEnterCriticalSection(&cs);
  kvOSEnterCriticalSection(&cs);
  kvOSLeaveCriticalSection(&cs);
  kvOSLeaveCriticalSection(&cs);
  long counter = 0;
  auto work = [&] {
    for (int i = 0; i < 20000; ++i) {
      kvOSEnterCriticalSection(&cs);
      ++counter;
      kvOSLeaveCriticalSection(&cs);
    }
  };
  std::thread a(work), b(work);
  a.join();
  b.join();
  EXPECT_EQ(counter, 40000);
  kvOSDeleteCriticalSection(&cs);
}

}  // namespace
