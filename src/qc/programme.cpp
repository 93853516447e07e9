// Programme loudness of the QC engine through an exported BS.1770-4 / R128 meter, and per-frame
// true peaks through its interpolator.
#include "qc/programme.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <new>

namespace kvaudio::qc {

ProgrammeLoudness::~ProgrammeLoudness() { kvAudioLoudnessClose(meter_); }

void ProgrammeLoudness::Configure(uint32_t rate, uint32_t bits, uint32_t channels, const double *powerWeights) {
  rate_ = rate;
  bits_ = bits;
  channels_ = channels < KVAUDIO_LOUDNESS_MAX_CHANNELS ? channels : KVAUDIO_LOUDNESS_MAX_CHANNELS;
  std::memcpy(weights_, powerWeights, channels_ * sizeof(double));
}

void ProgrammeLoudness::Reset() {
  if (!meter_ && bits_ != 0) {
    meter_ = kvAudioLoudnessOpen(rate_, channels_, KVAUDIO_LOUDNESS_INTEGRATED | KVAUDIO_LOUDNESS_RANGE);
    // Within the supported rates only allocation fails; the engine's entry points report it.
    if (!meter_ && rate_ <= 192000) throw std::bad_alloc();
    for (uint32_t c = 0; meter_ && c < channels_; ++c) kvAudioLoudnessSetChannelWeight(meter_, c, weights_[c]);
  }
  kvAudioLoudnessReset(meter_);
  Clear();
}

void ProgrammeLoudness::Clear() {
  reading_ = kvAudioLoudnessReading{};
  reading_.size = sizeof reading_;
  reading_.channels = channels_;
  for (double *level : {&reading_.momentary, &reading_.shortTerm, &reading_.momentaryMax, &reading_.shortTermMax,
                        &reading_.integrated, &reading_.truePeak, &reading_.samplePeak})
    *level = KVAUDIO_LOUDNESS_NONE;
  for (uint32_t c = 0; c < KVAUDIO_LOUDNESS_MAX_CHANNELS; ++c)
    reading_.channelTruePeak[c] = reading_.channelSamplePeak[c] = KVAUDIO_LOUDNESS_NONE;
}

void ProgrammeLoudness::Feed(const void *pcm, uint64_t frames) {
  if (!meter_) return;
  kvAudioLoudnessAdd(meter_, pcm, bits_ == 16 ? KVAUDIO_SAMPLES_S16 : KVAUDIO_SAMPLES_S32, frames);
  kvAudioLoudnessRead(meter_, &reading_);
}

namespace {

constexpr size_t kTpChunk = 1024;  // periods interpolated at a time

double Decibels(float peak) { return peak > 0.0f ? 20.0 * std::log10(static_cast<double>(peak)) : -200.0; }

}  // namespace

void FrameTruePeaks::Configure(uint32_t channels, uint64_t mask, bool wide) {
  r128::DesignTruePeak(coef_);
  channels_ = channels;
  mask_ = mask;
  wide_ = wide;
  buffer_.assign(static_cast<size_t>(channels) * (r128::kTpTaps + kTpChunk), 0.0f);
  highest_ = 0.0f;
}

void FrameTruePeaks::Reset() {
  std::fill(buffer_.begin(), buffer_.end(), 0.0f);
  highest_ = 0.0f;
}

void FrameTruePeaks::Feed(const void *pcm, uint32_t frames, double *peakDb) {
  const size_t stride = r128::kTpTaps + kTpChunk, bytes = wide_ ? 4 : 2;
  for (uint64_t m = mask_; m; m &= m - 1) {
    const auto c = static_cast<uint32_t>(std::countr_zero(m));
    float *history = buffer_.data() + c * stride, *x = history + r128::kTpTaps;
    float peak = 0.0f;
    for (uint32_t at = 0; at < frames; at += kTpChunk) {
      const size_t n = std::min<size_t>(kTpChunk, frames - at);
      // Samples scaled to full scale 1.0 exactly as the meter scales them; the buffer may be unaligned.
      const uint8_t *in = static_cast<const uint8_t *>(pcm) + (static_cast<size_t>(at) * channels_ + c) * bytes;
      for (size_t t = 0; t < n; ++t, in += channels_ * bytes) {
        if (wide_) {
          int32_t v;
          std::memcpy(&v, in, sizeof v);
          x[t] = static_cast<float>(v / 2147483648.0);
        } else {
          int16_t v;
          std::memcpy(&v, in, sizeof v);
          x[t] = static_cast<float>(v / 32768.0);
        }
      }
      peak = r128::TruePeak(coef_, x, n, peak);
      std::memmove(history, x + n - r128::kTpTaps, r128::kTpTaps * sizeof(float));
    }
    highest_ = std::max(highest_, peak);
    // The frame's last samples count by their own values until the points around them are known.
    for (int i = r128::kTpTaps - r128::kTpDelay; i < r128::kTpTaps; ++i) peak = std::max(peak, std::fabs(history[i]));
    peakDb[c] = Decibels(peak);
  }
}

double FrameTruePeaks::Highest() const {
  float peak = highest_;
  const size_t stride = r128::kTpTaps + kTpChunk;
  for (uint64_t m = mask_; m; m &= m - 1) {
    const float *last = buffer_.data() + std::countr_zero(m) * stride + r128::kTpTaps - r128::kTpDelay;
    for (int i = 0; i < r128::kTpDelay; ++i) peak = std::max(peak, std::fabs(last[i]));
  }
  return Decibels(peak);
}

}  // namespace kvaudio::qc
