// The analyses behind the subcommands, on blocks of a file or audio in memory, shared with the demo.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "audio_file.h"
#include "json_out.h"
#include "kvaudio/qc.h"
#include "kvaudio/r128.h"
#include "timebase.h"

namespace kvtool {

class Progress;
class ReportCollector;

// ---- Loudness -------------------------------------------------------------------------------

// Where blocks of interleaved samples come from: a file or memory.
class PcmSource {
 public:
  virtual ~PcmSource() = default;
  // Copies up to `frames` periods into `out` (the configured width); returns periods copied.
  virtual size_t Read(uint8_t *out, size_t frames) = 0;
};

struct LoudnessInput {
  uint32_t rate = 48000, channels = 2;
  uint32_t format = 1;   // KVAUDIO_SAMPLES_S16, _S32 (left-justified) or _F32
  uint64_t frames = 0;   // expected periods: progress and the compatibility analysis's limit
  bool curves = false;   // keep the momentary and short-term readings of every 100 ms step
};

// The compatibility readings: the ebu_r128 meter (modes 3, 1 and 2) and the stand-alone
// kvqcAudioAnalyze* functions, which need the whole file in memory.
struct CompatLoudness {
  double integrated = -200, momentaryLast = -200, momentaryMax = -200;
  double shortTermLast = -200, shortTermMax = -200;
  bool analysed = false;
  std::string analysisSkipped;  // why the analysis did not run
  kvaudqcLoudness analysis{};
  kvaudqcTruePeak peaks{};
};

struct LoudnessResult {
  kvAudioLoudnessReading reading{};  // the BS.1770-4 / R128 meter
  std::vector<std::pair<double, double>> momentary, shortTerm;  // (seconds, LUFS) every 100 ms
  CompatLoudness compat;
  kvaudqcTargets targets{};
  std::vector<std::string> violations;  // of the standard readings against the targets
};

LoudnessResult MeasureLoudness(PcmSource &source, const LoudnessInput &input, const kvaudqcLayout &layout,
                               const kvaudqcTargets &targets, Progress *progress);
Json LoudnessJson(const LoudnessResult &result);
void PrintLoudness(const LoudnessResult &result);
void PlotLoudness(const LoudnessResult &result, const std::string &title, double seconds,
                  const std::string &path);

// ---- QC engine -------------------------------------------------------------------------------

struct QcSettings {
  uint32_t rate = 48000, channels = 2, bits = 16;
  FrameRate fps;
  std::string layout, loudnessLayout;
  uint32_t standard = 0;
  uint32_t rules = 0;       // bit r-1 runs rule r; 0 runs every rule
  uint64_t startFrame = 0;  // timecode of the first frame, as a frame count
  std::string profile = "broadcast";           // "broadcast" or "engine" (the engine's own defaults)
  std::vector<std::pair<uint32_t, double>> minSeconds;  // per rule, overriding the profile
};

struct QcResult {
  kvaudqcReport report{};
  std::vector<kvaudqcEvent> events;
  std::vector<std::pair<double, double>> momentary, shortTerm;  // per video frame
  bool libraryCadence = false;
};

// `collector`, when given, also gathers what an HTML report shows.
QcResult RunQc(const QcSettings &settings, PcmSource &source, uint64_t totalFrames, Progress *progress,
               ReportCollector *collector = nullptr);
// Short name of rule r (1-18), e.g. "clipping".
const char *RuleName(uint32_t rule);
Json QcJson(const QcResult &result, const QcSettings &settings);
void PrintQc(const QcResult &result, const QcSettings &settings);
void PlotQc(const QcResult &result, const QcSettings &settings, const std::string &title,
            double seconds, const std::string &path);

// ---- LTC -------------------------------------------------------------------------------------

struct LtcFrame {
  uint32_t frameCount;  // the decoder's frame count at the rate flags in use
  uint32_t userBits;
  uint32_t flags;       // rate flags read back (4 for drop-frame)
  uint64_t endSample;   // sample period at which the frame ended
  bool valid;           // false when the address does not exist at the rate
};

// LTC rate flags of a frame rate; throws a ToolError for rates LTC does not carry.
uint32_t LtcFlags(const FrameRate &fps);
// Timecode text of a decoded frame, through the library's own frame layout.
std::string LtcTimecode(const LtcFrame &frame);
// 16-bit mono samples of LTC frames first .. first + frames - 1 of a stream whose frame 0 carries
// timecode `start` (a frame count); first == 0 sets the encoder up, later blocks continue it.
std::vector<int16_t> EncodeLtc(uint32_t rate, const FrameRate &fps, uint64_t start, uint64_t first,
                               uint64_t frames, uint32_t userBits);
// Decodes 16-bit mono samples; one entry per frame that differs from the one before.
std::vector<LtcFrame> DecodeLtc(const int16_t *samples, size_t count, uint32_t rate,
                                const FrameRate &fps, Progress *progress);

// ---- AV-sync ---------------------------------------------------------------------------------

struct BurstResult {
  bool found = false;
  uint64_t position = 0;  // sample period of the burst start
  double score = 0;
};

// Searches periods [from, to) for the burst; the first position with the best score wins.
BurstResult DetectBurst(const Pcm &pcm, uint32_t rate, uint64_t from, uint64_t to, double threshold,
                        Progress *progress);

}  // namespace kvtool
