// CvelLogSystem: sends fatal, error, warning and information records to the system log, one
// openlog/syslog/closelog round per record, under the process path as ident.
#ifndef KOLVARI_LOG_CVEL_LOG_SYSTEM_H
#define KOLVARI_LOG_CVEL_LOG_SYSTEM_H

#include <string>

#include "log/cvel_log_base.h"

class CvelConfiguration;

// The three system-log calls the sink makes; a test hands in its own to see what would be sent.
struct CvelSystemLogCalls {
  void (*open)(const char* ident, int options, int facility);
  void (*send)(int priority, const char* format, ...);
  void (*close)();
};

class CvelLogSystem : public CvelLogBase {
 public:
  // The user-level facility of the system log.
  static constexpr int kFacilityUser = 8;
  // Log the process id, connect at once.
  static constexpr int kOpenOptions = 9;

  // Without a configuration the ident stays empty and the sink sends nothing. calls == nullptr uses the
  // system's own.
  explicit CvelLogSystem(const CvelConfiguration* configuration, const CvelSystemLogCalls* calls = nullptr);

  void log(uint32_t level, const char* line) override;
  void write(const char* line) override;

  int facility() const { return facility_; }
  const std::string& ident() const { return ident_; }
  // Whether a record of this level reaches the system log.
  static bool sends(uint32_t level);

 private:
  int facility_ = kFacilityUser;
  std::string ident_;
  const CvelSystemLogCalls* calls_;
};

#endif  // KOLVARI_LOG_CVEL_LOG_SYSTEM_H
