// Ordered parallel runs and their progress line.
#include "batch.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <exception>
#include <thread>

namespace kvtool {

unsigned DefaultJobs() { return std::max(1u, std::thread::hardware_concurrency()); }

void RunOrdered(size_t count, unsigned jobs, const std::function<void(size_t)> &work,
                const std::function<void(size_t)> &done) {
  jobs = unsigned(std::min<size_t>(std::max(1u, jobs), count));
  if (jobs <= 1) {
    for (size_t i = 0; i < count; ++i) {
      work(i);
      done(i);
    }
    return;
  }
  std::vector<char> finished(count, 0);
  std::vector<std::exception_ptr> errors(count);
  std::atomic<size_t> next{0};
  std::atomic<bool> stop{false};
  std::mutex mutex;
  std::condition_variable ready;
  std::vector<std::thread> threads;
  for (unsigned t = 0; t < jobs; ++t)
    threads.emplace_back([&] {
      for (size_t i; !stop && (i = next++) < count;) {
        try {
          work(i);
        } catch (...) {
          errors[i] = std::current_exception();
        }
        std::lock_guard<std::mutex> lock(mutex);
        finished[i] = 1;
        ready.notify_all();
      }
    });
  std::exception_ptr failure;
  for (size_t i = 0; i < count && !failure; ++i) {
    {
      std::unique_lock<std::mutex> lock(mutex);
      ready.wait(lock, [&] { return finished[i] != 0; });
    }
    if (errors[i]) {
      failure = errors[i];
      break;
    }
    try {
      done(i);
    } catch (...) {
      failure = std::current_exception();
    }
  }
  stop = true;
  for (std::thread &t : threads) t.join();
  if (failure) std::rethrow_exception(failure);
}

BatchProgress::BatchProgress(std::string label, std::vector<std::string> files)
    : label_(std::move(label)), files_(std::move(files)), shown_(files_.size() > 1 && isatty(STDERR_FILENO)) {}

BatchProgress::~BatchProgress() {
  if (shown_ && width_) std::fprintf(stderr, "\r%*s\r", int(width_), "");
}

void BatchProgress::Started(size_t index) {
  std::lock_guard<std::mutex> lock(mutex_);
  running_.push_back(index);
  Show();
}

void BatchProgress::Finished(size_t index) {
  std::lock_guard<std::mutex> lock(mutex_);
  running_.erase(std::remove(running_.begin(), running_.end(), index), running_.end());
  ++done_;
  Show();
}

void BatchProgress::Show() {
  if (!shown_) return;
  std::string line = label_ + " " + std::to_string(done_) + "/" + std::to_string(files_.size()) + " done";
  if (!running_.empty()) line += ": now " + files_[running_.back()];
  if (line.size() > 100) line = line.substr(0, 97) + "...";
  std::fprintf(stderr, "\r%-*s", int(width_), line.c_str());
  std::fflush(stderr);
  width_ = std::max(width_, line.size());
}

}  // namespace kvtool
