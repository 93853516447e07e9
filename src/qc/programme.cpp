// Programme loudness of the QC engine through an exported BS.1770-4 / R128 meter.
#include "qc/programme.h"

#include <cstring>
#include <initializer_list>

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
    meter_ = kvAudioLoudnessOpen(rate_, channels_,
                                 KVAUDIO_LOUDNESS_INTEGRATED | KVAUDIO_LOUDNESS_RANGE | KVAUDIO_LOUDNESS_TRUE_PEAK);
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

}  // namespace kvaudio::qc
