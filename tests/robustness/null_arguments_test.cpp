// Null handles, records and buffers handed to the functions that check for them: each returns its
// documented result and touches nothing.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>

#include "kvaudio/aoip.h"
#include "kvaudio/generator.h"
#include "kvaudio/interleave.h"
#include "kvaudio/loudness.h"
#include "kvaudio/ltc.h"
#include "kvaudio/peak.h"
#include "kvaudio/qc.h"

namespace {

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
      {"ebu_r128_process_and_calculate",
       [&] { return ebu_r128_process_and_calculate(nullptr, 2, samples, &word, 0); }, 0},
      {"ebu_r128_process_samples on a record without channels",
       [&] { s_ebu_r128 s{}; s.resolution = 16; return ebu_r128_process_samples(&s, samples, 2); }, 0},
      {"filter_init", [] { filter_init(nullptr); return 0; }, 0},
      {"kvqcAudioClose", [] { return kvqcAudioClose(nullptr); }, KVQC_ERROR},
      {"kvqcAudioAnalyzeTruePeak", [&] { return kvqcAudioAnalyzeTruePeak(nullptr, 2, 1, 16, 48000, 0, nullptr); }, KVQC_ERROR},
      {"smpteEncode", [] { return smpteEncode(0, 0, nullptr, 100); }, 0},
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
