// Audio file reading and writing on libsndfile.
#include "audio_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <utility>

#include "tool.h"

namespace kvtool {
namespace {

struct Subtype {
  int code;
  uint32_t bits;
  const char *name;
};
constexpr Subtype kSubtypes[] = {
    {SF_FORMAT_PCM_S8, 8, "PCM 8-bit"},   {SF_FORMAT_PCM_U8, 8, "PCM 8-bit"},
    {SF_FORMAT_PCM_16, 16, "PCM 16-bit"}, {SF_FORMAT_PCM_24, 24, "PCM 24-bit"},
    {SF_FORMAT_PCM_32, 32, "PCM 32-bit"}, {SF_FORMAT_FLOAT, 32, "float 32-bit"},
    {SF_FORMAT_DOUBLE, 32, "float 64-bit"}, {SF_FORMAT_ULAW, 16, "u-law"},
    {SF_FORMAT_ALAW, 16, "A-law"},
};

std::string MajorName(int format) {
  SF_FORMAT_INFO info{};
  info.format = format & SF_FORMAT_TYPEMASK;
  if (sf_command(nullptr, SFC_GET_FORMAT_INFO, &info, sizeof(info)) != 0 || !info.extension) return "audio";
  std::string name = info.extension;
  std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::toupper(c); });
  return name;
}

// Major format of an output path; .wav is written as RF64 that stays plain WAV below 4 GiB.
int MajorFromSuffix(const std::string &path) {
  std::string ext = std::filesystem::path(path).extension().string();
  std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
  if (ext == ".wav" || ext == ".rf64") return SF_FORMAT_RF64;
  if (ext == ".aif" || ext == ".aiff") return SF_FORMAT_AIFF;
  if (ext == ".flac") return SF_FORMAT_FLAC;
  throw FileError(path, "unsupported output type '" + ext + "' (use .wav, .rf64, .aiff or .flac)");
}

// Opens for reading while the decoders libsndfile uses cannot print to standard error: the tool
// reports a failure itself, in one line.
SNDFILE *OpenQuietly(const std::string &path, SF_INFO &info) {
  std::fflush(stderr);
  int saved = dup(STDERR_FILENO), null = open("/dev/null", O_WRONLY);
  if (saved >= 0 && null >= 0) dup2(null, STDERR_FILENO);
  SNDFILE *file = sf_open(path.c_str(), SFM_READ, &info);
  if (saved >= 0 && null >= 0) dup2(saved, STDERR_FILENO);
  if (null >= 0) close(null);
  if (saved >= 0) close(saved);
  return file;
}

// The multichannel layouts a WAV channel mask names in file order; empty for any other map.
std::string LayoutFromChannelMap(SNDFILE *file, uint32_t channels) {
  if (channels != 6 && channels != 8) return "";
  std::vector<int> map(channels);
  if (sf_command(file, SFC_GET_CHANNEL_MAP_INFO, map.data(), int(map.size() * sizeof(int))) != SF_TRUE) return "";
  static const std::vector<int> k51 = {SF_CHANNEL_MAP_LEFT, SF_CHANNEL_MAP_RIGHT, SF_CHANNEL_MAP_CENTER,
                                       SF_CHANNEL_MAP_LFE};
  if (!std::equal(k51.begin(), k51.end(), map.begin())) return "";
  if (channels == 6) return "5.1";
  return map[4] == SF_CHANNEL_MAP_REAR_LEFT && map[6] == SF_CHANNEL_MAP_SIDE_LEFT ? "7.1-ext" : "";
}

}  // namespace

AudioReader::AudioReader(const std::string &path) : path_(path) {
  std::error_code ec;
  if (!std::filesystem::exists(path, ec)) throw FileError(path, "no such file");
  if (std::filesystem::is_directory(path, ec)) throw FileError(path, "is a directory");
  SF_INFO sf{};
  file_ = OpenQuietly(path, sf);
  if (!file_) throw FileError(path, "not an audio file libsndfile can read, or an unsupported encoding");
  const Subtype *sub = nullptr;
  for (const Subtype &s : kSubtypes)
    if ((sf.format & SF_FORMAT_SUBMASK) == s.code) sub = &s;
  // Compressed formats (FLAC and others) report their decoded width through the subtype too;
  // anything else is read at 32 bits.
  info_.bits = sub ? sub->bits : 32;
  info_.floating = sub && (sub->code == SF_FORMAT_FLOAT || sub->code == SF_FORMAT_DOUBLE);
  info_.rate = uint32_t(sf.samplerate);
  info_.channels = uint32_t(sf.channels);
  info_.frames = sf.frames > 0 ? uint64_t(sf.frames) : 0;
  info_.format = MajorName(sf.format) + " " + (sub ? sub->name : "compressed");
  if (sf.channels <= 0 || sf.samplerate <= 0) {
    sf_close(file_);
    file_ = nullptr;
    throw FileError(path, "unsupported audio layout");
  }
  if (info_.frames == 0) {
    sf_close(file_);
    file_ = nullptr;
    throw FileError(path, "holds no audio samples");
  }
  info_.layout = LayoutFromChannelMap(file_, info_.channels);
  // libsndfile shortens the data of a cut-off file to what is there and notes it in its log.
  char log[4096] = {};
  sf_command(file_, SFC_GET_LOG_INFO, log, sizeof(log));
  if (std::strstr(log, "truncated") || std::strstr(log, "should be")) {
    sf_close(file_);
    file_ = nullptr;
    throw FileError(path, "truncated: the audio data ends before its header says");
  }
}

AudioReader::~AudioReader() {
  if (file_) sf_close(file_);
}

void AudioReader::Require(uint32_t maxChannels, uint32_t minRate, uint32_t maxRate) const {
  if (info_.channels > maxChannels)
    throw FileError(path_, "unsupported: " + std::to_string(info_.channels) + " channels (at most " +
                               std::to_string(maxChannels) + ")");
  if (info_.rate < minRate)
    throw FileError(path_, "unsupported: " + std::to_string(info_.rate) + " Hz (at least " +
                               std::to_string(minRate) + " Hz)");
  if (info_.rate > maxRate)
    throw FileError(path_, "unsupported: " + std::to_string(info_.rate) + " Hz (at most " +
                               std::to_string(maxRate) + " Hz)");
}

size_t AudioReader::Account(sf_count_t got, size_t asked) {
  if (got < 0 || sf_error(file_) != SF_ERR_NO_ERROR)
    throw FileError(path_, std::string("read error: ") + sf_strerror(file_));
  read_ += uint64_t(got);
  if (size_t(got) < asked && read_ < info_.frames)
    throw FileError(path_, "truncated: " + std::to_string(read_) + " of " +
                               std::to_string(info_.frames) + " sample periods present");
  return size_t(got);
}

size_t AudioReader::Read(int16_t *out, size_t frames) {
  return Account(sf_readf_short(file_, out, sf_count_t(frames)), frames);
}

size_t AudioReader::Read(int32_t *out, size_t frames) {
  if (!info_.floating) return Account(sf_readf_int(file_, out, sf_count_t(frames)), frames);
  // libsndfile's own float to integer conversion reads unnormalised files as silence.
  floats_.resize(frames * info_.channels);
  const size_t got = Read(floats_.data(), frames);
  FloatToInt32(floats_.data(), got * info_.channels, out);
  return got;
}

size_t AudioReader::Read(float *out, size_t frames) {
  return Account(sf_readf_float(file_, out, sf_count_t(frames)), frames);
}

void FloatToInt32(const float *in, size_t count, int32_t *out) {
  for (size_t i = 0; i < count; ++i) {
    const double v = double(in[i]) * 2147483648.0;
    out[i] = std::isnan(v) ? 0 : v >= 2147483647.0 ? INT32_MAX : v <= -2147483648.0 ? INT32_MIN : int32_t(v);
  }
}

const uint8_t *Pcm::At(uint64_t frame) const {
  size_t index = size_t(frame) * channels;
  return bits == 16 ? reinterpret_cast<const uint8_t *>(s16.data() + index)
                    : reinterpret_cast<const uint8_t *>(s32.data() + index);
}

uint8_t *Pcm::At(uint64_t frame) { return const_cast<uint8_t *>(std::as_const(*this).At(frame)); }

Pcm ReadPcm(AudioReader &reader, const std::function<void(uint64_t)> &progress) {
  const AudioInfo &info = reader.info();
  Pcm pcm;
  pcm.bits = info.Wide() ? 32 : 16;
  pcm.channels = info.channels;
  const size_t samples = size_t(info.frames) * info.channels;
  if (pcm.bits == 16)
    pcm.s16.resize(samples);
  else
    pcm.s32.resize(samples);
  constexpr size_t kBlock = 1 << 16;
  uint64_t done = 0;
  while (done < info.frames) {
    size_t want = size_t(std::min<uint64_t>(kBlock, info.frames - done));
    size_t got = pcm.bits == 16 ? reader.Read(pcm.s16.data() + done * info.channels, want)
                                : reader.Read(pcm.s32.data() + done * info.channels, want);
    if (got == 0) break;
    done += got;
    if (progress) progress(done);
  }
  return pcm;
}

AudioWriter::AudioWriter(const std::string &path, uint32_t rate, uint32_t channels, uint32_t bits)
    : path_(path) {
  SF_INFO sf{};
  sf.samplerate = int(rate);
  sf.channels = int(channels);
  int subtype = bits <= 16 ? SF_FORMAT_PCM_16 : bits <= 24 ? SF_FORMAT_PCM_24 : SF_FORMAT_PCM_32;
  sf.format = MajorFromSuffix(path) | subtype;
  if (!sf_format_check(&sf))
    throw FileError(path, "unsupported output format (" + std::to_string(bits) + "-bit, " +
                              std::to_string(channels) + " channels)");
  file_ = sf_open(path.c_str(), SFM_WRITE, &sf);
  if (!file_) throw FileError(path, std::string("cannot write: ") + sf_strerror(nullptr));
  // A .wav file stays plain WAV unless it outgrows 4 GiB.
  if (std::filesystem::path(path).extension() != ".rf64")
    sf_command(file_, SFC_RF64_AUTO_DOWNGRADE, nullptr, SF_TRUE);
}

AudioWriter::~AudioWriter() {
  if (file_) sf_close(file_);
}

void AudioWriter::Check(sf_count_t written, size_t frames) {
  if (written != sf_count_t(frames)) throw FileError(path_, std::string("write error: ") + sf_strerror(file_));
}

void AudioWriter::Write(const int16_t *samples, size_t frames) {
  Check(sf_writef_short(file_, samples, sf_count_t(frames)), frames);
}

void AudioWriter::Write(const int32_t *samples, size_t frames) {
  Check(sf_writef_int(file_, samples, sf_count_t(frames)), frames);
}

void AudioWriter::Close() {
  if (!file_) return;
  sf_write_sync(file_);
  int err = sf_close(file_);
  file_ = nullptr;
  if (err) throw FileError(path_, std::string("cannot finish the file: ") + sf_error_number(err));
}

}  // namespace kvtool
