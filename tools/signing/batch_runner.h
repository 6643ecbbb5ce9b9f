// A small worker pool for batches: the items of a batch run on a number of threads, and their results are
// reported one at a time in the order of the items, so that a batch's messages read as if it ran on one.
#ifndef KOLVARI_TOOLS_SIGNING_BATCH_RUNNER_H
#define KOLVARI_TOOLS_SIGNING_BATCH_RUNNER_H

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

// The most threads a batch is given: more than any machine the tool meets has cores, and few enough that
// every thread's temporary file has a place in the interrupt handler's table (signing/output_file.cc).
constexpr unsigned kMostJobs = 64;

// The number of threads a batch runs on by default: the machine's cores, at least 1, at most kMostJobs.
unsigned defaultJobs();

// Does the work of item (worker: which of the jobs threads runs it, from 0 to jobs - 1, so that a caller
// can keep a scratch state per thread).
using BatchWork = std::function<void(size_t item, unsigned worker)>;
// Reports item once it and every item before it are done; calls never overlap.
using BatchReport = std::function<void(size_t item)>;

// Runs work for the items 0 to count - 1 on jobs threads (the calling thread one of them; jobs 1 runs
// everything in the calling thread, in order) and reports each in order. An exception from work or report
// stops the handing out of items, and the first one is thrown again here once every thread has ended.
void runBatch(size_t count, unsigned jobs, const BatchWork& work, const BatchReport& report);

// DIR/NAME followed by suffix for the input DIR2/NAME: a batch's output keeps its input's file name.
std::string batchOutputPath(const std::string& directory, const std::string& input, const char* suffix = "");

// The threads a run over inputs runs on: jobs for a batch into directory (their outputs batchOutputPath with
// suffix), unless two outputs are one path; which input is then refused (or, with --force, which one's
// output stays) must not depend on timing, so the batch runs on one. Without a directory: one.
unsigned batchJobs(const std::string& directory, const std::vector<std::string>& inputs, const char* suffix,
                   unsigned jobs);

// The note a signal prints for a batch of command (sign, extend, ...) interrupted after done of total files
// were verb (signed, extended, ...), last the latest of them.
std::string batchInterruptNote(const char* command, const char* verb, size_t done, size_t total,
                               const std::string& last);

#endif  // KOLVARI_TOOLS_SIGNING_BATCH_RUNNER_H
