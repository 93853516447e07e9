// White and pink noise of the generator, drawn from the process-wide rand().
#include <cmath>
#include <cstdlib>

#include "timing/generator_handle.h"

namespace kvaudio::timing {
namespace {

constexpr int kPinkRows = 8;
constexpr int kPinkColumns = 256;

// One rand() value mapped to about -32768 .. +32768.
double NoiseValue() { return (std::rand() - 1073741823.0) * 65536.0 / 2147483647.0; }

void PutScaled(const tagAUDGENHANDLE *h, const Image &img, uint32_t frame, double n) {
  img.Put(frame, 0, ToI16(std::floor(n * h->leftAmplitude)));
  img.Put(frame, 1, ToI16(std::floor(n * h->rightAmplitude)));
}

// Voss rows: row k draws a new value at every 2^k-th column and repeats it in between.
void RefillPinkRows(double (&rows)[kPinkRows][kPinkColumns]) {
  for (int k = 0; k < kPinkRows; ++k) {
    for (int j = 0; j < kPinkColumns; ++j) rows[k][j] = j % (1 << k) == 0 ? NoiseValue() : rows[k][j - 1];
  }
}

}  // namespace
}  // namespace kvaudio::timing

using namespace kvaudio::timing;

void fillBufferWhiteNoise(tagAUDGENHANDLE *handle, void *buffer, uint32_t bytes) {
  FillFrames(handle, buffer, bytes, [&](const Image &img, uint32_t frames) {
    // The same noise on both channels, each scaled by its own amplitude.
    for (uint32_t i = 0; i < frames; ++i) PutScaled(handle, img, i, NoiseValue());
  });
}

void fillBufferPinkNoise(tagAUDGENHANDLE *handle, void *buffer, uint32_t bytes) {
  FillFrames(handle, buffer, bytes, [&](const Image &img, uint32_t frames) {
    double rows[kPinkRows][kPinkColumns];  // nothing of it survives the call
    for (uint32_t i = 0; i < frames; ++i) {
      const uint32_t column = i % kPinkColumns;
      if (column == 0) RefillPinkRows(rows);
      double sum = 0.0;
      for (int k = 0; k < kPinkRows; ++k) sum += rows[k][column];
      PutScaled(handle, img, i, 0.125 * sum);
    }
  });
}
