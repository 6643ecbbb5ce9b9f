#include "log/cvel_logger.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <future>
#include <sstream>
#include <thread>

#include "base/scratch_dir.h"
#include "log/cvel_log_console.h"
#include "log/cvel_log_file.h"
#include "log/cvel_log_system.h"

namespace {


std::string dump(const std::string& bytes, const char* name) {
  std::ostringstream out;
  CvelLogger::hexDump(reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<uint32_t>(bytes.size()),
                      name, out);
  return out.str();
}

TEST(CvelLogger, HexDumpLayout) {
  const std::string b16 = "0123456789:;<=>?";
  const std::string full16 = " 0x00000:  30 31 32 33 34 35 36 37  38 39 3a 3b 3c 3d 3e 3f  0123456789:;<=>?\n";
  const struct { std::string bytes; const char* name; std::string expected; } cases[] = {
      {"AB\n", "x",
       " ____ hex dump for 'x' ____\n 0x00000:  41 42 0a" + std::string(42, ' ') +
           "AB.\n ---- end of hex dump (3 byte(s)) ----\n"},
      {b16 + "@", "y",
       " ____ hex dump for 'y' ____\n" + full16 + " 0x00010:  40" + std::string(48, ' ') +
           "@\n ---- end of hex dump (17 byte(s)) ----\n"},
      // Eight bytes: the group blank is written, so two fewer pad blanks.
      {std::string("\x00\x7f\xff" "abcde", 8), nullptr,
       " 0x00000:  00 7f ff 61 62 63 64 65 " + std::string(26, ' ') + "...abcde\n"},
      {"", nullptr, " ____ no data to hex dump ____\n"},
  };
  for (const auto& c : cases) EXPECT_EQ(dump(c.bytes, c.name), c.expected) << c.bytes.size();
}

// A logger for the program <dir>/app and the library `module` (empty: the program; relative: in the folder),
// its configuration beside the program or, with besideModule, beside the library. Start-up from the file
// beside the program and a refused configuration are log_check.sh's; many threads are the threads test's.
struct HostedLogger {
  ScratchDir dir;
  std::string program = dir.file("app");
  std::string log = dir.file("sig.log");
  std::unique_ptr<CvelLogger> logger;
  explicit HostedLogger(const std::string& config, std::string module = "/opt/x/libsigner.dylib",
                        bool besideModule = false) {
    if (module.empty()) module = program;
    if (module[0] != '/') module = dir.file(module);
    std::string text = config;
    for (size_t at; (at = text.find("$LOG")) != std::string::npos;) text.replace(at, 4, log);
    writeText((besideModule ? module : program) + ".cfgLog", text);
    logger = std::make_unique<CvelLogger>(module, program);
  }
};

TEST(CvelLogger, ConfigurationDecidesWhetherAndWhatToLog) {
  const std::string sinks = "[Logger]\nFile = $LOG\n";
  const struct { std::string config; CvelLogStartUp startUp; uint32_t mask; } cases[] = {
      {"[Common]\nLogLevel = ERROR,ALL,INFO\n" + sinks, CvelLogStartUp::kOn, 0x1ff},
      {"[Common]\nLogLevel = INFO , TRACE,,\n" + sinks, CvelLogStartUp::kOn, 0x088},
      {"[Common]\nLogLevel = info\n" + sinks, CvelLogStartUp::kOn, 0},  // on, but no level passes
      {"[Common]\nLogLevel = DDEBUG,DDBG,DATA\n" + sinks, CvelLogStartUp::kOn, 0x140},  // DDBG is only printed
      {"[Ignore]\nlibsigner.dylib\n[Common]\nLogLevel = ALL\n" + sinks, CvelLogStartUp::kIgnoredBySuffix, 0},
      // A key must be shorter than the path to match.
      {"[Ignore]\n/opt/x/libsigner.dylib\n[Common]\nLogLevel = ALL\n" + sinks, CvelLogStartUp::kOn, 0x1ff},
      {"[Ignore]\nALL = no\n[Common]\nLogLevel = ALL\n" + sinks, CvelLogStartUp::kIgnoredAll, 0},
      {"[Common]\nLogLevel =\n" + sinks, CvelLogStartUp::kNoLevel, 0},
      {"[Common]\nLogLevel = FATAL\n[Logger]\n", CvelLogStartUp::kNoSinks, 0x1},
  };
  for (const auto& c : cases) {
    HostedLogger h(c.config);
    EXPECT_EQ(h.logger->startUp(), c.startUp) << c.config;
    EXPECT_EQ(h.logger->enabled(), c.startUp == CvelLogStartUp::kOn) << c.config;
    EXPECT_EQ(h.logger->levelMask(), c.mask) << c.config;
    EXPECT_EQ(h.logger->sinks().empty(), c.startUp != CvelLogStartUp::kOn) << c.config;
  }
  HostedLogger none("");
  std::filesystem::remove(none.program + ".cfgLog");
  EXPECT_EQ(CvelLogger("/opt/x/libsigner.dylib", none.program).startUp(), CvelLogStartUp::kNoConfigFile);
}

TEST(CvelLogger, SinksInKeyOrderAndWhoMayStartTheFileAfresh) {
  const std::string config = "[Logger]\nSystem\nFile = $LOG\nConsole\n[File]\nOverwrite\n[Common]\nLogLevel = ALL\n";
  // A library that took its host's file never truncates the shared log; the program itself, and a library
  // with a file of its own, do.
  const struct { const char* module; bool besideModule, own, truncate; } cases[] = {
      {"/opt/x/libsigner.dylib", false, false, false}, {"", false, false, true}, {"libsigner.so", true, true, true}};
  for (const auto& c : cases) {
    HostedLogger h(config, c.module, c.besideModule);
    const auto& sinks = h.logger->sinks();
    ASSERT_EQ(sinks.size(), 3u) << c.module;
    EXPECT_NE(dynamic_cast<CvelLogConsole*>(sinks[0].get()), nullptr);
    EXPECT_NE(dynamic_cast<CvelLogSystem*>(sinks[2].get()), nullptr);
    auto* file = dynamic_cast<CvelLogFile*>(sinks[1].get());
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(h.logger->ownConfiguration(), c.own) << c.module;
    EXPECT_EQ(file->truncatePending(), c.truncate) << c.module;
  }
}

TEST(CvelLogger, MessagesAndDataReachTheFile) {
  HostedLogger h("[Common]\nLogLevel = ALL\nFormat = LogLevel,LogMsg\nDataDir = $LOG.d\n[Logger]\nFile = $LOG\n");
  std::filesystem::create_directory(h.log + ".d");
  const unsigned char bytes[] = {0x41, 0x42, 0x0a};
  h.logger->logMessage("a.cc", "f", 1, kCvelLogError, "first");
  h.logger->logData("a.cc", "f", 2, bytes, 3, "blob", true);
  h.logger->logData("a.cc", "f", 3, bytes, 3, "x", false);
  EXPECT_EQ(readText(h.log), "[ERROR] first\n[DATA ] " + h.log + ".d/blob, 3 bytes\n[DATA ] " +
                                 dump("AB\n", "x") + "\n");
  EXPECT_EQ(readText(h.log + ".d/blob"), "AB\n");
  // With toFile but no DataDir the bytes are dumped into the record.
  HostedLogger noDir("[Common]\nLogLevel = ALL\nFormat = LogMsg\n[Logger]\nFile = $LOG\n");
  noDir.logger->logData("a.cc", "f", 1, bytes, 3, "x", true);
  EXPECT_EQ(readText(noDir.log), dump("AB\n", "x") + "\n");

  // Without "Format" every line is empty and nothing is written, whatever the sinks.
  HostedLogger silent("[Common]\nLogLevel = ALL\n[Logger]\nFile = $LOG\n");
  EXPECT_TRUE(silent.logger->enabled());
  silent.logger->logMessage("a.cc", "f", 1, kCvelLogError, "lost");
  EXPECT_FALSE(std::filesystem::exists(silent.log));
}

// A sink that holds its first record until the test releases it.
struct HeldSink : CvelLogBase {
  std::promise<void> entered;
  std::shared_future<void> release;
  void write(const char*) override {}
  void log(uint32_t, const char*) override {
    entered.set_value();
    release.wait();
  }
};

TEST(CvelLogger, ConfigureWaitsForTheRecordBeingWritten) {
  HostedLogger h("[Common]\nLogLevel = ALL\nFormat = LogMsg\n[Logger]\nFile = $LOG\n");
  auto held = std::make_shared<HeldSink>();
  std::promise<void> release;
  held->release = release.get_future().share();
  h.logger->addSink(held);
  std::thread writer([&h] { h.logger->logMessage("a.cc", "f", 1, kCvelLogError, "held"); });
  held->entered.get_future().wait();
  auto configured = std::async(std::launch::async, [&h] { return h.logger->configure(); });
  EXPECT_EQ(configured.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
  release.set_value();
  writer.join();
  EXPECT_TRUE(configured.get());
  EXPECT_EQ(h.logger->sinks().size(), 1u);  // the file sink made again; the added one is gone
  EXPECT_EQ(readText(h.log), "held\n");
}

}  // namespace
