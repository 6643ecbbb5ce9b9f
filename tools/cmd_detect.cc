// kolvari detect: classifies files by their leading bytes with the library's content-type detector, one
// line per file ("0x00000072 pkcs7-signed-data  FILE"), or with --json an array of {"file","code","name"}.
// A file that cannot be read is named on standard error; the others are still classified, and the exit
// status is then 1. A file name that is not UTF-8 is shown in JSON with U+FFFD for what is not.
#include <cinttypes>
#include <cstdio>
#include <string>

#include "asn1/cvel_data_stream.h"
#include "commands.h"
#include "inspect/json_output.h"

namespace {

// The content type of one file; false (after a message) when it cannot be read.
bool detectFile(const std::string& path, uint32_t& type) {
  CvelDataStream stream;
  CvelResult r = stream.open(path.c_str(), CvelDataStream::kRead);
  if (r == kCvelOk) r = stream.detectType(&type);
  if (r == kCvelOk) return true;
  std::fprintf(stderr, "kolvari detect: cannot read %s (not a readable file)\n", path.c_str());
  return false;
}

}  // namespace

int runDetect(const Arguments& args) {
  bool json = false;
  Arguments files;
  for (const std::string& a : args) {
    if (a == "--json") {
      json = true;
    } else if (a.size() > 1 && a[0] == '-') {
      files.clear();
      break;
    } else {
      files.push_back(a);
    }
  }
  if (files.empty()) {
    std::fprintf(stderr, "usage: kolvari detect [--json] FILE...\n");
    return kExitUsage;
  }

  bool allRead = true;
  Json rows = Json::array();
  for (const std::string& path : files) {
    uint32_t type = 0;
    if (!detectFile(path, type)) {
      allRead = false;
      continue;
    }
    if (json) {
      rows.push_back(Json{{"file", path}, {"code", type}, {"name", cvelContentTypeName(type)}});
    } else {
      std::printf("0x%08" PRIX32 " %-32s %s\n", type, cvelContentTypeName(type), path.c_str());
    }
  }
  if (json) std::fputs(jsonDocument(rows).c_str(), stdout);
  return allRead ? kExitOk : kExitFailure;
}
