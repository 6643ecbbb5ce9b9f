#include "log/cvel_logger.h"

#include <cctype>
#include <cstdio>
#include <new>
#include <sstream>

#include "base/cvel_process.h"
#include "base/cvel_system.h"
#include "log/cvel_log_console.h"
#include "log/cvel_log_file.h"
#include "log/cvel_log_keys.h"
#include "log/cvel_log_system.h"

namespace {

constexpr size_t kPathBuffer = 1024;
constexpr uint32_t kBytesPerLine = 16;
constexpr uint32_t kBytesPerGroup = 8;

// The address by which the library asks the loader which file holds its code.
void logCodeMarker() {}

std::string pathFrom(int32_t (*query)(char*, uint32_t)) {
  char buffer[kPathBuffer] = {};
  if (query(buffer, sizeof buffer) < 0) return std::string();
  buffer[kPathBuffer - 1] = '\0';
  return buffer;
}

int32_t libraryPath(char* out, uint32_t size) {
  return imagePath(reinterpret_cast<const void*>(&logCodeMarker), out, size);
}

int32_t programPath(char* out, uint32_t size) { return executablePath(out, size); }

bool endsWith(const std::string& text, const std::string& tail) {
  return tail.size() <= text.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

}  // namespace

CvelLogger::CvelLogger() {
  modulePath_ = pathFrom(libraryPath);
  if (modulePath_.empty()) {
    fail(CvelLogStartUp::kNoModulePath);
    return;
  }
  processPath_ = pathFrom(programPath);
  if (processPath_.empty()) {
    fail(CvelLogStartUp::kNoProcessPath);
    return;
  }
  start(std::string());
}

CvelLogger::CvelLogger(const std::string& modulePath, const std::string& processPath, const std::string& configPath)
    : modulePath_(modulePath), processPath_(processPath) {
  if (modulePath_.empty()) {
    fail(CvelLogStartUp::kNoModulePath);
    return;
  }
  if (processPath_.empty()) {
    fail(CvelLogStartUp::kNoProcessPath);
    return;
  }
  start(configPath);
}

CvelLogger::~CvelLogger() {
  sinks_.clear();
  if (format_ != nullptr) cvelReleaseLogFormat(format_.get());
  if (mutexReady_) mutexDestroy(&mutex_);
}

bool CvelLogger::fail(CvelLogStartUp reason) {
  startUp_ = reason;
  return false;
}

void CvelLogger::start(const std::string& configPath) {
  // A library inside a host program has a configuration of its own when it finds one beside itself.
  ownConfiguration_ = modulePath_ != processPath_;
  std::vector<unsigned char> text;
  if (!readConfiguration(configPath, text)) {
    fail(CvelLogStartUp::kNoConfigFile);
    return;
  }
  parseResult_ = configuration_.parse(text.data(), text.size(), false);
  if (parseResult_ != kCvelOk) {
    fail(CvelLogStartUp::kParseFailed);
    return;
  }
  enabled_ = configure();
}

bool CvelLogger::readConfiguration(const std::string& configPath, std::vector<unsigned char>& text) {
  if (!configPath.empty()) {
    configPath_ = configPath;
    return CvelConfiguration::readFile(configPath_.c_str(), text) == kCvelOk;
  }
  configPath_ = modulePath_ + kLogConfigSuffix;
  if (CvelConfiguration::readFile(configPath_.c_str(), text) == kCvelOk) return true;
  // The program's file is shared with the host, so it is never the library's own.
  ownConfiguration_ = false;
  configPath_ = processPath_ + kLogConfigSuffix;
  if (CvelConfiguration::readFile(configPath_.c_str(), text) == kCvelOk) return true;
  configPath_.clear();
  return false;
}

bool CvelLogger::configure() {
  // A logger already configured may be logging on other threads: the sinks, the formatter and the levels
  // change under its mutex, never under a record being written.
  const bool locked = mutexReady_;
  if (locked) mutexLock(&mutex_);
  enabled_ = applyConfiguration();
  if (locked) mutexUnlock(&mutex_);
  return enabled_;
}

bool CvelLogger::applyConfiguration() {
  sinks_.clear();
  std::vector<std::string> ignored;
  if (configuration_.listKeys(kLogSectionIgnore, ignored) == kCvelOk && !ignored.empty() && !modulePath_.empty()) {
    if (configuration_.hasKey(kLogSectionIgnore, kLogKeyIgnoreAll, false)) return fail(CvelLogStartUp::kIgnoredAll);
    for (const std::string& key : ignored) {
      // A key equal to the whole path does not count: it must be a proper suffix.
      if (key.size() < modulePath_.size() && endsWith(modulePath_, key)) {
        ignoreKey_ = key;
        return fail(CvelLogStartUp::kIgnoredBySuffix);
      }
    }
  }

  std::string levels;
  if (configuration_.getText(kLogSectionCommon, kLogKeyLogLevel, levels, false) != kCvelOk || levels.empty()) {
    return fail(CvelLogStartUp::kNoLevel);
  }
  for (const std::string& token : cvelLogSplitList(levels)) {
    if (token == kLogLevelAllToken) {
      levelMask_ |= kCvelLogAll;
      break;
    }
    levelMask_ |= cvelLogLevelBit(token);
  }

  // The formatter and the system-log sink read the two paths from here; values in the file are replaced.
  // A path that cannot be stored leaves the file's value (or none), which they print as it is.
  static_cast<void>(configuration_.setText(kLogSectionCommon, kLogKeyLogModule, modulePath_.c_str()));
  static_cast<void>(configuration_.setText(kLogSectionCommon, kLogKeyLogProcess, processPath_.c_str()));

  std::vector<std::string> loggers;
  if (configuration_.listKeys(kLogSectionLogger, loggers) != kCvelOk) return fail(CvelLogStartUp::kNoSinks);
  // A library inside a host that took the host's file never starts the shared log file afresh.
  bool truncate = configuration_.hasKey(kLogSectionFile, kLogKeyOverwrite, false) &&
                  (modulePath_ == processPath_ || ownConfiguration_);
  // Keys come sorted, so the sinks are always console, file, system.
  for (const std::string& key : loggers) {
    if (key == kLogKeyConsole) sinks_.push_back(std::make_shared<CvelLogConsole>(&configuration_));
    if (key == kLogKeyFile) sinks_.push_back(std::make_shared<CvelLogFile>(&configuration_, truncate));
    if (key == kLogKeySystem) sinks_.push_back(std::make_shared<CvelLogSystem>(&configuration_));
  }

  std::shared_ptr<const CvelLogFormat> format(new (std::nothrow) CvelLogFormat(&configuration_));
  if (format == nullptr) {
    sinks_.clear();
    return fail(CvelLogStartUp::kNoFormat);
  }
  if (format_ != nullptr) cvelReleaseLogFormat(format_.get());
  format_ = format;
  cvelSetCurrentLogFormat(format_);

  std::string dataDir;
  if (configuration_.getText(kLogSectionCommon, kLogKeyDataDir, dataDir, false) == kCvelOk) dataDir_ = dataDir;

  if (loggers.empty()) {
    sinks_.clear();
    return fail(CvelLogStartUp::kNoSinks);
  }
  if (!mutexReady_) mutexReady_ = mutexInit(&mutex_, kCvelMutexRecursive) == 0;
  startUp_ = CvelLogStartUp::kOn;
  return true;
}

void CvelLogger::addSink(std::shared_ptr<CvelLogBase> sink) {
  if (!enabled_ || !mutexReady_ || sink == nullptr) return;
  mutexLock(&mutex_);
  sinks_.push_back(std::move(sink));
  mutexUnlock(&mutex_);
}

void CvelLogger::dispatch(const char* file, const char* function, uint32_t line, uint32_t level,
                          const char* message) {
  std::shared_ptr<const CvelLogFormat> format = cvelCurrentLogFormat();
  if (format == nullptr) return;
  std::string text = format->compose(file, function, line, level, message);
  if (text.empty()) return;
  for (const std::shared_ptr<CvelLogBase>& sink : sinks_) sink->log(level, text.c_str());
}

void CvelLogger::logMessage(const char* file, const char* function, uint32_t line, uint32_t level,
                            const char* message) {
  // Before a successful configuration there is neither a sink nor a mutex to hold.
  if (!mutexReady_) return;
  mutexLock(&mutex_);
  dispatch(file, function, line, level, message);
  mutexUnlock(&mutex_);
}

void CvelLogger::logData(const char* file, const char* function, uint32_t line, const unsigned char* data,
                         uint32_t length, const char* name, bool toFile) {
  if (!mutexReady_) return;
  mutexLock(&mutex_);
  std::string message;
  if (!toFile || name == nullptr || data == nullptr || length == 0 || dataDir_.empty()) {
    std::ostringstream dump;
    hexDump(data, length, name, dump);
    message = dump.str();
  } else {
    std::string path = dataDir_ + "/" + name;
    message = path + ", " + std::to_string(length) + " bytes";
    FILE* out = std::fopen(path.c_str(), "wb");
    if (out == nullptr) {
      // No data file, no record.
      mutexUnlock(&mutex_);
      return;
    }
    std::fwrite(data, 1, length, out);
    std::fflush(out);
    std::fclose(out);
  }
  dispatch(file, function, line, kCvelLogData, message.c_str());
  mutexUnlock(&mutex_);
}

void CvelLogger::hexDump(const unsigned char* data, uint32_t length, const char* name, std::ostream& stream) {
  if (data == nullptr || length == 0) {
    if (name == nullptr) {
      stream << " ____ no data to hex dump ____\n";
    } else {
      stream << " ____ no data to hex dump for '" << name << "' ____\n";
    }
    return;
  }
  if (name != nullptr) stream << " ____ hex dump for '" << name << "' ____\n";
  std::string text;
  uint32_t count = 0;
  char cell[16];
  for (uint32_t i = 0; i < length; ++i) {
    if (i % kBytesPerLine == 0) {
      std::snprintf(cell, sizeof cell, " 0x%05x: ", i);
      stream << cell;
    }
    std::snprintf(cell, sizeof cell, " %02x", data[i]);
    stream << cell;
    ++count;
    if (count % kBytesPerGroup == 0) stream << ' ';
    text += std::isprint(data[i]) != 0 ? static_cast<char>(data[i]) : '.';
    if (count == kBytesPerLine) {
      stream << ' ' << text << '\n';
      text.clear();
      count = 0;
    } else if (i + 1 == length) {
      // Pads the hex area of the last, short line to the 51 columns of a full one.
      uint32_t k = length % kBytesPerLine;
      uint32_t blanks = (kBytesPerLine - k) * 3 + (k < kBytesPerGroup ? 3 : 2);
      stream << std::string(blanks, ' ') << text << '\n';
    }
  }
  if (name != nullptr) stream << " ---- end of hex dump (" << length << " byte(s)) ----\n";
}
