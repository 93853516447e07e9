// The tool's end-to-end tests: a scratch directory per suite and shell commands run inside it.
#pragma once
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <type_traits>
#include <vector>

#ifndef KVAUDIO_CLI
#define KVAUDIO_CLI ""
#endif
#ifndef KVAUDIO_FFMPEG
#define KVAUDIO_FFMPEG ""
#endif

namespace kvcli {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

struct Result {
  int code;
  std::string out, err;
  Json json() const { return Json::parse(out); }
};

// Skipped without the tool, and without ffmpeg when `kFfmpeg`.
template <bool kFfmpeg>
class Scratch : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { char pattern[] = "/tmp/kvaudio_cli_XXXXXX"; dir_ = mkdtemp(pattern); }
  static void TearDownTestSuite() { fs::remove_all(dir_); }
  void SetUp() override { if (!*KVAUDIO_CLI || (kFfmpeg && !*KVAUDIO_FFMPEG)) GTEST_SKIP() << "needs the tool/ffmpeg"; }
  static std::string Path(const std::string &name) { return (dir_ / name).string(); }
  // Starts a shell command in the scratch directory; Finish collects its exit code and output.
  static FILE *Start(const std::string &command, const std::string &err = "err.txt") {
    return popen(("cd '" + dir_.string() + "' && " + command + " 2>" + err).c_str(), "r");
  }
  static Result Finish(FILE *pipe, const std::string &err = "err.txt") {
    std::string out;
    char buf[4096];
    for (size_t n; (n = fread(buf, 1, sizeof(buf), pipe)) > 0;) out.append(buf, n);
    const int status = pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out, Bytes(err)};
  }
  static Result Kvaudio(const std::string &args) { return Finish(Start("'" KVAUDIO_CLI "' " + args)); }
  static int Ffmpeg(const std::string &args) {
    return Finish(Start("timeout 60 '" KVAUDIO_FFMPEG "' -v error -y " + args, "ff.txt"), "ff.txt").code;
  }

  static std::string Bytes(const std::string &name) {
    std::ifstream in(Path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  static void Write(const std::string &name, const std::string &bytes) { std::ofstream(Path(name), std::ios::binary) << bytes; }
  static std::string WavData(const std::string &name) {
    const std::string all = Bytes(name);
    return all.find("data") == std::string::npos ? "" : all.substr(all.find("data") + 8);
  }
  // A WAV file of interleaved integer (format tag 1) or float (tag 3) samples.
  template <typename T>
  static void WriteWav(const std::string &name, uint32_t rate, uint32_t channels, const std::vector<T> &pcm,
                       uint32_t bits = 8 * sizeof(T)) {
    auto le = [](size_t v, int n) { return std::string(reinterpret_cast<const char *>(&v), n); };
    const std::string data(reinterpret_cast<const char *>(pcm.data()), pcm.size() * sizeof(T));
    Write(name, "RIFF" + le(36 + data.size(), 4) + "WAVEfmt " + le(16, 4) + le(std::is_floating_point_v<T> ? 3 : 1, 2) +
                    le(channels, 2) + le(rate, 4) + le(rate * channels * bits / 8, 4) + le(channels * bits / 8, 2) +
                    le(bits, 2) + "data" + le(data.size(), 4) + data);
  }
  // Bad input: exit 2, nothing on standard output and one line on standard error that names `what`.
  static void ExpectRefused(const std::string &args, const std::string &what) {
    const Result run = Kvaudio(args);
    EXPECT_EQ(run.code, 2) << args;
    EXPECT_EQ(run.out, "") << args;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << args << ": " << run.err;
    EXPECT_NE(run.err.find(what), std::string::npos) << args << ": " << run.err;
  }

  static inline fs::path dir_;
};

}  // namespace kvcli
