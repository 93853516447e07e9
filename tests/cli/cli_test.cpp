// End-to-end runs of the kvaudio binary: round trips through files, exit codes, bad input.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>

#include <cmath>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <regex>
#include <fstream>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

struct Result {
  int code;
  std::string out, err;
  Json json() const { return Json::parse(out); }
};

class Cli : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    char pattern[] = "/tmp/kvaudio_cli_XXXXXX";
    dir_ = mkdtemp(pattern);
  }
  static void TearDownTestSuite() { fs::remove_all(dir_); }
  void SetUp() override {
#ifndef KVAUDIO_CLI
    GTEST_SKIP() << "built without the tools";
#endif
  }

  static std::string Path(const std::string &name) { return (dir_ / name).string(); }

  // Runs `kvaudio ARGS` in the scratch directory.
  static Result Kvaudio(const std::string &args) {
#ifdef KVAUDIO_CLI
    std::string err = Path("stderr.txt");
    std::string command = "cd '" + dir_.string() + "' && '" KVAUDIO_CLI "' " + args + " 2>'" + err + "'";
    Result run{-1, "", ""};
    FILE *pipe = popen(command.c_str(), "r");
    char buf[4096];
    for (size_t n; (n = fread(buf, 1, sizeof(buf), pipe)) > 0;) run.out.append(buf, n);
    int status = pclose(pipe);
    run.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    std::ifstream in(err);
    run.err.assign(std::istreambuf_iterator<char>(in), {});
    return run;
#else
    (void)args;
    return {-1, "", ""};
#endif
  }

  static std::vector<char> Bytes(const std::string &name) {
    std::ifstream in(Path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  static void Write(const std::string &name, const std::vector<char> &bytes) {
    std::ofstream(Path(name), std::ios::binary).write(bytes.data(), std::streamsize(bytes.size()));
  }
  // A WAV file of interleaved 16-bit PCM (format tag 1) or 32-bit float (tag 3) samples.
  template <typename T>
  static void WriteWav(const std::string &name, uint32_t rate, uint16_t channels, const std::vector<T> &pcm) {
    auto u32 = [](uint32_t v) { return std::string{char(v), char(v >> 8), char(v >> 16), char(v >> 24)}; };
    auto u16 = [](uint16_t v) { return std::string{char(v), char(v >> 8)}; };
    const uint16_t size = sizeof(T), tag = std::is_floating_point_v<T> ? 3 : 1;
    uint32_t bytes = uint32_t(pcm.size() * size);
    std::string header = "RIFF" + u32(36 + bytes) + "WAVEfmt " + u32(16) + u16(tag) + u16(channels) + u32(rate) +
                         u32(rate * channels * size) + u16(uint16_t(channels * size)) + u16(8 * size) + "data" + u32(bytes);
    std::vector<char> file(header.begin(), header.end());
    const char *data = reinterpret_cast<const char *>(pcm.data());
    file.insert(file.end(), data, data + bytes);
    Write(name, file);
  }
  // Interleaved 1 kHz sine of `amplitude` in the channels of `mask` (channel c a quarter cycle
  // behind channel c-1, so channels do not correlate), zeros elsewhere.
  static std::vector<int16_t> Sine(uint32_t rate, uint16_t channels, uint32_t mask, double seconds, double amplitude) {
    std::vector<int16_t> pcm(size_t(seconds * rate) * channels);
    for (size_t i = 0; i < pcm.size() / channels; ++i)
      for (uint16_t c = 0; c < channels; ++c)
        if (mask >> c & 1) pcm[i * channels + c] = int16_t(std::lround(amplitude * std::sin(2 * M_PI * 1000.0 * i / rate - c * M_PI / 2)));
    return pcm;
  }
  // Keys of a JSON object, in order.
  static std::string Keys(const Json &object) {
    std::string keys;
    for (auto it = object.begin(); it != object.end(); ++it) keys += (keys.empty() ? "" : " ") + it.key();
    return keys;
  }
  // Byte offset of the sample data of a WAV file written by the tool.
  static size_t DataOffset(const std::vector<char> &wav) {
    std::string s(wav.begin(), wav.end());
    return s.find("data") + 8;
  }

  static inline fs::path dir_;
};

TEST_F(Cli, EveryCommandHasHelpAndUsageErrorsExitTwo) {
  for (const char *cmd : {"", "loudness", "qc", "ltc", "ltc encode", "ltc decode", "gen", "avsync",
                          "avsync insert", "avsync detect", "demo"}) {
    Result help = Kvaudio(std::string(cmd) + " --help");
    EXPECT_EQ(help.code, 0) << cmd;
    EXPECT_NE(help.out.find("Usage"), std::string::npos) << cmd;
  }
  EXPECT_NE(Kvaudio("bogus x.wav").err.find("unknown subcommand 'bogus'"), std::string::npos);
  for (const char *bad : {"", "bogus x.wav", "loudness", "gen tone", "gen hum x.wav", "loudness x.wav --bogus",
                          "ltc encode x.wav --fps 23.976", "qc x.wav --fps 31", "loudness x.wav --standard 9"}) {
    Result run = Kvaudio(bad);
    EXPECT_EQ(run.code, 2) << bad;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << bad << ": " << run.err;
  }
}

// The same signal gives the same readings in every container and width.
TEST_F(Cli, GenThenLoudnessAgreesAcrossFormats) {
  for (const char *file : {"tone16.wav", "tone24.flac", "tone32.aiff", "tone24.rf64"}) {
    std::string name = file, bits = name.substr(4, 2);
    ASSERT_EQ(Kvaudio("gen tone " + name + " --level -20 --duration 12 --bits " + bits).code, 0) << file;
    Result run = Kvaudio("loudness " + name + " --json");
    ASSERT_EQ(run.code, 0) << file << run.err;
    Json r = run.json()["files"][0];
    // A -20 dBFS sine: RMS -23.01 per channel, two channels; K-weighting adds 0.69 dB at 1 kHz.
    EXPECT_NEAR(r["integrated"].get<double>(), -20.0, 0.05) << file;
    EXPECT_NEAR(r["compat"]["meter"]["momentary"]["max"].get<double>(), -20.0, 0.05) << file;
    EXPECT_NEAR(r["compat"]["analysis"]["integrated"].get<double>(), -20.69, 0.02) << file;
    EXPECT_NEAR(r["compat"]["analysis"]["truePeak"].get<double>(), -20.0, 0.01) << file;
    EXPECT_NEAR(r["duration"].get<double>(), 12.0, 1e-9) << file;
  }
}

TEST_F(Cli, LoudnessStandardDecidesTheExitCode) {
  ASSERT_EQ(Kvaudio("gen tone ok.wav --level -22.3 --duration 30").code, 0);
  ASSERT_EQ(Kvaudio("gen tone loud.wav --level -10 --duration 30").code, 0);
  Result ok = Kvaudio("loudness ok.wav --standard 1 --json");
  EXPECT_EQ(ok.code, 0) << ok.out;
  EXPECT_TRUE(ok.json()["files"][0]["violations"].empty());
  Result loud = Kvaudio("loudness ok.wav loud.wav --standard 1 --json");
  EXPECT_EQ(loud.code, 1);
  Json v = loud.json()["files"][1]["violations"];
  EXPECT_NE(std::find(v.begin(), v.end(), "integrated-above-target"), v.end()) << v;
}

// The standard readings (BS.1770-4 / R128) of tones whose values are known in closed form; float
// files are measured in float, beyond full scale too; --standard takes names.
TEST_F(Cli, LoudnessStandardReadings) {
  // 20 s stereo tones of peak `amplitude` (full scale 1) at `freq` Hz, phase `phase` rad.
  auto tone = [](double amplitude, double freq, double phase) {
    std::vector<double> v(20 * 48000 * 2);
    for (size_t i = 0; i < v.size(); ++i) v[i] = amplitude * std::sin(2 * M_PI * freq * double(i / 2) / 48000 + phase);
    return v;
  };
  auto s16 = [](const std::vector<double> &v) {
    std::vector<int16_t> out(v.size());
    for (size_t i = 0; i < v.size(); ++i) out[i] = int16_t(std::lround(v[i] * 32768));
    return out;
  };
  struct Case {
    const char *file, *args;
    std::vector<double> signal;
    bool floating;
    double integrated, truePeak, samplePeak;  // NAN: not checked
    int code;
  };
  const double db23 = std::pow(10.0, -23.0 / 20);
  const Case cases[] = {
      // 1 kHz sine at -23 dBFS: -23.0 LUFS; EBU R128 passes.
      {"s23.wav", "--standard ebu-r128", tone(db23, 1000, 0), false, -23.0, -23.0, -23.0, 0},
      {"f23.wav", "--standard 1", tone(db23, 1000, 0), true, -23.0, -23.0, -23.0, 0},
      // +3 dBFS float: measured as it is, above the target and the true-peak maximum.
      {"f3.wav", "--standard ebu-r128", tone(std::sqrt(2.0), 1000, 0), true, 3.0, 3.0, 3.0, 1},
      // 12 kHz at half scale, sampled at 45 degrees: samples at -9.03 dBFS, true peak -6.02 dBTP.
      {"tp.wav", "--standard atsc-a85", tone(0.5, 12000, M_PI / 4), false, NAN, -6.02, -9.03, 1},
  };
  for (const Case &c : cases) {
    if (c.floating)
      WriteWav(c.file, 48000, 2, std::vector<float>(c.signal.begin(), c.signal.end()));
    else
      WriteWav(c.file, 48000, 2, s16(c.signal));
    Result run = Kvaudio(std::string("loudness ") + c.file + " --json " + c.args);
    ASSERT_EQ(run.code, c.code) << c.file << run.err;
    Json r = run.json()["files"][0];
    if (!std::isnan(c.integrated)) {
      EXPECT_NEAR(r["integrated"].get<double>(), c.integrated, 0.1) << c.file;
    }
    EXPECT_NEAR(r["truePeak"].get<double>(), c.truePeak, 0.2) << c.file;
    EXPECT_NEAR(r["samplePeak"].get<double>(), c.samplePeak, 0.01) << c.file;
    EXPECT_NEAR(r["shortTermMax"].get<double>(), r["momentaryMax"].get<double>(), 0.1) << c.file;
    EXPECT_EQ(r["channelTruePeak"].size(), 2u) << c.file;
    EXPECT_EQ(r["violations"].empty(), c.code == 0) << c.file;
  }
  // The QC report reads the same meter, from float files too.
  Result qc = Kvaudio("qc f23.wav --standard ebu-r128 --json");
  EXPECT_NEAR(qc.json()["report"]["integrated"].get<double>(), -23.0, 0.1) << qc.out;
  EXPECT_TRUE(qc.json()["report"]["violations"].empty()) << qc.out;
}

// Encoded LTC decodes to the frame that ends where each decoded frame ends.
TEST_F(Cli, LtcEncodeThenDecode) {
  struct Case {
    const char *fps, *start;
    uint64_t startCount, perDay;
    double rate;
    double fpsValue;
  };
  const Case cases[] = {
      {"25", "01:00:00:00", 90000, 2160000, 48000, 25},
      {"24", "23:59:58:00", 2073552, 2073600, 44100, 24},  // wraps at midnight
      {"30", "00:10:00:00", 18000, 2592000, 48000, 30},
      {"29.97", "00:00:59:28", 1798, 2592000, 48000, 30000.0 / 1001},
      {"29.97df", "00:00:59;28", 1798, 2589408, 48000, 30000.0 / 1001},  // crosses a dropped pair
  };
  for (const Case &c : cases) {
    std::string args = std::string("ltc encode ltc.wav --duration 45 --fps ") + c.fps + " --start '" + c.start +
                       "' --rate " + std::to_string(int(c.rate));
    ASSERT_EQ(Kvaudio(args).code, 0) << args;
    Result run = Kvaudio(std::string("ltc decode ltc.wav --json --fps ") + c.fps);
    ASSERT_EQ(run.code, 0) << run.err;
    Json frames = run.json()["frames"];
    // 45 s spans more than one 1000-frame block of the encoder. The library accepts about half
    // of all frames; the first may be misread while it adapts.
    EXPECT_GT(frames.size(), size_t(45 * c.fpsValue * 0.4)) << c.fps;
    for (size_t i = 1; i < frames.size(); ++i) {
      uint64_t k = uint64_t(std::lround(frames[i]["endSample"].get<double>() * c.fpsValue / c.rate)) - 1;
      EXPECT_EQ(frames[i]["frameCount"].get<uint64_t>(), (c.startCount + k) % c.perDay) << c.fps << " " << i;
      if (frames[i]["frameCount"] == 1800 && c.perDay == 2589408) {
        EXPECT_EQ(frames[i]["timecode"], "00:01:00;02");
      }
    }
  }
}

// LTC on the right channel of a 24-bit stereo file: found there, not on the left (a tone).
TEST_F(Cli, LtcDecodeReadsTheChosenChannel) {
  ASSERT_EQ(Kvaudio("ltc encode mono.wav --fps 25 --duration 2 --start 12:34:56:00").code, 0);
  std::vector<char> mono = Bytes("mono.wav");
  const int16_t *ltc = reinterpret_cast<const int16_t *>(mono.data() + DataOffset(mono));
  std::vector<int16_t> stereo = Sine(48000, 2, 0x1, 2, 8000);
  for (size_t i = 0; i < stereo.size() / 2; ++i) stereo[i * 2 + 1] = ltc[i];
  WriteWav("stereo16.wav", 48000, 2, stereo);
  ASSERT_EQ(Kvaudio("gen silence stereo24.flac --duration 1 --bits 24").code, 0);
  Result right = Kvaudio("ltc decode stereo16.wav --channel right --fps 25");
  EXPECT_EQ(right.code, 0);
  EXPECT_NE(right.out.find("12:34:57:"), std::string::npos) << right.out;
  EXPECT_EQ(Kvaudio("ltc decode stereo16.wav --channel 2 --fps 25").out, right.out);
  EXPECT_EQ(Kvaudio("ltc decode stereo16.wav --channel left --fps 25").code, 1);
  EXPECT_EQ(Kvaudio("ltc decode stereo24.flac --channel right").code, 1);
}

TEST_F(Cli, AvsyncInsertThenDetect) {
  struct Case {
    const char *file, *gen;
    uint32_t rate, frame;
  };
  const Case cases[] = {{"a.wav", "pink --channels 2", 48000, 137},
                        {"a.flac", "tone --channels 1 --bits 24", 44100, 40},
                        {"a.aiff", "noise --channels 6 --bits 32 --level -30", 96000, 201}};
  for (const Case &c : cases) {
    std::string in = c.file, rate = std::to_string(c.rate), frame = std::to_string(c.frame);
    ASSERT_EQ(Kvaudio(std::string("gen ") + c.gen + " " + in + " --duration 10 --rate " + rate).code, 0);
    EXPECT_EQ(Kvaudio("avsync detect " + in).code, 1) << "no burst yet in " << in;
    ASSERT_EQ(Kvaudio("avsync insert " + in + " b" + in + " --fps 25 --frame " + frame).code, 0);
    Result run = Kvaudio("avsync detect b" + in + " --json --fps 25 --expect-frame " + frame);
    ASSERT_EQ(run.code, 0) << run.err;
    Json r = run.json();
    EXPECT_EQ(r["position"].get<uint64_t>(), uint64_t(c.frame) * c.rate / 25) << in;
    EXPECT_EQ(r["videoFrame"], c.frame);
    EXPECT_NEAR(r["offsetMs"].get<double>(), 0.0, 1e-6);
    EXPECT_GT(r["score"].get<double>(), 0.5);
    // A search window that ends before the burst does not see it.
    double before = c.frame / 25.0 - 0.5;
    EXPECT_EQ(Kvaudio("avsync detect b" + in + " --to " + std::to_string(before)).code, 1) << in;
    EXPECT_EQ(Kvaudio("avsync detect b" + in + " --from " + std::to_string(before)).code, 0) << in;
  }
}

TEST_F(Cli, BadFilesExitTwoWithOneLineNamingTheFile) {
  ASSERT_EQ(Kvaudio("gen tone good.wav --duration 2").code, 0);
  std::vector<char> good = Bytes("good.wav");
  Write("empty.wav", {});
  Write("text.wav", std::vector<char>{'n', 'o', 't', ' ', 'a', 'u', 'd', 'i', 'o', '\n'});
  Write("cut.wav", std::vector<char>(good.begin(), good.begin() + long(good.size() / 2)));
  Write("header.wav", std::vector<char>(good.begin(), good.begin() + long(DataOffset(good))));
  std::vector<char> mp3tag = good;
  mp3tag[std::string(good.begin(), good.end()).find("fmt ") + 8] = 0x55;  // MPEG in WAV
  Write("mp3tag.wav", mp3tag);
  ASSERT_EQ(Kvaudio("gen tone low.wav --rate 8000 --duration 1").code, 0);
  ASSERT_EQ(Kvaudio("gen tone hi.wav --rate 96000 --duration 1").code, 0);
  const std::pair<const char *, const char *> cases[] = {
      {"loudness", "missing.wav"}, {"loudness", "empty.wav"},   {"qc", "text.wav"},
      {"loudness", "cut.wav"},     {"qc", "cut.wav"},           {"ltc decode", "header.wav"},
      {"avsync detect", "mp3tag.wav"}, {"avsync detect", "low.wav"},
      {"ltc decode", "hi.wav"},    {"loudness", "good.wav --layout 7.1"},
      {"avsync detect", "cut.wav"}, {"qc", "empty.wav"}};
  for (const auto &[cmd, file] : cases) {
    Result run = Kvaudio(std::string(cmd) + " " + file);
    std::string name = std::string(file).substr(0, std::string(file).find(' '));
    EXPECT_EQ(run.code, 2) << cmd << " " << file;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << cmd << " " << file << ": " << run.err;
    EXPECT_NE(run.err.find(name), std::string::npos) << cmd << " " << file << ": " << run.err;
  }
}

// A tone with four faults at known frames gives exactly their events, at those frames.
TEST_F(Cli, QcFindsInjectedFaultsAtTheirFrames) {
  constexpr uint32_t kRate = 48000, kPerFrame = kRate / 25;
  std::vector<int16_t> pcm = Sine(kRate, 2, 0x3, 20, 3276.7);
  auto frames = [&](uint32_t first, uint32_t count, auto apply) {
    const size_t begin = size_t(first) * kPerFrame, end = size_t(first + count) * kPerFrame;
    for (size_t i = begin; i < end; ++i) apply(&pcm[i * 2], std::min(i - begin, end - 1 - i));
  };
  // Overdriven by 26 dB (the gain ramps over one cycle at each end, so no step shows as a click)
  // and clipped at full scale.
  frames(100, 5, [](int16_t *s, size_t edge) {
    double gain = 1 + 19 * std::min(1.0, edge / 48.0);
    for (int c = 0; c < 2; ++c) s[c] = int16_t(std::clamp(std::lround(s[c] * gain), -32767L, 32767L));
  });
  frames(200, 63, [](int16_t *s, size_t) { s[0] = s[1] = 0; });  // 2.5 s: past the 2 s minimum
  pcm[size_t(300) * kPerFrame * 2 + 7 * 2] = 30000;  // one-sample click on channel 1
  frames(350, 25, [](int16_t *s, size_t) { s[1] = 0; });     // channel 2 lost for a second
  WriteWav("faults.wav", kRate, 2, pcm);

  Result run = Kvaudio("qc faults.wav --fps 25 --json --start 10:00:00:00");
  EXPECT_EQ(run.code, 1) << run.err;
  Json r = run.json();
  EXPECT_EQ(r["report"]["frames"], 500);
  EXPECT_FALSE(r["report"]["passed"]);
  std::set<std::string> found;
  for (const Json &e : r["events"])
    found.insert(e["name"].get<std::string>() + " " + e["startTimecode"].get<std::string>() + "-" +
                 e["endTimecode"].get<std::string>() + " " + e["channels"].dump());
  const std::set<std::string> expected = {
      "clipping 10:00:04:00-10:00:05:04 [1,2]",        "near-clip 10:00:04:00-10:00:04:04 [1,2]",
      "programme-silence 10:00:08:00-10:00:10:12 [1,2]", "dropout 10:00:08:00-10:00:08:00 [1,2]",
      "click 10:00:12:00-10:00:12:00 [1]",             "dropout 10:00:14:00-10:00:14:00 [2]",
      "missing-channel 10:00:14:00-10:00:16:24 [2]"};
  EXPECT_EQ(found, expected);
  // The broadcast profile: a cut to silence is also a dropout; clipping and a missing channel
  // keep their event open 1 s and 2 s past the fault; a lost channel is channel silence only
  // after 5 s, which --profile engine (the engine's own 3 frames) brings down.
  EXPECT_EQ(Kvaudio("qc faults.wav --fps 25 --json --profile engine --rules channel-silence").json()["events"].size(),
            1u);
  // Rules chosen by --rules: only clipping remains.
  Json only = Kvaudio("qc faults.wav --fps 25 --json --rules clipping").json();
  ASSERT_EQ(only["events"].size(), 1u);
  EXPECT_EQ(only["events"][0]["rule"], 3);
  EXPECT_EQ(only["events"][0]["startSample"], 100 * kPerFrame);
  EXPECT_EQ(only["events"][0]["endSample"], 130 * kPerFrame);
}

// At 29.97 fps the frames follow the 1602/1601 cadence: a second of silence from frame 1800
// (00:01:00;02 in drop-frame) starts at sample 1800 x 1601.6 and its timecode carries ';'.
TEST_F(Cli, QcCountsFractionalFramesAndDropFrameTimecode) {
  constexpr size_t kStart = 1800 * 8008 / 5, kEnd = 1830 * 8008 / 5;
  std::vector<int16_t> pcm = Sine(48000, 2, 0x3, 70, 3276.7);
  std::fill(pcm.begin() + long(kStart * 2), pcm.begin() + long(kEnd * 2), 0);
  WriteWav("ntsc.wav", 48000, 2, pcm);
  Result run = Kvaudio("qc ntsc.wav --fps 29.97df --rules programme-silence --min programme-silence=1 --json");
  ASSERT_EQ(run.code, 1) << run.err;
  Json r = run.json();
  EXPECT_TRUE(r["libraryCadence"].get<bool>());
  EXPECT_EQ(r["report"]["samples"], 70 * 48000);
  ASSERT_EQ(r["events"].size(), 1u);
  const Json &e = r["events"][0];
  EXPECT_EQ(e["startSample"], kStart);
  EXPECT_EQ(e["endSample"], kEnd);
  EXPECT_EQ(e["startTimecode"], "00:01:00;02");
  EXPECT_EQ(e["endTimecode"], "00:01:01;01");
  EXPECT_EQ(e["frames"], 30);
}

// The JSON field names are a documented contract (docs/cli.md).
TEST_F(Cli, JsonFieldNamesAreStable) {
  ASSERT_EQ(Kvaudio("gen tone j.wav --duration 4").code, 0);
  ASSERT_EQ(Kvaudio("ltc encode l.wav --duration 1").code, 0);
  Json loud = Kvaudio("loudness j.wav --json --standard 1 --layout stereo1").json()["files"][0];
  EXPECT_EQ(Keys(loud), "file format input sampleRate channels frames duration layout integrated loudnessRange truePeak "
                        "samplePeak momentaryMax shortTermMax channelTruePeak channelSamplePeak invalidSamples "
                        "compat standard violations");
  EXPECT_EQ(Keys(loud["compat"]), "meter analysis");
  EXPECT_EQ(Keys(loud["compat"]["meter"]), "integrated momentary shortTerm");
  EXPECT_EQ(Keys(loud["compat"]["meter"]["momentary"]), "last max");
  EXPECT_EQ(Keys(loud["compat"]["analysis"]), "integrated momentary shortTerm range truePeak channelPeaks");
  EXPECT_EQ(Keys(loud["standard"]), "number target tolerance truePeakMax rangeMax");
  EXPECT_EQ(Keys(loud["layout"]), "name id");
  Json ltc = Kvaudio("ltc decode l.wav --json").json();
  EXPECT_EQ(Keys(ltc), "file sampleRate channel frames");
  EXPECT_EQ(Keys(ltc["frames"][0]), "timecode frameCount userBits dropFrame endSample endSeconds programmeTimecode");
  Json av = Kvaudio("avsync detect j.wav --json").json();
  EXPECT_EQ(Keys(av), "file found score position seconds videoFrame timecode offsetMs");
  Json qc = Kvaudio("qc j.wav --json").json();
  EXPECT_EQ(Keys(qc), "file format input sampleRate channels fps libraryCadence report events startTimecode");
  EXPECT_EQ(Keys(qc["report"]), "frames samples integrated range truePeak maxMomentary maxShortTerm eventsPerRule "
                                "totalEvents standard violations passed");
}

// --layout picks the channels that count: a tone on pair 1 of four channels, silence on pair 2.
TEST_F(Cli, LayoutChoosesTheMeasuredChannels) {
  WriteWav("pairs.wav", 48000, 4, Sine(48000, 4, 0x3, 6, 3276.7));
  Json one = Kvaudio("loudness pairs.wav --json --layout stereo1").json()["files"][0];
  Json two = Kvaudio("loudness pairs.wav --json --layout stereo2").json()["files"][0];
  Json all = Kvaudio("loudness pairs.wav --json").json()["files"][0];
  EXPECT_NEAR(one["integrated"].get<double>(), -20.0, 0.05);
  EXPECT_NEAR(all["integrated"].get<double>(), -20.0, 0.05);  // silent channels add nothing
  EXPECT_TRUE(two["integrated"].is_null());
  EXPECT_NEAR(one["compat"]["analysis"]["integrated"].get<double>(), -20.69, 0.02);
  EXPECT_TRUE(two["compat"]["analysis"]["integrated"].is_null());
  EXPECT_EQ(two["compat"]["analysis"]["channelPeaks"], Json::parse("[null, null, null, null]"));
}

// Each signal type lands at its level; results go to standard output only.
TEST_F(Cli, GeneratorSignalsReachTheirLevels) {
  struct Case {
    const char *type, *args;
    double peak, below;  // expected peak dBFS (NAN: silent) and how far under it noise may stay
  };
  const Case cases[] = {{"tone", "--level -6", -6.0, 0.05},           {"tone", "--level -6 --shape square", -6.0, 0.05},
                        {"sweep", "--level -12 --freq 100", -12.0, 0.05}, {"silence", "", NAN, 0},
                        {"noise", "--level -10", -10.0, 6.0},          {"pink", "--level -10", -10.0, 6.0}};
  for (const Case &c : cases) {
    std::string what = std::string(c.type) + " " + c.args;
    ASSERT_EQ(Kvaudio(std::string("gen ") + c.type + " s.wav --duration 3 " + c.args).code, 0) << what;
    Result run = Kvaudio("loudness s.wav --json");
    EXPECT_TRUE(run.err.empty()) << run.err;
    Json tp = run.json()["files"][0]["samplePeak"];
    if (std::isnan(c.peak)) {
      EXPECT_TRUE(tp.is_null()) << what;
      continue;
    }
    EXPECT_LE(tp.get<double>(), c.peak + 0.01) << what;
    EXPECT_GT(tp.get<double>(), c.peak - c.below) << what;
  }
}

// Wider files repeat the generator's pair in every pair; mono takes the left signal.
TEST_F(Cli, GeneratorFillsEveryChannel) {
  for (int channels : {1, 4, 7}) {
    std::string args = "gen tone c.wav --level -12 --duration 1 --channels " + std::to_string(channels);
    ASSERT_EQ(Kvaudio(args).code, 0) << args;
    Json r = Kvaudio("loudness c.wav --json").json()["files"][0];
    EXPECT_EQ(r["channels"], channels);
    ASSERT_EQ(r["channelSamplePeak"].size(), size_t(channels));
    for (const Json &peak : r["channelSamplePeak"]) EXPECT_NEAR(peak.get<double>(), -12.0, 0.01) << args;
  }
}

// A bad file among several is reported and the others are still analysed.
TEST_F(Cli, LoudnessGoesOnAfterABadFile) {
  ASSERT_EQ(Kvaudio("gen tone fine.wav --duration 2").code, 0);
  Result run = Kvaudio("loudness missing.wav fine.wav --json");
  EXPECT_EQ(run.code, 2);
  Json files = run.json()["files"];
  ASSERT_EQ(files.size(), 2u);
  EXPECT_EQ(Keys(files[0]), "file error");
  EXPECT_FALSE(files[1]["integrated"].is_null());
}

TEST_F(Cli, DemoPassesItsChecks) {
  Result run = Kvaudio("demo");
  EXPECT_EQ(run.code, 0) << run.out << run.err;
  EXPECT_NE(run.out.find("dispatch"), std::string::npos);
  EXPECT_NE(run.out.find("every check passed"), std::string::npos) << run.out;
}

TEST_F(Cli, PlotsRenderAsSvg) {
#ifndef KVAUDIO_RSVG
  GTEST_SKIP() << "rsvg-convert not found";
#else
  ASSERT_EQ(Kvaudio("gen sweep plot.wav --duration 20 --freq 100 --to 10000").code, 0);
  ASSERT_EQ(Kvaudio("loudness plot.wav --plot loud.svg").code, 0);
  ASSERT_NE(Kvaudio("qc plot.wav --plot qc.svg").code, 2);
  for (const char *svg : {"loud.svg", "qc.svg"}) {
    std::string png = Path(std::string(svg) + ".png");
    std::string command = "'" KVAUDIO_RSVG "' '" + Path(svg) + "' -o '" + png + "' 2>/dev/null";
    EXPECT_EQ(std::system(command.c_str()), 0) << svg;
    EXPECT_GT(fs::exists(png) ? fs::file_size(png) : 0, 1000u) << svg;
  }
#endif
}

// The reports of a batch and of the demo load in a browser without a script error, and their
// event rows and timeline bars are the events of the JSON of the same run; -j 1 prints the same.
TEST_F(Cli, QcReportsOpenInABrowserAndMatchTheJson) {
#ifndef KVAUDIO_CHROMIUM
  GTEST_SKIP() << "chromium not found";
#else
  std::vector<int16_t> pcm = Sine(48000, 2, 0x3, 20, 3276.7);
  std::fill(pcm.begin() + 2 * 48000 * 5, pcm.begin() + 2 * 48000 * 7, 0);
  pcm[2 * 48000 * 12] = 30000;
  WriteWav("r1.wav", 48000, 2, pcm);
  WriteWav("r2.wav", 48000, 2, Sine(48000, 2, 0x1, 8, 3276.7));
  const std::string args = "qc r1.wav r2.wav --json --start 10:00:00:00 --report rep --standard 1 -j ";
  Result run = Kvaudio(args + "2");
  ASSERT_EQ(run.code, 1) << run.err;
  EXPECT_EQ(Kvaudio(args + "1").out, run.out);
  ASSERT_EQ(Kvaudio("demo --report demo.html").code, 0);
  // Chromium's DOM after the page's script has run; a screenshot of the first page.
  auto open = [](const std::string &page, bool shot) {
    std::string flags = "timeout 90 '" KVAUDIO_CHROMIUM "' --headless --disable-gpu --no-sandbox "
                        "--user-data-dir='" + Path("chrome") + "' --virtual-time-budget=5000 ";
    if (shot) std::system((flags + "--window-size=1400,1100 --screenshot='" + Path("report.png") + "' 'file://" +
                           Path(page) + "' >/dev/null 2>&1").c_str());
    std::string dom;
    FILE *pipe = popen((flags + "--dump-dom 'file://" + Path(page) + "' 2>/dev/null").c_str(), "r");
    char buf[4096];
    for (size_t n; (n = fread(buf, 1, sizeof(buf), pipe)) > 0;) dom.append(buf, n);
    pclose(pipe);
    return dom;
  };
  Json files = run.json()["files"];
  std::vector<std::pair<std::string, Json>> pages = {{"rep/r1.wav.html", files[0]}, {"rep/r2.wav.html", files[1]},
                                                     {"demo.html", Json()}};
  const std::regex row("<tr class=\"ev-row[^\"]*\" data-i=\"\\d+\"><td class=\"num\">(\\d+)</td><td><span[^>]*>"
                       "</span>([^<]*)</td><td>([^<]*)</td><td>([^<]*)</td>");
  const std::regex bar("class=\"ev-bar\" data-i=\"\\d+\" data-rule=\"(\\d+)\"");
  for (const auto &[page, json] : pages) {
    std::string dom = open(page, page == pages[0].first);
    EXPECT_NE(dom.find("data-ready=\"1\""), std::string::npos) << page;
    EXPECT_NE(dom.find("<pre id=\"errors\"></pre>"), std::string::npos) << page;
    std::multiset<std::string> rows, expected;
    std::map<int, int> bars, rules;
    for (std::sregex_iterator m(dom.begin(), dom.end(), row), end; m != end; ++m)
      rows.insert((*m)[1].str() + " " + (*m)[2].str() + " " + (*m)[3].str() + " " + (*m)[4].str());
    for (std::sregex_iterator m(dom.begin(), dom.end(), bar), end; m != end; ++m) ++bars[std::stoi((*m)[1])];
    if (json.is_null()) {  // the demo clip has its faults, each a row and a bar
      int total = 0;
      for (const auto &[rule, n] : bars) total += n;
      EXPECT_GE(rows.size(), 3u) << page;
      EXPECT_EQ(size_t(total), rows.size()) << page;
      continue;
    }
    for (const Json &e : json["events"]) {
      expected.insert(e["rule"].dump() + " " + e["name"].get<std::string>() + " " +
                      e["startTimecode"].get<std::string>() + " " + e["endTimecode"].get<std::string>());
      ++rules[e["rule"].get<int>()];
    }
    EXPECT_EQ(rows, expected) << page;
    EXPECT_EQ(bars, rules) << page;
  }
  EXPECT_GT(fs::exists(Path("report.png")) ? fs::file_size(Path("report.png")) : 0, 20000u);
  std::string index = open("rep/index.html", false);
  EXPECT_NE(index.find("href=\"r1.wav.html\""), std::string::npos);
  EXPECT_NE(index.find("href=\"r2.wav.html\""), std::string::npos);
#endif
}

}  // namespace
