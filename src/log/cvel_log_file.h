// CvelLogFile: appends records to a file that it opens and closes for every record, starting it afresh
// once when asked to ("Overwrite") and whenever it has grown past its size limit, optionally keeping the old
// file under a back-up name.
#ifndef KOLVARI_LOG_CVEL_LOG_FILE_H
#define KOLVARI_LOG_CVEL_LOG_FILE_H

#include <cstdint>
#include <string>

#include "log/cvel_log_base.h"

class CvelConfiguration;

class CvelLogFile : public CvelLogBase {
 public:
  // truncatePending: the next record starts the file afresh. Without a configuration, or without
  // "Logger" / "File", the sink has no path and ignores every record.
  CvelLogFile(const CvelConfiguration* configuration, bool truncatePending);

  void log(uint32_t level, const char* line) override;
  void write(const char* line) override;

  bool truncatePending() const { return truncatePending_; }
  bool backUp() const { return backUp_; }
  uint32_t maxFileSize() const { return maxFileSize_; }
  const std::string& path() const { return path_; }

  // The size limit a "MaxFileSize" value gives: a number with the unit 'm' (MiB) or 'k' (KiB); 0 (no limit)
  // for anything else.
  static uint32_t parseMaxFileSize(const std::string& value);
  // The name the file at path is kept under when it is started afresh: path + "_YYYYMMDDhhmmss.log", from
  // its modification time in local time (the current time when it has none).
  static std::string backUpName(const std::string& path);

 private:
  void backUpFile() const;

  bool truncatePending_;
  bool backUp_ = false;
  uint32_t maxFileSize_ = 0;
  std::string path_;
};

#endif  // KOLVARI_LOG_CVEL_LOG_FILE_H
