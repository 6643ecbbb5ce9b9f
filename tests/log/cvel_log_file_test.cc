#include "log/cvel_log_file.h"

#include <gtest/gtest.h>
#include <utime.h>

#include <ctime>
#include <filesystem>

#include "base/scratch_dir.h"
#include "log/cvel_log_console.h"

namespace {


// The back-up name of a file modified at 09:03:07 local time on 1 May 2024 (see stampFirstOfMay).
constexpr const char* kBackUpSuffix = "_20240501090307.log";

void stampFirstOfMay(const std::string& path) {
  std::tm when{};
  when.tm_year = 124, when.tm_mon = 4, when.tm_mday = 1, when.tm_hour = 9, when.tm_min = 3, when.tm_sec = 7;
  when.tm_isdst = -1;
  struct utimbuf times = {std::mktime(&when), std::mktime(&when)};
  ASSERT_EQ(utime(path.c_str(), &times), 0);
}

struct FileSink {
  ScratchDir dir;
  std::string path = dir.file("sig.log");
  CvelConfiguration configuration;
  std::unique_ptr<CvelLogFile> sink;
  FileSink(const std::string& fileSection, bool truncate, std::string file = "$") {
    parseInto(configuration, "[Logger]\nFile = " + (file == "$" ? path : file) + "\n[File]\n" + fileSection);
    sink = std::make_unique<CvelLogFile>(&configuration, truncate);
  }
  size_t files() const {
    auto entries = std::filesystem::directory_iterator(dir.path());
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
  }
};

TEST(CvelLogFile, MaxFileSizeUnits) {
  const struct { const char* value; uint32_t limit; } cases[] = {
      {"10m", 10485760}, {"512k", 524288}, {"1k", 1024}, {"7kb", 0}, {"100", 0}, {"10M", 0}, {"512K", 0},
      {"m", 0},          {"0k", 0},        {"-3k", 0},   {"4096m", 0},  // 4096 MiB wraps to 0 in 32 bits
      {"12xk", 12288},   // leading digits only
      {"99999999999k", 4294966272},  // past the int range: the largest int, times 1024 in 32 bits
  };
  for (const auto& c : cases) EXPECT_EQ(CvelLogFile::parseMaxFileSize(c.value), c.limit) << c.value;
}

TEST(CvelLogFile, RollsOverPastItsLimitAndKeepsTheBackUp) {
  FileSink s("MaxFileSize = 1k\nBackUp\n", false);
  // A file of exactly the limit is not past it: the next record is appended, and the file passes the limit.
  s.sink->log(0x8, (std::string(1023, 'r') + "\n").c_str());
  s.sink->log(0x8, "at\n");
  ASSERT_EQ(readText(s.path).size(), 1027u);
  stampFirstOfMay(s.path);
  s.sink->log(0x8, "next\n");
  s.sink->log(0x8, "more\n");
  EXPECT_EQ(readText(s.path), "next\nmore\n");
  EXPECT_EQ(readText(s.path + kBackUpSuffix).size(), 1027u);
  EXPECT_EQ(s.files(), 2u);
}

TEST(CvelLogFile, OverwriteStartsAfreshOnce) {
  const struct { const char* fileSection; bool truncate; const char* expected; size_t files; } cases[] = {
      {"BackUp = no\n", true, "one\ntwo\n", 2},  // presence switches the back-up on, whatever the value
      {"", true, "one\ntwo\n", 1},
      {"BackUp\n", false, "old\none\ntwo\n", 1},
  };
  for (const auto& c : cases) {
    FileSink s(c.fileSection, c.truncate);
    writeText(s.path, "old\n");
    stampFirstOfMay(s.path);
    s.sink->log(0x1, "one\n");
    s.sink->log(0x1, "two\n");
    EXPECT_EQ(readText(s.path), c.expected) << c.fileSection;
    EXPECT_EQ(s.files(), c.files) << c.fileSection;
    EXPECT_EQ(readText(s.path + kBackUpSuffix), c.files == 2 ? "old\n" : "") << c.fileSection;
  }
  // Without a path the sink ignores everything, its settings included.
  FileSink none("MaxFileSize = 1k\n", true, "");
  none.sink->log(0x1, "lost\n");
  EXPECT_EQ(none.sink->maxFileSize(), 0u);
  EXPECT_EQ(none.files(), 0u);
}

TEST(CvelLogConsole, OnlyTheExactStdoutSelectsStandardOutput) {
  for (const std::string value : {"stdout", "STDOUT", "stderr", ""}) {
    CvelConfiguration configuration;
    parseInto(configuration, "[Logger]\nConsole = " + value + "\n");
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    CvelLogConsole(&configuration).log(0x10, "line\n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), value == "stdout" ? "line\n" : "") << value;
    EXPECT_EQ(testing::internal::GetCapturedStderr(), value == "stdout" ? "" : "line\n") << value;
  }
}

}  // namespace
