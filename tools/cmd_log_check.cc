// kolvari log-check: shows what the logger makes of a configuration file: whether logging is on and why
// not, the levels, the sinks in order, the line layout and one sample line per level.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "base/cvel_base_result.h"
#include "base/cvel_configuration.h"
#include "base/cvel_process.h"
#include "cli/command_line.h"
#include "cli/exit_status.h"
#include "cli/tool_logger.h"
#include "command_list.h"
#include "log/cvel_log_console.h"
#include "log/cvel_log_file.h"
#include "log/cvel_log_system.h"
#include "log/cvel_logger.h"
#include "log_config_check.h"

namespace {

constexpr uint32_t kPathBuffer = 1024;
constexpr const char* kSampleMessage = "sample message";

const char* reasonText(CvelLogStartUp reason) {
  switch (reason) {
    case CvelLogStartUp::kOn: return "on";
    case CvelLogStartUp::kNoModulePath: return "the loader does not say which file holds the library";
    case CvelLogStartUp::kNoProcessPath: return "the loader does not say which file is the program";
    case CvelLogStartUp::kNoConfigFile: return "no configuration file";
    case CvelLogStartUp::kParseFailed: return "the configuration file is rejected";
    case CvelLogStartUp::kIgnoredAll: return "ignored by a rule: [Ignore] holds ALL";
    case CvelLogStartUp::kIgnoredBySuffix: return "ignored by a rule: [Ignore] key";
    case CvelLogStartUp::kNoLevel: return "no level: [Common] LogLevel is missing or empty";
    case CvelLogStartUp::kNoSinks: return "no sinks: [Logger] is missing or has no keys";
    case CvelLogStartUp::kNoFormat: return "the line formatter could not be made";
  }
  return "?";
}

const char* parseVerdict(CvelResult r) {
  if (r == kCvelErrForbiddenByte) return "a byte outside the allowed set";
  if (r == kCvelErrTooLong) return "longer than 4194304 bytes";
  if (r == kCvelErrBadParameter) return "the file is empty";
  return "the reader failed";
}

// Each remark on stderr as `kolvari log-check: FILE:LINE: what`, the refused line left to the report.
void printNotes(const std::string& path, const LogConfigReading& reading) {
  for (const LogConfigNote& note : reading.notes) {
    std::fprintf(stderr, "kolvari log-check: %s:%zu: %s\n", path.c_str(), note.line, note.text.c_str());
  }
}

// Why a logger that is on would still write no line; null when it writes.
const char* writesNothing(const CvelLogger& logger) {
  if (logger.sinks().empty()) return "[Logger] names no known sink (Console, File, System)";
  if (logger.format() == nullptr || logger.format()->fields().empty()) {
    return "[Common] Format names no known field, so every line is empty";
  }
  if (logger.levelMask() == 0) return "[Common] LogLevel names no known level, so no record passes";
  return nullptr;
}

void printFileSink(size_t index, const CvelLogFile& file) {
  std::printf("  %zu. file: %s\n", index, file.path().empty() ? "(no path: ignores every record)" : file.path().c_str());
  std::printf("     first record: %s; back-up: %s; size limit: ",
              file.truncatePending() ? "starts the file afresh" : "appends",
              file.backUp() ? "yes, as <file>_YYYYMMDDhhmmss.log" : "no");
  if (file.maxFileSize() == 0) {
    std::printf("none\n");
  } else {
    std::printf("%u bytes\n", file.maxFileSize());
  }
}

void printSink(size_t index, const CvelLogBase* sink) {
  if (const auto* console = dynamic_cast<const CvelLogConsole*>(sink)) {
    std::printf("  %zu. console: %s\n", index, console->useStandardError() ? "standard error" : "standard output");
  } else if (const auto* file = dynamic_cast<const CvelLogFile*>(sink)) {
    printFileSink(index, *file);
  } else if (const auto* system = dynamic_cast<const CvelLogSystem*>(sink)) {
    std::printf("  %zu. system log: ident %s, facility %d (user); sends FATAL, ERROR, WARN and INFO only\n", index,
                system->ident().empty() ? "(none: sends nothing)" : system->ident().c_str(), system->facility());
  } else {
    std::printf("  %zu. (a sink of the host's own)\n", index);
  }
}

void printLayout(const CvelLogFormat* format) {
  if (format == nullptr || format->fields().empty()) {
    std::printf("layout:  none ([Common] Format missing, empty or without a known field): every line is empty, "
                "nothing is written\n");
    return;
  }
  std::printf("layout:  %s mode:", format->blank() ? "blank" : "bracket");
  const char* separator = " ";
  for (LogField field : format->fields()) {
    std::printf("%s%s", separator, cvelLogFieldName(field));
    separator = ", ";
  }
  std::printf("\n");
}

void printSamples(const CvelLogger& logger) {
  const CvelLogFormat* format = logger.format();
  if (format == nullptr || format->fields().empty() || logger.levelMask() == 0) return;
  std::printf("sample lines:\n");
  for (uint32_t i = 0; i < kCvelLogLevelCount; ++i) {
    uint32_t level = cvelLogLevelAt(i);
    if ((logger.levelMask() & level) == 0) continue;
    std::string line = format->compose(__FILE__, __func__, __LINE__, level, kSampleMessage);
    std::printf("%s", line.c_str());
  }
}

int report(const CvelLogger& logger) {
  std::printf("library: %s\nprogram: %s\n", logger.modulePath().c_str(), logger.processPath().c_str());
  if (logger.startUp() == CvelLogStartUp::kNoConfigFile && !logger.configPath().empty()) {
    std::printf("config:  none: %s cannot be read\n", logger.configPath().c_str());
  } else if (logger.startUp() == CvelLogStartUp::kNoConfigFile) {
    std::printf("config:  none: %s.cfgLog cannot be read", logger.modulePath().c_str());
    if (logger.processPath() != logger.modulePath()) std::printf(", nor %s.cfgLog", logger.processPath().c_str());
    std::printf("\n");
  } else if (!logger.configPath().empty()) {
    std::printf("config:  %s%s\n", logger.configPath().c_str(),
                logger.ownConfiguration() ? " (the library's own)" : "");
  }
  LogConfigReading reading;
  std::vector<unsigned char> text;
  if (!logger.configPath().empty() && CvelConfiguration::readFile(logger.configPath().c_str(), text) == kCvelOk) {
    reading = readLogConfiguration(text);
  }
  printNotes(logger.configPath(), reading);
  if (logger.startUp() == CvelLogStartUp::kParseFailed) {
    std::printf("logging: off: %s (0x%08X, %s)", reasonText(logger.startUp()), static_cast<uint32_t>(logger.parseResult()),
                parseVerdict(logger.parseResult()));
    if (reading.refusedLine > 0) std::printf(" at line %zu: %s", reading.refusedLine, reading.refusedText.c_str());
    std::printf("\n");
    return kExitFailure;
  }
  if (logger.startUp() == CvelLogStartUp::kNoModulePath || logger.startUp() == CvelLogStartUp::kNoProcessPath ||
      logger.startUp() == CvelLogStartUp::kNoConfigFile) {
    std::printf("logging: off: %s\n", reasonText(logger.startUp()));
    return kExitFailure;
  }
  if (!logger.enabled()) {
    std::printf("logging: off: %s", reasonText(logger.startUp()));
    if (logger.startUp() == CvelLogStartUp::kIgnoredBySuffix) std::printf(" '%s'", logger.ignoreKey().c_str());
    std::printf("\n");
  } else if (writesNothing(logger) != nullptr) {
    std::printf("logging: on, but writes nothing: %s\n", writesNothing(logger));
  } else {
    std::printf("logging: on\n");
  }
  // What start-up got as far as setting up, whether or not logging ended up on.
  std::printf("levels:  0x%03x", logger.levelMask());
  for (uint32_t i = 0; i < kCvelLogLevelCount; ++i) {
    if ((logger.levelMask() & cvelLogLevelAt(i)) != 0) std::printf(" %s", cvelLogLevelToken(cvelLogLevelAt(i)));
  }
  std::printf("%s\n", logger.levelMask() == 0 ? " (no level passes)" : "");
  std::printf("sinks:%s\n", logger.sinks().empty() ? " none" : "");
  for (size_t i = 0; i < logger.sinks().size(); ++i) printSink(i + 1, logger.sinks()[i].get());
  printLayout(logger.format());
  if (logger.enabled()) printSamples(logger);
  return logger.enabled() && writesNothing(logger) == nullptr ? kExitOk : kExitFailure;
}

// The logger under judgement makes its formatter the process-wide one and takes it along when it goes; the
// tool's own logger composes with that formatter too, so it is put back once the other logger is gone.
class KeepToolFormat {
 public:
  KeepToolFormat() : saved_(cvelCurrentLogFormat()) {}
  ~KeepToolFormat() { cvelSetCurrentLogFormat(saved_); }
  KeepToolFormat(const KeepToolFormat&) = delete;
  KeepToolFormat& operator=(const KeepToolFormat&) = delete;

 private:
  std::shared_ptr<const CvelLogFormat> saved_;
};

// The paths the tool runs under: it carries the library inside it, so the library's file is the program's.
void toolPaths(std::string& library, std::string& host) {
  char module[kPathBuffer] = {};
  char program[kPathBuffer] = {};
  if (library.empty() && imagePath(reinterpret_cast<const void*>(&toolPaths), module, sizeof module) >= 0) {
    library = module;
  }
  if (host.empty() && executablePath(program, sizeof program) >= 0) host = program;
}

struct LogCheckOptions {
  std::string config;
  std::string library;
  std::string host;
};

int runLogCheck(LogCheckOptions o) {
  // Without options, the logger this very program runs with.
  if (o.config.empty() && o.library.empty()) return report(toolLogger());
  toolPaths(o.library, o.host);
  KeepToolFormat keep;
  // The library's own look-up: beside the library first, then beside the host (unless --config names the file).
  CvelLogger logger(o.library, o.host, o.config);
  return report(logger);
}

}  // namespace

ToolCommand logCheckCommand() {
  return {"log-check", "show what the logger makes of its configuration file",
          "Shows whether logging would be on under a logging configuration file and why, its levels, sinks and "
          "line layout, and one sample line per level; unknown sections, keys, levels and fields are named on "
          "standard error with their line. Exit status 0 when logging would be on and write lines, 1 otherwise.",
          "kolvari log-check --config kolvari.cfgLog\n"
          "kolvari log-check --library /usr/lib/libkolvari-pkcs7.so.1 --host /usr/bin/signer",
          [](CLI::App& app) {
            auto o = std::make_shared<LogCheckOptions>();
            addValue(app, "--config", o->config, "FILE",
                     "the file to check (default: the tool's own, its path with .cfgLog appended)");
            CLI::Option* library = addValue(app, "--library", o->library, "PATH",
                                            "judge as the library at PATH inside --host PROGRAM would: "
                                            "PATH.cfgLog, else PROGRAM.cfgLog (or --config FILE), with the "
                                            "[Ignore] rules applied to PATH");
            CLI::Option* host = addValue(app, "--host", o->host, "PROGRAM", "the program that loads --library");
            library->needs(host);
            host->needs(library);
            return [o] { return runLogCheck(*o); };
          }};
}
