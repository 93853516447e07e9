// Services of the kvutil support library: error lines and the recursive critical section.
#include <gtest/gtest.h>

#include <thread>

#include "frame/errors.h"
#include "kvutil.h"

namespace {

TEST(Kvutil, ErrorLinesAreWholeLines) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(kvaudio::ReportError(0xA80A8003), 0xA80A8003u);
  ErrFmtOut(0xC0000000, 0, 0, "ERROR(audRemapping): %s\n\r", "text");
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(err, "audioUtil(0xA80A8003)\nERROR(audRemapping): text\n");
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
