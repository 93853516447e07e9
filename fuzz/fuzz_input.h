// Splits a fuzzer's byte string into typed fields and a remaining payload, and gives harnesses
// exact-size heap blocks, so AddressSanitizer sees any access outside a buffer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "frame/cpu.h"

namespace kvfuzz {

class Input {
 public:
  Input(const uint8_t *data, size_t size) : data_(data), size_(size) {}

  // Takes the next sizeof(T) bytes as a T, or zero bytes when the input is exhausted.
  template <typename T>
  T Take() {
    T v{};
    const size_t n = size_ < sizeof(T) ? size_ : sizeof(T);
    std::memcpy(&v, data_, n);
    data_ += n;
    size_ -= n;
    return v;
  }
  const uint8_t *rest() const { return data_; }
  size_t rest_size() const { return size_; }

 private:
  const uint8_t *data_;
  size_t size_;
};

// A heap block of exactly `bytes` bytes (a zero-size block has a valid, unreadable address),
// filled by repeating `pattern` or with zeros when the pattern is empty.
class Block {
 public:
  explicit Block(size_t bytes, const uint8_t *pattern = nullptr, size_t patternBytes = 0)
      : bytes_(bytes), data_(new uint8_t[bytes]) {
    for (size_t i = 0; i < bytes; ++i) data_[i] = patternBytes ? pattern[i % patternBytes] : 0;
  }
  Block(const Block &other) : Block(other.bytes_, other.data_.get(), other.bytes_) {}
  uint8_t *data() { return data_.get(); }
  template <typename T>
  T *as() { return reinterpret_cast<T *>(data_.get()); }
  size_t size() const { return bytes_; }
  bool operator==(const Block &other) const {
    return bytes_ == other.bytes_ && std::memcmp(data_.get(), other.data_.get(), bytes_) == 0;
  }

 private:
  size_t bytes_;
  std::unique_ptr<uint8_t[]> data_;
};

// The AVX2 choices a harness compares: the plain loops, and the kernels when the host has them.
inline int KernelPath() { return kvaudio::frame::HostHasAvx2() ? 1 : 0; }

// Stops the run with a message: libFuzzer stores the input that led here.
[[noreturn]] inline void Fail(const char *what) {
  std::fprintf(stderr, "fuzz property failed: %s\n", what);
  std::abort();
}

}  // namespace kvfuzz
