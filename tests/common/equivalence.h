// Shared runner of the equivalence tests: one call on the plain loop and on the kernel, byte for byte.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "test_util.h"

namespace kvtest {

// The buffers of one call: bytes a period of each input and output (0: pass null), a fixed
// prefix (such as a header) before each input's periods, and the element alignment that the
// misaligned placements keep. In-place calls start their outputs from random bytes, not canaries.
struct BufferShape {
  std::vector<size_t> inBytes, outBytes;
  size_t inAlign = 1, outAlign = 1, inPrefix = 0;
  bool inPlace = false;
};

using BufferRun = std::function<void(uint8_t *const *in, uint8_t *const *out, uint32_t n)>;

// Guarded buffers for n periods; buffer k sits (misalign + k * step) mod 32 bytes into a vector,
// rounded down to the alignment.
struct GuardedSet {
  std::vector<Guarded> store;
  std::vector<uint8_t *> ptrs;
  GuardedSet(const std::vector<size_t> &bytes, size_t n, size_t prefix, size_t align, size_t misalign, size_t step) {
    for (size_t k = 0; k < bytes.size(); ++k)
      store.emplace_back(bytes[k] ? prefix + n * bytes[k] : 0, (misalign + step * k) % 32 / align * align);
    for (size_t k = 0; k < bytes.size(); ++k) ptrs.push_back(bytes[k] ? store[k].data() : nullptr);
  }
  GuardedSet(const GuardedSet &) = delete;  // ptrs point into store
  GuardedSet &operator=(const GuardedSet &) = delete;
  void Fill(uint64_t seed) {
    for (size_t k = 0; k < store.size(); ++k) {
      const auto bytes = RandomBytes(store[k].size(), seed + k);
      std::copy(bytes.begin(), bytes.end(), store[k].data());
    }
  }
};

// Runs the call over n periods on both paths; outputs must be identical and every guard intact.
// Inputs are placed from misalign + 1, outputs from misalign + 3 (see GuardedSet).
inline void ExpectSameBytes(const std::string &name, const BufferShape &s, const BufferRun &run, size_t n,
                            size_t misalign, size_t step) {
  GuardedSet in(s.inBytes, n, s.inPrefix, s.inAlign, misalign + 1, step);
  in.Fill(n * 7919 + 1);
  GuardedSet out[2] = {{s.outBytes, n, 0, s.outAlign, misalign + 3, step},
                       {s.outBytes, n, 0, s.outAlign, misalign + 3, step}};
  for (int path = 0; path < 2; ++path) {
    if (s.inPlace) out[path].Fill(n * 31 + 7);
    ScopedAvx2 force(path);
    run(in.ptrs.data(), out[path].ptrs.data(), static_cast<uint32_t>(n));
  }
  for (size_t k = 0; k < s.outBytes.size(); ++k) {
    ASSERT_EQ(out[0].store[k].bytes(), out[1].store[k].bytes()) << name << " n=" << n << " out " << k;
    ASSERT_TRUE(out[0].store[k].GuardsIntact() && out[1].store[k].GuardsIntact()) << name << " n=" << n;
  }
  for (const Guarded &g : in.store) ASSERT_TRUE(g.GuardsIntact()) << name << " n=" << n;
}

// ExpectSameBytes over every equivalence length, at misalignments that vary with the length.
inline void ExpectSameBytesForEveryLength(const std::string &name, const BufferShape &s, const BufferRun &run) {
  for (size_t n : EquivalenceLengths()) {
    ExpectSameBytes(name, s, run, n, n * 7, 5);
    if (testing::Test::HasFatalFailure()) return;
  }
}

// f() on the plain loop and on the kernel: {plain, kernel}.
template <typename F>
auto OnBothPaths(F f) {
  std::array<decltype(f()), 2> results;
  for (int path = 0; path < 2; ++path) {
    ScopedAvx2 force(path);
    results[path] = f();
  }
  return results;
}

// Same object representation (bit patterns of doubles included).
template <typename T>
bool SameBits(const std::array<T, 2> &r) {
  return std::memcmp(&r[0], &r[1], sizeof(T)) == 0;
}

}  // namespace kvtest
