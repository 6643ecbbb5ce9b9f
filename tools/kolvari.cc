// kolvari: a command-line host for the Kolvari PKCS7 Signature Encoder, and a looking glass for DER.
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "cli/command_line.h"
#include "cli/exit_status.h"
#include "cli/tool_logger.h"
#include "command_list.h"
#include "log/cvel_logger.h"

namespace {

std::vector<ToolCommand> allCommands() {
  return {infoCommand(),    derCommand(),      detectCommand(), certCommand(),    inspectCommand(),
          verifyCommand(),  logCheckCommand(), signCommand(),   signPdfCommand(), timeStampPdfCommand(),
          extendPdfCommand(), extendCommand()};
}

// Runs a command between two records of the tool's logger: the command line, and the exit status.
int runLogged(int argc, char** argv) {
  std::string commandLine = "kolvari";
  for (int i = 1; i < argc; ++i) commandLine += std::string(" ") + argv[i];
  CVEL_LOG(toolLogger(), kCvelLogInfo, commandLine.c_str());
  const int status = runToolCommand(allCommands(), Arguments(argv + 1, argv + argc));
  CVEL_LOG(toolLogger(), status == kExitOk ? kCvelLogInfo : kCvelLogError,
           (std::string(argv[1]) + ": exit status " + std::to_string(status)).c_str());
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  const char* command = argc < 2 ? "kolvari" : argv[1];
  // Whatever a command lets escape ends the run with one line, never an abort.
  try {
    if (argc < 2 || std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0) {
      std::fputs(toolHelp(allCommands()).c_str(), argc < 2 ? stderr : stdout);
      return argc < 2 ? kExitUsage : kExitOk;
    }
    return runLogged(argc, argv);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "kolvari %s: %s\n", command, e.what());
  } catch (...) {
    std::fprintf(stderr, "kolvari %s: an unexpected error\n", command);
  }
  return kExitFailure;
}
