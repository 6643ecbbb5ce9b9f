#include "log/cvel_log_file.h"

#include <gtest/gtest.h>
#include <utime.h>

#include <ctime>
#include <filesystem>

#include "log/cvel_log_console.h"
#include "log_test_util.h"

namespace {

using logtest::readText;

// Gives the file the local time 2024-05-01 09:03:07 as its modification time.
void stampFirstOfMay(const std::string& path) {
  struct tm when {};
  when.tm_year = 2024 - 1900;
  when.tm_mon = 4;
  when.tm_mday = 1;
  when.tm_hour = 9;
  when.tm_min = 3;
  when.tm_sec = 7;
  when.tm_isdst = -1;
  struct utimbuf times = {std::mktime(&when), std::mktime(&when)};
  ASSERT_EQ(utime(path.c_str(), &times), 0);
}

size_t filesIn(const logtest::TempDir& dir) {
  size_t n = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(dir.path())) ++n;
  return n;
}

struct FileSink {
  logtest::TempDir dir;
  std::string path = dir / "sig.log";
  CvelConfiguration configuration;
  std::unique_ptr<CvelLogFile> sink;
  FileSink(const std::string& fileSection, bool truncate) {
    logtest::parseInto(configuration, "[Logger]\nFile = " + path + "\n[File]\n" + fileSection);
    sink = std::make_unique<CvelLogFile>(&configuration, truncate);
  }
};

TEST(CvelLogFile, MaxFileSizeUnits) {
  const struct { const char* value; uint32_t limit; } cases[] = {
      {"10m", 10485760}, {"512k", 524288}, {"1k", 1024}, {"7kb", 0}, {"100", 0}, {"10M", 0}, {"512K", 0},
      {"m", 0},          {"0k", 0},        {"-3k", 0},   {"4096m", 0},  // 4096 MiB wraps to 0 in 32 bits
      {"12xk", 12288},   // leading digits only
  };
  for (const auto& c : cases) EXPECT_EQ(CvelLogFile::parseMaxFileSize(c.value), c.limit) << c.value;
}

TEST(CvelLogFile, RollsOverPastItsLimitAndKeepsTheBackUp) {
  FileSink s("MaxFileSize = 1k\nBackUp\n", false);
  const std::string record = std::string(99, 'r') + "\n";
  // 11 records: the size before the 11th is 1000, not past the limit, so the file reaches 1100 bytes.
  for (int i = 0; i < 11; ++i) s.sink->log(0x8, record.c_str());
  ASSERT_EQ(readText(s.path).size(), 1100u);
  stampFirstOfMay(s.path);
  s.sink->log(0x8, "next\n");
  EXPECT_EQ(readText(s.path), "next\n");
  EXPECT_EQ(readText(s.path + "_20240501090307.log").size(), 1100u);
  s.sink->log(0x8, "more\n");
  EXPECT_EQ(readText(s.path), "next\nmore\n");
  EXPECT_EQ(filesIn(s.dir), 2u);
}

TEST(CvelLogFile, OverwriteStartsAfreshOnce) {
  const struct { const char* fileSection; bool truncate; const char* expected; size_t files; } cases[] = {
      {"BackUp = no\n", true, "one\ntwo\n", 2},  // presence switches the back-up on, whatever the value
      {"", true, "one\ntwo\n", 1},
      {"BackUp\n", false, "old\none\ntwo\n", 1},
  };
  for (const auto& c : cases) {
    FileSink s(c.fileSection, c.truncate);
    logtest::writeText(s.path, "old\n");
    stampFirstOfMay(s.path);
    s.sink->log(0x1, "one\n");
    s.sink->log(0x1, "two\n");
    EXPECT_EQ(readText(s.path), c.expected) << c.fileSection;
    EXPECT_EQ(filesIn(s.dir), c.files) << c.fileSection;
    if (c.files == 2) {
      EXPECT_EQ(readText(s.path + "_20240501090307.log"), "old\n");
    }
    EXPECT_FALSE(s.sink->truncatePending());
  }
}

TEST(CvelLogFile, WithoutAPathNothingIsWritten) {
  logtest::TempDir dir;
  CvelConfiguration configuration;
  logtest::parseInto(configuration, "[Logger]\nFile =\n[File]\nMaxFileSize = 1k\n");
  CvelLogFile sink(&configuration, true);
  sink.log(0x1, "lost\n");
  EXPECT_TRUE(sink.path().empty());
  EXPECT_EQ(sink.maxFileSize(), 0u);
  CvelLogFile unconfigured(nullptr, false);
  EXPECT_TRUE(unconfigured.path().empty());
}

TEST(CvelLogConsole, OnlyTheExactStdoutSelectsStandardOutput) {
  const struct { const char* section; bool standardError; } cases[] = {
      {"[Logger]\nConsole = stdout\n", false}, {"[Logger]\nConsole = STDOUT\n", true},
      {"[Logger]\nConsole = stderr\n", true},  {"[Logger]\nConsole\n", true},
  };
  for (const auto& c : cases) {
    CvelConfiguration configuration;
    logtest::parseInto(configuration, c.section);
    EXPECT_EQ(CvelLogConsole(&configuration).useStandardError(), c.standardError) << c.section;
  }
  CvelConfiguration configuration;
  logtest::parseInto(configuration, "[Logger]\nConsole = stdout\n");
  CvelLogConsole console(&configuration);
  testing::internal::CaptureStdout();
  console.log(0x10, "to standard output\n");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "to standard output\n");
}

}  // namespace
