// kvaudio ltc encode|decode: linear timecode through the library's process-wide encoder/decoder.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "analyses.h"
#include "kvaudio/ltc.h"
#include "progress.h"
#include "tool.h"

namespace kvtool {
namespace {

constexpr uint32_t kMaxLtcRate = 65535;  // the encoder and decoder keep 16 bits of the rate

uint32_t Bcd(uint32_t byte) { return (byte >> 4) * 10 + (byte & 0xF); }

void RequireLtcRate(uint32_t rate, const std::string &what) {
  if (rate < 8000 || rate > kMaxLtcRate)
    throw ToolError(what + ": LTC runs at 8000 to 65535 Hz, not " + std::to_string(rate) + " Hz");
}

// Frames in 24 hours at the rate, where the timecode wraps.
uint64_t FramesPerDay(const FrameRate &fps) {
  // Drop-frame counting skips nominal / 15 numbers in 54 minutes of every hour.
  uint64_t perHour = uint64_t(fps.nominal) * 3600 - (fps.dropFrame ? 54 * (fps.nominal / 15) : 0);
  return perHour * 24;
}

struct EncodeOptions {
  std::string out, start = "00:00:00:00", fps = "25", duration = "10";
  uint32_t rate = 48000, userBits = 0;
};

struct DecodeOptions {
  std::string in, channel = "left", fps = "30", start;
  bool json = false;
  InputSelection input;
};

// Duration text: seconds ("10", "2.5"), frames ("250f") or a timecode ("00:01:00:00").
uint64_t ParseDuration(const std::string &text, const FrameRate &fps) {
  if (text.find(':') != std::string::npos) return ParseTimecode(text, fps);
  char *end = nullptr;
  double value = std::strtod(text.c_str(), &end);
  bool frames = end && *end == 'f' && end[1] == 0;
  uint64_t count = frames ? uint64_t(value) : uint64_t(value * fps.Fps() + 0.5);
  if (!end || end == text.c_str() || (*end && !frames) || !(value > 0) || count > FramesPerDay(fps))
    throw ToolError("bad duration '" + text + "' (seconds, frames as 250f, or HH:MM:SS:FF; up to 24 h)");
  return count;
}

int RunEncode(const EncodeOptions &opt) {
  FrameRate fps = ParseFrameRate(opt.fps);
  RequireLtcRate(opt.rate, opt.out);
  uint64_t start = ParseTimecode(opt.start, fps), frames = ParseDuration(opt.duration, fps);
  AudioWriter writer(opt.out, opt.rate, 1, 16);
  constexpr uint64_t kBlock = 1000;  // frames written at a time
  for (uint64_t done = 0; done < frames; done += kBlock) {
    std::vector<int16_t> samples = EncodeLtc(opt.rate, fps, start, done, std::min(kBlock, frames - done), opt.userBits);
    writer.Write(samples.data(), samples.size());
  }
  writer.Close();
  return kExitClean;
}

int RunDecode(const DecodeOptions &opt) {
  FrameRate fps = ParseFrameRate(opt.fps);
  AudioReader reader(opt.in, opt.input);
  const AudioInfo &info = reader.info();
  // Where each LTC frame ends on the programme's own timecode (the file's rate and start).
  const ProgrammeTime time = ProgrammeTimeOf(info, "", opt.start);
  const FrameRate programmeFps = ParseFrameRate(time.fps);
  auto programme = [&](uint64_t sample) {
    return FormatTimecode(time.startFrame + sample * programmeFps.numerator /
                                                (uint64_t(programmeFps.denominator) * info.rate), programmeFps);
  };
  RequireLtcRate(info.rate, opt.in);
  uint32_t channel = opt.channel == "left" ? 0 : opt.channel == "right" ? 1 : 0;
  if (opt.channel != "left" && opt.channel != "right") {
    char *end = nullptr;
    unsigned long n = std::strtoul(opt.channel.c_str(), &end, 10);
    if (!end || *end || n < 1) throw ToolError("--channel takes left, right or a channel number from 1");
    channel = uint32_t(n - 1);
  }
  if (channel >= info.channels)
    throw FileError(opt.in, "has no channel " + std::to_string(channel + 1) + " (" +
                                std::to_string(info.channels) + " channels)");
  Progress progress("ltc decode", 2 * info.frames, info.Seconds());
  Pcm pcm = ReadPcm(reader, [&](uint64_t done) { progress.Update(done); });
  // The decoder reads 16-bit mono: take the chosen channel at 16 bits.
  std::vector<int16_t> mono(size_t(pcm.Frames()));
  for (size_t i = 0; i < mono.size(); ++i)
    mono[i] = pcm.bits == 16 ? pcm.s16[i * pcm.channels + channel]
                             : int16_t(pcm.s32[i * pcm.channels + channel] >> 16);
  std::vector<LtcFrame> frames = DecodeLtc(mono.data(), mono.size(), info.rate, fps, &progress);
  progress.Done();

  if (opt.json) {
    Json list = Json::array();
    for (const LtcFrame &f : frames)
      list.push_back(Json{{"timecode", f.valid ? Json(LtcTimecode(f)) : Json()},
                          {"frameCount", f.valid ? Json(f.frameCount) : Json()},
                          {"userBits", f.userBits},
                          {"dropFrame", f.flags == 4},
                          {"endSample", f.endSample},
                          {"endSeconds", double(f.endSample) / info.rate},
                          {"programmeTimecode", programme(f.endSample)}});
    PrintJson(Json{{"file", opt.in}, {"sampleRate", info.rate}, {"channel", channel + 1},
                   {"frames", list}});
  } else {
    for (const LtcFrame &f : frames) {
      char ub[16];
      std::snprintf(ub, sizeof(ub), "%08X", f.userBits);
      std::printf("%s  user %s  ends %s (sample %llu, programme %s)\n",
                  f.valid ? LtcTimecode(f).c_str() : "invalid    ", ub,
                  FormatSeconds(double(f.endSample) / info.rate).c_str(), (unsigned long long)f.endSample,
                  programme(f.endSample).c_str());
    }
    if (frames.empty()) std::printf("%s: no LTC found on channel %u\n", opt.in.c_str(), channel + 1);
  }
  return frames.empty() ? kExitFindings : kExitClean;
}

}  // namespace

uint32_t LtcFlags(const FrameRate &fps) {
  if (fps.name == "24") return 1;
  if (fps.name == "25") return 8;  // also selects the 25-frame bit layout
  if (fps.name == "29.97") return 2;
  if (fps.name == "29.97df") return 4;
  if (fps.name == "30") return 0;
  throw ToolError("LTC carries 24, 25, 29.97, 29.97df or 30 fps, not " + fps.name);
}

std::string LtcTimecode(const LtcFrame &frame) {
  SMPTE_FRAME bits{};
  bits.SetFrame(frame.frameCount, frame.userBits, frame.flags);
  uint32_t bcd = bits.GetTimeCodeBCD();
  char text[16];
  std::snprintf(text, sizeof(text), "%02u:%02u:%02u%c%02u", Bcd(bcd & 0x3F), Bcd(bcd >> 8 & 0x7F),
                Bcd(bcd >> 16 & 0x7F), frame.flags == 4 ? ';' : ':', Bcd(bcd >> 24 & 0x3F));
  return text;
}

std::vector<int16_t> EncodeLtc(uint32_t rate, const FrameRate &fps, uint64_t start, uint64_t first,
                               uint64_t frames, uint32_t userBits) {
  uint32_t flags = LtcFlags(fps);
  if (first == 0) smpteSetup(int32_t(rate), 16, 0, 0, flags, 0);
  // Each frame gets exactly its share of the video frame cadence, so the code keeps time.
  FrameCutter cutter(fps, rate);
  std::vector<int16_t> out;
  std::vector<uint8_t> buffer(smpteRequiredBuffer() + 2 * cutter.MaxSamples());
  const uint64_t day = FramesPerDay(fps);
  for (uint64_t f = first; f < first + frames; ++f) {
    uint32_t want = cutter.Samples(f);
    uint16_t bytes = smpteEncode(uint32_t((start + f) % day), userBits, buffer.data(), want);
    const int16_t *s = reinterpret_cast<const int16_t *>(buffer.data());
    out.insert(out.end(), s, s + bytes / 2);
  }
  return out;
}

std::vector<LtcFrame> DecodeLtc(const int16_t *samples, size_t count, uint32_t rate, const FrameRate &fps,
                                Progress *progress) {
  uint32_t flags = LtcFlags(fps);
  // The decoder is only set up again when the rate changes: pass through another rate first.
  smpteSetup(int32_t(rate + 1), 16, 0, 0, flags, 0);
  smpteSetup(int32_t(rate), 16, 0, 0, flags, 0);
  std::vector<LtcFrame> frames;
  const size_t chunk = rate / 1000 ? rate / 1000 : 1;  // 1 ms: the resolution of endSample
  for (size_t at = 0; at < count; at += chunk) {
    size_t n = std::min(chunk, count - at);
    smpteDecodeSetBuffer(const_cast<int16_t *>(samples + at), int32_t(n));
    uint32_t timecode = 0, user = 0, got = flags;
    uint32_t result = smpteDecode(&timecode, &user, &got);
    if (progress && at % (chunk * 1000) == 0) progress->Update(count + at);
    if (result == SMPTE_NO_FRAME) continue;
    LtcFrame frame{timecode, user, got, at + n, result == 0};
    // Every buffer with a transition reports the last good frame again: keep the new ones.
    if (!frames.empty() && frames.back().frameCount == frame.frameCount &&
        frames.back().userBits == frame.userBits && frames.back().valid == frame.valid)
      continue;
    frames.push_back(frame);
  }
  return frames;
}

void AddLtcCommand(CLI::App &app, int *exitCode) {
  CLI::App *ltc = app.add_subcommand("ltc", "Linear timecode: encode to or decode from audio");
  ltc->require_subcommand(1);

  auto enc = std::make_shared<EncodeOptions>();
  CLI::App *e = ltc->add_subcommand("encode", "Write LTC as a 16-bit mono audio file");
  e->add_option("OUT", enc->out, "output file (.wav, .rf64, .aiff, .flac)")->required();
  e->add_option("--start", enc->start, "first timecode HH:MM:SS:FF (default 00:00:00:00)");
  e->add_option("--fps", enc->fps, "24, 25 (default), 29.97, 29.97df or 30");
  e->add_option("--duration", enc->duration, "seconds, frames (250f) or HH:MM:SS:FF (default 10)");
  e->add_option("--rate", enc->rate, "sample rate, 8000-65535 Hz (default 48000)");
  e->add_option("--user-bits", enc->userBits, "32 user bits, e.g. 0x12345678 (default 0)");
  e->callback([enc, exitCode] { *exitCode = RunEncode(*enc); });

  auto dec = std::make_shared<DecodeOptions>();
  CLI::App *d = ltc->add_subcommand("decode", "Print one line per decoded LTC frame");
  d->add_option("IN", dec->in, "audio file")->required();
  d->add_option("--channel", dec->channel, "left (default), right, or a channel number from 1");
  d->add_option("--fps", dec->fps, "expected rate: 24, 25, 29.97, 29.97df or 30 (default 30, "
                                   "which reads every non-drop address)");
  d->add_option("--start", dec->start, "programme timecode of the first sample (default: the file's)");
  AddInputOptions(d, &dec->input);
  d->add_flag("--json", dec->json, "print JSON (see docs/cli.md)");
  d->callback([dec, exitCode] { *exitCode = RunDecode(*dec); });
}

}  // namespace kvtool
