#include "log/cvel_log_format.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <regex>
#include <thread>
#include <utility>

#include "base/cvel_thread_registry.h"
#include "base/scratch_dir.h"
#include "log/cvel_log_level.h"

namespace {

std::string blanks(size_t n) { return std::string(n, ' '); }
std::string padTo(const std::string& s, size_t width) { return s.size() < width ? s + blanks(width - s.size()) : s; }

std::string systemHostName() {
  char host[256] = {};
  gethostname(host, sizeof host - 1);
  return host;
}

class CvelLogFormatTest : public ::testing::Test {
 protected:
  // The test's own thread is the registry's main thread, whichever test happens to run first.
  void SetUp() override { currentThreadEntry(); }

  // A formatter from a [Common] section, with the paths that the logger would store there.
  static CvelLogFormat make(const std::string& format, bool blank) {
    CvelConfiguration configuration;
    std::string text = "[Common]\nFormat = " + format + "\n" + (blank ? "Mode = Blank\n" : "");
    parseInto(configuration, text);
    EXPECT_EQ(configuration.setText("Common", "LogModule", "/opt/x/libsigner.1.dylib"), kCvelOk);
    EXPECT_EQ(configuration.setText("Common", "LogProcess", "/usr/bin/app.bin"), kCvelOk);
    return CvelLogFormat(&configuration);
  }
  static std::string line(const CvelLogFormat& f) { return f.compose("/src/asn1/x.cc", "encode", 12, 0x4, "hello"); }
  // The line as composed on a thread of its own, registered under number (0: not registered).
  static std::string lineOnThread(const CvelLogFormat& f, int32_t number) {
    std::string out;
    std::thread worker([&] {
      CvelThreadRegistration registration(number);
      out = line(f);
    });
    worker.join();
    return out;
  }
};

TEST_F(CvelLogFormatTest, FieldsInBothModes) {
  const std::string host = systemHostName(), pid = std::to_string(getpid());
  const struct { const char* format; std::string bracket; std::string plain; } cases[] = {
      {"FileName,FuncName,Line,LogLevel,LogMsg",
       "x.cc" + blanks(28) + ": " + "f{encode} " + blanks(38) + "  12: [WARN]  hello\n",
       "x.cc encode 12 WARN hello\n"},
      {"LogModule,LogProcess", "m[libsigner] " + blanks(11) + "p[app.bin] \n", "libsigner app.bin \n"},
      // PID writes the host prefix too.
      {"PID", "{" + blanks(pid.size() < 5 ? 5 - pid.size() : 0) + pid + "} " + padTo("h[" + host + "] ", 16) + "\n",
       pid + " " + host + " \n"},
      {"Thread", "T.main. \n", "Thread-0 \n"},
      // Unknown names are skipped, duplicates written twice.
      {"LogMsg,Level,logmsg,LogMsg", "hellohello\n", "hellohello\n"},
      {"", "", ""},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(line(make(c.format, false)), c.bracket) << c.format;
    EXPECT_EQ(line(make(c.format, true)), c.plain) << c.format;
  }
  // Missing texts write nothing: with nothing written there is no newline either.
  EXPECT_EQ(make("FileName,FuncName,LogMsg", false).compose(nullptr, nullptr, 1, kCvelLogInfo, nullptr), "");
  EXPECT_EQ(CvelLogFormat(nullptr).compose("a.cc", "f", 1, kCvelLogInfo, "x"), "");
  // Levels print as in the level table; any other value as eight blanks.
  for (const auto& [level, text] : {std::pair<uint32_t, const char*>{kCvelLogData, "[DATA ] \n"},
                                    {0x40, "[DDBG]  \n"}, {0x200, "        \n"}}) {
    EXPECT_EQ(make("LogLevel", false).compose(nullptr, nullptr, 1, level, nullptr), text) << level;
  }
}

TEST_F(CvelLogFormatTest, TimeStamps) {
  const std::string time = R"(\d\d:\d\d:\d\d)", date = R"(\d{4}-\d\d-\d\d )";
  EXPECT_TRUE(std::regex_match(line(make("DateTime", false)), std::regex(R"(\()" + date + time + R"(\.\d{3}\) \n)")));
  EXPECT_TRUE(std::regex_match(line(make("DateTime", true)), std::regex(date + time + ",\\d{3} \n")));
  EXPECT_TRUE(std::regex_match(line(make("Time", false)), std::regex(R"(\()" + time + R"(\.\d{3}\) \n)")));
  EXPECT_TRUE(std::regex_match(line(make("Time", true)), std::regex(time + ",\\d{3} \n")));
}

TEST_F(CvelLogFormatTest, ThreadNumbersAndTheFillTheyLeave) {
  // A numbered Thread field leaves '.' as the fill, which a later Line field uses; the file name keeps blanks.
  EXPECT_EQ(lineOnThread(make("Thread,FileName,Line,LogMsg", false), 7),
            "T.....7 x.cc" + blanks(28) + ": ..12: hello\n");
  EXPECT_EQ(lineOnThread(make("Thread,Line", true), 7), "Thread-7 12 \n");
  // The PID field sets blanks as its fill again, which a later Line field uses, whatever the id's length.
  const std::string pid = std::to_string(getpid());
  EXPECT_EQ(lineOnThread(make("Thread,PID,Line", false), 7),
            "T.....7 {" + blanks(pid.size() < 5 ? 5 - pid.size() : 0) + pid + "} " +
                padTo("h[" + systemHostName() + "] ", 16) + "  12: \n");
  EXPECT_EQ(lineOnThread(make("Thread,Line", false), 0), "T..n/a.   12: \n");
  EXPECT_EQ(lineOnThread(make("Thread", true), 0), "Thread-? \n");
}

}  // namespace
