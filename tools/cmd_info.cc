// kolvari info: loads the plug-in exactly as a host would and prints what it says of itself.
#include <cstdio>
#include <list>
#include <string>

#include "commands.h"
#include "zarv_plugin.h"

int runInfo(const Arguments& args) {
  std::string path = defaultPluginPath();
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--plugin" && i + 1 < args.size()) {
      path = args[++i];
    } else {
      std::fprintf(stderr, "usage: kolvari info [--plugin PATH]\n");
      return kExitUsage;
    }
  }
  ZarvPlugin plugin;
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
