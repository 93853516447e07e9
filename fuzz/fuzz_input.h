// Splits a fuzzer's byte string into typed fields and a remaining payload.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

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

}  // namespace kvfuzz
