// kvaudio on media that ffmpeg makes: MXF, MOV, MKV, MP4, MPEG-TS with SMPTE 302M and BWF. The PCM
// the tool reads equals the source (or ffmpeg's own decoding) bit for bit, and the file's timecode
// and frame rate become the programme's.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#ifndef KVAUDIO_CLI
#define KVAUDIO_CLI ""
#endif
#ifndef KVAUDIO_FFMPEG
#define KVAUDIO_FFMPEG ""
#endif

namespace {

namespace fs = std::filesystem;

class Media : public ::testing::Test {
 protected:
  void SetUp() override {
    if (std::string(KVAUDIO_CLI).empty() || std::string(KVAUDIO_FFMPEG).empty()) GTEST_SKIP() << "needs the tool and ffmpeg";
    char pattern[] = "/tmp/kvaudio_media_XXXXXX";
    dir_ = mkdtemp(pattern);
  }
  void TearDown() override { if (!dir_.empty()) fs::remove_all(dir_); }

  // Runs a command in the scratch directory; returns its exit code and standard output.
  std::pair<int, std::string> Run(const std::string &command) const {
    FILE *pipe = popen(("cd '" + dir_.string() + "' && " + command + " 2>err.txt").c_str(), "r");
    std::string out;
    char buf[4096];
    for (size_t n; (n = fread(buf, 1, sizeof(buf), pipe)) > 0;) out.append(buf, n);
    int status = pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out};
  }
  int Ffmpeg(const std::string &args) const { return Run(std::string("'" KVAUDIO_FFMPEG "' -v error -y ") + args).first; }
  std::pair<int, std::string> Kvaudio(const std::string &args) const { return Run("'" KVAUDIO_CLI "' " + args); }
  std::string Bytes(const std::string &name) const {
    std::ifstream in(dir_ / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  // The samples as the tool reads them: `avsync insert` writes them back out through libsndfile.
  size_t Samples(const std::string &in) const {
    std::string out = "pcm_" + in + ".wav";
    EXPECT_EQ(Kvaudio("avsync insert " + in + " " + out + " --at 0.5").first, 0) << in << Bytes("err.txt");
    return std::hash<std::string>()(Bytes(out));
  }

  fs::path dir_;
};

// PCM in every container reads as the same samples as its WAV, with the container's timecode.
TEST_F(Media, PcmReadsAsItsWavWithTheFilesTimecode) {
  ASSERT_EQ(Kvaudio("gen noise s8.wav --channels 8 --bits 24 --duration 3 --level -6").first, 0);
  ASSERT_EQ(Kvaudio("gen pink s2.wav --channels 2 --bits 16 --duration 3").first, 0);
  struct Case {
    const char *file, *reference, *make, *fps, *start;
  };
  const Case cases[] = {
      {"m.mxf", "s8.wav",
       "-i s8.wav -f lavfi -i testsrc=d=3:s=64x64:r=25 -filter_complex 'channelsplit=channel_layout=7.1(wide)"
       "[a][b][c][d][e][f][g][h]' "
       "-map 1:v -map [a] -map [b] -map [c] -map [d] -map [e] -map [f] -map [g] -map [h] -c:v mpeg2video "
       "-c:a pcm_s24le -timecode 10:00:00:00 m.mxf", "25", "10:00:00:00"},
      {"q.mov", "s2.wav", "-i s2.wav -f lavfi -i testsrc=d=3:s=64x64:r=30000/1001 -c:v mpeg4 -c:a pcm_s16le "
       "-timecode '01:00:00;00' q.mov", "29.97df", "01:00:00;00"},
      {"k.mkv", "s8.wav", "-i s8.wav -c:a pcm_s24le k.mkv", "25", "00:00:00:00"},
      {"b.wav", "s2.wav", "-i s2.wav -c:a pcm_s16le -write_bext 1 -metadata time_reference=1728000000 b.wav", "25",
       "10:00:00:00"},
      {"p.wav", "s2.wav", "-i s2.wav -f wav pipe: | cat >p.wav", "25", "00:00:00:00"},
  };
  for (const Case &c : cases) {
    ASSERT_EQ(Ffmpeg(c.make), 0) << c.file;
    EXPECT_EQ(Samples(c.file), Samples(c.reference)) << c.file;
    auto [code, out] = Kvaudio(std::string("qc ") + c.file + " --json");
    ASSERT_LE(code, 1) << c.file << Bytes("err.txt");
    nlohmann::json qc = nlohmann::json::parse(out);
    EXPECT_EQ(qc["fps"], c.fps) << c.file;
    EXPECT_EQ(qc["startTimecode"], c.start) << c.file;
  }
  // Streams and channels are taken as asked: mono tracks 3 and 5, then only the second of them.
  auto [code, out] = Kvaudio("loudness m.mxf --stream 3,5 --channels 2 --json");
  ASSERT_EQ(code, 0);
  EXPECT_EQ(nlohmann::json::parse(out)["files"][0]["channels"], 1);
  EXPECT_EQ(nlohmann::json::parse(out)["files"][0]["input"], "audio streams 3,5, channels 2");
}

// SMPTE 302M in a transport stream, read by the library's own 302M readers, equals ffmpeg's decoding
// sample for sample (16, 20 and 24 bits, 2 to 8 channels); AAC and MP3 read within their coding loss.
TEST_F(Media, TransportStreamAndCompressedAudio) {
  for (int channels : {2, 4, 6, 8}) {
    const std::string src = "t" + std::to_string(channels) + ".wav";
    ASSERT_EQ(Kvaudio("gen noise " + src + " --bits 24 --duration 2 --level -3 --channels " + std::to_string(channels)).first, 0);
    for (int bits : {16, 20, 24}) {
      const std::string ts = "t" + std::to_string(channels) + "_" + std::to_string(bits) + ".ts";
      ASSERT_EQ(Ffmpeg("-i " + src + " -c:a s302m -strict -2 -sample_fmt " + (bits == 16 ? "s16" : "s32") +
                       " -bits_per_raw_sample " + std::to_string(bits) + " " + ts), 0) << ts;
      ASSERT_EQ(Ffmpeg("-i " + ts + " -c:a pcm_s" + (bits == 16 ? "16" : "24") + "le ref_" + ts + ".wav"), 0) << ts;
      EXPECT_EQ(Samples(ts), Samples("ref_" + ts + ".wav")) << ts;
    }
  }
  ASSERT_EQ(Kvaudio("gen tone a.wav --level -20 --duration 6").first, 0);
  ASSERT_EQ(Ffmpeg("-i a.wav -c:a aac -b:a 256k a.mp4"), 0);
  auto loud = [&](const std::string &f) {
    return nlohmann::json::parse(Kvaudio("loudness " + f + " --json").second)["files"][0]["integrated"].get<double>();
  };
  ASSERT_EQ(Ffmpeg("-i a.wav -c:a libmp3lame -b:a 256k a.mp3"), 0);  // its length is an estimate
  for (const char *coded : {"a.mp4", "a.mp3"}) EXPECT_NEAR(loud(coded), loud("a.wav"), 0.1) << coded;
}

// Media that cannot be measured: one line naming the file and the reason, exit 2, nothing on stdout.
TEST_F(Media, UnreadableMediaExitTwoWithTheReason) {
  ASSERT_EQ(Ffmpeg("-f lavfi -i testsrc=d=1:s=64x64 -c:v mpeg4 v.mp4"), 0);
  ASSERT_EQ(Ffmpeg("-f lavfi -i testsrc=d=2:s=64x64 -f lavfi -i sine=d=2:r=48000 -c:v mpeg2video -c:a pcm_s24le whole.mxf"), 0);
  std::string whole = Bytes("whole.mxf");
  std::ofstream(dir_ / "cut.mxf", std::ios::binary).write(whole.data(), std::streamsize(whole.size() / 2));
  std::ofstream(dir_ / "text.ts") << "not media\n";
  const std::pair<const char *, const char *> cases[] = {
      {"v.mp4", "no audio stream"}, {"cut.mxf", "cut.mxf: "}, {"text.ts", "not a media file"}};
  for (const auto &[file, reason] : cases) {
    auto [code, out] = Kvaudio(std::string("qc ") + file + " --json");
    EXPECT_EQ(code, 2) << file;
    EXPECT_TRUE(out.empty()) << file;
    std::string err = Bytes("err.txt");
    EXPECT_NE(err.find(reason), std::string::npos) << file << ": " << err;
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << file << ": " << err;
  }
}

}  // namespace
