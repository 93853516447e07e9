// Progress bar on a terminal's standard error.
#include "progress.h"

#include <unistd.h>

#include <cstdio>

namespace kvtool {
namespace {
constexpr double kLongInputSeconds = 10.0;  // shorter inputs finish before a bar helps
constexpr int kBarWidth = 40;
}  // namespace

Progress::Progress(const std::string &label, uint64_t total, double seconds)
    : label_(label), total_(total), shown_(seconds > kLongInputSeconds && isatty(STDERR_FILENO)) {}

Progress::~Progress() { Done(); }

void Progress::Update(uint64_t done) {
  if (!shown_ || total_ == 0) return;
  int percent = int(done * 100 / total_);
  auto now = std::chrono::steady_clock::now();
  if (percent == lastPercent_ || now - last_ < std::chrono::milliseconds(100)) return;
  lastPercent_ = percent;
  last_ = now;
  int filled = percent * kBarWidth / 100;
  std::fprintf(stderr, "\r%s [%.*s%*s] %3d%%", label_.c_str(), filled,
               "########################################", kBarWidth - filled, "", percent);
  std::fflush(stderr);
}

void Progress::Done() {
  if (!shown_ || lastPercent_ < 0) return;
  std::fprintf(stderr, "\r%*s\r", int(label_.size()) + kBarWidth + 8, "");
  std::fflush(stderr);
  lastPercent_ = -1;
}

}  // namespace kvtool
