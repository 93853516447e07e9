// Audio input from any media file FFmpeg's libraries read (WAV/BWF, MXF, MOV/MP4, MKV, MPEG-TS
// with SMPTE 302M, FLAC, MP3 ...), and audio files written through libsndfile.
#pragma once

#include <sndfile.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace kvtool {

struct AudioInfo {
  uint32_t rate = 0;
  uint32_t channels = 0;
  uint64_t frames = 0;    // sample periods
  uint32_t bits = 0;      // bits of the stored samples; 32 for floating point
  bool floating = false;  // float or double samples
  std::string format;     // e.g. "WAV PCM 24-bit", "MXF 8 streams PCM 24-bit"
  std::string taken;      // what was read: "stream 1 ch 1 + stream 2 ch 1 ..."
  std::string channelLayout;  // the file's layout, e.g. "5.1(side)", "FL+FR+LFE"; empty if unknown
  uint64_t channelMask = 0;   // the same as a WAV/AVChannelLayout speaker mask (0 if unknown)
  std::string timecode;       // start timecode the file carries ("10:00:00:00"); empty if none
  uint64_t timeReference = 0; // BWF time reference: sample periods since midnight (0 if none)
  bool hasTimeReference = false;
  std::string frameRate;      // frame-rate name of the file's video ("25", "29.97df"); empty if none
  bool exactLength = true;    // `frames` is what the container declares, not an estimate
  std::string layout;         // QC layout name of the file's speaker mask ("5.1", "7.1-ext"), else empty
  double Seconds() const { return rate ? double(frames) / rate : 0.0; }
  bool Wide() const { return bits > 16; }  // kept as 32-bit samples, else as 16-bit
};

// Which audio the reader takes: audio streams by number from 1 (default all, in stream order)
// and channels of the combined programme by number from 1 (default all).
struct InputSelection {
  std::vector<uint32_t> streams;
  std::vector<uint32_t> channels;
};

// Adds --stream and --channels to a subcommand.
void AddInputOptions(CLI::App *cmd, InputSelection *selection);

// Reads a whole file or blocks of it as interleaved 16- or 32-bit signed samples (left-justified;
// floating point scaled to full scale and clipped) or as float (full scale 1.0, not clipped),
// decoding in blocks with constant memory. Every failure, a file shorter than its header promises
// included, is a ToolError naming the file.
struct StreamQueue;

class AudioReader {
 public:
  explicit AudioReader(const std::string &path, const InputSelection &selection = {});
  // The same from `size` bytes in memory that outlive the reader; `name` stands in errors.
  AudioReader(const std::string &name, const uint8_t *bytes, size_t size, const InputSelection &selection = {});
  ~AudioReader();
  AudioReader(const AudioReader &) = delete;
  AudioReader &operator=(const AudioReader &) = delete;

  const AudioInfo &info() const { return info_; }
  const std::string &path() const { return path_; }
  // Reads up to `frames` periods; returns how many were read, 0 at the end of the file.
  size_t Read(int16_t *out, size_t frames);
  size_t Read(int32_t *out, size_t frames);
  size_t Read(float *out, size_t frames);
  // Refuses files with more channels, or a rate outside the range, that a command supports.
  void Require(uint32_t maxChannels, uint32_t minRate, uint32_t maxRate = UINT32_MAX) const;

 private:
  struct Media;
  void Open(const InputSelection &selection);
  size_t Fill(size_t frames);
  void Append302(StreamQueue &q, const uint8_t *data, size_t size);  // decodes until `frames` periods are queued or the end; returns them

  std::string path_;
  std::unique_ptr<Media> media_;
  AudioInfo info_;
  uint64_t read_ = 0;
  std::vector<uint32_t> pair_;  // one channel pair of a 302M packet
};

// The programme's frame rate and first frame: --fps and --start when given, else the file's own,
// else 25 fps from 00:00:00:00.
struct ProgrammeTime {
  std::string fps;
  uint64_t startFrame = 0;
};
ProgrammeTime ProgrammeTimeOf(const AudioInfo &info, const std::string &fpsOption, const std::string &startOption);

// "1 channel", "8 channels".
std::string ChannelsText(uint32_t channels);

// Float samples (full scale 1.0) as left-justified 32-bit integers: clipped at full scale, NaN 0.
void FloatToInt32(const float *in, size_t count, int32_t *out);

// Interleaved signed samples held in memory: 16-bit, or 32-bit left-justified for wider sources.
struct Pcm {
  uint32_t bits = 16;
  uint32_t channels = 0;
  std::vector<int16_t> s16;
  std::vector<int32_t> s32;
  uint64_t Frames() const { return (bits == 16 ? s16.size() : s32.size()) / (channels ? channels : 1); }
  // Byte address of sample period `frame`.
  const uint8_t *At(uint64_t frame) const;
  uint8_t *At(uint64_t frame);
};

// Reads the whole file, at 16 bits when the source is no wider; `progress` (may be null) is
// called with the periods read so far.
Pcm ReadPcm(AudioReader &reader, const std::function<void(uint64_t)> &progress = nullptr);

// Writes 16-bit samples widened to the chosen width. The container follows the suffix: .wav
// (RF64 beyond 4 GiB), .rf64, .aif/.aiff, .flac.
class AudioWriter {
 public:
  AudioWriter(const std::string &path, uint32_t rate, uint32_t channels, uint32_t bits);
  ~AudioWriter();
  AudioWriter(const AudioWriter &) = delete;
  AudioWriter &operator=(const AudioWriter &) = delete;

  void Write(const int16_t *samples, size_t frames);
  void Write(const int32_t *samples, size_t frames);
  // Flushes and closes; errors are reported here (the destructor only releases).
  void Close();

 private:
  void Check(sf_count_t written, size_t frames);

  std::string path_;
  SNDFILE *file_ = nullptr;
};

}  // namespace kvtool
