// kolvari: a command-line host for the Kolvari PKCS7 Signature Encoder, and a looking glass for DER.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>

#include "commands.h"
#include "log/cvel_logger.h"

namespace {

struct Command {
  const char* name;
  int (*run)(const Arguments&);
  const char* usage;
};

constexpr Command kCommands[] = {
    {"info", runInfo, "info [--plugin PATH]        load the plug-in and print its provider name and encoders"},
    {"der", runDer, "der FILE                    print the element tree of a DER file"},
    {"detect", runDetect, "detect [--json] FILE...     name the content type of each file (PKCS #7, PEM, PDF, ...)"},
    {"cert", runCert, "cert FILE [--json]          parse a certificate (DER, PEM or base64) and print its parts"},
    {"inspect", runInspect, "inspect FILE [--json]       decode a signature, time stamp, OCSP response, CRL or certificate"},
    {"log-check", runLogCheck, "log-check [--config FILE]   show what the logger makes of its configuration file"},
    {"sign", runSign, "sign --key KEY --cert CERT [options] FILE\n"
                      "                              sign FILE with the plug-in (kolvari sign --help)"},
};

void printUsage(FILE* to) {
  std::fprintf(to, "usage: kolvari COMMAND [ARGS]\n\ncommands:\n");
  for (const Command& c : kCommands) std::fprintf(to, "  %s\n", c.usage);
}

// Runs a command between two records of the tool's logger: the command line, and the exit status.
int runLogged(const Command& c, int argc, char** argv, const Arguments& args) {
  std::string commandLine = "kolvari";
  for (int i = 1; i < argc; ++i) commandLine += std::string(" ") + argv[i];
  CVEL_LOG(toolLogger(), kCvelLogInfo, commandLine.c_str());
  int status = c.run(args);
  CVEL_LOG(toolLogger(), status == kExitOk ? kCvelLogInfo : kCvelLogError,
           (std::string(c.name) + ": exit status " + std::to_string(status)).c_str());
  return status;
}

}  // namespace

CvelLogger& toolLogger() {
  static CvelLogger logger;
  return logger;
}

bool readWholeFile(const std::string& path, std::vector<unsigned char>& out) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  out.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return !in.bad();
}

int main(int argc, char** argv) {
  if (argc < 2 || std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0) {
    printUsage(argc < 2 ? stderr : stdout);
    return argc < 2 ? kExitUsage : kExitOk;
  }
  Arguments args(argv + 2, argv + argc);
  for (const Command& c : kCommands) {
    if (std::strcmp(argv[1], c.name) == 0) return runLogged(c, argc, argv, args);
  }
  std::fprintf(stderr, "kolvari: unknown command '%s'\n", argv[1]);
  printUsage(stderr);
  return kExitUsage;
}
