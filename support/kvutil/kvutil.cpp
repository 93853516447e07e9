// kvutil: thin services over the C library and a recursive mutex.
#include "kvutil.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>

static_assert(sizeof(std::recursive_mutex) <= sizeof(KVCRITICAL_SECTION));
static_assert(alignof(std::recursive_mutex) <= alignof(KVCRITICAL_SECTION));

namespace {

std::recursive_mutex *MutexOf(KVCRITICAL_SECTION *cs) {
  return std::launder(reinterpret_cast<std::recursive_mutex *>(cs->opaque));
}

// One line per call, trailing line breaks folded into one newline; the whole line goes out in a single write so lines of threads do not mix.
void WriteLine(const char *format, va_list args) {
  char line[1024];
  const int n = std::vsnprintf(line, sizeof line, format, args);
  size_t len = n < 0 ? 0 : static_cast<size_t>(n);
  if (len > sizeof line - 2) len = sizeof line - 2;
  while (len > 0 && (line[len - 1] == '\n' || line[len - 1] == '\r')) --len;
  line[len++] = '\n';
  std::fwrite(line, 1, len, stderr);
}

}  // namespace

extern "C" {

void *KVAlloc(uint32_t size) { return std::malloc(size ? size : 1); }
void KVFree(void *block) { std::free(block); }

void CopyMemoryFast(void *dst, const void *src, size_t bytes) {
  if (bytes) std::memcpy(dst, src, bytes);
}
void ZeroMemoryFast(void *dst, size_t bytes) {
  if (bytes) std::memset(dst, 0, bytes);
}
void kvOSCopyMemory(void *dst, const void *src, size_t bytes) {
  if (bytes) std::memcpy(dst, src, bytes);
}
void kvOSZeroMemory(void *dst, size_t bytes) {
  if (bytes) std::memset(dst, 0, bytes);
}

void kvOSInitializeCriticalSection(KVCRITICAL_SECTION *cs) { new (cs->opaque) std::recursive_mutex(); }
void kvOSEnterCriticalSection(KVCRITICAL_SECTION *cs) { MutexOf(cs)->lock(); }
void kvOSLeaveCriticalSection(KVCRITICAL_SECTION *cs) { MutexOf(cs)->unlock(); }
void kvOSDeleteCriticalSection(KVCRITICAL_SECTION *cs) { MutexOf(cs)->~recursive_mutex(); }

void ErrOut(const char *format, ...) {
  va_list args;
  va_start(args, format);
  WriteLine(format, args);
  va_end(args);
}

void ErrFmtOut(uint32_t, uint32_t, uint32_t, const char *format, ...) {
  va_list args;
  va_start(args, format);
  WriteLine(format, args);
  va_end(args);
}

}  // extern "C"
