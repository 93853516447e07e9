// Stateless families called from many threads at once, starting with an unsettled AVX2 cache.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "frame/cpu.h"
#include "kvaudio/interleave.h"

namespace {

constexpr int kThreads = 8;

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

TEST(Threads, InterleaveOnDisjointBuffers) {
  RunTogether([](int t) {
    const uint32_t n = 1601;
    std::vector<uint32_t> src(n * 4), back(n * 4);
    for (uint32_t i = 0; i < n * 4; ++i) src[i] = i * 2654435761u + t;
    std::vector<uint32_t> p[4];
    for (auto &v : p) v.resize(n);
    for (int round = 0; round < 20; ++round) {
      AudioDeinterleave16to16(src.data(), p[0].data(), p[1].data(), p[2].data(), p[3].data(), n);
      for (uint32_t i = 0; i < n; ++i)
        for (int k = 0; k < 4; ++k) ASSERT_EQ(p[k][i], src[i * 4 + k]);
    }
  });
}

}  // namespace
