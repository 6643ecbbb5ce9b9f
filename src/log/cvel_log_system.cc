#include "log/cvel_log_system.h"

#include <syslog.h>

#include "base/cvel_configuration.h"
#include "log/cvel_log_keys.h"
#include "log/cvel_log_level.h"

namespace {

void systemOpen(const char* ident, int options, int facility) { openlog(ident, options, facility); }
void systemClose() { closelog(); }

// syslog itself is the sender: it is variadic like the hook, and the line goes in as its format text.
constexpr CvelSystemLogCalls kSystemCalls = {systemOpen, syslog, systemClose};

}  // namespace

CvelLogSystem::CvelLogSystem(const CvelConfiguration* configuration, const CvelSystemLogCalls* calls)
    : calls_(calls != nullptr ? calls : &kSystemCalls) {
  if (configuration == nullptr) return;
  // The logger has stored the full path of the process under this key.
  std::string process;
  if (configuration->getText(kLogSectionCommon, kLogKeyLogProcess, process, false) == kCvelOk && !process.empty()) {
    ident_ = process;
  }
}

bool CvelLogSystem::sends(uint32_t level) {
  return level == kCvelLogInfo || level == kCvelLogWarning || level == kCvelLogError || level == kCvelLogFatal;
}

void CvelLogSystem::log(uint32_t level, const char* line) {
  if (ident_.empty() || !sends(level) || line == nullptr) return;
  calls_->open(ident_.c_str(), kOpenOptions, facility_);
  // The level bit goes in as the severity as it is (so information, 0x8, merges into the facility bits), and
  // the line is the format text, so a '%' in a message is expanded. Hosts' log filters were set up for
  // exactly these priorities, and both stay.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
  calls_->send(static_cast<int>(level) | facility_, line);
#pragma GCC diagnostic pop
  calls_->close();
}

void CvelLogSystem::write(const char* line) { (void)line; }
