// Shared declarations of the kvaudio tool: errors with their exit codes and the subcommands.
#pragma once

#include <stdexcept>
#include <string>

namespace CLI {
class App;
}

namespace kvtool {

// Exit codes: 0 clean, 1 violations or events found, 2 usage or file error.
enum ExitCode { kExitClean = 0, kExitFindings = 1, kExitError = 2 };

// An error that ends the run with exit code 2 and one line on standard error.
class ToolError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// "FILE: what" as a ToolError.
ToolError FileError(const std::string &path, const std::string &what);

// Each subcommand registers itself and stores its exit code in *exitCode when it runs.
void AddLoudnessCommand(CLI::App &app, int *exitCode);
void AddQcCommand(CLI::App &app, int *exitCode);
void AddLtcCommand(CLI::App &app, int *exitCode);
void AddGenCommand(CLI::App &app, int *exitCode);
void AddAvsyncCommand(CLI::App &app, int *exitCode);
void AddDemoCommand(CLI::App &app, int *exitCode);
void AddRtpCommand(CLI::App &app, int *exitCode);

}  // namespace kvtool
