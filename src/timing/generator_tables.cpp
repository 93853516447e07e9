// Waveform tables of the generator: one cycle of sine, triangle, sawtooth or square.
#include <cmath>
#include <new>

#include "timing/generator_handle.h"

namespace kvaudio::timing {
namespace {

constexpr double kPi = 3.141592654;  // this rounded literal is part of the table values
constexpr uint32_t kShapeTableLength = 32768;
constexpr uint32_t kSpare = 16;  // entries past the cycle, never read

// A zeroed table: entries no rule writes (the sine at rates not divisible by 4) read as 0.
// Null when memory runs out.
int16_t *NewTable(uint32_t length) { return new (std::nothrow) int16_t[size_t{length} + kSpare](); }

// A new table of n entries with t[0] = t[n/2] = 0, completed by fill(t, n); *length = n, or 0
// with a null table when memory runs out.
template <typename Fill>
int16_t *BuildTable(uint32_t n, uint32_t *length, Fill fill) {
  int16_t *t = NewTable(n);
  if (!t) n = 0;
  if (n != 0) {
    t[0] = t[n / 2] = 0;
    fill(t, uint64_t{n});
  }
  *length = n;
  return t;
}

int16_t Negate(int16_t v) { return static_cast<int16_t>(-static_cast<int32_t>(v)); }

// Fills a half-wave-symmetric cycle from its first quarter: t[i] = t[N/2 - i] = v(i),
// t[N/2 + i] = t[N - i] = -v(i) for i = 1 .. N/4 - 1.
template <typename Quarter>
void MirrorQuarter(int16_t *t, uint64_t n, Quarter value) {
  for (uint64_t i = 1; i < n / 4; ++i) {
    const int16_t v = value(i);
    t[i] = t[n / 2 - i] = v;
    t[n / 2 + i] = t[n - i] = Negate(v);
  }
}

void ReplaceTable(tagAUDGENHANDLE *h, int16_t *&table, uint32_t &length, uint32_t shape, double amplitude) {
  delete[] table;
  table = nullptr;
  length = 0;
  uint32_t n = 0;
  if (shape & AUDGEN_SHAPE_SQUARE)
    table = buildSquareTable(h, amplitude, &n);
  else if (shape & AUDGEN_SHAPE_TRIANGLE)
    table = buildTriangleTable(h, amplitude, &n);
  else if (shape & AUDGEN_SHAPE_SAWTOOTH)
    table = buildSawToothTable(h, amplitude, &n);
  else
    table = buildSinTable(h, amplitude, &n);
  length = n;
}

}  // namespace

int16_t ToI16(double v) {
  const int32_t wide = (v > -2147483649.0 && v < 2147483648.0) ? static_cast<int32_t>(v) : INT32_MIN;
  return static_cast<int16_t>(wide);
}

}  // namespace kvaudio::timing

using namespace kvaudio::timing;

int16_t *buildSinTable(tagAUDGENHANDLE *handle, double amplitude, uint32_t *length) {
  HandleLock lock(handle);
  const double a = amplitude * 32767.0;
  return BuildTable(handle ? handle->sampleRate : 0, length, [&](int16_t *t, uint64_t n) {
    t[n / 4] = ToI16(std::floor(a));
    t[3 * n / 4] = Negate(t[n / 4]);
    MirrorQuarter(t, n, [&](uint64_t i) { return ToI16(std::floor(std::sin(2 * kPi * i / n) * a)); });
  });
}

int16_t *buildTriangleTable(tagAUDGENHANDLE *handle, double amplitude, uint32_t *length) {
  HandleLock lock(handle);
  const double a = amplitude * 32767.0;
  return BuildTable(kShapeTableLength, length, [&](int16_t *t, uint64_t n) {
    t[n / 4] = ToI16(std::floor(a));
    t[3 * n / 4] = Negate(t[n / 4]);
    MirrorQuarter(t, n, [&](uint64_t i) { return ToI16(std::floor(i * a / (n / 4))); });
  });
}

int16_t *buildSawToothTable(tagAUDGENHANDLE *handle, double amplitude, uint32_t *length) {
  HandleLock lock(handle);
  const double a = amplitude * 32767.0;
  return BuildTable(kShapeTableLength, length, [&](int16_t *t, uint64_t n) {
    for (uint64_t i = 1; i < n / 2; ++i) {
      t[i] = ToI16(std::floor(i * a / (n / 2)));
      t[n - i] = Negate(t[i]);
    }
  });
}

int16_t *buildSquareTable(tagAUDGENHANDLE *handle, double amplitude, uint32_t *length) {
  HandleLock lock(handle);
  const int16_t top = ToI16(std::floor(amplitude * 32767.0));
  // A single zero stays at each transition.
  return BuildTable(kShapeTableLength, length, [&](int16_t *t, uint64_t n) {
    for (uint64_t i = 1; i < n / 2; ++i) {
      t[i] = top;
      t[n / 2 + i] = Negate(top);
    }
  });
}

void buildRightWaveTable(tagAUDGENHANDLE *handle) {
  if (!handle) return;
  HandleLock lock(handle);
  ReplaceTable(handle, handle->rightTable, handle->rightTableLength, handle->rightShape, handle->rightAmplitude);
}

void buildLeftWaveTable(tagAUDGENHANDLE *handle) {
  if (!handle) return;
  HandleLock lock(handle);
  ReplaceTable(handle, handle->leftTable, handle->leftTableLength, handle->leftShape, handle->leftAmplitude);
}
