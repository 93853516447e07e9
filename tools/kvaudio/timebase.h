// Video frame rates, the audio samples of each video frame, and timecode text.
#pragma once

#include <cstdint>
#include <string>

namespace kvtool {

struct FrameRate {
  std::string name;        // as given: "25", "29.97", "29.97df", ...
  uint32_t numerator;      // frames per second = numerator / denominator
  uint32_t denominator;
  uint32_t nominal;        // whole frames counted per timecode second: 24, 25, 30, 50, 60
  uint32_t cadenceCode;    // rate code of the library's cadence functions
  bool dropFrame;          // SMPTE 12M drop-frame counting (29.97df, 59.94df)
  double Fps() const { return double(numerator) / denominator; }
};

// Parses "23.976", "24", "25", "29.97", "29.97df", "30", "50", "59.94", "59.94df" or "60";
// throws a ToolError naming the accepted values otherwise.
FrameRate ParseFrameRate(const std::string &text);
// The accepted frame-rate names, for --help.
const char *FrameRateNames();

// Cuts a stream of audio at `rate` Hz into video frames: the library's 48 kHz and 44.1 kHz
// cadences where they match the frame rate, exact rational rounding elsewhere.
class FrameCutter {
 public:
  FrameCutter(const FrameRate &fps, uint32_t rate);
  // Sample periods of video frame `frame`.
  uint32_t Samples(uint64_t frame) const;
  uint32_t MaxSamples() const { return max_; }
  bool UsesLibraryCadence() const { return library_; }

 private:
  FrameRate fps_;
  uint32_t rate_;
  bool library_ = false;
  uint32_t max_ = 0;
};

// "HH:MM:SS:FF" of a frame count (";" before the frames with drop-frame counting).
std::string FormatTimecode(uint64_t frames, const FrameRate &fps);
// Frame count of "HH:MM:SS:FF" (or HH:MM:SS;FF); throws a ToolError for bad text or fields.
uint64_t ParseTimecode(const std::string &text, const FrameRate &fps);
// "12.345 s" style seconds text of a sample position.
std::string FormatSeconds(double seconds);

}  // namespace kvtool
