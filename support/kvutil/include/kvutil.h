/* kvutil: memory, copy and fill, critical sections and the error output used by kvAudioUtil. */
#ifndef KVUTIL_H
#define KVUTIL_H

#include <stddef.h>
#include <stdint.h>

#ifndef KVUTIL_API
#  define KVUTIL_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Storage for one recursive critical section; its contents are private to kvutil. */
typedef struct KVCRITICAL_SECTION {
  uint64_t opaque[8];
} KVCRITICAL_SECTION;

/* Allocates size bytes; returns null when the block cannot be had. */
KVUTIL_API void *KVAlloc(uint32_t size);
/* Releases a block from KVAlloc; null is ignored. */
KVUTIL_API void KVFree(void *block);

/* Copies bytes between non-overlapping blocks. */
KVUTIL_API void CopyMemoryFast(void *dst, const void *src, size_t bytes);
/* Fills bytes with zero. */
KVUTIL_API void ZeroMemoryFast(void *dst, size_t bytes);
/* Copies bytes between non-overlapping blocks. */
KVUTIL_API void kvOSCopyMemory(void *dst, const void *src, size_t bytes);
/* Fills bytes with zero. */
KVUTIL_API void kvOSZeroMemory(void *dst, size_t bytes);

/* Recursive mutual exclusion; the owning thread may enter again and leaves as often. */
KVUTIL_API void kvOSInitializeCriticalSection(KVCRITICAL_SECTION *cs);
KVUTIL_API void kvOSEnterCriticalSection(KVCRITICAL_SECTION *cs);
KVUTIL_API void kvOSLeaveCriticalSection(KVCRITICAL_SECTION *cs);
KVUTIL_API void kvOSDeleteCriticalSection(KVCRITICAL_SECTION *cs);

/* Writes one printf-style diagnostic line to standard error (a newline is added when missing). */
KVUTIL_API void ErrOut(const char *format, ...) __attribute__((format(printf, 1, 2)));
/* As ErrOut; the severity word and the two context words are accepted for the log's use. */
KVUTIL_API void ErrFmtOut(uint32_t severity, uint32_t context1, uint32_t context2,
                          const char *format, ...) __attribute__((format(printf, 4, 5)));

#ifdef __cplusplus
}
#endif

#endif
