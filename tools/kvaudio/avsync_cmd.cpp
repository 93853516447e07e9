// kvaudio avsync insert|detect: the AV-sync burst mixed into a file and found again.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>

#include "analyses.h"
#include "kvaudio/avsync.h"
#include "progress.h"
#include "tool.h"

namespace kvtool {
namespace {

constexpr uint32_t kMinRate = 16000;      // the burst needs at least this rate
constexpr double kSearchBlockSeconds = 10;  // detection runs block by block

struct InsertOptions {
  std::string in, out, fps = "25";
  double at = -1, level = 0;
  int64_t frame = -1;
};

struct DetectOptions {
  std::string in, fps, start;  // default: the file's frame rate and timecode
  InputSelection input;
  double from = 0, to = -1, threshold = 0, expectSeconds = -1;
  int64_t expectFrame = -1;
  bool json = false;
};

int RunInsert(const InsertOptions &opt) {
  FrameRate fps = ParseFrameRate(opt.fps);
  AudioReader reader(opt.in);
  reader.Require(64, kMinRate);
  const AudioInfo &info = reader.info();
  if (info.frames > UINT32_MAX) throw FileError(opt.in, "too long (more than 2^32 sample periods)");
  if ((opt.at >= 0) == (opt.frame >= 0)) throw ToolError("give the position with either --at or --frame");
  uint64_t offset = opt.frame >= 0 ? uint64_t(std::llround(opt.frame / fps.Fps() * info.rate))
                                   : uint64_t(std::llround(opt.at * info.rate));
  Pcm pcm = ReadPcm(reader);
  double fullScale = pcm.bits == 16 ? 32767.0 : 2147483647.0;
  int32_t amplitude = opt.level < 0 ? int32_t(std::lround(std::pow(10.0, opt.level / 20) * fullScale)) : 0;
  uint32_t rc = KVAudioAVSyncPulseGenerate(pcm.At(0), uint32_t(pcm.Frames()), pcm.channels, pcm.bits,
                                           info.rate, uint32_t(std::min<uint64_t>(offset, UINT32_MAX)),
                                           amplitude);
  if (rc == KVAUDIO_AVSYNC_TOO_SHORT)
    throw FileError(opt.in, "the burst does not fit at sample " + std::to_string(offset));
  if (rc != KVAUDIO_AVSYNC_OK)
    throw FileError(opt.in, "the burst cannot be inserted (code " + std::to_string(rc) + ")");
  AudioWriter writer(opt.out, info.rate, info.channels, std::max<uint32_t>(info.bits, 16));
  if (pcm.bits == 16)
    writer.Write(pcm.s16.data(), pcm.Frames());
  else
    writer.Write(pcm.s32.data(), pcm.Frames());
  writer.Close();
  uint32_t length = 0;
  KVAudioAVSyncPulseGetLength(info.rate, &length);
  std::printf("%s: burst of %u samples at sample %llu (%s)\n", opt.out.c_str(), length,
              (unsigned long long)offset, FormatSeconds(double(offset) / info.rate).c_str());
  return kExitClean;
}

int RunDetect(const DetectOptions &opt) {
  if (!opt.fps.empty()) ParseFrameRate(opt.fps);
  AudioReader reader(opt.in, opt.input);
  reader.Require(64, kMinRate);
  const AudioInfo &info = reader.info();
  const ProgrammeTime time = ProgrammeTimeOf(info, opt.fps, opt.start);
  const FrameRate fps = ParseFrameRate(time.fps);
  uint64_t from = uint64_t(std::max(0.0, opt.from) * info.rate);
  uint64_t to = opt.to > 0 ? std::min<uint64_t>(uint64_t(opt.to * info.rate), info.frames) : info.frames;
  // The bar covers reading the file, then the search.
  Progress progress("avsync detect", info.frames + (to > from ? to - from : 0), info.Seconds());
  Pcm pcm = ReadPcm(reader, [&](uint64_t done) { progress.Update(done); });
  to = opt.to > 0 ? std::min<uint64_t>(to, pcm.Frames()) : pcm.Frames();
  BurstResult r = DetectBurst(pcm, info.rate, from, to, opt.threshold, &progress);
  progress.Done();

  double seconds = double(r.position) / info.rate;
  uint64_t videoFrame = uint64_t(std::floor(seconds * fps.Fps() + 1e-9));
  double expected = opt.expectFrame >= 0 ? opt.expectFrame / fps.Fps() : opt.expectSeconds;
  double offsetMs = (seconds - expected) * 1000.0;
  if (opt.json) {
    Json doc{{"file", opt.in}, {"found", r.found}, {"score", r.score}};
    doc["position"] = r.found ? Json(r.position) : Json();
    doc["seconds"] = r.found ? Json(seconds) : Json();
    doc["videoFrame"] = r.found ? Json(videoFrame) : Json();
    doc["timecode"] = r.found ? Json(FormatTimecode(time.startFrame + videoFrame, fps)) : Json();
    doc["offsetMs"] = r.found && expected >= 0 ? Json(offsetMs) : Json();
    PrintJson(doc);
  } else if (r.found) {
    std::printf("%s: burst at sample %llu (%s, frame %llu, %s at %s fps), score %.3f\n", opt.in.c_str(),
                (unsigned long long)r.position, FormatSeconds(seconds).c_str(),
                (unsigned long long)videoFrame, FormatTimecode(time.startFrame + videoFrame, fps).c_str(), fps.name.c_str(),
                r.score);
    if (expected >= 0)
      std::printf("  offset %+.2f ms (%+.2f frames) from the expected %s\n", offsetMs,
                  offsetMs / 1000.0 * fps.Fps(), FormatSeconds(expected).c_str());
  } else {
    std::printf("%s: no burst found (best score %.3f)\n", opt.in.c_str(), r.score);
  }
  return r.found ? kExitClean : kExitFindings;
}

}  // namespace

BurstResult DetectBurst(const Pcm &pcm, uint32_t rate, uint64_t from, uint64_t to, double threshold,
                        Progress *progress) {
  uint32_t length = 0;
  if (KVAudioAVSyncPulseGetLength(rate, &length) != KVAUDIO_AVSYNC_OK)
    throw ToolError("AV-sync needs at least 16000 Hz");
  BurstResult best;
  const uint64_t block = uint64_t(kSearchBlockSeconds * rate);
  // Blocks overlap by the burst length less one, so every start position is scored once.
  for (uint64_t at = from; at + length <= to; at += block) {
    uint64_t n = std::min<uint64_t>(block + length - 1, to - at);
    uint32_t position = 0;
    double score = 0;
    uint32_t rc = KVAudioAVSyncPulseDetect(pcm.At(at), uint32_t(n), pcm.channels, pcm.bits, rate, &position,
                                           &score, threshold);
    if (score > best.score) best = {rc == KVAUDIO_AVSYNC_OK, at + (rc == KVAUDIO_AVSYNC_OK ? position : 0), score};
    if (progress) progress->Update(pcm.Frames() + at + n - from);
  }
  return best;
}

void AddAvsyncCommand(CLI::App &app, int *exitCode) {
  CLI::App *av = app.add_subcommand("avsync", "AV-sync burst: insert into a file or detect in one");
  av->require_subcommand(1);

  auto ins = std::make_shared<InsertOptions>();
  CLI::App *i = av->add_subcommand("insert", "Mix the burst into IN at a position and write OUT");
  i->add_option("IN", ins->in, "input audio file")->required();
  i->add_option("OUT", ins->out, "output file, same rate, channels and width")->required();
  i->add_option("--at", ins->at, "burst start, seconds");
  i->add_option("--frame", ins->frame, "burst start, video frame (with --fps)");
  i->add_option("--fps", ins->fps, std::string("frame rate: ") + FrameRateNames() + " (default 25)");
  i->add_option("--level", ins->level, "burst peak, dBFS (default: the library's, about -8.7 dBFS)");
  i->callback([ins, exitCode] { *exitCode = RunInsert(*ins); });

  auto det = std::make_shared<DetectOptions>();
  CLI::App *d = av->add_subcommand("detect", "Find the burst; exit 1 when there is none");
  d->add_option("IN", det->in, "audio file")->required();
  d->add_option("--fps", det->fps, "frame rate for the frame and timecode of the result "
                                   "(default: the file's video, else 25)");
  d->add_option("--start", det->start, "programme timecode of the first sample (default: the file's)");
  AddInputOptions(d, &det->input);
  d->add_option("--expect-frame", det->expectFrame, "video frame where the burst belongs: prints the offset");
  d->add_option("--expect", det->expectSeconds, "seconds where the burst belongs: prints the offset");
  d->add_option("--from", det->from, "search from, seconds (default 0)");
  d->add_option("--to", det->to, "search to, seconds (default: end of file)");
  d->add_option("--threshold", det->threshold, "minimum score 0..1 (default 0.35)");
  d->add_flag("--json", det->json, "print JSON (see docs/cli.md)");
  d->callback([det, exitCode] { *exitCode = RunDetect(*det); });
}

}  // namespace kvtool
