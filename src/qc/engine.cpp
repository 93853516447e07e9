// QC engine run: frame analysis, rule trackers, finish and report, event access and reset.
#include "qc/engine.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "frame/errors.h"

namespace kvaudio::qc {
namespace {

constexpr double kNoSignal = -200.0;
constexpr uint32_t kLoudnessGroup = 1u << 2;

double Decibels(double ratio, double factor) { return ratio > 0.0 ? factor * std::log10(ratio) : kNoSignal; }

}  // namespace

void AudioQcEngine::Prepare() {
  const kvaudqcConfig &c = config_;
  supported_ = c.channels >= 1 && c.channels <= kMaxQcChannels && (c.bitsPerSample == 16 || c.bitsPerSample == 32) &&
               c.sampleRate >= 8000 && c.sampleRate <= 384000;
  if (!supported_) return;
  double weights[kMaxQcChannels];
  plan_ = MakePlan(c, weights);
  loudness_.Configure(c.sampleRate, c.bitsPerSample, c.channels, weights);
  truePeaks_.Configure(c.channels, plan_.checked, plan_.wide);
  figures_.correlation.assign(plan_.pairs.size(), 0.0);
}

void AudioQcEngine::ClearAnalysis() {
  for (RuleTracker &t : trackers_) t.Clear();
  events_.clear();
  positionA = positionB = 0;
  finished_ = false;
  for (ChannelCarry &carry : carry_) carry = ChannelCarry{};
  recent_.assign(size_t{kMaxQcChannels} * kRecentFrames, kNoSignal);
  recentIndex_ = 0;
  for (uint32_t r = 0; r < kRuleCount; ++r) {
    sinceActive_[r] = UINT32_MAX;
    streak_[r] = 0;
    confirmed_[r] = false;
    wasActive_[r] = false;
  }
  loudness_.Reset();
  truePeaks_.Reset();
}

void AudioQcEngine::Measure(const void *pcm, uint32_t frames, FrameFigures &fig) {
  fig.samples = frames;
  std::fill(std::begin(fig.rmsDb), std::end(fig.rmsDb), kNoSignal);
  std::fill(std::begin(fig.peakDb), std::end(fig.peakDb), kNoSignal);
  std::fill(std::begin(fig.truePeakDb), std::end(fig.truePeakDb), kNoSignal);
  const double scale = plan_.scale;
  for (uint64_t m = plan_.checked; m; m &= m - 1) {
    const auto c = static_cast<uint32_t>(std::countr_zero(m));
    const ChannelStats &s = fig.stats[c] =
        ScanChannel(pcm, frames, plan_.channels, c, plan_.wide, plan_.scan, carry_[c]);
    fig.rmsDb[c] = Decibels(s.sumSquares / frames * scale * scale, 10.0);
    fig.peakDb[c] = Decibels(static_cast<double>(s.maxAbs) * scale, 20.0);
    fig.clickIsolation[c] = s.clickJumps ? ClickIsolation(pcm, frames, plan_.channels, c, plan_.wide) : 0.0;
    double *ring = &recent_[size_t{c} * kRecentFrames];
    ring[recentIndex_] = fig.rmsDb[c];
    fig.recentDb[c] = *std::max_element(ring, ring + kRecentFrames);
  }
  recentIndex_ = (recentIndex_ + 1) % kRecentFrames;
  for (size_t i = 0; i < plan_.pairs.size(); ++i) {
    const auto [a, b] = plan_.pairs[i];
    const double energy = fig.stats[a].sumSquares * fig.stats[b].sumSquares;
    fig.correlation[i] =
        energy > 0.0 ? PairProducts(pcm, frames, plan_.channels, a, b, plan_.wide) / std::sqrt(energy) : 0.0;
  }
  truePeaks_.Feed(pcm, frames, fig.truePeakDb);
  loudness_.Feed(pcm, frames);
  fig.momentary = loudness_.Momentary();
  fig.shortTerm = loudness_.ShortTerm();
  fig.runningRange = loudness_.Range();
}

void AudioQcEngine::Frame(const void *pcm, uint32_t frames, kvaudqcFrameAnalyze *out) {
  FrameFigures &fig = figures_;
  Measure(pcm, frames, fig);
  RuleFrame verdicts[kRuleCount];
  CheckRules(config_, plan_, fig, verdicts);
  // A run that has held for the rule's minimum frames bridges short gaps, so the minimum is met
  // by frames in which the condition held, never by bridged ones.
  for (uint32_t r = 1; r <= kRuleCount; ++r) {
    RuleFrame &v = verdicts[r - 1];
    const uint32_t i = r - 1;
    if (v.active) {
      lastActive_[i] = v;
      sinceActive_[i] = 0;
      confirmed_[i] = confirmed_[i] || ++streak_[i] >= config_.ruleSettings[r];
    } else if (v.spare && wasActive_[i]) {
      v = lastActive_[i];  // a frame that cannot tell keeps the run and its streak
    } else {
      streak_[i] = 0;
      if (confirmed_[i] && sinceActive_[i] < BridgeFrames(r)) {
        ++sinceActive_[i];
        v = lastActive_[i];
      } else {
        confirmed_[i] = false;
      }
    }
    wasActive_[i] = v.active != 0;
  }
  uint32_t active = 0;
  for (uint32_t r = 1; r <= kRuleCount; ++r) {
    if (!((plan_.enabled >> (r - 1)) & 1)) continue;
    UpdateTracker(r, trackers_[r - 1], verdicts[r - 1], config_.ruleSettings[r], frames, nullptr);
    if (verdicts[r - 1].active) active |= 1u << (r - 1);
  }
  if (out) {
    out->size = sizeof *out;
    out->channels = config_.channels;
    out->frameIndex = positionA;
    out->samplePosition = positionB;
    out->samples = frames;
    out->activeRules = active;
    out->momentary = fig.momentary;
    out->shortTerm = fig.shortTerm;
    std::copy(fig.peakDb, fig.peakDb + 32, out->peakDb);
    std::copy(fig.rmsDb, fig.rmsDb + 32, out->rmsDb);
    for (uint32_t r = 0; r < kRuleCount; ++r) out->detect[r] = trackers_[r].detect;
  }
  positionA += 1;
  positionB += frames;
}

uint32_t AudioQcEngine::Violations(const kvaudqcReport &r) const {
  if (!(config_.flags & kLoudnessGroup)) return 0;
  const double *lim = config_.limits;
  uint32_t v = 0;
  if (lim[5] > 0.0 && r.integrated > kNoSignal) {
    if (r.integrated < lim[4] - lim[5]) v |= 1;
    if (r.integrated > lim[4] + lim[5]) v |= 2;
  }
  if (lim[3] != 0.0 && r.truePeak > lim[3]) v |= 4;
  if (lim[6] > 0.0 && r.range > lim[6]) v |= 8;
  if (lim[7] != 0.0 && r.maxMomentary > lim[7]) v |= 16;
  if (lim[8] != 0.0 && r.maxShortTerm > lim[8]) v |= 32;
  return v;
}

void AudioQcEngine::Finish(kvaudqcReport *report) {
  for (uint32_t r = 1; r <= kRuleCount; ++r)
    if ((plan_.enabled >> (r - 1)) & 1)
      trackers_[r - 1].Finish(r, positionA, positionB, config_.ruleSettings[r], events_);
  finished_ = true;
  if (!report) return;
  kvaudqcReport r{};
  r.size = sizeof r;
  r.channels = config_.channels;
  r.frames = positionA;
  r.samples = positionB;
  r.integrated = loudness_.Integrated();
  r.range = loudness_.Range();
  r.truePeak = truePeaks_.Highest();
  r.maxMomentary = loudness_.MaxMomentary();
  r.maxShortTerm = loudness_.MaxShortTerm();
  for (uint32_t i = 0; i < kRuleCount; ++i) r.eventsPerRule[i] = trackers_[i].detect.eventCount;
  r.totalEvents = static_cast<uint32_t>(events_.size());
  r.standard = config_.standard;
  r.violations = Violations(r);
  r.passed = r.totalEvents == 0 && r.violations == 0;
  *report = r;
}

}  // namespace kvaudio::qc

using kvaudio::qc::AudioQcEngine;

extern "C" {

int32_t kvqcAudioFrame(kvqcAudioEngine *engine, const void *pcm, uint32_t frames, kvaudqcFrameAnalyze *out) {
  auto *e = static_cast<AudioQcEngine *>(engine);
  if (!e || !pcm || frames == 0 || !e->Supported() || e->Finished()) return KVQC_ERROR;
  return kvaudio::NoThrow(KVQC_ERROR, [&] {
    e->Frame(pcm, frames, out);
    return KVQC_OK;
  });
}

int32_t kvqcAudioFinish(kvqcAudioEngine *engine, kvaudqcReport *report) {
  auto *e = static_cast<AudioQcEngine *>(engine);
  if (!e || e->Finished()) return KVQC_ERROR;
  return kvaudio::NoThrow(KVQC_ERROR, [&] {
    e->Finish(report);
    return KVQC_OK;
  });
}

int32_t kvqcAudioGetEventCount(const kvqcAudioEngine *engine, uint32_t *count) {
  if (!engine || !count) return -1;
  *count = static_cast<uint32_t>(static_cast<const AudioQcEngine *>(engine)->Events().size());
  return 0;
}

int32_t kvqcAudioGetEvents(const kvqcAudioEngine *engine, uint32_t first, uint32_t capacity, kvaudqcEvent *out,
                           uint32_t *copied) {
  if (!engine || !copied || (!out && capacity != 0)) return -1;
  const auto &events = static_cast<const AudioQcEngine *>(engine)->Events();
  const size_t available = first < events.size() ? events.size() - first : 0;
  const size_t n = std::min<size_t>(available, capacity);
  if (n) std::memcpy(out, events.data() + first, n * sizeof *out);
  *copied = static_cast<uint32_t>(n);
  return 0;
}

int32_t kvqcAudioReset(kvqcAudioEngine *engine) {
  if (!engine) return KVQC_ERROR;
  return kvaudio::NoThrow(KVQC_ERROR, [&] {
    static_cast<AudioQcEngine *>(engine)->ClearAnalysis();
    return KVQC_OK;
  });
}

}  // extern "C"
