// End-to-end runs of the kvaudio binary: round trips through files, exit codes, bad input.
#include <cmath>
#include <cstring>
#include <regex>
#include <set>
#include <sstream>

#include "cli.h"

namespace {

namespace fs = std::filesystem;
using kvcli::Json;
using kvcli::Result;
using Cli = kvcli::Scratch<false>;

// Interleaved 48 kHz, 1 kHz -20 dBFS sine on the channels of `mask`, each a quarter cycle behind the last.
std::vector<int16_t> Sine(uint32_t channels, uint32_t mask, double seconds) {
  std::vector<int16_t> pcm(size_t(seconds * 48000) * channels);
  for (size_t i = 0; i < pcm.size(); ++i)
    if (mask >> (i % channels) & 1)
      pcm[i] = int16_t(std::lround(3276.7 * std::sin(M_PI * (i / channels / 24.0 - i % channels / 2.0))));
  return pcm;
}

// Keys of a JSON object, in order: the field names are a documented contract (docs/cli.md).
std::string Keys(const Json &object) {
  std::string keys;
  for (auto it = object.begin(); it != object.end(); ++it) keys += (keys.empty() ? "" : " ") + it.key();
  return keys;
}

// --help prints usage; bad arguments and unreadable files are refused (see ExpectRefused).
TEST_F(Cli, HelpAndBadInputExitTwoWithOneLine) {
  for (const char *cmd : {"", "ltc", "ltc decode", "avsync", "avsync insert", "demo"}) {
    Result help = Kvaudio(std::string(cmd) + " --help");
    EXPECT_EQ(help.code, 0) << cmd;
    EXPECT_NE(help.out.find("Usage"), std::string::npos) << cmd;
  }
  for (const std::string gen :
       {"good.wav --duration 2", "low.wav --rate 8000 --duration 1", "hi.wav --rate 96000 --duration 1"})
    ASSERT_EQ(Kvaudio("gen tone " + gen).code, 0) << gen;
  const std::string good = Bytes("good.wav");
  std::string mpeg = good;
  mpeg[good.find("fmt ") + 8] = 0x55;  // MPEG in WAV
  Write("mp3tag.wav", mpeg);
  Write("empty.wav", "");
  Write("text.wav", "not audio\n");
  Write("cut.wav", good.substr(0, good.size() / 2));
  Write("header.wav", good.substr(0, good.size() - WavData("good.wav").size()));
  const std::pair<const char *, const char *> cases[] = {
      {"", "subcommand"}, {"bogus x.wav", "'bogus'"}, {"loudness", "FILE"}, {"gen tone", "OUT"},
      {"gen hum x.wav", "hum"}, {"loudness x.wav --bogus", "--bogus"}, {"ltc encode x.wav --fps 23.976", "23.976"},
      {"qc x.wav --fps 31", "31"}, {"loudness x.wav --standard 9", "9"}, {"loudness missing.wav", "missing.wav"},
      {"loudness empty.wav", "empty.wav"}, {"qc text.wav", "text.wav"}, {"loudness cut.wav", "cut.wav"},
      {"qc cut.wav", "cut.wav"}, {"ltc decode header.wav", "header.wav"}, {"avsync detect mp3tag.wav", "mp3tag.wav"},
      {"avsync detect low.wav", "low.wav"}, {"ltc decode hi.wav", "hi.wav"},
      {"loudness good.wav --layout 7.1", "good.wav"}, {"avsync detect cut.wav", "cut.wav"}};
  for (const auto &[args, named] : cases) ExpectRefused(args, named);
}

// Every container, width, channel count and signal of the generator reads back at its level on every channel.
TEST_F(Cli, GenThenLoudnessAcrossFormatsAndSignals) {
  struct Case { const char *gen; int channels; double below; };  // peaks up to `below` under -20 dBFS; NAN: silent
  const Case cases[] = {{"tone t.wav", 2, 0},          {"tone t.flac --bits 24", 2, 0}, {"tone t.aiff --bits 32", 2, 0},
                        {"tone t.rf64 --bits 24", 2, 0}, {"tone t.wav --channels 7", 7, 0}, {"tone t.wav --channels 1", 1, 0},
                        {"sweep t.wav --freq 100", 2, 0.05}, {"silence t.wav", 2, NAN},
                        {"noise t.wav --channels 4", 4, 6}, {"pink t.wav", 2, 6}};
  for (const Case &c : cases) {
    std::string type, file;
    std::istringstream(c.gen) >> type >> file;
    ASSERT_EQ(Kvaudio(std::string("gen ") + c.gen + " --level -20 --duration 12").code, 0) << c.gen;
    Result run = Kvaudio("loudness " + file + " --json");
    ASSERT_EQ(run.code, 0) << c.gen << run.err;
    EXPECT_EQ(run.err, "") << c.gen;
    Json r = run.json()["files"][0];
    EXPECT_NEAR(r["duration"].get<double>(), 12.0, 1e-9) << c.gen;
    ASSERT_EQ(r["channelSamplePeak"].size(), size_t(c.channels)) << c.gen;
    for (const Json &peak : r["channelSamplePeak"])
      EXPECT_TRUE(std::isnan(c.below) ? peak.is_null() : std::abs(peak.get<double>() + 20 + c.below / 2) <= c.below / 2 + 0.01)
          << c.gen << " " << peak;
    if (c.channels != 2 || c.below != 0) continue;
    EXPECT_NEAR(r["integrated"].get<double>(), -20.0, 0.05) << c.gen;
    EXPECT_NEAR(r["compat"]["analysis"]["truePeak"].get<double>(), -20.0, 0.01) << c.gen;
  }
}

// Tones known in closed form, float beyond full scale too; the standard decides violations and exit code.
TEST_F(Cli, LoudnessStandardReadingsAndExitCodes) {
  struct Case {  // 20 s stereo tones of peak `amplitude` (full scale 1), f*.wav in float; NAN: not checked
    const char *file, *args;
    double amplitude, freq, phase, integrated, truePeak, samplePeak;
    const char *violations;
    int code;
  };
  const Case cases[] = {
      {"s23.wav", "--standard ebu-r128", std::pow(10.0, -23.0 / 20), 1000, 0, -23.0, -23.0, -23.0, "[]", 0},
      {"f23.wav", "--standard 1", std::pow(10.0, -23.0 / 20), 1000, 0, -23.0, -23.0, -23.0, "[]", 0},
      {"f3.wav", "--standard ebu-r128", std::sqrt(2.0), 1000, 0, 3.0, 3.0, 3.0,
       R"(["integrated-above-target","true-peak-above-maximum"])", 1},
      // 12 kHz at half scale, sampled at 45 degrees: samples at -9.03 dBFS, true peak -6.02 dBTP.
      {"tp.wav", "--standard atsc-a85", 0.5, 12000, M_PI / 4, NAN, -6.02, -9.03, R"(["integrated-above-target"])", 1},
  };
  for (const Case &c : cases) {
    std::vector<float> v(20 * 48000 * 2);
    std::vector<int16_t> s16(v.size());
    for (size_t i = 0; i < v.size(); ++i) {
      v[i] = float(c.amplitude * std::sin(2 * M_PI * c.freq * double(i / 2) / 48000 + c.phase));
      s16[i] = int16_t(std::lround(v[i] * 32768.0));
    }
    c.file[0] == 'f' ? WriteWav(c.file, 48000, 2, v) : WriteWav(c.file, 48000, 2, s16);
    Result run = Kvaudio(std::string("loudness ") + c.file + " --json " + c.args);
    ASSERT_EQ(run.code, c.code) << c.file << run.err;
    Json r = run.json()["files"][0];
    if (!std::isnan(c.integrated)) { EXPECT_NEAR(r["integrated"].get<double>(), c.integrated, 0.1) << c.file; }
    EXPECT_NEAR(r["truePeak"].get<double>(), c.truePeak, 0.2) << c.file;
    EXPECT_NEAR(r["samplePeak"].get<double>(), c.samplePeak, 0.01) << c.file;
    EXPECT_EQ(r["violations"].dump(), c.violations) << c.file;
  }
  Result batch = Kvaudio("loudness missing.wav f3.wav s23.wav --json --standard 1");
  EXPECT_EQ(batch.code, 2);
  Json files = batch.json()["files"];
  ASSERT_EQ(files.size(), 3u);
  EXPECT_EQ(Keys(files[0]), "file error");
  EXPECT_NEAR(files[2]["integrated"].get<double>(), -23.0, 0.1);
}

// Encoded LTC decodes to the frame that ends where each decoded frame ends, on the channel asked for.
TEST_F(Cli, LtcEncodeThenDecode) {
  struct Case { std::string fps; const char *start; uint64_t startCount, perDay; int rate; };
  const Case cases[] = {{"24", "23:59:58:00", 2073552, 2073600, 44100},  // wraps at midnight
                        {"30", "00:10:00:00", 18000, 2592000, 48000}, {"29.97", "00:00:59:28", 1798, 2592000, 48000},
                        {"29.97df", "00:00:59;28", 1798, 2589408, 48000},  // crosses a dropped pair
                        {"25", "12:34:56:00", 1132400, 2160000, 48000}};
  for (const Case &c : cases) {
    ASSERT_EQ(Kvaudio("ltc encode ltc.wav --duration 45 --fps " + c.fps + " --start '" + c.start + "' --rate " +
                      std::to_string(c.rate)).code, 0) << c.fps;
    Result run = Kvaudio("ltc decode ltc.wav --json --fps " + c.fps);
    ASSERT_EQ(run.code, 0) << run.err;
    Json frames = run.json()["frames"];
    EXPECT_EQ(Keys(run.json()) + ", " + Keys(frames[0]),
              "file sampleRate channel frames, timecode frameCount userBits dropFrame endSample endSeconds programmeTimecode");
    // 45 s spans several 1000-frame encoder blocks; about half the frames decode, the first may not.
    const double perSecond = c.fps.find('.') == std::string::npos ? std::stod(c.fps) : 30000.0 / 1001;
    EXPECT_GT(frames.size(), size_t(45 * perSecond * 0.4)) << c.fps;
    for (size_t i = 1; i < frames.size(); ++i) {
      uint64_t k = uint64_t(std::lround(frames[i]["endSample"].get<double>() * perSecond / c.rate)) - 1;
      EXPECT_EQ(frames[i]["frameCount"].get<uint64_t>(), (c.startCount + k) % c.perDay) << c.fps << " " << i;
      if (frames[i]["frameCount"] == 1800 && c.fps == "29.97df") { EXPECT_EQ(frames[i]["timecode"], "00:01:00;02"); }
    }
  }
  const std::string ltc = WavData("ltc.wav");  // 25 fps from 12:34:56:00
  std::vector<int16_t> stereo = Sine(2, 0x1, 45);
  for (size_t i = 0; i < stereo.size() / 2; ++i) std::memcpy(&stereo[i * 2 + 1], &ltc[i * 2], 2);
  WriteWav("stereo16.wav", 48000, 2, stereo);
  Result right = Kvaudio("ltc decode stereo16.wav --channel right --fps 25");
  EXPECT_NE(right.out.find("12:34:57:"), std::string::npos) << right.out;
  EXPECT_EQ(Kvaudio("ltc decode stereo16.wav --channel 2 --fps 25").out, right.out);
  EXPECT_EQ(Kvaudio("ltc decode stereo16.wav --channel left --fps 25").code, 1);
}

TEST_F(Cli, AvsyncInsertThenDetect) {
  struct Case { const char *file, *gen; uint32_t rate, frame; };
  const Case cases[] = {{"a.wav", "pink --channels 2", 48000, 137},
                        {"a.flac", "tone --channels 1 --bits 24", 44100, 40},
                        {"a.aiff", "noise --channels 6 --bits 32 --level -30", 96000, 201}};
  for (const Case &c : cases) {
    std::string in = c.file, rate = std::to_string(c.rate), frame = std::to_string(c.frame);
    ASSERT_EQ(Kvaudio(std::string("gen ") + c.gen + " " + in + " --duration 10 --rate " + rate).code, 0);
    ASSERT_EQ(Kvaudio("avsync insert " + in + " b" + in + " --fps 25 --frame " + frame).code, 0);
    Result run = Kvaudio("avsync detect b" + in + " --json --fps 25 --expect-frame " + frame);
    ASSERT_EQ(run.code, 0) << run.err;
    Json r = run.json();
    EXPECT_EQ(Keys(r), "file found score position seconds videoFrame timecode offsetMs");
    EXPECT_EQ(r["position"].get<uint64_t>(), uint64_t(c.frame) * c.rate / 25) << in;
    EXPECT_EQ(r["videoFrame"], c.frame);
    EXPECT_NEAR(r["offsetMs"].get<double>(), 0.0, 1e-6);
    double before = c.frame / 25.0 - 0.5;
    EXPECT_EQ(Kvaudio("avsync detect b" + in + " --to " + std::to_string(before)).code, 1) << in;
    EXPECT_EQ(Kvaudio("avsync detect b" + in + " --from " + std::to_string(before)).code, 0) << in;
  }
}

// Tones with faults at known frames give exactly their events there, at 25 fps and at 29.97 drop-frame
// (frame 1800 starts at sample 1800 x 1601.6, at 00:01:00;02).
TEST_F(Cli, QcFindsInjectedFaultsAndReportsThem) {
  constexpr long kPerFrame = 48000 / 25;
  std::vector<int16_t> pcm = Sine(2, 0x3, 20);
  auto frame = [&](long n) { return pcm.begin() + n * kPerFrame * 2; };
  // Frames 100-104 overdriven by 26 dB and clipped (the gain ramps over a cycle at each end: no click);
  // 200-262 silent (2.5 s: past the 2 s minimum); channel 2 lost for a second from frame 350.
  for (auto s = frame(100); s < frame(105); ++s) {
    const long edge = std::min(s - frame(100), frame(105) - 1 - s) / 2;
    *s = int16_t(std::clamp(std::lround(*s * (1 + 19 * std::min(1.0, edge / 48.0))), -32767L, 32767L));
  }
  std::fill(frame(200), frame(263), 0);
  for (auto s = frame(350) + 1; s < frame(375); s += 2) *s = 0;
  WriteWav("faults.wav", 48000, 2, pcm);
  pcm = Sine(2, 0x3, 70);
  std::fill(pcm.begin() + 1800 * 8008 / 5 * 2, pcm.begin() + 1830 * 8008 / 5 * 2, 0);
  WriteWav("ntsc.wav", 48000, 2, pcm);
  struct Case { const char *args, *report; std::set<std::string> events; };
  const Case cases[] = {
      {"faults.wav --fps 25 --start 10:00:00:00 --standard 1", "500 960000 false",
       {"clipping 10:00:04:00-10:00:05:04 [1,2] 192000-249600 30 3",
        "near-clip 10:00:04:00-10:00:04:04 [1,2] 192000-201600 5 16",
        "true-peak 10:00:04:00-10:00:04:04 [1,2] 192000-201600 5 6",
        "dropout 10:00:08:00-10:00:08:00 [1,2] 384000-385920 1 13",
        "dropout 10:00:14:00-10:00:14:00 [2] 672000-673920 1 13",
        "programme-silence 10:00:08:00-10:00:10:12 [1,2] 384000-504960 63 1",
        "missing-channel 10:00:14:00-10:00:16:24 [2] 672000-816000 75 17",
        "loudness-off-target 10:00:02:24-10:00:09:03 [1,2] 142080-439680 155 5",
        "loudness-off-target 10:00:09:22-10:00:11:18 [1,2] 474240-564480 47 5",
        "loudness-off-target 10:00:12:12-10:00:19:24 [1,2] 599040-960000 188 5"}},
      // The broadcast profile calls a lost channel silent only after 5 s; the engine's after 3 frames.
      {"faults.wav --fps 25 --profile engine --rules channel-silence", "500 960000 false",
       {"channel-silence 00:00:14:00-00:00:14:24 [2] 672000-720000 25 2"}},
      {"ntsc.wav --fps 29.97df --rules programme-silence --min programme-silence=1", "2098 3360000 false",
       {"programme-silence 00:01:00;02-00:01:01;01 [1,2] 2882880-2930928 30 1"}},
  };
  Json first;
  for (const Case &c : cases) {
    const Result run = Kvaudio(std::string("qc ") + c.args + " --json");
    EXPECT_EQ(run.code, 1) << c.args << run.err;
    const Json r = run.json();
    EXPECT_EQ(Keys(r), "file format input sampleRate channels fps libraryCadence report events startTimecode");
    EXPECT_EQ(Keys(r["report"]), "frames samples integrated range truePeak maxMomentary maxShortTerm eventsPerRule "
                                 "totalEvents standard violations passed");
    const Json &report = r["report"];
    EXPECT_EQ(report["frames"].dump() + " " + report["samples"].dump() + " " + report["passed"].dump(), c.report);
    std::set<std::string> found;
    for (const Json &e : r["events"])
      found.insert(e["name"].get<std::string>() + " " + e["startTimecode"].get<std::string>() + "-" +
                   e["endTimecode"].get<std::string>() + " " + e["channels"].dump() + " " + e["startSample"].dump() +
                   "-" + e["endSample"].dump() + " " + e["frames"].dump() + " " + e["rule"].dump());
    EXPECT_EQ(found, c.events) << c.args;
    if (first.is_null()) first = r;
  }
  // Two files in two threads and in one print the same, each as it prints alone; each file's report is written.
  WriteWav("clean.wav", 48000, 2, Sine(2, 0x1, 8));
  const std::string args = "qc faults.wav clean.wav --fps 25 --json --start 10:00:00:00 --report rep --standard 1 -j ";
  Result batch = Kvaudio(args + "2");
  EXPECT_EQ(Kvaudio(args + "1").out, batch.out);
  const Json files = batch.json()["files"];
  EXPECT_EQ(files[0], first);
  // The plots render as SVG; the reports of the batch and of the demo open in a browser.
#ifdef KVAUDIO_RSVG
  ASSERT_EQ(Kvaudio("loudness faults.wav --plot loud.svg").code, 0);
  ASSERT_EQ(Kvaudio("qc faults.wav --plot qc.svg").code, 1);
  for (const std::string svg : {"loud.svg", "qc.svg"}) {
    EXPECT_EQ(std::system(("'" KVAUDIO_RSVG "' '" + Path(svg) + "' -o '" + Path(svg + ".png") + "'").c_str()), 0) << svg;
    EXPECT_GT(fs::exists(Path(svg + ".png")) ? fs::file_size(Path(svg + ".png")) : 0, 1000u) << svg;
  }
#endif
#ifdef KVAUDIO_CHROMIUM
  ASSERT_EQ(Kvaudio("demo --report demo.html").code, 0);
  // Chromium's DOM after the page's script has run: no script error, a row for each event.
  auto open = [](const std::string &page) {
    return Finish(Start("timeout 90 '" KVAUDIO_CHROMIUM "' --headless --disable-gpu --no-sandbox --user-data-dir=chrome "
                        "--virtual-time-budget=5000 --dump-dom 'file://" + Path(page) + "'", "/dev/null"), "/dev/null").out;
  };
  const std::regex row("<tr class=\"ev-row[^\"]*\" data-i=\"\\d+\"><td class=\"num\">(\\d+)</td><td><span[^>]*>"
                       "</span>([^<]*)</td><td>([^<]*)</td><td>([^<]*)</td>");
  const char *const pages[] = {"rep/faults.wav.html", "rep/clean.wav.html", "demo.html"};
  for (size_t i = 0; i < 3; ++i) {
    const std::string dom = open(pages[i]);
    EXPECT_NE(dom.find("data-ready=\"1\""), std::string::npos) << pages[i];
    EXPECT_NE(dom.find("<pre id=\"errors\"></pre>"), std::string::npos) << pages[i];
    std::multiset<std::string> rows, want;
    for (std::sregex_iterator m(dom.begin(), dom.end(), row), end; m != end; ++m)
      rows.insert(m->str(1) + " " + m->str(2) + " " + m->str(3) + " " + m->str(4));
    for (const Json &e : i < 2 ? files[i]["events"] : Json::array())
      want.insert(e["rule"].dump() + " " + std::string(e["name"]) + " " + std::string(e["startTimecode"]) + " " +
                  std::string(e["endTimecode"]));
    EXPECT_TRUE(i < 2 ? rows == want : rows.size() >= 3) << pages[i] << " " << rows.size();  // the demo has its faults
  }
  const std::string index = open("rep/index.html");
  for (const char *link : {"href=\"faults.wav.html\"", "href=\"clean.wav.html\""}) EXPECT_NE(index.find(link), std::string::npos);
#endif
}

// --layout picks the channels that count: a tone on pair 1 of four channels, silence on pair 2.
TEST_F(Cli, LayoutChoosesTheMeasuredChannels) {
  WriteWav("pairs.wav", 48000, 4, Sine(4, 0x3, 6));
  Json one = Kvaudio("loudness pairs.wav --json --layout stereo1 --standard 1").json()["files"][0];
  EXPECT_EQ(Keys(one), "file format input sampleRate channels frames duration layout integrated loudnessRange truePeak "
                       "samplePeak momentaryMax shortTermMax channelTruePeak channelSamplePeak invalidSamples "
                       "compat standard violations");
  EXPECT_EQ(Keys(one["compat"]) + ", " + Keys(one["compat"]["meter"]) + ", " + Keys(one["compat"]["meter"]["momentary"]),
            "meter analysis, integrated momentary shortTerm, last max");
  EXPECT_EQ(Keys(one["compat"]["analysis"]), "integrated momentary shortTerm range truePeak channelPeaks");
  EXPECT_EQ(Keys(one["standard"]) + ", " + Keys(one["layout"]), "number target tolerance truePeakMax rangeMax, name id");
  Json two = Kvaudio("loudness pairs.wav --json --layout stereo2").json()["files"][0];
  EXPECT_NEAR(one["integrated"].get<double>(), -20.0, 0.05);
  EXPECT_TRUE(two["integrated"].is_null());
}

}  // namespace
