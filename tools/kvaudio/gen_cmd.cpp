// kvaudio gen: test signals from the library's generator, written to an audio file.
#include <CLI/CLI.hpp>

#include <cmath>
#include <cstdlib>
#include <map>
#include <memory>

#include "audio_file.h"
#include "kvaudio/generator.h"
#include "tool.h"

namespace kvtool {
namespace {

struct GenOptions {
  std::string type, out, shape = "sine";
  uint32_t frequency = 1000, endFrequency = 20000, rate = 48000, channels = 2, bits = 16;
  uint32_t steps = 31, seed = 1;
  double duration = 10.0, level = -18.0, sweepSeconds = 0.0;
  bool linear = false;
};

const std::map<std::string, uint32_t> kTypes = {{"tone", AUDGEN_TONE},
                                                {"sweep", AUDGEN_SWEEP},
                                                {"noise", AUDGEN_WHITE_NOISE},
                                                {"pink", AUDGEN_PINK_NOISE},
                                                {"silence", AUDGEN_SILENCE}};
const std::map<std::string, uint32_t> kShapes = {{"sine", AUDGEN_SHAPE_SINE},
                                                 {"square", AUDGEN_SHAPE_SQUARE},
                                                 {"triangle", AUDGEN_SHAPE_TRIANGLE},
                                                 {"sawtooth", AUDGEN_SHAPE_SAWTOOTH}};

int RunGen(const GenOptions &opt) {
  if (opt.rate < 8000 || opt.rate > 384000) throw ToolError("--rate must be 8000 to 384000 Hz");
  bool sweeping = opt.type == "sweep";
  if (opt.frequency == 0 || opt.frequency >= opt.rate / 2 || (sweeping && opt.endFrequency >= opt.rate / 2))
    throw ToolError("frequencies must lie between 1 Hz and half the sample rate");
  if (!(opt.duration > 0) || opt.duration > 24 * 3600) throw ToolError("--duration must be 0 to 86400 s");
  if (opt.level > 0) throw ToolError("--level is in dBFS and at most 0");
  double sweep = opt.sweepSeconds > 0 ? opt.sweepSeconds : opt.duration;
  if (sweeping && (sweep < 1 || opt.steps < 2))
    throw ToolError("a sweep needs at least 1 s (whole seconds count) and 2 steps");

  uint32_t flags = kTypes.at(opt.type) | (opt.linear ? AUDGEN_SWEEP_LINEAR : 0);
  uint32_t shape = kShapes.at(opt.shape);
  // The generator runs in 16-bit stereo; other channel counts and widths are made from it.
  WAVEFORMATEX format{1, 2, opt.rate, opt.rate * 4, 4, 16, 0};
  double amplitude = std::pow(10.0, opt.level / 20.0);
  std::srand(opt.seed);  // the noise generators draw from rand()
  tagAUDGENHANDLE *gen = audGenOpen(flags, opt.frequency, opt.endFrequency, uint32_t(sweep * 1000),
                                    opt.steps, shape, shape, &format, amplitude, amplitude, 0.0);
  std::unique_ptr<tagAUDGENHANDLE, uint32_t (*)(tagAUDGENHANDLE *)> hold(gen, audGenClose);

  AudioWriter writer(opt.out, opt.rate, opt.channels, opt.bits);
  const uint64_t total = uint64_t(std::llround(opt.duration * opt.rate));
  const size_t block = opt.rate;  // one second
  std::vector<int16_t> stereo(block * 2), out(block * opt.channels);
  for (uint64_t done = 0; done < total;) {
    size_t n = size_t(std::min<uint64_t>(block, total - done));
    audGenFillBuffer(gen, stereo.data(), uint32_t(n * 4));
    // Channel 2k takes the left signal, 2k+1 the right one.
    for (size_t i = 0; i < n; ++i)
      for (uint32_t c = 0; c < opt.channels; ++c) out[i * opt.channels + c] = stereo[i * 2 + (c & 1)];
    writer.Write(out.data(), n);
    done += n;
  }
  writer.Close();
  return kExitClean;
}

}  // namespace

void AddGenCommand(CLI::App &app, int *exitCode) {
  auto opt = std::make_shared<GenOptions>();
  CLI::App *cmd = app.add_subcommand("gen", "Write a test signal: tone, sweep, noise (white), pink "
                                            "(pink noise) or silence");
  cmd->add_option("TYPE", opt->type, "tone, sweep, noise, pink or silence")
      ->required()
      ->check(CLI::IsMember({"tone", "sweep", "noise", "pink", "silence"}));
  cmd->add_option("OUT", opt->out, "output file (.wav, .rf64, .aiff, .flac)")->required();
  cmd->add_option("--freq", opt->frequency, "tone or sweep start frequency, Hz (default 1000)");
  cmd->add_option("--to", opt->endFrequency, "sweep end frequency, Hz (default 20000)");
  cmd->add_option("--sweep-time", opt->sweepSeconds, "seconds of one sweep (default: --duration)");
  cmd->add_option("--steps", opt->steps, "frequency steps of a sweep (default 31)");
  cmd->add_flag("--linear", opt->linear, "linear sweep steps (default geometric)");
  cmd->add_option("--shape", opt->shape, "tone shape: sine, square, triangle, sawtooth")
      ->check(CLI::IsMember({"sine", "square", "triangle", "sawtooth"}));
  cmd->add_option("--level", opt->level, "peak level, dBFS (default -18)");
  cmd->add_option("--duration", opt->duration, "seconds (default 10)");
  cmd->add_option("--rate", opt->rate, "sample rate, Hz (default 48000)");
  cmd->add_option("--channels", opt->channels, "channels, 1-32 (default 2)")->check(CLI::Range(1, 32));
  cmd->add_option("--bits", opt->bits, "16, 24 or 32 (default 16)")->check(CLI::IsMember({16, 24, 32}));
  cmd->add_option("--seed", opt->seed, "noise seed (default 1)");
  cmd->callback([opt, exitCode] { *exitCode = RunGen(*opt); });
}

}  // namespace kvtool
