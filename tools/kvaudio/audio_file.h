// Audio files through libsndfile: a reader that checks what it gets and a writer chosen by suffix.
#pragma once

#include <sndfile.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace kvtool {

struct AudioInfo {
  uint32_t rate = 0;
  uint32_t channels = 0;
  uint64_t frames = 0;    // sample periods
  uint32_t bits = 0;      // bits of the stored samples; 32 for floating point
  bool floating = false;  // float or double samples
  std::string format;     // e.g. "WAV PCM 24-bit"
  std::string layout;     // layout name from the file's channel map ("5.1", "7.1"), else empty
  double Seconds() const { return rate ? double(frames) / rate : 0.0; }
  bool Wide() const { return bits > 16; }  // kept as 32-bit samples, else as 16-bit
};

// Reads a whole file or blocks of it as interleaved 16- or 32-bit signed samples (left-justified;
// floating point scaled to full scale and clipped) or as float (full scale 1.0, not clipped).
// Every failure, a file shorter than its header promises included, is a ToolError naming the file.
class AudioReader {
 public:
  explicit AudioReader(const std::string &path);
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
  size_t Account(sf_count_t got, size_t asked);

  std::string path_;
  SNDFILE *file_ = nullptr;
  AudioInfo info_;
  uint64_t read_ = 0;
  std::vector<float> floats_;  // a block of a floating-point file read as integers
};

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
