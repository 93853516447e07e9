// Every open/run/close sequence with its Nth allocation failing, for each N until one runs clean:
// every call returns its documented value (the failure value exactly when an allocation failed
// under it). LeakSanitizer (sanitizer build) and memcheck fail the process on a leaked block.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <new>

#include "kvaudio/aoip.h"
#include "kvaudio/avsync.h"
#include "kvaudio/generator.h"
#include "kvaudio/interleave.h"
#include "kvaudio/loudness.h"
#include "kvaudio/ltc.h"
#include "kvaudio/peak.h"
#include "kvaudio/qc.h"
#include "kvaudio/r128.h"

namespace {

struct Injector {
  bool armed = false;
  long calls = 0, failAt = 0;  // allocations while armed, the one to fail
  int failures = 0, newFailures = 0;
} g;

bool FailNow(bool isNew) {
  if (!g.armed || ++g.calls != g.failAt) return false;
  ++g.failures;
  g.newFailures += isNew;
  return true;
}

}  // namespace

// The link wraps the library's allocation calls (robustness.cmake); the real functions allocate,
// so every block is released by its own allocator's release.
#define WRAP_ALLOC(name, params, args, onFailure, isNew)           \
  void *__real_##name params;                                      \
  __attribute__((visibility("default"))) void *__wrap_##name params { \
    if (FailNow(isNew)) onFailure;                                 \
    return __real_##name args;                                     \
  }
extern "C" {
WRAP_ALLOC(malloc, (size_t n), (n), return nullptr, false)
WRAP_ALLOC(calloc, (size_t n, size_t size), (n, size), return nullptr, false)
WRAP_ALLOC(_Znwm, (size_t n), (n), throw std::bad_alloc(), true)
WRAP_ALLOC(_Znam, (size_t n), (n), throw std::bad_alloc(), true)
WRAP_ALLOC(_ZnwmRKSt9nothrow_t, (size_t n, const std::nothrow_t &t), (n, t), return nullptr, true)
WRAP_ALLOC(_ZnamRKSt9nothrow_t, (size_t n, const std::nothrow_t &t), (n, t), return nullptr, true)
WRAP_ALLOC(realloc, (void *p, size_t n), (p, n), return nullptr, false)
}

namespace {

// Runs call and checks its result: fail when operator new failed under it (or, with anyFailure,
// any allocation did), ok otherwise.
template <typename Call, typename R>
bool Returns(Call call, R ok, R fail, bool anyFailure = false) {
  const int before = anyFailure ? g.failures : g.newFailures;
  const R r = call();
  return r == ((anyFailure ? g.failures : g.newFailures) != before ? fail : ok);
}

void ForEachFailure(const char *name, bool (*sequence)()) {
  for (long n = 1; n == 1 || g.failures; ++n) {
    g = Injector{true, 0, n};
    const bool ok = sequence();
    g.armed = false;
    EXPECT_TRUE(ok) << name << " with allocation " << n << " failing";
  }
}

int16_t gPcm[8 * 1920 * 12];
int16_t gBurst[2 * 2000];

// Mode 3 keeps a window at each of 3 steps of intake and 1 more for the reading; one fewer when
// the integrator cannot grow.
bool Meter() {
  s_ebu_r128 s{};
  uint32_t result = 0;
  if (!Returns([&] { return ebu_r128_init(&s, 1, 16, 8000, 3, 2); }, 1u, 0u, true)) return false;
  if (!s.channel) return !s.integrator;
  const int before = g.failures;
  const bool ok = ebu_r128_process_and_calculate(&s, 3 * 8000, gPcm, &result, 0) == 0 &&
                  s.integratorCount == (g.failures != before ? 3u : 4u);
  return ebu_r128_destroy(&s) == 1 && ok;
}

bool Generator() {
  static uint8_t buffer[4800];
  const WAVEFORMATEX wide{1, 2, 48000, 384000, 8, 24, 0};
  const int before = g.failures;
  tagAUDGENHANDLE *h = audGenOpen(AUDGEN_SWEEP, 1000, 4000, 2000, 10, AUDGEN_SHAPE_SQUARE, 0, nullptr, 1, 1, 0);
  if (!h || g.failures != before) return !h && g.failures != before;
  uint32_t length = 7;
  bool ok = audGenFillBuffer(h, buffer, sizeof buffer) == 0 &&
            audGenSet(h, 0, 500, 0, 0, 0, AUDGEN_SHAPE_TRIANGLE, AUDGEN_SHAPE_SAWTOOTH, &wide, 1, 1, 0) == 0 &&
            audGenFillBuffer(h, buffer, sizeof buffer) == 0;
  int16_t *table = nullptr;
  ok = ok && Returns([&] { return (table = buildSinTable(h, 1.0, &length)) != nullptr && length == 48000; }, true,
                     false) && (table || length == 0);
  delete[] table;
  return audGenClose(h) == 0 && ok;
}

// Two rounds of frames, finish and reset; a failing calloc of the engine's meter only stops it
// measuring loudness.
bool QcEngine() {
  kvaudqcConfig config{};
  config.channels = 8;
  std::strcpy(config.layoutName, "7.1");
  const int before = g.newFailures;
  kvqcAudioEngine *e = kvqcAudioOpen(&config);
  if (!e || g.newFailures != before) return !e && g.newFailures != before;
  bool ok = true;
  kvaudqcReport report;
  for (int frame = 0; frame < 24; ++frame) {
    ok = ok && Returns([&] { return kvqcAudioFrame(e, gPcm, 1920, nullptr); }, KVQC_OK, KVQC_ERROR);
    if (frame % 12 == 11)
      ok = ok && Returns([&] { return kvqcAudioFinish(e, &report); }, KVQC_OK, KVQC_ERROR) &&
           Returns([&] { return kvqcAudioReset(e); }, KVQC_OK, KVQC_ERROR);
  }
  return kvqcAudioClose(e) == KVQC_OK && ok;
}

bool Analyses() {
  static int16_t scratch[2 * 2000];
  uint32_t position = 0;
  double score = 0;
  kvaudqcLoudness loudness;
  std::memcpy(scratch, gBurst, sizeof scratch);
  const auto *pcm = reinterpret_cast<const uint8_t *>(gPcm);
  return Returns([&] { return KVAudioAVSyncPulseGenerate(scratch, 2000, 2, 16, 48000, 900, 0); }, 0u, 1u) &&
         Returns([&] { return KVAudioAVSyncPulseDetect(gBurst, 2000, 2, 16, 48000, &position, &score, 0); }, 0u, 1u) &&
         Returns([&] { return kvqcAudioAnalyzeLoudness(pcm, 48000, 2, 16, 16000, "", 1, &loudness); }, 0, -1) &&
         Returns([&] {
           kvAudioLoudness *m = kvAudioLoudnessOpen(48000, 6, KVAUDIO_LOUDNESS_ALL);
           kvAudioLoudnessClose(m);
           return m != nullptr;
         }, true, false, true) &&
         Returns([&] {
           const KVAudioAoipReceiverConfig config{8, KVAUDIO_AOIP_L24, 96, 6, 4800, 0};
           KVAudioAoipReceiver *r = KVAudioAoipReceiverOpen(&config);
           KVAudioAoipReceiverClose(r);
           return r != nullptr;
         }, true, false, true);
}

TEST(AllocationFailure, EverySequenceReturnsItsFailureValueAndLeaksNothing) {
  for (size_t i = 0; i < std::size(gPcm); ++i) gPcm[i] = static_cast<int16_t>(i % 3 ? (i & 1 ? 8000 : -8000) : 30000);
  ASSERT_EQ(KVAudioAVSyncPulseGenerate(gBurst, 2000, 2, 16, 48000, 100, 0), KVAUDIO_AVSYNC_OK);
  ForEachFailure("meter", Meter);
  ForEachFailure("generator", Generator);
  ForEachFailure("QC engine", QcEngine);
  ForEachFailure("AV-sync and loudness analyses", Analyses);
}

// Null handles, records and buffers handed to the functions that check for them: each returns its
// documented result and touches nothing.
struct Case { const char *call; std::function<int64_t()> run; int64_t result; };

TEST(NullArguments, DocumentedResults) {
  int16_t samples[4] = {1, -2, 3, -4};
  uint32_t word = 0;
  uint32_t *w = &word;
  KVAudioBuffer record{samples, sizeof samples, sizeof samples, 2, 16};
  KVAudioBuffer *records[4] = {&record, &record, &record, &record};
  const Case cases[] = {
      {"audGenSet", [] { return audGenSet(nullptr, 0, 1000, 0, 0, 0, 0, 0, nullptr, 1.0, 1.0, 0.0); }, 0},
      {"audGenRestart", [] { return audGenRestart(nullptr); }, 0},
      {"audGenSetAngle", [] { return audGenSetAngle(nullptr, 90); }, 0},
      {"audGenGetBufferSize", [] { return audGenGetBufferSize(nullptr); }, 0},
      {"audGenFillBuffer", [&] { return audGenFillBuffer(nullptr, samples, sizeof samples); }, 0},
      {"audGenClose", [] { return audGenClose(nullptr); }, 0},
      {"ebu_r128_process_and_calculate",
       [&] { return ebu_r128_process_and_calculate(nullptr, 2, samples, &word, 0); }, 0},
      {"ebu_r128_process_samples on a record without channels",
       [&] { s_ebu_r128 s{}; s.resolution = 16; return ebu_r128_process_samples(&s, samples, 2); }, 0},
      {"filter_init", [] { filter_init(nullptr); return 0; }, 0},
      {"smpteDecode of a null buffer",
       [] { smpteDecodeSetBuffer(nullptr, 1000); return smpteDecode(nullptr, nullptr, nullptr); }, SMPTE_NO_FRAME},
      {"AudioDeinterleave16to16", [&] { return AudioDeinterleave16to16(nullptr, w, w, w, w, 1); }, 0},
      {"AudioInterleave32to32", [&] { return AudioInterleave32to32(nullptr, w, w, w, w, 1, 8); }, 0},
      {"AudioDeinterleave16to16Array", [&] { return AudioDeinterleave16to16Array(nullptr, records, 4, 1); }, 0},
      {"AudioInterleave16to16Array", [&] { return AudioInterleave16to16Array(nullptr, records, 4, 1); }, 0},
      {"AudioDeinterleave32to32Array of a null table", [&] { return AudioDeinterleave32to32Array(w, nullptr, 4, 1); }, 0},
      {"AudioDeinterleavePair beyond the channels", [&] { return AudioDeinterleavePair(w, samples, 3, 16, 6, 1); }, 0},
      {"AudioDeinterleavePair", [&] { return AudioDeinterleavePair(nullptr, samples, 0, 16, 2, 1); }, 0},
      {"AudioInterleavePair", [&] { return AudioInterleavePair(samples, nullptr, 0, 16, 2, 1); }, 0},
      {"AudioInterleaveMono2Stereo", [&] { return AudioInterleaveMono2Stereo(nullptr, 16, 1, nullptr); }, 0},
      {"audTestPeak16M", [] { return audTestPeak16M(nullptr, 4); }, 0},
      {"KVAudioFloatToInt16", [&] { return KVAudioFloatToInt16(samples, nullptr, 4, nullptr); }, KVAUDIO_PCM_NULL_BUFFER},
      {"KVAudioAoipUnpack16", [&] { return KVAudioAoipUnpack16(samples, nullptr, 16, 2, 2); }, KVAUDIO_AOIP_NULL_BUFFER},
      {"KVAudioRtpParseHeader", [] { return KVAudioRtpParseHeader(nullptr, 12, nullptr); }, KVAUDIO_AOIP_NULL_BUFFER},
      {"KVAudioAoipReceiverPull", [&] { return KVAudioAoipReceiverPull(nullptr, nullptr, 1); }, KVAUDIO_AOIP_NULL_BUFFER},
  };
  for (const Case &c : cases) EXPECT_EQ(c.run(), c.result) << c.call;
  EXPECT_EQ(samples[0], 1);
  EXPECT_EQ(word, 0u);
}

}  // namespace
