#include "signing/batch_runner.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <set>
#include <system_error>
#include <thread>
#include <vector>

namespace {

// What the threads of one batch share.
class BatchState {
 public:
  BatchState(size_t count, const BatchWork& work, const BatchReport& report)
      : count_(count), work_(work), report_(report), done_(count, false) {}

  // Takes items until none is left (or one failed), doing and reporting each.
  void run(unsigned worker) {
    try {
      for (size_t item = next_++; item < count_ && !failed_; item = next_++) {
        work_(item, worker);
        finish(item);
      }
    } catch (...) {
      const std::lock_guard<std::mutex> hold(lock_);
      if (!failed_.exchange(true)) failure_ = std::current_exception();
    }
  }

  void rethrow() const {
    if (failure_) std::rethrow_exception(failure_);
  }

 private:
  // Marks item done and reports every done item that no earlier one holds back.
  void finish(size_t item) {
    const std::lock_guard<std::mutex> hold(lock_);
    done_[item] = true;
    while (reported_ < count_ && done_[reported_]) report_(reported_++);
  }

  const size_t count_;
  const BatchWork& work_;
  const BatchReport& report_;
  std::atomic<size_t> next_{0};
  std::atomic<bool> failed_{false};
  std::mutex lock_;  // done_, reported_, failure_ and the report calls
  std::vector<bool> done_;
  size_t reported_ = 0;
  std::exception_ptr failure_;
};

}  // namespace

unsigned defaultJobs() {
  return std::clamp(std::thread::hardware_concurrency(), 1U, kMostJobs);
}

void runBatch(size_t count, unsigned jobs, const BatchWork& work, const BatchReport& report) {
  BatchState state(count, work, report);
  const size_t threads = std::min<size_t>(std::clamp(jobs, 1U, kMostJobs), std::max<size_t>(count, 1));
  std::vector<std::thread> helpers;
  helpers.reserve(threads - 1);
  // A thread the system refuses leaves the batch to the ones it gave.
  try {
    for (size_t worker = 1; worker < threads; ++worker) {
      helpers.emplace_back([&state, worker] { state.run(static_cast<unsigned>(worker)); });
    }
  } catch (const std::system_error&) {
  }
  state.run(0);
  for (std::thread& t : helpers) t.join();
  state.rethrow();
}

std::string batchOutputPath(const std::string& directory, const std::string& input, const char* suffix) {
  const size_t slash = input.rfind('/');
  return directory + "/" + (slash == std::string::npos ? input : input.substr(slash + 1)) + suffix;
}

unsigned batchJobs(const std::string& directory, const std::vector<std::string>& inputs, const char* suffix,
                   unsigned jobs) {
  if (directory.empty()) return 1;
  std::set<std::string> outputs;
  for (const std::string& input : inputs) {
    if (!outputs.insert(batchOutputPath(directory, input, suffix)).second) return 1;
  }
  return jobs;
}

std::string batchInterruptNote(const char* command, const char* verb, size_t done, size_t total,
                               const std::string& last) {
  std::string note = std::string("kolvari ") + command + ": interrupted after " + std::to_string(done) + " of " +
                     std::to_string(total) + " files were " + verb;
  if (done > 0) note += " (the last: " + last + ")";
  return note + "; no partial signature is left\n";
}
