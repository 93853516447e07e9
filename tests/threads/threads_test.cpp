// Stateless families called from many threads at once, starting with an unsettled AVX2 cache,
// and one generator handle shared between threads.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "frame/cpu.h"
#include "kvaudio/aes3.h"
#include "kvaudio/avsync.h"
#include "kvaudio/cadence.h"
#include "kvaudio/format.h"
#include "kvaudio/generator.h"
#include "kvaudio/interleave.h"
#include "kvaudio/loudness.h"
#include "kvaudio/peak.h"
#include "kvaudio/qc.h"
#include "kvaudio/remap.h"
#include "test_util.h"

namespace {

constexpr int kThreads = 8;
constexpr int kRounds = 4;

using Bytes = std::vector<uint8_t>;

// Runs body(thread index) on kThreads threads released together, after resetting the cache.
template <typename Body>
void RunTogether(Body body) {
  kvaudio::frame::SetAvx2ForTesting(-1);
  std::atomic<int> ready{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&, t] {
      ready.fetch_add(1);
      while (ready.load() < kThreads) {
      }
      body(t);
    });
  for (auto &th : threads) th.join();
}

template <typename T>
void Append(Bytes &out, const T *p, size_t count) {
  const auto *b = reinterpret_cast<const uint8_t *>(p);
  out.insert(out.end(), b, b + count * sizeof(T));
}

template <typename T>
std::vector<T> Input(size_t count, int t) {
  const Bytes raw = kvtest::RandomBytes(count * sizeof(T), 1000 + t);
  std::vector<T> v(count);
  std::memcpy(v.data(), raw.data(), raw.size());
  return v;
}

constexpr uint32_t kFrames = 1601;

Bytes Interleave(int t) {
  const auto src = Input<uint32_t>(kFrames * 4, t);
  std::vector<uint32_t> p[4];
  for (auto &v : p) v.resize(kFrames);
  AudioDeinterleave16to16(src.data(), p[0].data(), p[1].data(), p[2].data(), p[3].data(), kFrames);
  std::vector<uint16_t> wide(kFrames * 16);
  const uint16_t *q[8];
  for (int k = 0; k < 8; ++k) q[k] = reinterpret_cast<const uint16_t *>(p[k % 4].data());
  AudioInterleave16to16_16(wide.data(), q[0], q[1], q[2], q[3], q[4], q[5], q[6], q[7], kFrames, 16);
  std::vector<uint32_t> pair(kFrames * 2);
  AudioDeinterleavePair(src.data(), pair.data(), 1, 32, 4, kFrames);
  KVAudioBuffer records[8];
  KVAudioBuffer *table[8];
  for (int k = 0; k < 8; ++k) {
    records[k] = KVAudioBuffer{p[k % 4].data(), kFrames * 4, kFrames * 4, 2, 16};
    table[k] = &records[k];
  }
  std::vector<uint16_t> joined(kFrames * 16);
  AudioInterleave16to16Array(joined.data(), table, 8, kFrames);
  Bytes out;
  for (auto &v : p) Append(out, v.data(), v.size());
  Append(out, wide.data(), wide.size());
  Append(out, pair.data(), pair.size());
  Append(out, joined.data(), joined.size());
  return out;
}

Bytes Aes3(int t) {
  const auto words = Input<uint8_t>(4 + kFrames * 32, t);
  std::vector<int16_t> o[4];
  for (auto &v : o) v.resize(kFrames * 2);
  KVAudioDeinterleaveAES316to16(words.data(), o[0].data(), o[1].data(), o[2].data(), o[3].data(), kFrames);
  std::vector<uint32_t> mono(kFrames), stereo(kFrames * 2);
  KVAudioConvertAES324Monoto32(mono.data(), words.data(), kFrames, t & 1);
  KVAudioReinterleaveAES3_24monoto32stereo(stereo.data(), words.data(), t & 1, kFrames);
  std::vector<uint8_t> packed(4 + kFrames * 32);
  KVAudioInterleave16toAES316(packed.data(), o[0].data(), 2, 0, kFrames, 3, 0);
  Bytes out;
  for (auto &v : o) Append(out, v.data(), v.size());
  Append(out, mono.data(), mono.size());
  Append(out, stereo.data(), stereo.size());
  Append(out, packed.data(), packed.size());
  return out;
}

Bytes Smpte302(int t) {
  const auto stereo = Input<int16_t>(kFrames * 2, t);
  std::vector<uint8_t> payload(4 + kFrames * 8 * 3);
  KVAudioInterleaveStereo16bitStereo_toAES_302_20bit(payload.data(), stereo.data(), 8, 0, 0, kFrames);
  std::vector<uint32_t> back(kFrames * 2);
  KVAudioDeinterleaveAES_302_20bit_toStereo32(back.data(), payload.data(), 8, 0, kFrames);
  Bytes out;
  Append(out, back.data(), back.size());
  return out;
}

Bytes Remap(int t) {
  auto wide = Input<uint32_t>(kFrames * 8, t);
  auto narrow = Input<int16_t>(kFrames * 6, t);
  const uint32_t swap[8] = {2, 1, 8, 4, 32, 16, 128, 64};
  const uint32_t mix[6] = {3, 3, 4, 0, 48, 16};
  uint32_t peaks[6], rms[6];
  AudioRemap32Bit(wide.data(), 8, 1, kFrames, swap, nullptr, nullptr);
  AudioRemap16Bit(narrow.data(), 6, 1, kFrames, mix, peaks, rms);
  Bytes out;
  Append(out, wide.data(), wide.size());
  Append(out, narrow.data(), narrow.size());
  Append(out, peaks, 6);
  Append(out, rms, 6);
  return out;
}

Bytes Peak(int t) {
  const auto s = Input<int16_t>(kFrames * 2, t);
  const uint32_t r[2] = {audTestPeak16S(s.data(), kFrames * 2), audTestPeak16M(s.data(), kFrames * 2)};
  Bytes out;
  Append(out, r, 2);
  return out;
}

Bytes AvSync(int t) {
  std::vector<int16_t> buffer(900 * 2);
  uint32_t position = 0;
  double score = 0.0;
  const uint32_t made = KVAudioAVSyncPulseGenerate(buffer.data(), 900, 2, 16, 16000, 100 + t, 0);
  const uint32_t found = KVAudioAVSyncPulseDetect(buffer.data(), 900, 2, 16, 16000, &position, &score, 0.0);
  const uint32_t r[3] = {made, found, position};
  Bytes out;
  Append(out, r, 3);
  Append(out, &score, 1);
  return out;
}

Bytes FormatAndCadence(int t) {
  Bytes out;
  for (uint32_t frame = 0; frame < 60; ++frame) {
    WAVEFORMATEX f{};
    const uint32_t code = frame % 2 ? 0x8000u : 0xA0000u;
    const uint32_t r[2] = {audSetFormat(code, &f), audUpdateHeader(&f)};
    const uint32_t back = audGetFormatType(&f);
    uint32_t samples = 0, bytes = 0, lo = 0, hi = 0;
    audSamplesPerFrame48kHz(frame + t, 29, 4, &samples, &bytes);
    audMinMaxSamplesPerFrame(&lo, &hi, 23 + frame % 40, 48000);
    Append(out, r, 2);
    Append(out, &f, 1);
    const uint32_t v[5] = {back, samples, bytes, lo, hi};
    Append(out, v, 5);
  }
  return out;
}

Bytes QcAnalyses(int t) {
  const auto pcm = Input<uint8_t>(4800 * 6 * 2, t);
  kvaudqcTruePeak peak;
  kvaudqcLoudness loudness;
  kvqcAudioAnalyzeTruePeak(pcm.data(), 4800, 6, 16, 48000, 0, &peak);
  kvqcAudioAnalyzeLoudness(pcm.data(), 4800, 6, 16, 48000, "5.1", 1, &loudness);
  kvaudqcLayout layout;
  kvqcAudioLayoutFromName("stereo3", &layout);
  Bytes out;
  Append(out, &peak, 1);
  Append(out, &loudness, 1);
  Append(out, &layout, 1);
  return out;
}

// Each thread owns its meter; only the filters' dispatch is shared.
Bytes Meter(int t) {
  const auto pcm = Input<int16_t>(9600 * 2, t);
  s_ebu_r128 s{};
  uint32_t result = 0;
  ebu_r128_init(&s, 1, 16, 48000, 1, 2);
  ebu_r128_process_and_calculate(&s, 9600, pcm.data(), &result, 1);
  const float r[2] = {s.currentLoudness, s.integratedLoudness};
  ebu_r128_destroy(&s);
  Bytes out;
  Append(out, r, 2);
  Append(out, &result, 1);
  return out;
}

struct Family {
  const char *name;
  Bytes (*run)(int thread);
};

const Family kFamilies[] = {{"Interleave", Interleave}, {"Aes3", Aes3},
                            {"Smpte302", Smpte302},     {"Remap", Remap},
                            {"Peak", Peak},             {"AvSync", AvSync},
                            {"FormatAndCadence", FormatAndCadence},
                            {"QcAnalyses", QcAnalyses}, {"Meter", Meter}};

class StatelessFamily : public ::testing::TestWithParam<Family> {};

TEST_P(StatelessFamily, SameBytesOnEveryThreadAsAlone) {
  std::vector<Bytes> alone;
  for (int t = 0; t < kThreads; ++t) alone.push_back(GetParam().run(t));
  RunTogether([&](int t) {
    for (int round = 0; round < kRounds; ++round) ASSERT_EQ(GetParam().run(t), alone[t]) << "thread " << t;
  });
}

INSTANTIATE_TEST_SUITE_P(Threads, StatelessFamily, ::testing::ValuesIn(kFamilies),
                         [](const ::testing::TestParamInfo<Family> &info) { return info.param.name; });

// Fill, size, restart and set hold the handle's lock, so any mix of them from many threads is
// free of races; a sine of amplitude 1.0 only ever yields table values within full scale.
TEST(Threads, SharedGeneratorHandle) {
  WAVEFORMATEX format{1, 2, 48000, 192000, 4, 16, 0};
  tagAUDGENHANDLE *h = audGenOpen(AUDGEN_TONE, 1000, 0, 0, 0, 0, 0, &format, 1.0, 1.0, 0.0);
  RunTogether([&](int t) {
    std::vector<int16_t> buffer(960 * 2);
    for (int round = 0; round < 20; ++round) {
      switch ((t + round) % 4) {
        case 0: audGenRestart(h); break;
        case 1: EXPECT_EQ(audGenGetBufferSize(h), 1000u); break;
        case 2: audGenSet(h, AUDGEN_TONE, 1000 + 1000 * (t & 1), 0, 0, 0, 0, 0, nullptr, 1.0, 1.0, 0.0); break;
        default: break;
      }
      audGenFillBuffer(h, buffer.data(), static_cast<uint32_t>(buffer.size() * 2));
      for (int16_t s : buffer) ASSERT_GE(s, -32767);
    }
  });
  audGenClose(h);
}

}  // namespace
