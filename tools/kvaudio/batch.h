// Several files measured at once: work on threads, results handed back in argument order.
#pragma once

#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace kvtool {

// Threads for -j 0: every core the machine reports, at least one.
unsigned DefaultJobs();

// Runs work(i) for every i < count on up to `jobs` threads (each call stays on one thread), and
// done(i) on the calling thread in index order, each as soon as work(0..i) have finished. With one
// job everything runs on the calling thread. An exception from work(i) is rethrown in place of
// done(i), after the threads have stopped.
void RunOrdered(size_t count, unsigned jobs, const std::function<void(size_t)> &work,
                const std::function<void(size_t)> &done);

// "qc 3/20 done: now file.wav" on standard error, when it is a terminal and there are several files.
class BatchProgress {
 public:
  BatchProgress(std::string label, std::vector<std::string> files);
  ~BatchProgress();
  void Started(size_t index);
  void Finished(size_t index);

 private:
  void Show();  // with mutex_ held
  std::string label_;
  std::vector<std::string> files_;
  std::vector<size_t> running_;
  size_t done_ = 0;
  bool shown_;
  size_t width_ = 0;
  std::mutex mutex_;
};

}  // namespace kvtool
