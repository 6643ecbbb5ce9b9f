// CvelLogger: the logging service. It finds its configuration file beside the library that contains it (or,
// failing that, beside the program), decides from it whether logging is on, which levels pass and which sinks
// exist, and hands each record line to every sink under one recursive mutex.
#ifndef KOLVARI_LOG_CVEL_LOGGER_H
#define KOLVARI_LOG_CVEL_LOGGER_H

#include <pthread.h>

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "base/cvel_configuration.h"
#include "log/cvel_log_base.h"
#include "log/cvel_log_format.h"
#include "log/cvel_log_level.h"

// Writes one record if the logger wants its level; the message expression is not evaluated otherwise.
#define CVEL_LOG(logger, level, message)                                          \
  do {                                                                            \
    if ((logger).wants(level)) {                                                  \
      (logger).logMessage(__FILE__, __func__, __LINE__, (level), (message));      \
    }                                                                             \
  } while (0)

// How start-up ended: on, or the first reason it stopped.
enum class CvelLogStartUp {
  kOn,
  kNoModulePath,      // the loader did not say which file holds the library
  kNoProcessPath,     // nor which file is the program
  kNoConfigFile,      // neither configuration file could be read
  kParseFailed,       // the configuration file was rejected
  kIgnoredAll,        // [Ignore] holds ALL
  kIgnoredBySuffix,   // an [Ignore] key ends the library's path
  kNoLevel,           // [Common] LogLevel is missing or empty
  kNoSinks,           // no [Logger] section, or one without keys
  kNoFormat,          // the line formatter could not be made
};

class CvelLogger {
 public:
  // Start-up with the paths the dynamic loader reports for the library and for the program.
  CvelLogger();
  // Start-up with these paths in place of the loader's. A non-empty configPath is read in place of the
  // files beside the library and the program (the log-check command judges a given file this way).
  CvelLogger(const std::string& modulePath, const std::string& processPath, const std::string& configPath = "");
  ~CvelLogger();
  CvelLogger(const CvelLogger&) = delete;
  CvelLogger& operator=(const CvelLogger&) = delete;

  // Applies the parsed configuration: ignore rules, levels, sinks, formatter. True when logging is on (kept
  // as enabled()). Safe while other threads log: it waits for the record being written.
  bool configure();

  // Appends a sink of the caller's own after those that the configuration made; it is called under the
  // logger's mutex like them. Nothing is added to a logger that is off.
  void addSink(std::shared_ptr<CvelLogBase> sink);

  // Whether a record of this level is wanted: the caller asks before composing anything.
  bool wants(uint32_t level) const { return enabled_ && (levelMask_ & level) != 0; }

  // Composes a line with the process-wide formatter and hands it to every sink. Does not look at the level
  // mask: the caller has decided that the record is wanted.
  void logMessage(const char* file, const char* function, uint32_t line, uint32_t level, const char* message);
  // One DATA record: the bytes as a hex dump, or (toFile, with a DataDir and a name) written to
  // DataDir/name with the record naming the file.
  void logData(const char* file, const char* function, uint32_t line, const unsigned char* data, uint32_t length,
               const char* name, bool toFile);
  // The hex-dump text of the bytes, with a header and footer naming them when name is not null.
  static void hexDump(const unsigned char* data, uint32_t length, const char* name, std::ostream& stream);

  bool enabled() const { return enabled_; }
  bool ownConfiguration() const { return ownConfiguration_; }
  uint32_t levelMask() const { return levelMask_; }
  const std::string& modulePath() const { return modulePath_; }
  const std::string& processPath() const { return processPath_; }
  const std::string& dataDir() const { return dataDir_; }
  const CvelConfiguration& configuration() const { return configuration_; }
  const std::vector<std::shared_ptr<CvelLogBase>>& sinks() const { return sinks_; }
  const CvelLogFormat* format() const { return format_.get(); }
  // Why start-up stopped (kOn when it did not), with the file it read, the parser's result and the ignore
  // key that matched, where they apply.
  CvelLogStartUp startUp() const { return startUp_; }
  const std::string& configPath() const { return configPath_; }
  CvelResult parseResult() const { return parseResult_; }
  const std::string& ignoreKey() const { return ignoreKey_; }

 private:
  void start(const std::string& configPath);
  bool readConfiguration(const std::string& configPath, std::vector<unsigned char>& text);
  bool fail(CvelLogStartUp reason);
  bool applyConfiguration();
  void dispatch(const char* file, const char* function, uint32_t line, uint32_t level, const char* message);

  bool enabled_ = false;
  bool ownConfiguration_ = false;
  uint32_t levelMask_ = 0;
  std::string modulePath_;
  std::string processPath_;
  std::string dataDir_;
  CvelConfiguration configuration_;
  std::vector<std::shared_ptr<CvelLogBase>> sinks_;
  pthread_mutex_t mutex_;
  bool mutexReady_ = false;

  std::shared_ptr<const CvelLogFormat> format_;
  CvelLogStartUp startUp_ = CvelLogStartUp::kOn;
  std::string configPath_;
  CvelResult parseResult_ = kCvelOk;
  std::string ignoreKey_;
};

#endif  // KOLVARI_LOG_CVEL_LOGGER_H
