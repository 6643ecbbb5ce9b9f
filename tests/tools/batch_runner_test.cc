// The batch worker pool: every item done once, by a worker in range, and reported in item order even when
// later items finish first; an exception from the work ends the batch and reaches the caller.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>
#include <vector>

#include "signing/batch_runner.h"

namespace {

struct Shape {
  size_t count;
  unsigned jobs;
};

TEST(BatchRunner, ReportsEachItemOnceInOrder) {
  for (const Shape shape : {Shape{0, 4}, Shape{1, 4}, Shape{7, 1}, Shape{25, 3}, Shape{40, kMostJobs + 5}}) {
    std::vector<std::atomic<int>> worked(shape.count);
    std::atomic<bool> workerInRange{true};
    std::vector<size_t> reported;
    runBatch(
        shape.count, shape.jobs,
        [&](size_t item, unsigned worker) {
          // Early items take longest, so that with many threads the later ones finish first.
          std::this_thread::sleep_for(std::chrono::microseconds(item < 4 ? 2000 : 10));
          if (worker >= shape.jobs || worker >= kMostJobs) workerInRange = false;
          ++worked[item];
        },
        [&](size_t item) { reported.push_back(item); });
    std::vector<size_t> inOrder(shape.count);
    for (size_t i = 0; i < shape.count; ++i) inOrder[i] = i;
    EXPECT_EQ(reported, inOrder) << shape.count << " items on " << shape.jobs;
    for (size_t i = 0; i < shape.count; ++i) EXPECT_EQ(worked[i], 1) << "item " << i;
    EXPECT_TRUE(workerInRange);
  }
}

TEST(BatchRunner, WorkThatThrowsEndsTheBatch) {
  std::atomic<size_t> started{0};
  // The other items take a while, so that the other worker cannot run through all of them before the throwing
  // one has stopped the batch, even on a loaded machine.
  const auto work = [&](size_t item, unsigned) {
    ++started;
    if (item == 2) throw std::runtime_error("item 2");
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  };
  EXPECT_THROW(runBatch(1000, 2, work, [](size_t) {}), std::runtime_error);
  EXPECT_LT(started.load(), 1000U);
}

}  // namespace
