// EBU R128 meter: sliding-window loudness, absolute and relative gating, weights and readings.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kvaudio/loudness.h"
#include "loudness/kweight.h"
#include "loudness/meter_state.h"

namespace kvaudio::loudness {
namespace {

constexpr double kLoudnessOffset = -0.691;  // BS.1770: L = -0.691 + 10 log10(sum G * ms)
constexpr float kAbsoluteGate = -70.0f;
constexpr size_t kScratchSamples = 4096;    // decoded samples per block of the intake loop

double PowerToLoudness(double p) { return 10.0 * std::log10(p) + kLoudnessOffset; }

// Zero-filled allocation; a zero size still yields a block so that success is unambiguous.
template <typename T>
T *Allocate(size_t n) {
  return static_cast<T *>(std::calloc(n ? n : 1, sizeof(T)));
}

}  // namespace

// Whole steps in the window; the remaining windowSamples - k * stepSamples oldest samples are
// summed from the window itself.
uint32_t StepsPerWindow(const s_ebu_r128 *s) { return s->stepSamples ? s->windowSamples / s->stepSamples : 0; }

MeterState *State(const s_ebu_r128 *s) { return reinterpret_cast<MeterState *>(s->channel + s->channels); }

double *StepPowers(const s_ebu_r128 *s, uint32_t c) {
  return reinterpret_cast<double *>(State(s) + 1) + size_t{c} * StepsPerWindow(s);
}

namespace {

bool SetupChannels(s_ebu_r128 *s) {
  // The channel records, then the meter's own state and each channel's ring of step sums.
  const size_t steps = StepsPerWindow(s);
  const size_t bytes = s->channels * (sizeof(ebu_r128_channel) + steps * sizeof(double)) + sizeof(MeterState);
  s->channel = static_cast<ebu_r128_channel *>(std::calloc(1, bytes));
  if (!s->channel) return false;
  for (uint32_t c = 0; c < s->channels; ++c) {
    ebu_r128_channel &ch = s->channel[c];
    filter_init_pre_filter(&ch.pre, s->sampleRate);
    filter_init_rlb_filter(&ch.rlb, s->sampleRate);
    ch.window = Allocate<float>(s->windowSamples);
    ch.step = Allocate<float>(s->stepSamples);
    ch.weight = 1.0f;
    if (!ch.window || !ch.step) return false;
  }
  return true;
}

// Moves the window left by one step, appends the step and returns the window's sum of squares;
// the step's own sum goes into the newest slot of the channel's step powers.
double SlideWindow(const s_ebu_r128 *s, ebu_r128_channel &ch, double *powers, uint32_t k, uint32_t slot) {
  const uint32_t w = s->windowSamples, n = s->stepSamples < w ? s->stepSamples : w;
  std::memmove(ch.window, ch.window + n, (w - n) * sizeof(float));
  std::memcpy(ch.window + (w - n), ch.step, n * sizeof(float));
  if (k) powers[slot] = SumOfSquares(ch.step, s->stepSamples);
  double sum = SumOfSquares(ch.window, w - k * s->stepSamples);
  for (uint32_t j = 1; j <= k; ++j) sum += powers[(slot + j) % k];
  return sum;
}

double Divisor(uint32_t resolution) { return static_cast<double>((uint64_t{1} << (resolution - 1)) - 1); }

// Filters `periods` periods starting at `in`; stores them into the step buffers when `store`.
void Filter(s_ebu_r128 *s, const uint8_t *in, size_t periods, bool store) {
  const uint32_t nch = s->channels, bytes = s->resolution / 8;
  if (nch == 0) return;
  const size_t block = kScratchSamples / nch;
  double x[kScratchSamples];
  for (size_t done = 0; done < periods;) {
    const size_t n = periods - done < block ? periods - done : block;
    DecodeSamples(in + done * nch * bytes, s->resolution, n * nch, Divisor(s->resolution), x);
    KWeight(s->channel, nch, x, n, store ? s->fillCount + done : 0, store);
    done += n;
  }
}

// Sets channel `c` to weight w when the record has it.
void SetWeight(s_ebu_r128 *s, uint32_t c, float w) {
  if (c < s->channels) s->channel[c].weight = w;
}

void SetAllWeights(s_ebu_r128 *s, float w) {
  for (uint32_t c = 0; c < s->channels; ++c) s->channel[c].weight = w;
}

}  // namespace
}  // namespace kvaudio::loudness

using namespace kvaudio::loudness;

extern "C" {

void ebu_r128_delete(s_ebu_r128 *s) {
  if (!s) return;
  if (s->channel) {
    for (uint32_t c = 0; c < s->channels; ++c) {
      std::free(s->channel[c].window);
      std::free(s->channel[c].step);
    }
    std::free(s->channel);
  }
  std::free(s->integrator);
  s->channel = nullptr;
  s->integrator = nullptr;
}

uint32_t ebu_r128_destroy(s_ebu_r128 *s) {
  ebu_r128_delete(s);
  return 1;
}

uint32_t ebu_r128_init(s_ebu_r128 *s, uint8_t check, uint8_t resolution, uint32_t rate, uint8_t mode,
                       uint8_t channels) {
  static const uint16_t kWindowMs[] = {400, 3000, 10000};
  static const uint32_t kStepMs[] = {200, 100, 1000};
  if (!s) return 0;
  if (mode == 0 || resolution == 0 || check == 0) {
    std::fprintf(stderr, "Invalid channels, ebu_mode and/or resolution\n");
    return 0;
  }
  if (mode > 3) return 0;
  s->mode = mode;
  s->windowMs = kWindowMs[mode - 1];
  s->stepMs = kStepMs[mode - 1];
  s->sampleRate = rate;
  s->resolution = resolution;
  s->channels = channels;
  s->relativeGate = 8;
  s->windowSamples = static_cast<uint32_t>(uint64_t{s->windowMs} * rate / 1000);
  s->stepSamples = static_cast<uint32_t>(uint64_t{s->stepMs} * rate / 1000);
  s->integrator = nullptr;
  s->integratorCount = 0;
  if (!SetupChannels(s) || !(s->integrator = Allocate<float>(1))) {
    ebu_r128_delete(s);
    return 0;
  }
  return 1;
}

uint32_t ebu_r128_process_samples(s_ebu_r128 *s, const void *samples, size_t frames) {
  if (!s) return 0;
  const uint32_t res = s->resolution;
  if (res != 8 && res != 16 && res != 24 && res != 32) {
    std::fprintf(stderr, "unsupported resolution: %d bit\n", static_cast<int>(res));
    return 0;
  }
  if (frames == 0) return 1;
  if (!samples || !s->channel) return 0;
  const uint8_t *in = static_cast<const uint8_t *>(samples);
  const size_t periodBytes = size_t{s->channels} * (res / 8);
  while (frames > 0) {
    // Periods until the counter, counting up modulo 2^32, next equals stepSamples.
    const bool store = s->fillCount < s->stepSamples;
    const uint64_t untilClose = store ? s->stepSamples - s->fillCount : (uint64_t{1} << 32) - s->fillCount;
    const size_t n = frames < untilClose ? frames : static_cast<size_t>(untilClose);
    Filter(s, in, n, store);
    in += n * periodBytes;
    frames -= n;
    s->fillCount = static_cast<uint32_t>(s->fillCount + n);
    if (s->fillCount == s->stepSamples) {
      ebu_r128_calculate_lkfs(s);
      s->fillCount = 0;
    }
  }
  return 1;
}

uint32_t ebu_r128_calculate_lkfs(s_ebu_r128 *s) {
  if (!s || !s->channel) return 1;
  MeterState *state = State(s);
  const uint32_t k = StepsPerWindow(s);
  double sum = 0.0;
  for (uint32_t c = 0; c < s->channels; ++c) {
    ebu_r128_channel &ch = s->channel[c];
    const double windowSum = SlideWindow(s, ch, StepPowers(s, c), k, state->stepSlot);
    const float meanSquare = s->windowSamples ? static_cast<float>(windowSum / s->windowSamples) : 0.0f;
    const float p = meanSquare * ch.weight;
    if (p != 0.0f) {
      ch.loudness = static_cast<float>(PowerToLoudness(p));
      sum += p;
    }
  }
  if (k) state->stepSlot = (state->stepSlot + 1) % k;
  if (sum != 0.0) s->currentLoudness = static_cast<float>(PowerToLoudness(sum));
  if (s->mode == 3 && s->currentLoudness > kAbsoluteGate) {
    void *grown = std::realloc(s->integrator, (s->integratorCount + 1) * sizeof(float));
    if (!grown) {
      std::fprintf(stderr, "can not alloc integrator mem\n");
      return EBU_R128_NO_INTEGRATOR;
    }
    s->integrator = static_cast<float *>(grown);
    s->integrator[s->integratorCount++] = static_cast<float>(sum);
  }
  return 1;
}

uint32_t ebu_r128_get_integrated_lufs(s_ebu_r128 *s) {
  if (!s || !s->integrator || s->integratorCount == 0) return 0;
  double total = 0.0;
  for (uint64_t i = 0; i < s->integratorCount; ++i) total += s->integrator[i];
  const double gate = PowerToLoudness(total / static_cast<double>(s->integratorCount)) - s->relativeGate;
  double kept = 0.0;
  uint64_t keptCount = 0;
  for (uint64_t i = 0; i < s->integratorCount; ++i) {
    const double p = s->integrator[i];
    if (PowerToLoudness(p) > gate) {
      kept += p;
      ++keptCount;
    }
  }
  if (keptCount) s->integratedLoudness = static_cast<float>(PowerToLoudness(kept / static_cast<double>(keptCount)));
  return 0;
}

uint32_t ebu_r128_process_and_calculate(s_ebu_r128 *s, uint32_t frames, const void *samples, uint32_t *result,
                                        uint32_t wideRange) {
  if (!s || !ebu_r128_process_samples(s, samples, frames)) return 0;
  if (ebu_r128_calculate_lkfs(s) == EBU_R128_NO_INTEGRATOR) return 0;
  ebu_r128_get_integrated_lufs(s);
  const double lo = wideRange ? -59.0 : -41.0, hi = wideRange ? -5.0 : -14.0;
  double v = static_cast<double>(s->currentLoudness) - 0.29;
  // A loudness that is not a number (filters unstable at rates far below the shelf) reads low.
  v = !(v >= lo) ? lo : (v > hi ? hi : v);
  s->currentLoudness = static_cast<float>(v);
  const double r = std::fabs(100.0 * (s->mode == 3 ? static_cast<double>(s->integratedLoudness) : v));
  const uint32_t m = r < 4294967296.0 ? static_cast<uint32_t>(r) : std::isnan(r) ? 0 : 0xFFFFFFFF;
  if (result) *result = (m << 16) + (m & 0xFFFF);
  return 0;
}

uint32_t ebu_r128_adjust_gain(s_ebu_r128 *s, uint8_t channel, float dB) {
  if (!s || !s->channel || channel >= s->channels) return 0;
  s->channel[channel].weight = calculate_ampl_from_db(dB);
  return 1;
}

uint32_t ebu_r128_adjust_relative_gain(s_ebu_r128 *s, int8_t lu) {
  if (s) s->relativeGate = static_cast<uint8_t>(lu);
  return 1;
}

uint32_t ebu_r128_set_flat(s_ebu_r128 *s) {
  if (s && s->channel) SetAllWeights(s, 1.0f);
  return 0;
}

uint32_t ebu_r128_set_5_1(s_ebu_r128 *s) {
  if (!s || !s->channel) return 0;
  const float surround = calculate_ampl_from_db(1.5f);
  for (uint32_t c = 0; c < s->channels; ++c) s->channel[c].weight = c < 3 ? 1.0f : (c < 5 ? surround : 0.0f);
  return 0;
}

uint32_t ebu_r128_set_7_1(s_ebu_r128 *s) {
  if (!s || !s->channel) return 0;
  const float surround = calculate_ampl_from_db(1.5f);
  for (uint32_t c = 0; c < s->channels; ++c)
    s->channel[c].weight = (c == 3 || c == 4) ? surround : (c < 7 ? 1.0f : 0.0f);
  return 0;
}

uint32_t ebu_r128_set_exact(s_ebu_r128 *s, uint32_t layout) {
  if (!s || !s->channel) return 0;
  struct Exact {
    uint32_t layout;
    int8_t surround[2];  // channels at +1.5 dB
    int8_t muted[3];     // channels at weight 0; -1 ends the list
  };
  static const Exact kExact[] = {
      {3, {4, 5}, {3, -1, -1}},   {4, {3, 4}, {5, -1, -1}},  {5, {3, 4}, {5, -1, -1}},
      {6, {2, 3}, {5, -1, -1}},   {100, {3, 4}, {5, 6, 7}},  {103, {3, 4}, {5, 6, 7}},
      {101, {6, 7}, {3, 4, 5}},   {102, {4, 5}, {3, 6, 7}},
  };
  SetAllWeights(s, 1.0f);
  const float surround = calculate_ampl_from_db(1.5f);
  for (const Exact &e : kExact) {
    if (e.layout != layout) continue;
    for (int8_t c : e.surround) SetWeight(s, static_cast<uint32_t>(c), surround);
    for (int8_t c : e.muted)
      if (c >= 0) SetWeight(s, static_cast<uint32_t>(c), 0.0f);
  }
  return 0;
}

}  // extern "C"
