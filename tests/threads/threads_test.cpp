// Every family called from many threads at once on separate buffers, starting with an unsettled
// AVX2 cache, and one generator handle shared between threads.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "frame/cpu.h"
#include "kernel_calls.h"
#include "kvaudio/avsync.h"
#include "kvaudio/generator.h"
#include "kvaudio/loudness.h"
#include "kvaudio/qc.h"
#include "kvaudio/remap.h"
#include "test_util.h"

namespace {

constexpr int kThreads = 8;
constexpr uint32_t kFrames = 1601;
using Bytes = std::vector<uint8_t>;

// Runs body(thread index) on kThreads threads released together, after resetting the cache.
template <typename Body>
void RunTogether(Body body) {
  kvaudio::frame::SetAvx2ForTesting(-1);
  std::atomic<int> ready{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&, t] {
      for (ready.fetch_add(1); ready.load() < kThreads;) {
      }
      body(t);
    });
  for (auto &th : threads) th.join();
}

// The bytes of every argument (a vector's elements, or the object itself), one after another.
template <typename... V>
Bytes Cat(const V &...v) {
  Bytes out;
  const auto put = [&](const void *p, size_t n) {
    out.insert(out.end(), static_cast<const uint8_t *>(p), static_cast<const uint8_t *>(p) + n);
  };
  ([&] {
    if constexpr (requires { v.data(); })
      put(v.data(), v.size() * sizeof v[0]);
    else
      put(&v, sizeof v);
  }(), ...);
  return out;
}

template <typename T>
std::vector<T> Input(size_t count, int t) {
  const Bytes raw = kvtest::RandomBytes(count * sizeof(T), 1000 + t);
  std::vector<T> v(count);
  std::memcpy(v.data(), raw.data(), raw.size());
  return v;
}

struct Family {
  const char *name;
  Bytes (*run)(int thread);
};

const Family kFamilies[] = {
    {"Kernels", [](int t) {  // every interleave, AES3 and AoIP call of the shared tables
       Bytes out;
       for (const kvtest::KernelCall &c : kvtest::kKernelCalls) {
         std::vector<Bytes> in, o;
         std::vector<const uint8_t *> ip;
         std::vector<uint8_t *> op;
         for (size_t b : c.inBytes) ip.push_back(b ? in.emplace_back(Input<uint8_t>(c.inPrefix + b * kFrames, t)).data() : nullptr);
         for (size_t b : c.outBytes) op.push_back(b ? o.emplace_back(b * kFrames).data() : nullptr);
         c.run(ip.data(), op.data(), kFrames);
         for (const Bytes &v : o) out.insert(out.end(), v.begin(), v.end());
       }
       return out;
     }},
    {"Remap", [](int t) {
       auto wide = Input<uint32_t>(kFrames * 8, t);
       auto narrow = Input<int16_t>(kFrames * 6, t);
       const uint32_t swap[8] = {2, 1, 8, 4, 32, 16, 128, 64}, mix[6] = {3, 3, 4, 0, 48, 16};
       uint32_t peaks[6], rms[6];
       AudioRemap32Bit(wide.data(), 8, 1, kFrames, swap, nullptr, nullptr);
       AudioRemap16Bit(narrow.data(), 6, 1, kFrames, mix, peaks, rms);
       return Cat(wide, narrow, peaks, rms);
     }},
    {"AvSync", [](int t) {
       std::vector<int16_t> buffer(900 * 2);
       uint32_t position = 0;
       double score = 0.0;
       const uint32_t made = KVAudioAVSyncPulseGenerate(buffer.data(), 900, 2, 16, 16000, 100 + t, 0);
       const uint32_t found = KVAudioAVSyncPulseDetect(buffer.data(), 900, 2, 16, 16000, &position, &score, 0.0);
       return Cat(made, found, position, score);
     }},
    {"QcAnalyses", [](int t) {
       const auto pcm = Input<uint8_t>(4800 * 6 * 2, t);
       kvaudqcTruePeak peak;
       kvaudqcLoudness loudness;
       kvaudqcLayout layout;
       kvqcAudioAnalyzeTruePeak(pcm.data(), 4800, 6, 16, 48000, 0, &peak);
       kvqcAudioAnalyzeLoudness(pcm.data(), 4800, 6, 16, 48000, "5.1", 1, &loudness);
       kvqcAudioLayoutFromName("stereo3", &layout);
       return Cat(peak, loudness, layout);
     }},
    // Each thread owns its meter; only the filters' dispatch is shared.
    {"Meter", [](int t) {
       const auto pcm = Input<int16_t>(9600 * 2, t);
       s_ebu_r128 s{};
       uint32_t result = 0;
       ebu_r128_init(&s, 1, 16, 48000, 1, 2);
       ebu_r128_process_and_calculate(&s, 9600, pcm.data(), &result, 1);
       const Bytes out = Cat(s.currentLoudness, s.integratedLoudness, result);
       ebu_r128_destroy(&s);
       return out;
     }},
};

class StatelessFamily : public ::testing::TestWithParam<Family> {};

TEST_P(StatelessFamily, SameBytesOnEveryThreadAsAlone) {
  std::vector<Bytes> alone;
  for (int t = 0; t < kThreads; ++t) alone.push_back(GetParam().run(t));
  RunTogether([&](int t) {
    for (int round = 0; round < 4; ++round) ASSERT_EQ(GetParam().run(t), alone[t]) << "thread " << t;
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
