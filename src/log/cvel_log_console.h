// CvelLogConsole: writes every record to standard error, or to standard output when "Logger" / "Console" is
// "stdout".
#ifndef KOLVARI_LOG_CVEL_LOG_CONSOLE_H
#define KOLVARI_LOG_CVEL_LOG_CONSOLE_H

#include "log/cvel_log_base.h"

class CvelConfiguration;

class CvelLogConsole : public CvelLogBase {
 public:
  // Without a configuration the sink writes to standard error.
  explicit CvelLogConsole(const CvelConfiguration* configuration);

  void write(const char* line) override;

  bool useStandardError() const { return useStandardError_; }

 private:
  bool useStandardError_ = true;
};

#endif  // KOLVARI_LOG_CVEL_LOG_CONSOLE_H
