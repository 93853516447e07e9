// Media reading through libavformat and libavcodec; audio file writing through libsndfile.
#include "audio_file.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
}

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <type_traits>
#include <utility>

#include "kvaudio/aes3.h"
#include "timebase.h"
#include "tool.h"

namespace kvtool {
namespace {

// Major format of an output path; .wav is written as RF64 that stays plain WAV below 4 GiB.
int MajorFromSuffix(const std::string &path) {
  std::string ext = std::filesystem::path(path).extension().string();
  std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
  if (ext == ".wav" || ext == ".rf64") return SF_FORMAT_RF64;
  if (ext == ".aif" || ext == ".aiff") return SF_FORMAT_AIFF;
  if (ext == ".flac") return SF_FORMAT_FLAC;
  throw FileError(path, "unsupported output type '" + ext + "' (use .wav, .rf64, .aiff or .flac)");
}

bool IsPcm(AVCodecID id) { return id >= AV_CODEC_ID_FIRST_AUDIO && id < AV_CODEC_ID_ADPCM_IMA_QT; }

bool IsFloat(AVSampleFormat f) {
  f = av_get_packed_sample_fmt(f);
  return f == AV_SAMPLE_FMT_FLT || f == AV_SAMPLE_FMT_DBL;
}

std::string Upper(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::toupper(c); });
  return text;
}

// Frame-rate name of a video rate, with "df" when the timecode counts drop-frame.
std::string RateName(AVRational r, bool drop) {
  struct Known { int num, den; const char *name, *dropName; };
  constexpr Known kKnown[] = {{24000, 1001, "23.976", "23.976"}, {24, 1, "24", "24"}, {25, 1, "25", "25"},
                              {30000, 1001, "29.97", "29.97df"}, {30, 1, "30", "30"}, {50, 1, "50", "50"},
                              {60000, 1001, "59.94", "59.94df"}, {60, 1, "60", "60"}};
  for (const Known &k : kKnown)
    if (r.den > 0 && int64_t(r.num) * k.den == int64_t(k.num) * r.den) return drop ? k.dropName : k.name;
  return "";
}

// The QC layout a speaker mask names in the file's channel order (front left, right, centre, LFE
// first); empty for any other mask.
std::string LayoutFromMask(uint64_t mask) {
  if (mask == AV_CH_LAYOUT_5POINT1 || mask == AV_CH_LAYOUT_5POINT1_BACK) return "5.1";
  // Native order puts the back pair before the side pair: L R C LFE Lrs Rrs Ls Rs.
  if (mask == AV_CH_LAYOUT_7POINT1) return "7.1-ext";
  return "";
}

}  // namespace

// One selected audio stream: its decoder (or none) and the decoded periods not yet read.
struct StreamQueue {
  int index = 0;
  AVCodecContext *codec = nullptr;
  uint32_t channels = 0;
  std::vector<int32_t> ints;  // interleaved, left-justified
  std::vector<float> floats;  // interleaved, full scale 1.0
  size_t head = 0;            // periods already handed out
  bool s302m = false;         // raw SMPTE 302M packets read by the library's own readers
  size_t Queued(bool floating) const { return (floating ? floats.size() : ints.size()) / channels - head; }
};

struct AudioReader::Media {
  AVFormatContext *format = nullptr;
  AVPacket *packet = nullptr;
  AVFrame *frame = nullptr;
  std::vector<StreamQueue> streams;
  std::vector<std::pair<uint32_t, uint32_t>> map;  // output channel -> (stream, channel)
  std::vector<int> streamOf;                       // file stream index -> queue, or -1
  bool floating = false, ended = false;
  // Bytes held in memory instead of a file, read through a custom I/O context.
  const uint8_t *bytes = nullptr;
  size_t size = 0, at = 0;
  AVIOContext *io = nullptr;
  ~Media() {
    for (StreamQueue &q : streams) avcodec_free_context(&q.codec);
    av_frame_free(&frame);
    av_packet_free(&packet);
    avformat_close_input(&format);
    if (io) av_freep(&io->buffer);
    avio_context_free(&io);
  }
  static int ReadBytes(void *opaque, uint8_t *out, int want) {
    Media &m = *static_cast<Media *>(opaque);
    const size_t n = std::min(size_t(want), m.size - m.at);
    if (n == 0) return AVERROR_EOF;
    std::memcpy(out, m.bytes + m.at, n);
    m.at += n;
    return int(n);
  }
  static int64_t SeekBytes(void *opaque, int64_t offset, int whence) {
    Media &m = *static_cast<Media *>(opaque);
    if (whence & AVSEEK_SIZE) return int64_t(m.size);
    const int64_t base = (whence & 3) == SEEK_CUR ? int64_t(m.at) : (whence & 3) == SEEK_END ? int64_t(m.size) : 0;
    if (base + offset < 0 || base + offset > int64_t(m.size)) return -1;
    m.at = size_t(base + offset);
    return int64_t(m.at);
  }
};

void AddInputOptions(CLI::App *cmd, InputSelection *selection) {
  cmd->add_option("--stream", selection->streams, "audio streams to take, by number from 1 (default all, in order)")
      ->delimiter(',')->check(CLI::PositiveNumber);
  cmd->add_option("--channels", selection->channels, "channels of those streams to take, by number from 1 "
                  "(default all)")->delimiter(',')->check(CLI::PositiveNumber);
}

AudioReader::AudioReader(const std::string &path, const InputSelection &selection)
    : path_(path), media_(std::make_unique<Media>()) {
  std::error_code ec;
  if (!std::filesystem::exists(path, ec)) throw FileError(path, "no such file");
  if (std::filesystem::is_directory(path, ec)) throw FileError(path, "is a directory");
  Open(selection);
}

AudioReader::AudioReader(const std::string &name, const uint8_t *bytes, size_t size, const InputSelection &selection)
    : path_(name), media_(std::make_unique<Media>()) {
  Media &m = *media_;
  m.bytes = bytes;
  m.size = size;
  auto *buffer = static_cast<uint8_t *>(av_malloc(4096));
  m.io = buffer ? avio_alloc_context(buffer, 4096, 0, &m, Media::ReadBytes, nullptr, Media::SeekBytes) : nullptr;
  if (!m.io) {
    av_free(buffer);
    throw std::bad_alloc();
  }
  m.format = avformat_alloc_context();
  if (!m.format) throw std::bad_alloc();
  m.format->pb = m.io;
  m.format->flags |= AVFMT_FLAG_CUSTOM_IO;
  Open(selection);
}

void AudioReader::Open(const InputSelection &selection) {
  const std::string &path = path_;
  av_log_set_level(AV_LOG_QUIET);
  Media &m = *media_;
  // A failed open frees the context. Playlists and references inside a file may open local files
  // only, and nothing at all when the bytes are in memory: never the network.
  AVDictionary *options = nullptr;
  av_dict_set(&options, "protocol_whitelist", m.io ? "none" : "file", 0);
  const int opened = avformat_open_input(&m.format, m.io ? nullptr : path.c_str(), nullptr, &options);
  av_dict_free(&options);
  if (opened < 0) throw FileError(path, "not a media file (no container or audio format recognised)");
  if (avformat_find_stream_info(m.format, nullptr) < 0) throw FileError(path, "corrupt: the streams cannot be read");
  m.packet = av_packet_alloc();
  m.frame = av_frame_alloc();
  if (!m.packet || !m.frame) throw std::bad_alloc();

  std::vector<int> audio;
  for (unsigned i = 0; i < m.format->nb_streams; ++i)
    if (m.format->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO) audio.push_back(int(i));
  if (audio.empty()) throw FileError(path, "no audio stream");
  std::vector<int> chosen;
  for (uint32_t n : selection.streams) {
    if (n > audio.size())
      throw FileError(path, "has no audio stream " + std::to_string(n) + " (" + std::to_string(audio.size()) +
                                " audio streams)");
    chosen.push_back(audio[n - 1]);
  }
  if (chosen.empty()) chosen = audio;

  m.streamOf.assign(m.format->nb_streams, -1);
  std::string codecs, layouts;
  uint32_t rate = 0, bits = 0;
  int64_t frames = -1;
  bool allPcm = true, allDeclared = true;
  std::vector<std::pair<uint32_t, uint32_t>> all;
  for (int index : chosen) {
    AVStream *st = m.format->streams[index];
    const AVCodecParameters *par = st->codecpar;
    const AVCodec *decoder = avcodec_find_decoder(par->codec_id);
    if (!decoder && par->codec_id != AV_CODEC_ID_S302M) throw FileError(path, std::string("unsupported codec '") + avcodec_get_name(par->codec_id) + "'");
    StreamQueue q;
    q.index = index;
    q.codec = avcodec_alloc_context3(decoder);
    if (!q.codec) throw std::bad_alloc();
    m.streams.push_back(q);
    if (avcodec_parameters_to_context(q.codec, par) < 0)
      throw FileError(path, std::string("corrupt parameters of codec '") + avcodec_get_name(par->codec_id) + "'");
    // SMPTE 302M packets go to the library's readers undecoded; the context only carries the
    // parameters the demuxer found.
    q.s302m = par->codec_id == AV_CODEC_ID_S302M;
    if (q.s302m) {
      q.codec->sample_fmt = AV_SAMPLE_FMT_S32;
      if (q.codec->sample_rate == 0) q.codec->sample_rate = 48000;
    } else if (avcodec_open2(q.codec, decoder, nullptr) < 0) {
      throw FileError(path, std::string("unsupported codec '") + avcodec_get_name(par->codec_id) + "' or corrupt parameters");
    }
    q.channels = uint32_t(q.codec->ch_layout.nb_channels);
    const uint32_t r = uint32_t(q.codec->sample_rate);
    if (q.channels == 0 || r == 0) throw FileError(path, "unsupported audio layout");
    if (rate && r != rate) throw FileError(path, "audio streams at different sample rates (use --stream)");
    rate = r;
    m.streams.back() = q;
    m.streamOf[size_t(index)] = int(m.streams.size() - 1);
    for (uint32_t c = 0; c < q.channels; ++c) all.emplace_back(uint32_t(m.streams.size() - 1), c);
    m.floating = m.floating || IsFloat(q.codec->sample_fmt);
    // Stored width: the raw width a lossless codec reports, the coded width of PCM, else the
    // width of the decoded samples.
    uint32_t b = uint32_t(par->bits_per_raw_sample);
    if (b == 0 && IsPcm(par->codec_id)) b = uint32_t(par->bits_per_coded_sample);
    if (b == 0 || b > 32) b = uint32_t(8 * av_get_bytes_per_sample(q.codec->sample_fmt));
    bits = std::max(bits, b);
    allPcm = allPcm && IsPcm(par->codec_id);
    if (st->duration != AV_NOPTS_VALUE && st->duration > 0) {
      frames = std::max<int64_t>(frames, av_rescale_q(st->duration, st->time_base, AVRational{1, int(rate)}));
    } else {
      allDeclared = false;
    }
    if (!codecs.empty()) codecs += ", ";
    codecs += avcodec_get_name(par->codec_id);
    char layout[128] = {};
    av_channel_layout_describe(&q.codec->ch_layout, layout, sizeof(layout));
    if (!layouts.empty()) layouts += "+";
    layouts += layout;
    if (chosen.size() == 1 && q.codec->ch_layout.order == AV_CHANNEL_ORDER_NATIVE)
      info_.channelMask = q.codec->ch_layout.u.mask;
  }
  for (uint32_t n : selection.channels) {
    if (n > all.size())
      throw FileError(path, "has no channel " + std::to_string(n) + " (" + std::to_string(all.size()) + " channels)");
    m.map.push_back(all[n - 1]);
  }
  if (m.map.empty()) m.map = all;
  if (frames < 0 && m.format->duration > 0)
    frames = av_rescale_q(m.format->duration, AV_TIME_BASE_Q, AVRational{1, int(rate)});

  info_.rate = rate;
  info_.channels = uint32_t(m.map.size());
  info_.frames = frames > 0 ? uint64_t(frames) : 0;
  info_.floating = m.floating;
  info_.bits = m.floating ? 32 : bits;
  info_.channelLayout = layouts;
  if (selection.channels.empty()) info_.layout = LayoutFromMask(info_.channelMask);
  info_.exactLength = allPcm && allDeclared && m.format->duration_estimation_method != AVFMT_DURATION_FROM_BITRATE;
  const std::string container = Upper(std::string(m.format->iformat->name).substr(0, std::string(m.format->iformat->name).find(',')));
  // "MXF PCM 24-bit", "MP4 aac", "FLAC 24-bit": the codec is named unless the container says it.
  const bool named = Upper(codecs) == container;
  info_.format = container + " " +
                 (allPcm ? (m.floating ? "PCM float" : "PCM " + std::to_string(bits) + "-bit")
                         : named ? (m.floating ? std::string("decoded to float") : std::to_string(bits) + "-bit") : codecs);
  if (chosen.size() > 1) info_.format += " (" + std::to_string(chosen.size()) + " streams)";
  for (size_t i = 0; i < chosen.size(); ++i)
    info_.taken += (i ? "," : "") + std::to_string(std::find(audio.begin(), audio.end(), chosen[i]) - audio.begin() + 1);
  info_.taken = "audio stream" + std::string(chosen.size() > 1 ? "s " : " ") + info_.taken;
  if (!selection.channels.empty()) {
    info_.taken += ", channels";
    for (size_t i = 0; i < selection.channels.size(); ++i)
      info_.taken += (i ? "," : " ") + std::to_string(selection.channels[i]);
  }

  // Timecode: the container's (MXF material package), a stream's (QuickTime tmcd), or the BWF time
  // reference; the frame rate of the first video stream.
  const AVDictionaryEntry *tc = av_dict_get(m.format->metadata, "timecode", nullptr, 0);
  AVRational videoRate{0, 1}, tcRate{0, 1};
  for (unsigned i = 0; i < m.format->nb_streams; ++i) {
    AVStream *st = m.format->streams[i];
    const AVDictionaryEntry *own = av_dict_get(st->metadata, "timecode", nullptr, 0);
    if (own && !tc) tc = own;
    if (own && !tcRate.num) tcRate = st->avg_frame_rate;
    if (st->codecpar->codec_type == AVMEDIA_TYPE_VIDEO && !videoRate.num &&
        !(st->disposition & AV_DISPOSITION_ATTACHED_PIC))
      videoRate = st->avg_frame_rate.num ? st->avg_frame_rate : st->r_frame_rate;
  }
  if (tc) info_.timecode = tc->value;
  const bool drop = info_.timecode.find(';') != std::string::npos;
  info_.frameRate = RateName(videoRate.num ? videoRate : tcRate, drop);
  if (const AVDictionaryEntry *ref = av_dict_get(m.format->metadata, "time_reference", nullptr, 0)) {
    info_.timeReference = std::strtoull(ref->value, nullptr, 10);
    info_.hasTimeReference = true;
  }
}

AudioReader::~AudioReader() = default;

void AudioReader::Require(uint32_t maxChannels, uint32_t minRate, uint32_t maxRate) const {
  if (info_.channels > maxChannels)
    throw FileError(path_, "unsupported: " + ChannelsText(info_.channels) + " (at most " +
                               std::to_string(maxChannels) + ")");
  if (info_.rate < minRate)
    throw FileError(path_, "unsupported: " + std::to_string(info_.rate) + " Hz (at least " +
                               std::to_string(minRate) + " Hz)");
  if (info_.rate > maxRate)
    throw FileError(path_, "unsupported: " + std::to_string(info_.rate) + " Hz (at most " +
                               std::to_string(maxRate) + " Hz)");
}

// One SMPTE 302M packet into the queue as left-justified samples, pair by pair through the
// library's readers: 16 and 20 bits as documented, 24 bits by the exact reader.
void AudioReader::Append302(StreamQueue &q, const uint8_t *data, size_t size) {
  if (size < 4) throw FileError(path_, "corrupt: a SMPTE 302M packet without its header");
  const uint32_t header = uint32_t(data[0]) << 24 | uint32_t(data[1]) << 16 | uint32_t(data[2]) << 8 | data[3];
  const uint32_t payload = header >> 16, channels = 2 + 2 * (header >> 14 & 3), bits = 16 + 4 * (header >> 4 & 3);
  const size_t groupBytes = bits == 16 ? 5 : bits == 20 ? 6 : 7, frameBytes = channels / 2 * groupBytes;
  if (bits > 24 || channels != q.channels || payload + 4 > size || payload % frameBytes)
    throw FileError(path_, "corrupt: a SMPTE 302M packet does not match its stream");
  const uint32_t frames = uint32_t(payload / frameBytes);
  if (q.head) q.ints.erase(q.ints.begin(), q.ints.begin() + ptrdiff_t(q.head * channels));
  q.head = 0;
  const size_t base = q.ints.size();
  q.ints.resize(base + size_t(frames) * channels);
  pair_.resize(size_t(frames) * 2);
  for (uint32_t p = 0; p < channels / 2; ++p) {
    if (bits == 16) {
      auto *s16 = reinterpret_cast<int16_t *>(pair_.data());
      KVAudioDeinterleaveAES_302_16bit_toStereo32(s16, data, channels, 2 * p, frames);
      for (size_t i = 0; i < size_t(frames) * 2; ++i)
        q.ints[base + (i / 2) * channels + 2 * p + i % 2] = int32_t(uint32_t(uint16_t(s16[i])) << 16);
      continue;
    }
    if (bits == 20)
      KVAudioDeinterleaveAES_302_20bit_toStereo32(pair_.data(), data, channels, 2 * p, frames);
    else
      KVAudioDeinterleaveAES_302_24bitExact_toStereo32(pair_.data(), data, channels, 2 * p, frames);
    for (size_t i = 0; i < size_t(frames) * 2; ++i) q.ints[base + (i / 2) * channels + 2 * p + i % 2] = int32_t(pair_[i]);
  }
}

size_t AudioReader::Fill(size_t frames) {
  Media &m = *media_;
  auto fewest = [&] {
    size_t n = SIZE_MAX;
    for (const StreamQueue &q : m.streams) n = std::min(n, q.Queued(m.floating));
    return n;
  };
  auto drain = [&](StreamQueue &q) {
    int err;
    while ((err = avcodec_receive_frame(q.codec, m.frame)) >= 0) {
      const AVFrame *f = m.frame;
      const size_t n = size_t(f->nb_samples), ch = q.channels;
      const AVSampleFormat fmt = AVSampleFormat(f->format);
      const bool planar = av_sample_fmt_is_planar(fmt);
      const AVSampleFormat packed = av_get_packed_sample_fmt(fmt);
      if (uint32_t(f->ch_layout.nb_channels) != q.channels) throw FileError(path_, "corrupt: the channel count changes");
      // Queued periods already handed out are dropped before the queue grows.
      auto compact = [&](auto &v) {
        if (q.head) v.erase(v.begin(), v.begin() + ptrdiff_t(q.head * ch));
      };
      if (m.floating) compact(q.floats); else compact(q.ints);
      q.head = 0;
      const size_t base = m.floating ? q.floats.size() : q.ints.size();
      if (m.floating) q.floats.resize(base + n * ch); else q.ints.resize(base + n * ch);
      for (size_t c = 0; c < ch; ++c) {
        const uint8_t *src = planar ? f->extended_data[c] : f->extended_data[0];
        const size_t step = planar ? 1 : ch, first = planar ? 0 : c;
        for (size_t i = 0; i < n; ++i) {
          const size_t k = first + i * step;
          double v = 0;
          int32_t s = 0;
          switch (packed) {
            case AV_SAMPLE_FMT_U8: s = int32_t(uint32_t(src[k] ^ 0x80) << 24); v = s / 2147483648.0; break;
            case AV_SAMPLE_FMT_S16: s = int32_t(uint32_t(reinterpret_cast<const int16_t *>(src)[k]) << 16); v = s / 2147483648.0; break;
            case AV_SAMPLE_FMT_S32: s = reinterpret_cast<const int32_t *>(src)[k]; v = s / 2147483648.0; break;
            case AV_SAMPLE_FMT_S64: s = int32_t(reinterpret_cast<const int64_t *>(src)[k] >> 32); v = s / 2147483648.0; break;
            case AV_SAMPLE_FMT_FLT: v = reinterpret_cast<const float *>(src)[k]; break;
            case AV_SAMPLE_FMT_DBL: v = reinterpret_cast<const double *>(src)[k]; break;
            default: throw FileError(path_, "unsupported sample format");
          }
          if (m.floating)
            q.floats[base + i * ch + c] = float(v);
          else
            q.ints[base + i * ch + c] = s;
        }
      }
    }
    if (err != AVERROR(EAGAIN) && err != AVERROR_EOF) throw FileError(path_, "corrupt: the audio cannot be decoded");
  };
  while (!m.ended && fewest() < frames) {
    const int err = av_read_frame(m.format, m.packet);
    if (err == AVERROR_EOF) {
      m.ended = true;
      for (StreamQueue &q : m.streams) {
        if (q.s302m) continue;
        avcodec_send_packet(q.codec, nullptr);
        drain(q);
      }
      break;
    }
    if (err < 0) throw FileError(path_, "corrupt or unreadable: the container cannot be read further");
    const int which = m.packet->stream_index < int(m.streamOf.size()) ? m.streamOf[size_t(m.packet->stream_index)] : -1;
    if (which >= 0) {
      StreamQueue &q = m.streams[size_t(which)];
      if (q.s302m) {
        Append302(q, m.packet->data, size_t(m.packet->size));
      } else if (avcodec_send_packet(q.codec, m.packet) < 0) {
        av_packet_unref(m.packet);
        throw FileError(path_, "corrupt: the audio cannot be decoded");
      }
      if (!q.s302m) drain(q);
    }
    av_packet_unref(m.packet);
  }
  if (!m.ended) return std::min(frames, fewest());
  // At the end every stream is padded with silence to the longest.
  size_t longest = 0;
  for (const StreamQueue &q : m.streams) longest = std::max(longest, q.Queued(m.floating));
  for (StreamQueue &q : m.streams) {
    const size_t total = (longest + q.head) * q.channels;
    if (m.floating) q.floats.resize(total); else q.ints.resize(total);
  }
  const size_t got = std::min(frames, longest);
  if (got == 0) {
    if (read_ == 0) throw FileError(path_, "holds no audio samples");
    if (info_.exactLength && read_ < info_.frames)
      throw FileError(path_, "truncated: " + std::to_string(read_) + " of " + std::to_string(info_.frames) +
                                 " sample periods present");
  }
  return got;
}

template <typename T, typename Convert>
static size_t Take(std::vector<StreamQueue> &streams, const std::vector<std::pair<uint32_t, uint32_t>> &map,
                   bool floating, T *out, size_t n, Convert convert) {
  const size_t ch = map.size();
  for (size_t o = 0; o < ch; ++o) {
    const StreamQueue &q = streams[map[o].first];
    const size_t stride = q.channels, first = q.head * stride + map[o].second;
    if (floating)
      for (size_t i = 0; i < n; ++i) out[i * ch + o] = convert(q.floats[first + i * stride]);
    else
      for (size_t i = 0; i < n; ++i) out[i * ch + o] = convert(q.ints[first + i * stride]);
  }
  for (StreamQueue &q : streams) q.head += n;
  return n;
}

size_t AudioReader::Read(int16_t *out, size_t frames) {
  const size_t n = Fill(frames);
  read_ += n;
  return Take(media_->streams, media_->map, media_->floating, out, n, [](auto v) {
    if constexpr (std::is_same_v<decltype(v), float>) {
      int32_t s;
      FloatToInt32(&v, 1, &s);
      return int16_t(s >> 16);
    } else {
      return int16_t(v >> 16);
    }
  });
}

size_t AudioReader::Read(int32_t *out, size_t frames) {
  const size_t n = Fill(frames);
  read_ += n;
  return Take(media_->streams, media_->map, media_->floating, out, n, [](auto v) {
    if constexpr (std::is_same_v<decltype(v), float>) {
      int32_t s;
      FloatToInt32(&v, 1, &s);
      return s;
    } else {
      return v;
    }
  });
}

size_t AudioReader::Read(float *out, size_t frames) {
  const size_t n = Fill(frames);
  read_ += n;
  return Take(media_->streams, media_->map, media_->floating, out, n, [](auto v) {
    if constexpr (std::is_same_v<decltype(v), float>)
      return v;
    else
      return float(double(v) / 2147483648.0);
  });
}

std::string ChannelsText(uint32_t channels) {
  return std::to_string(channels) + (channels == 1 ? " channel" : " channels");
}

ProgrammeTime ProgrammeTimeOf(const AudioInfo &info, const std::string &fpsOption, const std::string &startOption) {
  ProgrammeTime t;
  t.fps = !fpsOption.empty() ? fpsOption : !info.frameRate.empty() ? info.frameRate : "25";
  const FrameRate fps = ParseFrameRate(t.fps);
  if (!startOption.empty()) {
    t.startFrame = ParseTimecode(startOption, fps);
  } else if (!info.timecode.empty()) {
    try {
      t.startFrame = ParseTimecode(info.timecode, fps);
    } catch (const ToolError &) {
      t.startFrame = 0;  // a timecode that does not exist at the chosen rate counts from zero
    }
  } else if (info.hasTimeReference && info.rate) {
    t.startFrame = info.timeReference * fps.numerator / (uint64_t(fps.denominator) * info.rate);
  }
  return t;
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
  // The declared length is reserved; an estimated one (compressed audio) may be exceeded.
  const size_t samples = size_t(info.frames) * info.channels;
  constexpr size_t kBlock = 1 << 16;
  uint64_t done = 0;
  for (;;) {
    const size_t at = size_t(done) * info.channels, need = at + kBlock * info.channels;
    if (pcm.bits == 16) {
      if (pcm.s16.capacity() < need) pcm.s16.reserve(std::max(need, std::max(samples, 2 * pcm.s16.capacity())));
      pcm.s16.resize(need);
    } else {
      if (pcm.s32.capacity() < need) pcm.s32.reserve(std::max(need, std::max(samples, 2 * pcm.s32.capacity())));
      pcm.s32.resize(need);
    }
    size_t got = pcm.bits == 16 ? reader.Read(pcm.s16.data() + at, kBlock) : reader.Read(pcm.s32.data() + at, kBlock);
    done += got;
    if (pcm.bits == 16) pcm.s16.resize(size_t(done) * info.channels); else pcm.s32.resize(size_t(done) * info.channels);
    if (got == 0) break;
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
                              ChannelsText(channels) + ")");
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
