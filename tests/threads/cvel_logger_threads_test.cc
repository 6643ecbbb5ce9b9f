// Many threads logging through one logger at once: every record arrives whole, on a line of its own, and each
// thread's records in the order it wrote them. Built a second time with ThreadSanitizer by scripts/test.sh.
#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <thread>
#include <vector>

#include "base/cvel_thread_registry.h"
#include "base/scratch_dir.h"
#include "log/cvel_logger.h"

namespace {

constexpr int kThreads = 8;
constexpr int kRecords = 400;
const std::string kPayload(120, 'x');

// Collects lines one byte at a time, with no lock of its own: only the logger's mutex keeps them apart.
class ByteSink : public CvelLogBase {
 public:
  void write(const char* line) override { for (const char* c = line; *c != '\0'; ++c) text += *c; }
  std::string text;
};

std::string message(int worker, int record) {
  return "worker " + std::to_string(worker) + " record " + std::to_string(record) + " " + kPayload;
}

TEST(CvelLoggerThreads, RecordsFromManyThreadsStayWholeAndInOrder) {
  ScratchDir dir;
  const std::string program = dir.file("app"), log = dir.file("threads.log");
  writeText(program + ".cfgLog", "[Common]\nLogLevel = INFO\nFormat = Thread,LogLevel,LogMsg\n"
                                          "[Logger]\nFile = " + log + "\n[File]\nOverwrite\n");
  // Overwrite: the first record, whichever thread writes it, starts the file afresh, exactly once.
  writeText(log, "stale\n");
  currentThreadEntry();  // this thread is the registry's main thread
  CvelLogger logger(program, program);
  ASSERT_TRUE(logger.enabled());
  auto bytes = std::make_shared<ByteSink>();
  logger.addSink(bytes);

  std::vector<std::thread> workers;
  for (int w = 1; w <= kThreads; ++w) {
    workers.emplace_back([&logger, w] {
      CvelThreadRegistration registration(w);
      for (int r = 0; r < kRecords; ++r) CVEL_LOG(logger, kCvelLogInfo, message(w, r).c_str());
    });
  }
  for (std::thread& t : workers) t.join();

  const std::string file = readText(log);
  EXPECT_EQ(file, bytes->text);  // both sinks saw the records in the same order
  std::istringstream lines(file);
  std::vector<int> next(kThreads + 1, 0);
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    int worker = 0;
    ASSERT_TRUE(std::sscanf(line.c_str(), "T.....%d", &worker) == 1 && worker >= 1 && worker <= kThreads) << line;
    ASSERT_EQ(line, "T....." + std::to_string(worker) + " [INFO]  " + message(worker, next[worker]++)) << count;
  }
  EXPECT_EQ(count, kThreads * kRecords);
}

}  // namespace
