// kvaudio rtp on the loopback interface: ffmpeg as the other end both ways, and a deliberately
// impaired stream whose counts and sample positions the receiver must report.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "kvaudio/aoip.h"
#include "test_util.h"

#ifndef KVAUDIO_CLI
#define KVAUDIO_CLI ""
#endif
#ifndef KVAUDIO_FFMPEG
#define KVAUDIO_FFMPEG ""
#endif

namespace {

namespace fs = std::filesystem;

class Rtp : public ::testing::Test {
 protected:
  void SetUp() override {
    if (std::string(KVAUDIO_CLI).empty() || std::string(KVAUDIO_FFMPEG).empty()) GTEST_SKIP() << "needs the tool and ffmpeg";
    char pattern[] = "/tmp/kvaudio_rtp_XXXXXX";
    dir_ = mkdtemp(pattern);
  }
  void TearDown() override { if (!dir_.empty()) fs::remove_all(dir_); }
  std::string Path(const std::string &name) const { return (dir_ / name).string(); }

  // A free UDP port on 127.0.0.1, as the kernel hands it out.
  static uint16_t FreePort() {
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in sa{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t len = sizeof(sa);
    bind(fd, reinterpret_cast<sockaddr *>(&sa), len);
    getsockname(fd, reinterpret_cast<sockaddr *>(&sa), &len);
    close(fd);
    return ntohs(sa.sin_port);
  }
  // Starts a shell command whose standard output is read by Finish().
  FILE *Start(const std::string &command) const { return popen(("cd '" + dir_.string() + "' && " + command).c_str(), "r"); }
  static std::string Finish(FILE *pipe) {
    std::string out;
    char buf[4096];
    for (size_t n; (n = fread(buf, 1, sizeof(buf), pipe)) > 0;) out.append(buf, n);
    pclose(pipe);
    return out;
  }
  std::string Run(const std::string &command) const { return Finish(Start(command)); }

  // A stereo 48 kHz WAV of random samples, 16 or 24 bits; returns its sample bytes.
  std::string WriteWav(const std::string &name, uint16_t bits, uint32_t frames) const {
    auto le = [](uint32_t v, int n) { return std::string(reinterpret_cast<const char *>(&v), n); };
    const auto pcm = kvtest::RandomBytes(size_t{frames} * 2 * bits / 8, bits);
    const std::string data(pcm.begin(), pcm.end());
    std::ofstream(Path(name), std::ios::binary)
        << "RIFF" << le(36 + data.size(), 4) << "WAVEfmt " << le(16, 4) << le(1, 2) << le(2, 2) << le(48000, 4)
        << le(48000 * bits / 4, 4) << le(bits / 4, 2) << le(bits, 2) << "data" << le(data.size(), 4) << data;
    return data;
  }
  std::string WavData(const std::string &name) const {
    std::ifstream in(Path(name), std::ios::binary);
    const std::string all{std::istreambuf_iterator<char>(in), {}};
    const size_t at = all.find("data");
    return at == std::string::npos ? "" : all.substr(at + 8);
  }
  std::string Sdp(uint16_t port, uint32_t bits) const {
    const std::string p = std::to_string(port);
    std::ofstream(Path("in.sdp")) << "v=0\r\no=- 1 0 IN IP4 127.0.0.1\r\ns=t\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\n"
                                  << "m=audio " << p << " RTP/AVP 97\r\na=rtpmap:97 L" << bits << "/48000/2\r\n";
    return "in.sdp";
  }
  std::string Receive(const std::string &sdp, const std::string &seconds) const {
    return "'" KVAUDIO_CLI "' rtp receive --sdp " + sdp + " --seconds " + seconds + " --idle 0.5 --timeout 20 out.wav";
  }

  fs::path dir_;
};

TEST_F(Rtp, FfmpegSendsKvaudioRecoversEverySample) {
  for (uint16_t bits : {24, 16}) {
    const std::string in = WriteWav("in.wav", bits, 48000);
    const uint16_t port = FreePort();
    FILE *rx = Start(Receive(Sdp(port, bits), "1"));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    Run("timeout 20 '" KVAUDIO_FFMPEG "' -v error -re -i in.wav -c:a pcm_s" + std::to_string(bits) +
        "be -payload_type 97 -f rtp rtp://127.0.0.1:" + std::to_string(port));
    const std::string report = Finish(rx);
    EXPECT_NE(report.find("lost                 0"), std::string::npos) << report;
    EXPECT_TRUE(WavData("out.wav") == in) << bits << " bits\n" << report;
  }
}

TEST_F(Rtp, KvaudioSendsFfmpegDecodesTheSameSamples) {
  for (const uint16_t bits : {24, 16}) {
    const std::string in = WriteWav("in.wav", bits, 48000), codec = bits == 24 ? "pcm_s24le" : "pcm_s16le";
    const std::string port = std::to_string(FreePort());
    fs::remove(Path("out.sdp"));
    FILE *tx = Start("'" KVAUDIO_CLI "' rtp send in.wav --dest 127.0.0.1:" + port + " --ptime 125us --sdp out.sdp --wait 1");
    for (int i = 0; i < 200 && !fs::exists(Path("out.sdp")); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    Run("timeout 20 '" KVAUDIO_FFMPEG "' -y -v error -protocol_whitelist file,udp,rtp -i out.sdp -t 0.8 -c:a " + codec +
        " got.wav");
    EXPECT_NE(Finish(tx).find("8000 packets"), std::string::npos) << bits;  // 6 periods every 125 us
    const std::string got = WavData("got.wav");
    EXPECT_EQ(got.size(), 0.8 * 48000 * 2 * bits / 8) << bits;
    EXPECT_TRUE(in.compare(0, got.size(), got) == 0) << bits;
  }
}

// 200 packets of 48 periods whose samples count the stream's periods: packet 50 dropped, 90 sent
// twice, 120 and 121 swapped.
TEST_F(Rtp, ImpairedStreamIsCountedAndStaysAligned) {
  const uint16_t port = FreePort();
  FILE *rx = Start(Receive(Sdp(port, 24), "0.2"));
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  const sockaddr_in to{AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
  std::vector<uint32_t> order;
  for (uint32_t k = 0; k < 200; ++k)
    if (k != 50) order.push_back(k == 120 ? 121 : k == 121 ? 120 : k);
  order.insert(order.begin() + 91, 90);
  for (uint32_t k : order) {
    std::vector<uint8_t> packet(12 + 48 * 6);
    std::vector<int32_t> s(96);
    for (uint32_t i = 0; i < 96; ++i) s[i] = static_cast<int32_t>((k * 48 + i / 2 + 1) << 8);
    const KVAudioRtpHeader h{0, 97, static_cast<uint16_t>(65500 + k), 123 + k * 48, 9, 0, 0};
    KVAudioRtpWriteHeader(packet.data(), 12, &h);
    KVAudioAoipPack32(packet.data() + 12, s.data(), KVAUDIO_AOIP_L24, 2, 48);
    sendto(fd, packet.data(), packet.size(), 0, reinterpret_cast<const sockaddr *>(&to), sizeof(to));
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  close(fd);
  const std::string report = Finish(rx);
  for (const char *line : {"packets received     199", "lost                 1", "duplicated           1",
                           "reordered            1", "silent periods       48", "periods written      9600"})
    EXPECT_NE(report.find(line), std::string::npos) << line << "\n" << report;
  const std::string got = WavData("out.wav");
  ASSERT_EQ(got.size(), 9600u * 6);
  for (uint32_t f = 0; f < 9600; f += 7) {
    const uint32_t v = uint8_t(got[6 * f]) | uint8_t(got[6 * f + 1]) << 8 | uint8_t(got[6 * f + 2]) << 16;
    EXPECT_EQ(v, f / 48 == 50 ? 0 : f + 1) << f;
  }
}

}  // namespace
