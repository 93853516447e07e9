// kvaudio on media that ffmpeg makes: the PCM it reads equals the source (or ffmpeg's decoding) bit for bit.
#include <functional>

#include "cli.h"

namespace {

using kvcli::Json;

class Media : public kvcli::Scratch<true> {
 protected:
  // The samples as the tool reads them: `avsync insert` writes them back out through libsndfile.
  static size_t Samples(const std::string &in) {
    EXPECT_EQ(Kvaudio("avsync insert " + in + " pcm_" + in + ".wav --at 0.5").code, 0) << in;
    return std::hash<std::string>()(Bytes("pcm_" + in + ".wav"));
  }
};

// PCM in every container reads as its WAV, with the container's timecode and frame rate; bad media is refused.
TEST_F(Media, PcmReadsAsItsWavWithTheFilesTimecode) {
  ASSERT_EQ(Kvaudio("gen noise s8.wav --channels 8 --bits 24 --duration 3 --level -6").code, 0);
  ASSERT_EQ(Kvaudio("gen pink s2.wav --channels 2 --bits 16 --duration 3").code, 0);
  const char *const cases[][5] = {
      {"m.mxf", "s8.wav",
       "-i s8.wav -f lavfi -i testsrc=d=3:s=64x64:r=25 -filter_complex 'channelsplit=channel_layout=7.1(wide)"
       "[a][b][c][d][e][f][g][h]' -map 1:v -map [a] -map [b] -map [c] -map [d] -map [e] -map [f] -map [g] -map [h] "
       "-c:v mpeg2video -c:a pcm_s24le -timecode 10:00:00:00 m.mxf", "25", "10:00:00:00"},
      {"q.mov", "s2.wav", "-i s2.wav -f lavfi -i testsrc=d=3:s=64x64:r=30000/1001 -c:v mpeg4 -c:a pcm_s16le "
       "-timecode '01:00:00;00' q.mov", "29.97df", "01:00:00;00"},
      {"b.wav", "s2.wav", "-i s2.wav -c:a pcm_s16le -write_bext 1 -metadata time_reference=1728000000 b.wav", "25",
       "10:00:00:00"},
      {"p.wav", "s2.wav", "-i s2.wav -f wav pipe: | cat >p.wav", "25", "00:00:00:00"},
  };
  for (const auto &[file, reference, make, fps, start] : cases) {
    ASSERT_EQ(Ffmpeg(make), 0) << file;
    EXPECT_EQ(Samples(file), Samples(reference)) << file;
    kvcli::Result qc = Kvaudio(std::string("qc ") + file + " --json");
    ASSERT_LE(qc.code, 1) << file << qc.err;
    EXPECT_EQ(qc.json()["fps"].get<std::string>() + " " + qc.json()["startTimecode"].get<std::string>(),
              std::string(fps) + " " + start) << file;
  }
  // Streams and channels are taken as asked: mono tracks 3 and 5, then only the second of them.
  Json loud = Kvaudio("loudness m.mxf --stream 3,5 --channels 2 --json").json()["files"][0];
  EXPECT_EQ(loud["channels"], 1);
  EXPECT_EQ(loud["input"], "audio streams 3,5, channels 2");
  const std::string whole = Bytes("m.mxf");
  Write("cut.mxf", whole.substr(0, whole.size() / 2));
  ASSERT_EQ(Ffmpeg("-f lavfi -i testsrc=d=1:s=64x64 -c:v mpeg4 v.mp4"), 0);
  const std::pair<const char *, const char *> bad[] = {{"v.mp4", "no audio stream"}, {"cut.mxf", "cut.mxf: "}};
  for (const auto &[file, reason] : bad) ExpectRefused(std::string("qc ") + file + " --json", reason);
}

// SMPTE 302M (16, 20, 24 bits, 2 to 8 channels) reads as ffmpeg decodes it; AAC within its coding loss.
TEST_F(Media, TransportStreamAndCompressedAudio) {
  for (const std::string channels : {"2", "4", "6", "8"}) {
    ASSERT_EQ(Kvaudio("gen noise t" + channels + ".wav --bits 24 --duration 2 --level -3 --channels " + channels).code, 0);
    for (const std::string bits : {"16", "20", "24"}) {
      const std::string ts = "t" + channels + "_" + bits + ".ts", wide = bits == "16" ? "16" : "32";
      ASSERT_EQ(Ffmpeg("-i t" + channels + ".wav -c:a s302m -strict -2 -sample_fmt s" + wide + " -bits_per_raw_sample " +
                       bits + " " + ts), 0) << ts;
      ASSERT_EQ(Ffmpeg("-i " + ts + " -c:a pcm_s" + (bits == "16" ? "16" : "24") + "le ref_" + ts + ".wav"), 0) << ts;
      EXPECT_EQ(Samples(ts), Samples("ref_" + ts + ".wav")) << ts;
    }
  }
  ASSERT_EQ(Kvaudio("gen tone a.wav --level -20 --duration 6").code, 0);
  ASSERT_EQ(Ffmpeg("-i a.wav -c:a aac -b:a 256k a.mp4"), 0);
  auto loud = [&](const std::string &f) { return Kvaudio("loudness " + f + " --json").json()["files"][0]["integrated"]; };
  EXPECT_NEAR(loud("a.mp4").get<double>(), loud("a.wav").get<double>(), 0.1);
}

}  // namespace
