// A progress bar on standard error, shown only when it is a terminal and the input is long.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace kvtool {

class Progress {
 public:
  // `total` units of work; `seconds` of audio decide whether the bar is worth showing.
  Progress(const std::string &label, uint64_t total, double seconds);
  ~Progress();
  void Update(uint64_t done);
  // Clears the bar line (before results are printed).
  void Done();

 private:
  std::string label_;
  uint64_t total_;
  bool shown_;
  int lastPercent_ = -1;
  std::chrono::steady_clock::time_point last_;
};

}  // namespace kvtool
