// kvaudio rtp on the loopback interface: ffmpeg at the other end, and an impaired stream the receiver reports.
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "cli.h"
#include "kvaudio/aoip.h"
#include "test_util.h"

namespace {

namespace fs = std::filesystem;

class Rtp : public kvcli::Scratch<true> {
 protected:
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
  // Starts `kvaudio rtp receive` on a stereo L`bits` stream to `port`, writing out.wav.
  static FILE *Receive(uint16_t port, int bits, const std::string &seconds) {
    Write("in.sdp", "v=0\r\no=- 1 0 IN IP4 127.0.0.1\r\ns=t\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\nm=audio " +
                        std::to_string(port) + " RTP/AVP 97\r\na=rtpmap:97 L" + std::to_string(bits) + "/48000/2\r\n");
    FILE *rx = Start("'" KVAUDIO_CLI "' rtp receive --sdp in.sdp --seconds " + seconds + " --idle 0.5 --timeout 20 out.wav");
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    return rx;
  }
};

// One second of random 16- and 24-bit stereo samples, each way between kvaudio and ffmpeg.
TEST_F(Rtp, FfmpegRoundTripsEverySample) {
  for (int bits : {24, 16}) {
    const auto pcm = kvtest::RandomBytes(size_t{48000} * 2 * bits / 8, bits);
    const std::string in(pcm.begin(), pcm.end()), codec = " -c:a pcm_s" + std::to_string(bits);
    WriteWav("in.wav", 48000, 2, pcm, bits);
    uint16_t port = FreePort();
    FILE *rx = Receive(port, bits, "1");
    Ffmpeg("-re -i in.wav" + codec + "be -payload_type 97 -f rtp rtp://127.0.0.1:" + std::to_string(port));
    const std::string report = Finish(rx).out;
    EXPECT_TRUE(WavData("out.wav") == in) << bits << " bits\n" << report;

    port = FreePort();
    fs::remove(Path("out.sdp"));
    FILE *tx = Start("'" KVAUDIO_CLI "' rtp send in.wav --dest 127.0.0.1:" + std::to_string(port) +
                     " --ptime 125us --sdp out.sdp --wait 1", "tx.txt");
    for (int i = 0; i < 200 && !fs::exists(Path("out.sdp")); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    Ffmpeg("-protocol_whitelist file,udp,rtp -i out.sdp -t 0.8" + codec + "le got.wav");
    EXPECT_NE(Finish(tx, "tx.txt").out.find("8000 packets"), std::string::npos) << bits;  // 6 periods every 125 us
    const std::string got = WavData("got.wav");
    EXPECT_EQ(got.size(), 0.8 * 48000 * 2 * bits / 8) << bits;
    EXPECT_TRUE(in.compare(0, got.size(), got) == 0) << bits;
  }
}

// 200 packets of 48 periods whose samples count the stream's periods: packet 50 dropped, 90 sent
// twice, 120 and 121 swapped.
TEST_F(Rtp, ImpairedStreamIsCountedAndStaysAligned) {
  const uint16_t port = FreePort();
  FILE *rx = Receive(port, 24, "0.2");
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
  const std::string report = Finish(rx).out;
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
