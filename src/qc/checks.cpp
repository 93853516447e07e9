// Rule conditions of the QC frame analysis and the derivation of their thresholds.
#include "qc/checks.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "qc/layouts.h"

namespace kvaudio::qc {
namespace {

constexpr double kNone = -200.0;
// A click stands this many times above every other second difference near it.
constexpr double kClickIsolation = 2.2;
// Dual mono: the difference of the two channels at most this fraction of their energy (-60 dB),
// so that a centred voice over independent room tone is not taken for dual mono.
constexpr double kDualMonoDifference = 1e-6;

// Group of each rule (index r-1): the flags bit that enables it.
constexpr uint8_t kRuleGroup[18] = {0, 1, 3, 1, 2, 2, 2, 2, 3, 3, 1, 1, 3, 1, 1, 3, 1, 2};

// Front and surround pairs of the multichannel layouts, by channel position.
struct LayoutPairs {
  uint32_t id;
  uint8_t count;
  uint8_t pairs[3][2];
};
constexpr LayoutPairs kLayoutPairs[] = {
    {3, 2, {{0, 1}, {4, 5}}},           {4, 2, {{0, 2}, {3, 4}}},           {5, 2, {{1, 2}, {3, 4}}},
    {6, 2, {{0, 1}, {2, 3}}},           {100, 3, {{0, 2}, {3, 4}, {5, 6}}}, {101, 3, {{0, 1}, {4, 5}, {6, 7}}},
    {102, 3, {{0, 1}, {4, 5}, {6, 7}}}, {103, 3, {{0, 2}, {3, 4}, {6, 7}}},
};

bool Has(uint64_t mask, uint32_t c) { return c < 64 && ((mask >> c) & 1); }
uint64_t Bit(uint32_t c) { return uint64_t{1} << c; }

// Threshold x (in full-scale units) as the least integer sample magnitude at or above it.
int64_t SampleThreshold(double x, double fullScale) {
  const double t = std::ceil(x * fullScale);
  if (!(t < 4.0 * fullScale)) return INT64_MAX;  // also NaN: never reached
  return t < 1.0 ? 1 : static_cast<int64_t>(t);
}

bool ResolveConfigured(const char (&name)[64], uint32_t id, kvaudqcLayout &layout) {
  char text[65];
  std::memcpy(text, name, 64);
  text[64] = '\0';
  if (text[0] != '\0') return ResolveLayout(text, &layout) == 0 && layout.id != 0;
  if (id != 0) return ResolveLayout(LayoutNameFromId(id), &layout) == 0 && layout.id != 0;
  return false;
}

std::vector<std::pair<uint32_t, uint32_t>> Pairs(uint32_t layoutId, uint32_t channels, uint64_t checked) {
  std::vector<std::pair<uint32_t, uint32_t>> out;
  uint32_t covered = 0;
  for (const LayoutPairs &l : kLayoutPairs) {
    if (l.id != layoutId) continue;
    for (uint8_t i = 0; i < l.count; ++i) out.emplace_back(l.pairs[i][0], l.pairs[i][1]);
    covered = layoutId < 100 ? 6 : 8;
  }
  for (uint32_t c = covered; c + 1 < channels; c += 2) out.emplace_back(c, c + 1);
  std::erase_if(out, [&](const auto &p) { return !Has(checked, p.first) || !Has(checked, p.second); });
  return out;
}

// Accumulates the channels or pairs in which a rule holds.
struct Verdict {
  RuleFrame f{};
  explicit Verdict(double reference) {
    f.reference = reference;
    f.auxA = f.auxB = kNone;
  }
  void Hold(uint64_t mask, double value, double auxA, double auxB = kNone, uint64_t info = 1) {
    if (!f.active || value > f.value) f.value = value;
    f.active = 1;
    f.channelMask |= mask;
    f.auxA = std::max(f.auxA, auxA);
    f.auxB = std::max(f.auxB, auxB);
    f.info += info;
  }
};

struct Context {
  const kvaudqcConfig &c;
  const QcPlan &plan;
  const FrameFigures &fig;
  const double *lim = c.limits;

  template <typename F>
  void EachChecked(F f) const {
    for (uint64_t m = plan.checked; m; m &= m - 1) f(static_cast<uint32_t>(std::countr_zero(m)));
  }
  double Level(uint32_t c) const { return fig.rmsDb[c]; }
  double LoudestLevel() const {
    double l = kNone;
    EachChecked([&](uint32_t c) { l = std::max(l, Level(c)); });
    return l;
  }
  double HighestPeak() const {
    double p = kNone;
    EachChecked([&](uint32_t c) { p = std::max(p, fig.peakDb[c]); });
    return p;
  }
};

RuleFrame ProgrammeSilence(const Context &x) {
  Verdict v(x.lim[1]);
  const double loudest = x.LoudestLevel();
  if (x.plan.checked && loudest < x.lim[1])
    v.Hold(x.plan.checked, x.lim[1] - loudest, loudest, x.HighestPeak(), std::popcount(x.plan.checked));
  return v.f;
}

RuleFrame ChannelSilence(const Context &x) {
  Verdict v(static_cast<double>(std::popcount(x.plan.checked)));
  uint64_t silent = 0;
  double silentLevel = kNone, otherLevel = kNone;
  x.EachChecked([&](uint32_t c) {
    if (Has(x.plan.resting, c)) return;
    if (x.Level(c) < x.lim[9]) {
      silent |= Bit(c);
      silentLevel = std::max(silentLevel, x.Level(c));
    } else {
      otherLevel = std::max(otherLevel, x.Level(c));
    }
  });
  const uint64_t others = x.plan.checked & ~silent & ~x.plan.resting;
  if (silent && others) v.Hold(silent, std::popcount(silent), silentLevel, otherLevel, others);
  return v.f;
}

RuleFrame Clipping(const Context &x) {
  Verdict v(x.c.ruleSettings[21]);
  x.EachChecked([&](uint32_t c) {
    const ChannelStats &s = x.fig.stats[c];
    if (s.clippedSamples) v.Hold(Bit(c), static_cast<double>(s.longestClip), x.fig.peakDb[c], kNone, s.clippedSamples);
  });
  return v.f;
}

// Pair rules: `test` returns true with the pair's value when the rule holds for it.
template <typename Test>
RuleFrame PairRule(const Context &x, double reference, Test test) {
  Verdict v(reference);
  for (size_t i = 0; i < x.plan.pairs.size(); ++i) {
    const auto [a, b] = x.plan.pairs[i];
    double value = 0.0, auxA = kNone, auxB = kNone;
    uint64_t mask = Bit(a) | Bit(b);
    if (test(a, b, x.fig.correlation[i], value, auxA, auxB, mask)) v.Hold(mask, value, auxA, auxB);
  }
  return v.f;
}

// Marks a frame in which no pair carries enough signal to judge (RuleFrame::spare = 1).
RuleFrame Undecided(RuleFrame f, bool decided) {
  f.spare = decided ? 0 : 1;
  return f;
}

RuleFrame PhaseInversion(const Context &x) {
  bool decided = false;
  const RuleFrame f =
      PairRule(x, -x.lim[0], [&](uint32_t a, uint32_t b, double r, double &value, double &auxA, double &, uint64_t &) {
        value = -r;
        auxA = std::min(x.Level(a), x.Level(b));
        // Judged above the low level, or 20 dB above silence where the pair is plainly (anti)correlated.
        const double quieter = std::min(x.Level(a), x.Level(b));
        const bool signal = quieter > x.lim[10] || (quieter > x.lim[1] + 20.0 && std::fabs(r) >= 0.9);
        decided = decided || signal;
        return signal && r < x.lim[0];
      });
  return Undecided(f, decided);
}

RuleFrame DualMono(const Context &x) {
  bool decided = false;
  const RuleFrame f =
      PairRule(x, x.lim[20], [&](uint32_t a, uint32_t b, double r, double &value, double &auxA, double &, uint64_t &) {
    value = r;
    auxA = std::min(x.Level(a), x.Level(b));
    decided = decided || (x.Level(a) > x.lim[14] && x.Level(b) > x.lim[14]);
    const double ea = x.fig.stats[a].sumSquares, eb = x.fig.stats[b].sumSquares;
    const double difference = ea + eb - 2.0 * r * std::sqrt(ea * eb);
    return x.Level(a) > x.lim[14] && x.Level(b) > x.lim[14] && r >= x.lim[20] &&
           difference <= kDualMonoDifference * (ea + eb);
  });
  return Undecided(f, decided);
}

RuleFrame LevelImbalance(const Context &x) {
  return PairRule(x, x.lim[2], [&](uint32_t a, uint32_t b, double, double &value, double &auxA, double &auxB, uint64_t &) {
    auxA = std::max(x.Level(a), x.Level(b));
    auxB = std::min(x.Level(a), x.Level(b));
    value = auxA - auxB;
    return auxA > x.lim[14] && auxB >= x.lim[22] && value > x.lim[2];
  });
}

// Channels (the LFE aside) below the missing level while the others are not, and one of them
// has carried programme within the last two seconds (so speech pauses do not hide a loss).
RuleFrame MissingChannel(const Context &x) {
  Verdict v(x.lim[14] - x.lim[22]);
  const uint64_t judged = x.plan.checked & ~x.plan.lfe;
  uint64_t missing = 0;
  double missingLevel = kNone, loudest = kNone;
  for (uint64_t m = judged; m; m &= m - 1) {
    const auto c = static_cast<uint32_t>(std::countr_zero(m));
    if (x.Level(c) < x.lim[22]) {
      missing |= Bit(c);
      missingLevel = std::max(missingLevel, x.Level(c));
    } else {
      loudest = std::max(loudest, x.fig.recentDb[c]);
    }
  }
  if (missing && loudest > x.lim[14]) v.Hold(missing, loudest - missingLevel, loudest, missingLevel);
  return v.f;
}

// Loudness rules over the loudness channels; `measured` is false while the value is not known.
RuleFrame LoudnessAbove(const Context &x, double reading, double other, double limit, bool measured) {
  Verdict v(limit);
  if (measured && limit != 0.0 && reading > limit) v.Hold(x.plan.loudness, reading - limit, reading, other);
  return v.f;
}

RuleFrame LoudnessTarget(const Context &x) {
  Verdict v(x.lim[5]);
  const double st = x.fig.shortTerm, d = st - x.lim[4];
  if (x.lim[5] > 0.0 && st > x.c.levelFloor && std::fabs(d) > x.lim[5])
    v.Hold(x.plan.loudness, std::fabs(d), st, x.fig.momentary, d > 0.0 ? 1 : 2);
  return v.f;
}

RuleFrame LoudnessRange(const Context &x) {
  Verdict v(x.lim[6]);
  if (x.lim[6] > 0.0 && x.fig.runningRange > x.lim[6]) v.Hold(x.plan.loudness, x.fig.runningRange, x.fig.shortTerm);
  return v.f;
}

// Peak rules: channels whose peak in `peakDb` is above `limit` (no rule when limit is 0.0).
RuleFrame PeakAbove(const Context &x, const double *peakDb, double limit) {
  Verdict v(limit);
  if (limit == 0.0) return v.f;
  x.EachChecked([&](uint32_t c) {
    if (peakDb[c] > limit) v.Hold(Bit(c), peakDb[c] - limit, peakDb[c]);
  });
  return v.f;
}

// Jump rules: channels with jumps at or above the rule's threshold, `need` of them at least.
RuleFrame Jumps(const Context &x, double reference, uint32_t need, bool click) {
  Verdict v(reference);
  x.EachChecked([&](uint32_t c) {
    const ChannelStats &s = x.fig.stats[c];
    const uint32_t n = click ? s.clickJumps : s.crackleJumps;
    if (n == 0 || n < need) return;
    if (click && x.fig.clickIsolation[c] < kClickIsolation) return;
    const double value = click ? static_cast<double>(s.maxJump) * x.plan.scale : n;
    v.Hold(Bit(c), value, x.fig.peakDb[c], kNone, n);
  });
  return v.f;
}

RuleFrame DcOffset(const Context &x) {
  Verdict v(x.lim[13]);
  x.EachChecked([&](uint32_t c) {
    const double dc = std::fabs(static_cast<double>(x.fig.stats[c].sum) / static_cast<double>(x.fig.samples)) * x.plan.scale;
    if (dc > x.lim[13]) v.Hold(Bit(c), dc, dc > 0.0 ? 20.0 * std::log10(dc) : kNone);
  });
  return v.f;
}

RuleFrame Dropout(const Context &x) {
  Verdict v(x.c.ruleSettings[20]);
  x.EachChecked([&](uint32_t c) {
    const ChannelStats &s = x.fig.stats[c];
    // The LFE rests between hits: only its zero runs count.
    const uint32_t drops = Has(x.plan.lfe, c) ? 0 : s.levelDrops;
    if (s.dropouts || drops)
      v.Hold(Bit(c), static_cast<double>(std::max<uint64_t>(s.longestDropout, drops ? kDropBlock : 0)), x.Level(c),
             kNone, s.dropouts + drops);
  });
  return v.f;
}

RuleFrame LowLevel(const Context &x) {
  Verdict v(x.lim[10]);
  const double loudest = x.LoudestLevel();
  if (x.plan.checked && loudest < x.lim[10] && loudest >= x.lim[16])
    v.Hold(x.plan.checked, x.lim[10] - loudest, loudest, x.HighestPeak(), std::popcount(x.plan.checked));
  return v.f;
}

}  // namespace

uint32_t BridgeFrames(uint32_t rule) {
  switch (rule) {
    case kClipping: return 25;
    case kPhaseInversion:
    case kDualMono:
    case kMissingChannel: return 50;
    default: return 0;
  }
}

uint32_t EnabledRules(const kvaudqcConfig &config) {
  uint32_t enabled = 0;
  for (uint32_t r = 0; r < 18; ++r)
    if ((config.flags >> kRuleGroup[r]) & 1) enabled |= 1u << r;
  return config.reservedA[0] ? enabled & config.reservedA[0] : enabled;
}

QcPlan MakePlan(const kvaudqcConfig &config, double powerWeights[kMaxQcChannels]) {
  QcPlan p;
  p.channels = config.channels;
  p.wide = config.bitsPerSample == 32;
  const double fullScale = p.wide ? 2147483648.0 : 32768.0;
  p.scale = 1.0 / fullScale;
  const uint64_t all = p.channels >= 64 ? ~uint64_t{0} : Bit(p.channels) - 1;
  p.checked = config.checkMask & config.channelMask & all;

  kvaudqcLayout layout{};
  const bool weighted = ResolveConfigured(config.loudnessLayoutName, config.loudnessLayoutId, layout) ||
                        ResolveConfigured(config.layoutName, config.layoutId, layout);
  const uint64_t loudness = (config.loudnessMask ? config.loudnessMask : p.checked) & all;
  for (uint32_t c = 0; c < kMaxQcChannels; ++c) {
    const double w = !Has(loudness, c) ? 0.0 : (weighted && c < 32 ? layout.weights[c] : 1.0);
    powerWeights[c] = w * w;
    if (w != 0.0) p.loudness |= Bit(c);
  }

  kvaudqcLayout programme{};
  const uint32_t layoutId = ResolveConfigured(config.layoutName, config.layoutId, programme) ? programme.id : 0;
  p.pairs = Pairs(layoutId, p.channels, p.checked);
  if (layoutId >= 3 && layoutId < 200) {
    uint64_t paired = 0;
    for (const auto &[a, b] : p.pairs) paired |= Bit(a) | Bit(b);
    for (uint32_t c = 0; c < programme.channels && c < 32; ++c)
      if (programme.weights[c] == 0.0) p.lfe |= Bit(c);
    p.resting = (programme.channelMask & ~paired) | p.lfe;
  }
  p.scan.clickJump = SampleThreshold(config.limits[11], fullScale);
  p.scan.crackleJump = SampleThreshold(config.limits[17], fullScale);
  p.scan.clipLevel = SampleThreshold(std::pow(10.0, config.peakCeiling / 20.0), fullScale);
  p.scan.clipRun = config.ruleSettings[21];
  p.scan.dropoutRun = config.ruleSettings[20];
  p.scan.floor = SampleThreshold(std::pow(10.0, config.limits[12] / 20.0), fullScale);
  p.enabled = EnabledRules(config);
  return p;
}

void CheckRules(const kvaudqcConfig &config, const QcPlan &plan, const FrameFigures &fig, RuleFrame frames[18]) {
  const Context x{config, plan, fig};
  const double *lim = config.limits;
  const bool momentary = fig.momentary > kNone, shortTerm = fig.shortTerm > kNone;
  frames[kProgrammeSilence - 1] = ProgrammeSilence(x);
  frames[kChannelSilence - 1] = ChannelSilence(x);
  frames[kClipping - 1] = Clipping(x);
  frames[kPhaseInversion - 1] = PhaseInversion(x);
  frames[kLoudnessTarget - 1] = LoudnessTarget(x);
  frames[kTruePeak - 1] = PeakAbove(x, fig.truePeakDb, lim[3]);
  frames[kMomentaryMax - 1] = LoudnessAbove(x, fig.momentary, fig.shortTerm, lim[7], momentary);
  frames[kShortTermMax - 1] = LoudnessAbove(x, fig.shortTerm, fig.momentary, lim[8], shortTerm);
  frames[kClick - 1] = Jumps(x, lim[11], 1, true);
  frames[kCrackle - 1] = Jumps(x, config.ruleSettings[19], config.ruleSettings[19], false);
  frames[kLevelImbalance - 1] = LevelImbalance(x);
  frames[kDcOffset - 1] = DcOffset(x);
  frames[kDropout - 1] = Dropout(x);
  frames[kDualMono - 1] = DualMono(x);
  frames[kLowLevel - 1] = LowLevel(x);
  frames[kNearClip - 1] = PeakAbove(x, fig.peakDb, lim[15]);
  frames[kMissingChannel - 1] = MissingChannel(x);
  frames[kLoudnessRange - 1] = LoudnessRange(x);
}

}  // namespace kvaudio::qc
