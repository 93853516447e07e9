// kvaudio: command-line host of kvAudioUtil for real audio files.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <new>

#include "tool.h"

namespace kvtool {

ToolError FileError(const std::string &path, const std::string &what) {
  return ToolError(path + ": " + what);
}

}  // namespace kvtool

int main(int argc, char **argv) {
  using namespace kvtool;
  CLI::App app{"kvaudio: loudness, QC, LTC, test signals and AV-sync on audio files, built on "
               "kvAudioUtil.\nExit codes: 0 clean, 1 violations or events found, 2 usage or "
               "file error."};
  app.set_version_flag("--version", "kvaudio 1.0.0");
  app.require_subcommand(1);
  int exitCode = kExitClean;
  AddLoudnessCommand(app, &exitCode);
  AddQcCommand(app, &exitCode);
  AddLtcCommand(app, &exitCode);
  AddGenCommand(app, &exitCode);
  AddAvsyncCommand(app, &exitCode);
  AddDemoCommand(app, &exitCode);
  AddRtpCommand(app, &exitCode);
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success &e) {
    return app.exit(e);  // --help and --version
  } catch (const CLI::Error &e) {
    // A word where the subcommand belongs is named rather than reported as a missing subcommand.
    if (argc > 1 && argv[1][0] != '-' && app.get_subcommands().empty()) {
      std::fprintf(stderr, "kvaudio: unknown subcommand '%s' (see --help)\n", argv[1]);
      return kExitError;
    }
    std::fprintf(stderr, "kvaudio: %s (see --help)\n", e.what());
    return kExitError;
  } catch (const ToolError &e) {
    std::fflush(stdout);
    std::fprintf(stderr, "kvaudio: %s\n", e.what());
    return kExitError;
  } catch (const std::bad_alloc &) {
    std::fprintf(stderr, "kvaudio: out of memory\n");
    return kExitError;
  }
  return exitCode;
}
