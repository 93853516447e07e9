// Every open/run/close sequence with its Nth allocation failing, for each N until one runs clean:
// every call returns its documented value (the failure value exactly when an allocation failed
// under it), and the blocks the sequence allocated are all released. Under LeakSanitizer and
// memcheck a leak also fails the process.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>

#include "kvaudio/avsync.h"
#include "kvaudio/generator.h"
#include "kvaudio/loudness.h"
#include "kvaudio/qc.h"

namespace {

struct Injector {
  bool armed = false;
  long calls = 0, failAt = 0, live = 0;  // allocations while armed, the one to fail, blocks held
  int failures = 0, newFailures = 0;
};
Injector g;

bool FailNow(bool isNew) {
  if (!g.armed || ++g.calls != g.failAt) return false;
  ++g.failures;
  g.newFailures += isNew;
  return true;
}

// p, counted as held when it is a new block allocated while armed.
void *Counted(void *p, bool fresh = true) {
  g.live += p && fresh && g.armed;
  return p;
}

}  // namespace

// The link wraps malloc, calloc, realloc, free and the operator new and delete forms
// (robustness.cmake): each wrapper counts, may fail, and calls the real function, so allocation
// and release stay paired for the sanitizers and memcheck.
extern "C" {
void *__real_malloc(size_t n);
void *__real_calloc(size_t n, size_t size);
void *__real_realloc(void *p, size_t n);
void __real_free(void *p);
void *__real__Znwm(size_t n);
void *__real__Znam(size_t n);
void *__real__ZnwmRKSt9nothrow_t(size_t n, const std::nothrow_t &t) noexcept;
void *__real__ZnamRKSt9nothrow_t(size_t n, const std::nothrow_t &t) noexcept;
void __real__ZdlPv(void *p) noexcept;
void __real__ZdlPvm(void *p, size_t n) noexcept;
void __real__ZdaPv(void *p) noexcept;
void __real__ZdaPvm(void *p, size_t n) noexcept;

void *__wrap_malloc(size_t n) { return FailNow(false) ? nullptr : Counted(__real_malloc(n)); }
void *__wrap_calloc(size_t n, size_t size) { return FailNow(false) ? nullptr : Counted(__real_calloc(n, size)); }
void *__wrap_realloc(void *old, size_t n) { return FailNow(false) ? nullptr : Counted(__real_realloc(old, n), !old); }
void __wrap_free(void *p) {
  g.live -= p && g.armed;
  __real_free(p);
}
void *__wrap__Znwm(size_t n) {
  if (FailNow(true)) throw std::bad_alloc();
  return Counted(__real__Znwm(n));
}
void *__wrap__Znam(size_t n) {
  if (FailNow(true)) throw std::bad_alloc();
  return Counted(__real__Znam(n));
}
void *__wrap__ZnwmRKSt9nothrow_t(size_t n, const std::nothrow_t &t) noexcept {
  return FailNow(true) ? nullptr : Counted(__real__ZnwmRKSt9nothrow_t(n, t));
}
void *__wrap__ZnamRKSt9nothrow_t(size_t n, const std::nothrow_t &t) noexcept {
  return FailNow(true) ? nullptr : Counted(__real__ZnamRKSt9nothrow_t(n, t));
}
void __wrap__ZdlPv(void *p) noexcept { g.live -= p && g.armed, __real__ZdlPv(p); }
void __wrap__ZdlPvm(void *p, size_t n) noexcept { g.live -= p && g.armed, __real__ZdlPvm(p, n); }
void __wrap__ZdaPv(void *p) noexcept { g.live -= p && g.armed, __real__ZdaPv(p); }
void __wrap__ZdaPvm(void *p, size_t n) noexcept { g.live -= p && g.armed, __real__ZdaPvm(p, n); }
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
  for (long n = 1;; ++n) {
    g = Injector{};
    g.failAt = n;
    g.armed = true;
    const bool ok = sequence();
    g.armed = false;
    EXPECT_TRUE(ok) << name << " with allocation " << n << " failing";
    EXPECT_EQ(g.live, 0) << name << " leaks with allocation " << n << " failing";
    if (g.failures == 0) break;
  }
}

int16_t gPcm[8 * 48000 * 3];
int16_t gBurst[2 * 2000];

// Mode 3 keeps one window per step closed: 3 in intake, 1 more for the reading, one fewer
// when the integrator cannot grow.
bool Meter() {
  bool ok = true;
  for (uint8_t mode : {1, 2, 3}) {
    s_ebu_r128 s{};
    uint32_t result = 0;
    if (!Returns([&] { return ebu_r128_init(&s, 1, 16, 8000, mode, 2); }, 1u, 0u, true)) return false;
    if (!s.channel) {
      ok = ok && !s.integrator;
      continue;
    }
    const int before = g.failures;
    ok = ok && ebu_r128_process_and_calculate(&s, 3 * 8000, gPcm, &result, 0) == 0;
    ok = ok && s.integratorCount == (mode != 3 ? 0u : g.failures != before ? 3u : 4u);
    ok = ok && ebu_r128_destroy(&s) == 1 && !s.channel;
  }
  return ok;
}

bool Generator() {
  static uint8_t buffer[4800];
  const WAVEFORMATEX wide{1, 2, 48000, 384000, 8, 24, 0};
  bool ok = true;
  for (uint32_t type : {AUDGEN_TONE, AUDGEN_SWEEP, AUDGEN_WHITE_NOISE, AUDGEN_PINK_NOISE, AUDGEN_SILENCE}) {
    const int before = g.failures;
    tagAUDGENHANDLE *h = audGenOpen(type, 1000, 4000, 2000, 10, AUDGEN_SHAPE_SQUARE, 0, nullptr, 1.0, 0.5, 0.0);
    if ((h == nullptr) != (g.failures != before)) return false;
    if (!h) continue;
    ok = ok && audGenFillBuffer(h, buffer, sizeof buffer) == 0;
    ok = ok && audGenSet(h, type, 500, 0, 0, 0, AUDGEN_SHAPE_TRIANGLE, AUDGEN_SHAPE_SAWTOOTH, &wide, 0.5, 0.5, 0) == 0;
    ok = ok && audGenFillBuffer(h, buffer, sizeof buffer) == 0;
    uint32_t length = 7;
    const int tableFailures = g.newFailures;
    int16_t *table = buildSinTable(h, 1.0, &length);
    ok = ok && (g.newFailures != tableFailures ? !table && length == 0 : table && length == 48000);
    delete[] table;
    ok = ok && audGenClose(h) == 0;
  }
  return ok;
}

// Open, frames, finish and reset, twice; the meter's own calloc failing only stops measuring.
bool QcEngine() {
  kvaudqcConfig config{};
  config.channels = 8;
  std::strcpy(config.layoutName, "7.1");
  std::strcpy(config.loudnessLayoutName, "stereo2");
  const int before = g.newFailures;
  kvqcAudioEngine *e = kvqcAudioOpen(&config);
  if ((e == nullptr) != (g.newFailures != before)) return false;
  if (!e) return true;
  bool ok = true;
  for (int round = 0; round < 2; ++round) {
    for (int frame = 0; frame < 12; ++frame)
      ok = ok && Returns([&] { return kvqcAudioFrame(e, gPcm, 1920, nullptr); }, KVQC_OK, KVQC_ERROR);
    kvaudqcReport report;
    ok = ok && Returns([&] { return kvqcAudioFinish(e, &report); }, KVQC_OK, KVQC_ERROR);
    ok = ok && Returns([&] { return kvqcAudioReset(e); }, KVQC_OK, KVQC_ERROR);
  }
  return kvqcAudioClose(e) == KVQC_OK && ok;
}

bool Analyses() {
  static int16_t scratch[2 * 2000];
  uint32_t position = 0;
  double score = 0;
  kvaudqcLoudness loudness;
  std::memcpy(scratch, gBurst, sizeof scratch);
  return Returns([&] { return KVAudioAVSyncPulseGenerate(scratch, 2000, 2, 16, 48000, 900, 0); },
                 KVAUDIO_AVSYNC_OK, KVAUDIO_AVSYNC_BAD_ARGUMENT) &&
         Returns([&] { return KVAudioAVSyncPulseDetect(gBurst, 2000, 2, 16, 48000, &position, &score, 0); },
                 KVAUDIO_AVSYNC_OK, KVAUDIO_AVSYNC_BAD_ARGUMENT) &&
         Returns([&] { return kvqcAudioAnalyzeLoudness(reinterpret_cast<const uint8_t *>(gPcm), 48000 * 3, 2, 16,
                                                       48000, "stereo1", 1, &loudness); },
                 KVQC_OK, KVQC_ERROR);
}

TEST(AllocationFailure, EverySequenceReturnsItsFailureValueAndLeaksNothing) {
  for (size_t i = 0; i < std::size(gPcm); ++i) gPcm[i] = static_cast<int16_t>(i % 3 ? (i & 1 ? 8000 : -8000) : 30000);
  ASSERT_EQ(KVAudioAVSyncPulseGenerate(gBurst, 2000, 2, 16, 48000, 100, 0), KVAUDIO_AVSYNC_OK);
  ForEachFailure("meter", Meter);
  ForEachFailure("generator", Generator);
  ForEachFailure("QC engine", QcEngine);
  ForEachFailure("AV-sync and loudness analyses", Analyses);
}

}  // namespace
