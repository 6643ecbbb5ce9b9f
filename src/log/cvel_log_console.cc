#include "log/cvel_log_console.h"

#include <iostream>

#include "base/cvel_configuration.h"
#include "log/cvel_log_keys.h"

namespace {

constexpr const char* kStandardOutput = "stdout";

}  // namespace

CvelLogConsole::CvelLogConsole(const CvelConfiguration* configuration) {
  if (configuration == nullptr) return;
  std::string value;
  // Only the exact text selects standard output: "STDOUT", "stderr" or an empty value keep standard error.
  if (configuration->getText(kLogSectionLogger, kLogKeyConsole, value, false) == kCvelOk &&
      value == kStandardOutput) {
    useStandardError_ = false;
  }
}

void CvelLogConsole::write(const char* line) {
  if (line == nullptr) return;
  std::ostream& out = useStandardError_ ? std::cerr : std::cout;
  out << line;
  out.flush();
}
