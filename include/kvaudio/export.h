/* Export macro of kvAudioUtil: the one marker of a name visible outside the library. */
#ifndef KVAUDIO_EXPORT_H
#define KVAUDIO_EXPORT_H

#ifndef KVAUDIO_API
#  define KVAUDIO_API __attribute__((visibility("default")))
#endif

#endif
