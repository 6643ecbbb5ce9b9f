// kolvari info: loads the plug-in exactly as a host would and prints what it says of itself. The file is a
// second copy of the library beside the core linked into the tool, and the two share no state: the plug-in
// binds its internals to itself (hidden visibility, only ZARV_ exported), it is opened RTLD_LOCAL, and the tool
// exports no ZARV_ symbol that could stand in for its own. So info reports the file as a host would see it, and
// the core's process-wide state (OID converter, last error, logger) is never touched by it.
#include <cstdio>
#include <list>
#include <memory>
#include <string>

#include "cli/command_line.h"
#include "cli/exit_status.h"
#include "command_list.h"
#include "zarv_functions.h"

namespace {

struct InfoOptions {
  std::string plugin;
};

int runInfo(const InfoOptions& o) {
  const std::string path = o.plugin.empty() ? defaultPluginPath() : o.plugin;
  ZarvFunctions plugin;  // from the file, never ZarvFunctions::linked()
  std::string error;
  if (!plugin.loadProvider(path, error)) {
    std::fprintf(stderr, "kolvari info: %s\n", error.c_str());
    return kExitFailure;
  }
  uint32_t r = plugin.init();
  if (r != ZARV_OK) {
    std::fprintf(stderr, "kolvari info: ZARV_Init returned %s\n", describeResult(r).c_str());
    return kExitFailure;
  }
  std::string name;
  std::list<std::string> encoders;
  uint32_t nameResult = plugin.getEncoderProviderName(name);
  uint32_t listResult = plugin.getSupportedEncoderList(encoders);
  if (nameResult != ZARV_OK || listResult != ZARV_OK) {
    std::fprintf(stderr, "kolvari info: the plug-in answered %s and %s\n", describeResult(nameResult).c_str(),
                 describeResult(listResult).c_str());
    return kExitFailure;
  }
  std::printf("plug-in:  %s\n", path.c_str());
  std::printf("provider: %s\n", name.c_str());
  std::printf("encoders:");
  for (const std::string& e : encoders) std::printf(" %s", e.c_str());
  std::printf("\n");
  return kExitOk;
}

}  // namespace

ToolCommand infoCommand() {
  return {"info", "load the plug-in and print its provider name and encoders",
          "Loads the plug-in with dlopen, as a host does, and prints its path, its provider name and its encoders.",
          "kolvari info --plugin /usr/lib/libkolvari-pkcs7.so.1", [](CLI::App& app) {
            auto o = std::make_shared<InfoOptions>();
            addValue(app, "--plugin", o->plugin, "PATH",
                     "the plug-in to load (default: libkolvari-pkcs7.so beside the tool, else the installed "
                     "libkolvari-pkcs7.so.1)");
            return [o] { return runInfo(*o); };
          }};
}
