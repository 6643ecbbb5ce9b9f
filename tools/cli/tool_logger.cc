#include "cli/tool_logger.h"

#include "log/cvel_logger.h"

CvelLogger& toolLogger() {
  static CvelLogger logger;
  return logger;
}
