#include "log/cvel_log_file.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "base/cvel_configuration.h"
#include "base/cvel_file.h"
#include "log/cvel_log_keys.h"

namespace {

constexpr uint32_t kMebibyte = 1048576;
constexpr uint32_t kKibibyte = 1024;
constexpr const char* kBackUpStamp = "_%04i%02i%02i%02i%02i%02i";
constexpr const char* kBackUpExtension = ".log";

// The current local time, broken down; false when the clock cannot be read.
bool localTimeOf(time_t seconds, struct tm& out) { return localtime_r(&seconds, &out) != nullptr; }

}  // namespace

CvelLogFile::CvelLogFile(const CvelConfiguration* configuration, bool truncatePending)
    : truncatePending_(truncatePending) {
  if (configuration == nullptr) return;
  std::string path;
  if (configuration->getText(kLogSectionLogger, kLogKeyFile, path, false) != kCvelOk || path.empty()) return;
  path_ = path;
  // The key's presence alone switches the back-up on; its value is not read.
  backUp_ = configuration->hasKey(kLogSectionFile, kLogKeyBackUp, false);
  if (configuration->hasKey(kLogSectionFile, kLogKeyMaxFileSize, false)) {
    std::string value;
    if (configuration->getText(kLogSectionFile, kLogKeyMaxFileSize, value, false) == kCvelOk) {
      maxFileSize_ = parseMaxFileSize(value);
    }
  }
}

uint32_t CvelLogFile::parseMaxFileSize(const std::string& value) {
  if (value.size() < 2) return 0;
  uint32_t unit = 0;
  // Lower case only; a plain number or an upper-case unit gives no limit. Existing configuration files rely
  // on "10M" meaning no limit, so it stays that way.
  if (value.back() == 'm') unit = kMebibyte;
  if (value.back() == 'k') unit = kKibibyte;
  if (unit == 0) return 0;
  // Leading digits, read with strtol and capped at the largest int: atoi's reading where atoi is defined,
  // and deliberately a defined value past the int range, where atoi has none. The product wraps in 32 bits.
  long number = std::strtol(value.substr(0, value.size() - 1).c_str(), nullptr, 10);
  if (number <= 0) return 0;
  if (number > INT32_MAX) number = INT32_MAX;
  return static_cast<uint32_t>(number) * unit;
}

std::string CvelLogFile::backUpName(const std::string& path) {
  CvelFileTime changed{};
  CvelFileTime accessed{};
  CvelFileTime modified{};
  struct tm when {};
  bool haveTime = fileTimes(path.c_str(), &changed, &accessed, &modified) == kCvelOk &&
                  localTimeOf(static_cast<time_t>(modified.seconds), when);
  if (!haveTime && !localTimeOf(std::time(nullptr), when)) when = {};
  char stamp[64];
  std::snprintf(stamp, sizeof stamp, kBackUpStamp, when.tm_year + 1900, when.tm_mon + 1, when.tm_mday, when.tm_hour,
                when.tm_min, when.tm_sec);
  return path + stamp + kBackUpExtension;
}

void CvelLogFile::backUpFile() const {
  // A failed rename loses the back-up; the truncating open follows all the same.
  (void)renameFile(path_.c_str(), backUpName(path_).c_str());
}

void CvelLogFile::log(uint32_t level, const char* line) {
  (void)level;
  if (path_.empty()) return;
  write(line);
}

void CvelLogFile::write(const char* line) {
  if (line == nullptr || path_.empty()) return;
  const char* mode = "ab";
  if (truncatePending_) {
    if (backUp_) backUpFile();
    mode = "wb";
    // Cleared whether or not the open below succeeds.
    truncatePending_ = false;
  } else if (maxFileSize_ != 0) {
    // The size is tested before the write, so the file may pass the limit by one record.
    uint64_t size = 0;
    if (fileSize(path_.c_str(), size) == kCvelOk && size > maxFileSize_) {
      if (backUp_) backUpFile();
      mode = "wb";
    }
  }
  FILE* file = std::fopen(path_.c_str(), mode);
  if (file == nullptr) return;
  std::fwrite(line, 1, std::strlen(line), file);
  std::fflush(file);
  std::fclose(file);
}
