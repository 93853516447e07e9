// Helpers shared by the unit and equivalence tests.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "frame/cpu.h"

namespace kvtest {

// Forces the AVX2 decision for the lifetime of the object and restores "untested" afterwards.
// On a processor without AVX2, forcing 1 forces 0, so the same tests run there on plain loops.
class ScopedAvx2 {
 public:
  explicit ScopedAvx2(int value) {
    kvaudio::frame::SetAvx2ForTesting(value == 1 && !kvaudio::frame::HostHasAvx2() ? 0 : value);
  }
  ~ScopedAvx2() { kvaudio::frame::SetAvx2ForTesting(-1); }
  ScopedAvx2(const ScopedAvx2 &) = delete;
  ScopedAvx2 &operator=(const ScopedAvx2 &) = delete;
};

// Deterministic 64-bit generator (splitmix64).
class Rng {
 public:
  explicit Rng(uint64_t seed) : state_(seed) {}
  uint64_t Next() {
    uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }
  uint32_t Next32() { return static_cast<uint32_t>(Next() >> 32); }

 private:
  uint64_t state_;
};

// Random bytes mixed with full-scale and sign-edge words, so kernels meet the extremes.
inline std::vector<uint8_t> RandomBytes(size_t bytes, uint64_t seed) {
  static const uint32_t kEdges[] = {0x00000000u, 0xFFFFFFFFu, 0x7FFFFFFFu, 0x80000000u,
                                    0x00008000u, 0x00007FFFu, 0xFFFF8000u, 0x80008000u};
  Rng rng(seed);
  std::vector<uint8_t> out(bytes);
  for (size_t i = 0; i < bytes; i += 4) {
    uint64_t r = rng.Next();
    uint32_t w = (r & 7) == 0 ? kEdges[(r >> 3) & 7] : static_cast<uint32_t>(r >> 32);
    std::memcpy(out.data() + i, &w, bytes - i < 4 ? bytes - i : 4);
  }
  return out;
}

// A byte buffer with canary guards on both sides of the usable region, placed at a chosen
// misalignment so that kernels meet unaligned addresses.
class Guarded {
 public:
  static constexpr size_t kGuard = 64;
  static constexpr uint8_t kCanary = 0xA5;

  explicit Guarded(size_t bytes, size_t misalign = 0)
      : bytes_(bytes), offset_(kGuard + misalign), storage_(bytes + 2 * kGuard + 32, kCanary) {}

  uint8_t *data() { return storage_.data() + offset_; }
  template <typename T>
  T *as() { return reinterpret_cast<T *>(data()); }
  size_t size() const { return bytes_; }
  std::vector<uint8_t> bytes() const {
    return std::vector<uint8_t>(storage_.begin() + offset_, storage_.begin() + offset_ + bytes_);
  }
  bool GuardsIntact() const {
    for (size_t i = 0; i < storage_.size(); ++i) {
      if (i >= offset_ && i < offset_ + bytes_) continue;
      if (storage_[i] != kCanary) return false;
    }
    return true;
  }

 private:
  size_t bytes_;
  size_t offset_;
  std::vector<uint8_t> storage_;
};

// Lengths for equivalence runs: every length up to 70, vector-width edges, frame sizes, one large.
inline std::vector<size_t> EquivalenceLengths() {
  std::vector<size_t> n;
  for (size_t i = 0; i <= 70; ++i) n.push_back(i);
  for (size_t v : {127, 128, 129, 255, 256, 257, 1470, 1471, 1601, 1602, 1764, 1920, 4099}) n.push_back(v);
  return n;
}

}  // namespace kvtest
