// CvelLogFormat: turns a call site, a level and a message into one record line, in the layout that the
// "Format" key lists, in bracket mode or (with "Mode" = "Blank") blank mode.
#ifndef KOLVARI_LOG_CVEL_LOG_FORMAT_H
#define KOLVARI_LOG_CVEL_LOG_FORMAT_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class CvelConfiguration;

// The fields of a line, by the names that "Format" lists them with.
enum class LogField : uint16_t {
  kFileName = 1,
  kFuncName = 2,
  kLine = 3,
  kLogMsg = 4,
  kDateTime = 5,
  kTime = 6,
  kLogModule = 7,
  kLogProcess = 8,
  kLogLevel = 9,
  kThread = 10,
  kPid = 11,
  kHostName = 12,
};

// The field a "Format" name selects (exact, case-sensitive); false for an unknown name.
bool cvelLogFieldFromName(const std::string& name, LogField& out);
const char* cvelLogFieldName(LogField field);

class CvelLogFormat {
 public:
  static constexpr int32_t kFileNameWidth = 32;
  static constexpr int32_t kFunctionWidth = 48;
  static constexpr int32_t kModuleWidth = 24;
  // Kept with the others, but the process prefix is written unpadded.
  static constexpr int32_t kProcessWidth = 20;
  static constexpr int32_t kHostWidth = 16;

  // Reads section "Common" of the configuration; without one (or without "Format") every line is empty.
  explicit CvelLogFormat(const CvelConfiguration* configuration);

  // The line for one record, newline included; empty when the layout writes nothing. Reads the formatter
  // only, so several threads may compose at once. Null texts write nothing for their fields.
  std::string compose(const char* file, const char* function, uint32_t line, uint32_t level,
                      const char* message) const;

  bool blank() const { return blank_; }
  const std::vector<LogField>& fields() const { return fields_; }
  const std::string& modulePrefix() const { return modulePrefix_; }
  const std::string& processPrefix() const { return processPrefix_; }
  const std::string& hostPrefix() const { return hostPrefix_; }
  int32_t processId() const { return processId_; }

 private:
  void setUp(const CvelConfiguration& configuration);

  bool blank_ = false;
  std::vector<LogField> fields_;
  std::string modulePrefix_;
  std::string processPrefix_;
  std::string hostPrefix_;
  int32_t processId_ = 0;
};

// The process-wide formatter that every logger composes with: the one the latest configuration made (it is
// made before the sinks are judged, so a logger left off by an empty [Logger] section still replaces it). cvelCurrentLogFormat hands out a reference that stays valid while it is held.
std::shared_ptr<const CvelLogFormat> cvelCurrentLogFormat();
void cvelSetCurrentLogFormat(std::shared_ptr<const CvelLogFormat> format);
// Clears the process-wide formatter if it is still `format` (a logger going away takes its formatter along).
void cvelReleaseLogFormat(const CvelLogFormat* format);

#endif  // KOLVARI_LOG_CVEL_LOG_FORMAT_H
