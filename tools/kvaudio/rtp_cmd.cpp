// kvaudio rtp send|receive: L16/L24 RTP streams described by SDP, over UDP, paced in real time.
#include <CLI/CLI.hpp>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <thread>
#include <tuple>

#include "audio_file.h"
#include "kvaudio/aoip.h"
#include "kvaudio/loudness.h"
#include "tool.h"

namespace kvtool {
namespace {

using Clock = std::chrono::steady_clock;
constexpr uint32_t kMaxPayload = 1440;  // keeps a packet inside a 1500-byte Ethernet frame

// What an SDP file says about one L16/L24 stream.
struct Stream {
  std::string address = "127.0.0.1";
  uint16_t port = 0;
  uint32_t payloadType = 96, encoding = KVAUDIO_AOIP_L24, rate = 48000, channels = 2;
  uint32_t ptimeUs = 0;  // 0: not given
};

// A UDP socket closed on scope exit.
class Socket {
 public:
  Socket() : fd_(socket(AF_INET, SOCK_DGRAM, 0)) {
    if (fd_ < 0) throw ToolError(std::string("cannot open a UDP socket: ") + std::strerror(errno));
  }
  ~Socket() { close(fd_); }
  Socket(const Socket &) = delete;
  Socket &operator=(const Socket &) = delete;
  int fd() const { return fd_; }

 private:
  int fd_;
};

sockaddr_in Endpoint(const std::string &address, uint16_t port) {
  sockaddr_in sa{};
  sa.sin_family = AF_INET;
  sa.sin_port = htons(port);
  if (inet_pton(AF_INET, address.c_str(), &sa.sin_addr) != 1)
    throw ToolError("'" + address + "' is not an IPv4 address");
  return sa;
}

// "ADDR:PORT".
std::pair<std::string, uint16_t> ParseDest(const std::string &text) {
  const size_t colon = text.rfind(':');
  char *end = nullptr;
  const unsigned long port = colon == std::string::npos ? 0 : std::strtoul(text.c_str() + colon + 1, &end, 10);
  if (colon == std::string::npos || !end || *end || port == 0 || port > 65535)
    throw ToolError("--dest takes ADDR:PORT, not '" + text + "'");
  return {text.substr(0, colon), static_cast<uint16_t>(port)};
}

// Packet time as "1ms", "125us", or milliseconds ("0.125"); returns microseconds.
uint32_t ParsePtime(const std::string &text) {
  char *end = nullptr;
  const double v = std::strtod(text.c_str(), &end);
  const std::string unit = end ? end : "";
  const double us = unit == "us" ? v : (unit == "ms" || unit.empty()) ? v * 1000 : -1;
  if (end == text.c_str() || !(us >= 1 && us <= 1e6)) throw ToolError("bad packet time '" + text + "' (1ms, 125us, 0.333)");
  return static_cast<uint32_t>(std::lround(us));
}

uint32_t FramesPerPacket(uint32_t rate, uint32_t ptimeUs) {
  uint32_t frames = 0;
  if (KVAudioAoipFramesPerPacket(rate, ptimeUs, &frames) != KVAUDIO_AOIP_OK)
    throw ToolError("a packet time of " + std::to_string(ptimeUs) + " us is not a whole number of periods at " +
                    std::to_string(rate) + " Hz");
  return frames;
}

std::string FormatPtime(uint32_t us) {
  char buf[32];
  std::snprintf(buf, sizeof(buf), "%g", us / 1000.0);
  return buf;
}

bool Multicast(const std::string &address) {
  const sockaddr_in sa = Endpoint(address, 1);
  return (ntohl(sa.sin_addr.s_addr) >> 28) == 0xE;
}

std::string WriteSdp(const Stream &s, uint32_t ssrc) {
  std::ostringstream o;
  o << "v=0\r\no=- " << ssrc << " 0 IN IP4 127.0.0.1\r\ns=kvaudio\r\nc=IN IP4 " << s.address
    << (Multicast(s.address) ? "/32" : "") << "\r\nt=0 0\r\nm=audio " << s.port << " RTP/AVP " << s.payloadType
    << "\r\na=rtpmap:" << s.payloadType << " L" << s.encoding << "/" << s.rate << "/" << s.channels << "\r\n";
  if (s.ptimeUs) o << "a=ptime:" << FormatPtime(s.ptimeUs) << "\r\n";
  return o.str();
}

Stream ReadSdp(const std::string &path) {
  std::ifstream in(path);
  if (!in) throw FileError(path, "cannot open");
  Stream s;
  bool media = false, map = false;
  for (std::string line; std::getline(in, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    unsigned a = 0, b = 0, c = 0;
    char text[64] = {};
    if (std::sscanf(line.c_str(), "c=IN IP4 %63[0-9.]", text) == 1) s.address = text;
    if (std::sscanf(line.c_str(), "m=audio %u RTP/AVP %u", &a, &b) == 2) {
      if (a == 0 || a > 65535 || b > 127) throw FileError(path, "bad m= line");
      s.port = static_cast<uint16_t>(a), s.payloadType = b, media = true;
      if (b == 10 || b == 11) s.encoding = 16, s.rate = 44100, s.channels = b == 10 ? 2 : 1, map = true;
    }
    unsigned channels = 1;
    const int n = std::sscanf(line.c_str(), "a=rtpmap:%u L%u/%u/%u", &a, &b, &c, &channels);
    if (n >= 3 && a == s.payloadType) {
      if (b != 16 && b != 24) throw FileError(path, "only L16 and L24 streams are supported");
      s.encoding = b, s.rate = c, s.channels = channels, map = true;
    }
    double ms = 0;
    if (std::sscanf(line.c_str(), "a=ptime:%lf", &ms) == 1 && ms > 0 && ms < 1000)
      s.ptimeUs = static_cast<uint32_t>(std::lround(ms * 1000));
  }
  if (!media || !map) throw FileError(path, "no L16/L24 audio stream (m=audio and a=rtpmap lines)");
  if (s.channels < 1 || s.channels > KVAUDIO_AOIP_MAX_CHANNELS || s.rate < 8000 || s.rate > 384000)
    throw FileError(path, "unsupported rate or channel count");
  return s;
}

// ---- send --------------------------------------------------------------------------------------

struct SendOptions {
  std::string in, dest, ptime = "1ms", sdp, encoding;
  uint32_t payloadType = 96;
  double wait = 0;
};

int RunSend(const SendOptions &opt) {
  AudioReader reader(opt.in);
  reader.Require(KVAUDIO_AOIP_MAX_CHANNELS, 8000);
  const AudioInfo &info = reader.info();
  Stream s;
  std::tie(s.address, s.port) = ParseDest(opt.dest);
  s.rate = info.rate, s.channels = info.channels, s.payloadType = opt.payloadType;
  s.encoding = opt.encoding.empty() ? (info.Wide() ? 24 : 16) : opt.encoding == "L16" ? 16 : 24;
  s.ptimeUs = ParsePtime(opt.ptime);
  const uint32_t frames = FramesPerPacket(s.rate, s.ptimeUs), frameBytes = s.channels * s.encoding / 8;
  if (size_t{frames} * frameBytes > kMaxPayload)
    throw ToolError("packets of " + std::to_string(frames * frameBytes) + " payload bytes exceed " +
                    std::to_string(kMaxPayload) + "; choose a shorter --ptime");
  std::random_device random;
  KVAudioRtpHeader h{0, static_cast<uint8_t>(s.payloadType), static_cast<uint16_t>(random()), random(), random(), 0, 0};
  if (!opt.sdp.empty()) {
    std::ofstream(opt.sdp, std::ios::binary) << WriteSdp(s, h.ssrc);
    if (!std::ifstream(opt.sdp)) throw FileError(opt.sdp, "cannot write");
  }
  const Pcm pcm = ReadPcm(reader);
  Socket sock;
  const sockaddr_in to = Endpoint(s.address, s.port);
  std::vector<uint8_t> packet(KVAUDIO_RTP_HEADER_BYTES + size_t{frames} * frameBytes);
  std::this_thread::sleep_for(std::chrono::duration<double>(opt.wait));
  const auto start = Clock::now();
  uint64_t sent = 0;
  for (uint64_t at = 0; at < pcm.Frames(); at += frames, ++sent) {
    const uint32_t n = static_cast<uint32_t>(std::min<uint64_t>(frames, pcm.Frames() - at));
    h.marker = sent == 0;
    KVAudioRtpWriteHeader(packet.data(), static_cast<uint32_t>(packet.size()), &h);
    uint8_t *payload = packet.data() + KVAUDIO_RTP_HEADER_BYTES;
    if (pcm.bits == 16) KVAudioAoipPack16(payload, pcm.s16.data() + at * s.channels, s.encoding, s.channels, n);
    else KVAudioAoipPack32(payload, pcm.s32.data() + at * s.channels, s.encoding, s.channels, n);
    std::this_thread::sleep_until(start + std::chrono::duration<double>(double(at) / s.rate));
    const size_t bytes = KVAUDIO_RTP_HEADER_BYTES + size_t{n} * frameBytes;
    if (sendto(sock.fd(), packet.data(), bytes, 0, reinterpret_cast<const sockaddr *>(&to), sizeof(to)) < 0)
      throw ToolError(std::string("send to ") + opt.dest + " failed: " + std::strerror(errno));
    ++h.sequence;
    h.timestamp += n;
  }
  std::printf("rtp send: %s to %s:%u, L%u/%u/%u, %s ms packets (%u periods), %llu packets\n", opt.in.c_str(),
              s.address.c_str(), s.port, s.encoding, s.rate, s.channels, FormatPtime(s.ptimeUs).c_str(), frames,
              static_cast<unsigned long long>(sent));
  return kExitClean;
}

// ---- receive -----------------------------------------------------------------------------------

struct ReceiveOptions {
  std::string sdp, out;
  double seconds = 10, timeout = 0, idle = 1;
  bool loudness = false;
};

// Momentary and short-term meters on the received samples, one line to stderr a second.
class LiveMeter {
 public:
  LiveMeter(uint32_t rate, uint32_t channels) : rate_(rate) {
    if (ebu_r128_init(&m_[0], 1, 32, rate, 1, static_cast<uint8_t>(channels)) != 1 ||
        ebu_r128_init(&m_[1], 1, 32, rate, 2, static_cast<uint8_t>(channels)) != 1)
      throw ToolError("the loudness meter cannot be set up for this stream");
  }
  ~LiveMeter() {
    ebu_r128_destroy(&m_[0]);
    ebu_r128_destroy(&m_[1]);
  }
  LiveMeter(const LiveMeter &) = delete;
  LiveMeter &operator=(const LiveMeter &) = delete;
  void Feed(const int32_t *samples, uint32_t frames) {
    for (auto &m : m_) ebu_r128_process_samples(&m, samples, frames);
    done_ += frames;
    if (done_ / rate_ != shown_) {
      shown_ = done_ / rate_;
      std::fprintf(stderr, "rtp receive: %6.1f s  momentary %6.1f LUFS  short-term %6.1f LUFS\n",
                   double(done_) / rate_, m_[0].currentLoudness, m_[1].currentLoudness);
    }
  }

 private:
  s_ebu_r128 m_[2] = {};
  uint32_t rate_;
  uint64_t done_ = 0, shown_ = 0;
};

int RunReceive(const ReceiveOptions &opt) {
  const Stream s = ReadSdp(opt.sdp);
  if (!(opt.seconds > 0)) throw ToolError("--seconds must be positive");
  const uint64_t wanted = static_cast<uint64_t>(opt.seconds * s.rate);
  const KVAudioAoipReceiverConfig cfg{s.channels, s.encoding, s.payloadType, 0, s.rate, 0};
  KVAudioAoipReceiver *rx = KVAudioAoipReceiverOpen(&cfg);
  if (!rx) throw ToolError("cannot set up the receiver");
  std::unique_ptr<KVAudioAoipReceiver, void (*)(KVAudioAoipReceiver *)> owner(rx, KVAudioAoipReceiverClose);
  Socket sock;
  const int one = 1;
  setsockopt(sock.fd(), SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
  const int buffer = 4 << 20;
  setsockopt(sock.fd(), SOL_SOCKET, SO_RCVBUF, &buffer, sizeof(buffer));
  sockaddr_in local = Endpoint(Multicast(s.address) ? s.address : "0.0.0.0", s.port);
  if (bind(sock.fd(), reinterpret_cast<const sockaddr *>(&local), sizeof(local)) < 0)
    throw ToolError("cannot listen on port " + std::to_string(s.port) + ": " + std::strerror(errno));
  if (Multicast(s.address)) {
    ip_mreq join{};
    join.imr_multiaddr = Endpoint(s.address, s.port).sin_addr;
    if (setsockopt(sock.fd(), IPPROTO_IP, IP_ADD_MEMBERSHIP, &join, sizeof(join)) < 0)
      throw ToolError("cannot join " + s.address + ": " + std::strerror(errno));
  }
  AudioWriter writer(opt.out, s.rate, s.channels, s.encoding);
  std::unique_ptr<LiveMeter> meter;
  if (opt.loudness) meter = std::make_unique<LiveMeter>(s.rate, s.channels);
  const double timeout = opt.timeout > 0 ? opt.timeout : opt.seconds + 10;
  const auto start = Clock::now();
  auto last = start;
  bool any = false;
  uint64_t written = 0;
  std::vector<int32_t> block;
  std::vector<uint8_t> packet(65536);
  // Pulls what is ready, keeping `hold` periods back so that reordered packets can still land.
  auto drain = [&](uint32_t hold) {
    const uint32_t ready = KVAudioAoipReceiverAvailable(rx);
    const uint64_t n = std::min<uint64_t>(ready > hold ? ready - hold : 0, wanted - written);
    if (n == 0) return;
    block.resize(n * s.channels);
    KVAudioAoipReceiverPull(rx, block.data(), static_cast<uint32_t>(n));
    writer.Write(block.data(), n);
    if (meter) meter->Feed(block.data(), static_cast<uint32_t>(n));
    written += n;
  };
  const uint32_t hold = s.rate / 50;  // 20 ms
  while (written < wanted) {
    const auto now = Clock::now();
    if (now - start > std::chrono::duration<double>(timeout)) break;
    if (any && now - last > std::chrono::duration<double>(opt.idle)) break;
    pollfd p{sock.fd(), POLLIN, 0};
    if (poll(&p, 1, 50) > 0) {
      const ssize_t got = recv(sock.fd(), packet.data(), packet.size(), 0);
      if (got > 0) {
        KVAudioAoipReceiverPush(rx, packet.data(), static_cast<uint32_t>(got));
        any = any || KVAudioAoipReceiverAvailable(rx) > 0;
        last = Clock::now();
      }
    }
    drain(hold);
  }
  drain(0);
  writer.Close();
  KVAudioAoipStats st{};
  KVAudioAoipReceiverGetStats(rx, &st);
  std::printf("rtp receive: L%u/%u/%u from %s:%u -> %s\n", s.encoding, s.rate, s.channels, s.address.c_str(), s.port,
              opt.out.c_str());
  const std::pair<const char *, uint64_t> rows[] = {
      {"packets received", st.received}, {"lost", st.lost},       {"duplicated", st.duplicated},
      {"reordered", st.reordered},       {"late", st.late},       {"timestamp jumps", st.timestampJumps},
      {"malformed", st.malformed},       {"overflows", st.overflows}, {"silent periods", st.silentFrames},
      {"periods written", written}};
  for (const auto &[name, value] : rows) std::printf("  %-20s %llu\n", name, static_cast<unsigned long long>(value));
  if (st.received == 0) throw ToolError("no packets arrived on port " + std::to_string(s.port));
  const bool events = st.lost || st.duplicated || st.reordered || st.late || st.timestampJumps || st.malformed ||
                      st.overflows;
  return events ? kExitFindings : kExitClean;
}

}  // namespace

void AddRtpCommand(CLI::App &app, int *exitCode) {
  CLI::App *rtp = app.add_subcommand("rtp", "send or receive L16/L24 audio as RTP (AES67-style streams)");
  rtp->require_subcommand(1);

  auto send = std::make_shared<SendOptions>();
  CLI::App *s = rtp->add_subcommand("send", "stream an audio file as RTP, paced in real time");
  s->add_option("IN", send->in, "audio file")->required();
  s->add_option("--dest", send->dest, "destination ADDR:PORT")->required();
  s->add_option("--ptime", send->ptime, "packet time: 125us, 250us, 333us, 1ms, 4ms ...")->capture_default_str();
  s->add_option("--sdp", send->sdp, "write the stream's SDP to this file");
  s->add_option("--encoding", send->encoding, "L16 or L24 (default: L24 for sources wider than 16 bits)")
      ->check(CLI::IsMember({"L16", "L24"}));
  s->add_option("--pt", send->payloadType, "RTP payload type")->check(CLI::Range(0, 127))->capture_default_str();
  s->add_option("--wait", send->wait, "seconds to wait after writing the SDP")->check(CLI::Range(0.0, 60.0));
  s->callback([send, exitCode] { *exitCode = RunSend(*send); });

  auto recv = std::make_shared<ReceiveOptions>();
  CLI::App *r = rtp->add_subcommand("receive", "record the RTP stream an SDP file describes");
  r->add_option("OUT", recv->out, "audio file to write (.wav, .flac, ...)")->required();
  r->add_option("--sdp", recv->sdp, "SDP file of the stream")->required();
  r->add_option("--seconds", recv->seconds, "seconds of audio to record")->check(CLI::Range(0.001, 86400.0))
      ->capture_default_str();
  r->add_option("--timeout", recv->timeout, "give up after this many seconds (default seconds + 10)");
  r->add_option("--idle", recv->idle, "stop this many seconds after the last packet")->capture_default_str();
  r->add_flag("--loudness", recv->loudness, "show momentary and short-term loudness each second");
  r->callback([recv, exitCode] { *exitCode = RunReceive(*recv); });
}

}  // namespace kvtool
