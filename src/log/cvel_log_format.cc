#include "log/cvel_log_format.h"

#include <cstdio>
#include <ctime>
#include <iomanip>
#include <mutex>
#include <sstream>

#include "base/cvel_configuration.h"
#include "base/cvel_process.h"
#include "base/cvel_thread_registry.h"
#include "log/cvel_log_keys.h"
#include "log/cvel_log_level.h"

namespace {

struct FieldName {
  LogField field;
  const char* name;
};

constexpr FieldName kFieldNames[] = {
    {LogField::kFileName, "FileName"},   {LogField::kFuncName, "FuncName"}, {LogField::kLine, "Line"},
    {LogField::kLogMsg, "LogMsg"},       {LogField::kDateTime, "DateTime"}, {LogField::kTime, "Time"},
    {LogField::kLogModule, "LogModule"}, {LogField::kLogProcess, "LogProcess"},
    {LogField::kLogLevel, "LogLevel"},   {LogField::kThread, "Thread"},     {LogField::kPid, "PID"},
    {LogField::kHostName, "HostName"},
};

constexpr const char* kDateTimeBracket = "(%04i-%02i-%02i %02i:%02i:%02i.%03i) ";
constexpr const char* kDateTimeBlank = "%04i-%02i-%02i %02i:%02i:%02i,%03i ";
constexpr const char* kTimeBracket = "(%02i:%02i:%02i.%03i) ";
constexpr const char* kTimeBlank = "%02i:%02i:%02i,%03i ";
constexpr const char* kLocalHost = "localhost";
constexpr size_t kHostNameBuffer = 256;
constexpr int kThreadNumberWidth = 6;
constexpr int kLineWidth = 4;
constexpr int kProcessIdWidth = 5;

std::string afterLastSlash(const char* path) {
  std::string text(path);
  size_t slash = text.rfind('/');
  return slash == std::string::npos ? text : text.substr(slash + 1);
}

// Writes text left-aligned in width columns, padded with blanks, without touching the stream's own fill:
// a Line field later on the same line goes on with the fill that a Thread field left.
void writePadded(std::ostream& out, const std::string& text, int32_t width) {
  out << text;
  if (text.size() < static_cast<size_t>(width)) out << std::string(static_cast<size_t>(width) - text.size(), ' ');
}

std::string prefix(const char* open, const std::string& name, bool blank) {
  return blank ? name + " " : std::string(open) + name + "] ";
}

std::mutex& currentFormatMutex() {
  static std::mutex mutex;
  return mutex;
}

std::shared_ptr<const CvelLogFormat>& currentFormat() {
  static std::shared_ptr<const CvelLogFormat> format;
  return format;
}

}  // namespace

bool cvelLogFieldFromName(const std::string& name, LogField& out) {
  for (const FieldName& f : kFieldNames) {
    if (name == f.name) {
      out = f.field;
      return true;
    }
  }
  return false;
}

const char* cvelLogFieldName(LogField field) {
  for (const FieldName& f : kFieldNames) {
    if (f.field == field) return f.name;
  }
  return "";
}

CvelLogFormat::CvelLogFormat(const CvelConfiguration* configuration) {
  if (configuration != nullptr) setUp(*configuration);
}

void CvelLogFormat::setUp(const CvelConfiguration& configuration) {
  std::string format;
  // Without a layout nothing else is read and every line stays empty: such a logger is silent on purpose.
  if (configuration.getText(kLogSectionCommon, kLogKeyFormat, format, false) != kCvelOk || format.empty()) return;
  for (const std::string& name : cvelLogSplitList(format)) {
    LogField field;
    // Unknown names are skipped; a name listed twice is written twice.
    if (cvelLogFieldFromName(name, field)) fields_.push_back(field);
  }

  std::string mode;
  if (configuration.getText(kLogSectionCommon, kLogKeyMode, mode, false) == kCvelOk && mode == kLogModeBlank) {
    blank_ = true;
  }

  std::string module;
  if (configuration.getText(kLogSectionCommon, kLogKeyLogModule, module, false) == kCvelOk && !module.empty()) {
    std::string name = afterLastSlash(module.c_str());
    // libsigner.1.dylib is shown as libsigner; a name that starts with its first '.' is kept whole.
    size_t dot = name.find('.');
    if (dot != std::string::npos && dot > 0) name.resize(dot);
    modulePrefix_ = prefix("m[", name, blank_);
  }

  std::string process;
  if (configuration.getText(kLogSectionCommon, kLogKeyLogProcess, process, false) == kCvelOk && !process.empty()) {
    processPrefix_ = prefix("p[", afterLastSlash(process.c_str()), blank_);
  }

  char host[kHostNameBuffer] = {};
  bool haveHost = hostName(host, sizeof host) == kCvelOk;
  host[kHostNameBuffer - 1] = '\0';
  hostPrefix_ = prefix("h[", haveHost && host[0] != '\0' ? std::string(host) : std::string(kLocalHost), blank_);

  processId_ = ::processId();
}

std::string CvelLogFormat::compose(const char* file, const char* function, uint32_t line, uint32_t level,
                                   const char* message) const {
  if (fields_.empty()) return std::string();
  // A fresh stream per line: blank fill, no width, until a field changes them.
  std::ostringstream out;
  for (LogField field : fields_) {
    switch (field) {
      case LogField::kFileName:
        if (file == nullptr) break;
        if (blank_) {
          out << afterLastSlash(file) << ' ';
        } else {
          writePadded(out, afterLastSlash(file), kFileNameWidth);
          out << ": ";
        }
        break;
      case LogField::kFuncName:
        if (function == nullptr) break;
        if (blank_) {
          out << function << ' ';
        } else {
          writePadded(out, std::string("f{") + function + "} ", kFunctionWidth);
        }
        break;
      case LogField::kLine:
        // Sets alignment and width only: the fill is whatever an earlier field of this line left ('.' after
        // a numbered Thread field). Log readers know the dotted line numbers, so this stays.
        if (blank_) {
          out << line << ' ';
        } else {
          out << std::right << std::setw(kLineWidth) << line << ": ";
        }
        break;
      case LogField::kLogMsg:
        if (message != nullptr) out << message;
        break;
      case LogField::kDateTime:
      case LogField::kTime: {
        struct tm now {};
        int32_t milliseconds = 0;
        if (!localTimeNow(now, milliseconds)) break;
        char stamp[64];
        if (field == LogField::kDateTime) {
          std::snprintf(stamp, sizeof stamp, blank_ ? kDateTimeBlank : kDateTimeBracket, now.tm_year + 1900,
                        now.tm_mon + 1, now.tm_mday, now.tm_hour, now.tm_min, now.tm_sec, milliseconds);
        } else {
          std::snprintf(stamp, sizeof stamp, blank_ ? kTimeBlank : kTimeBracket, now.tm_hour, now.tm_min,
                        now.tm_sec, milliseconds);
        }
        out << stamp;
        break;
      }
      case LogField::kLogModule:
        if (modulePrefix_.empty()) break;
        if (blank_) {
          out << modulePrefix_;
        } else {
          writePadded(out, modulePrefix_, kModuleWidth);
        }
        break;
      case LogField::kLogProcess:
        out << processPrefix_;
        break;
      case LogField::kLogLevel:
        out << cvelLogLevelText(level, blank_);
        break;
      case LogField::kThread: {
        int32_t number = threadNumber(currentThreadEntry());
        if (number > 0) {
          if (blank_) {
            out << "Thread-" << number << ' ';
          } else {
            // The '.' fill stays set for the rest of the line.
            out << 'T' << std::setfill('.') << std::right << std::setw(kThreadNumberWidth) << number << ' ';
          }
        } else if (number == 0) {
          out << (blank_ ? "Thread-0 " : "T.main. ");
        } else {
          out << (blank_ ? "Thread-? " : "T..n/a. ");
        }
        break;
      }
      case LogField::kPid:
        if (processId_ > 0) {
          if (blank_) {
            out << processId_ << ' ';
          } else {
            out << '{' << std::setfill(' ') << std::right << std::setw(kProcessIdWidth) << processId_ << "} ";
          }
        }
        // A PID entry writes the host too; layouts that list PID alone rely on it.
        [[fallthrough]];
      case LogField::kHostName:
        if (hostPrefix_.empty()) break;
        if (blank_) {
          out << hostPrefix_;
        } else {
          writePadded(out, hostPrefix_, kHostWidth);
        }
        break;
    }
  }
  std::string text = out.str();
  if (!text.empty()) text += '\n';
  return text;
}

std::shared_ptr<const CvelLogFormat> cvelCurrentLogFormat() {
  std::lock_guard<std::mutex> lock(currentFormatMutex());
  return currentFormat();
}

void cvelSetCurrentLogFormat(std::shared_ptr<const CvelLogFormat> format) {
  std::lock_guard<std::mutex> lock(currentFormatMutex());
  currentFormat() = std::move(format);
}

void cvelReleaseLogFormat(const CvelLogFormat* format) {
  std::lock_guard<std::mutex> lock(currentFormatMutex());
  if (currentFormat().get() == format) currentFormat().reset();
}
