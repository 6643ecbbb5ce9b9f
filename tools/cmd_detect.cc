// kolvari detect: classifies files by their leading bytes with the library's content-type detector, one
// line per file ("0x00000072 pkcs7-signed-data  FILE"), or with --json an array of {"file","code","name"}.
// A file that cannot be read is named on standard error; the others are still classified, and the exit
// status is then 1. A file name that is not UTF-8 is shown in JSON with U+FFFD for what is not.
#include <cinttypes>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "asn1/cvel_data_stream.h"
#include "cli/command_line.h"
#include "cli/exit_status.h"
#include "command_list.h"
#include "inspect/json_output.h"
#include "io/input_file.h"

namespace {

// The content type of one file; false (after a message) when it cannot be read.
bool detectFile(const std::string& path, uint32_t& type) {
  std::string error;
  if (!checkInputFile(path, error)) {
    std::fprintf(stderr, "kolvari detect: %s\n", error.c_str());
    return false;
  }
  CvelDataStream stream;
  CvelResult r = stream.open(path.c_str(), CvelDataStream::kRead);
  if (r == kCvelOk) r = stream.detectType(&type);
  if (r == kCvelOk) return true;
  std::fprintf(stderr, "kolvari detect: cannot read %s (not a readable file)\n", path.c_str());
  return false;
}

struct DetectOptions {
  bool json = false;
  std::vector<std::string> files;
};

int runDetect(const DetectOptions& o) {
  const bool json = o.json;
  const std::vector<std::string>& files = o.files;

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

}  // namespace

ToolCommand detectCommand() {
  return {"detect", "name the content type of each file (PKCS #7, PEM, PDF, ...)",
          "Names the content type of each file as the library's detector sees it: the code in hexadecimal, a short "
          "name and the path. A file that cannot be read is named on standard error and the exit status is 1.",
          "kolvari detect document.p7s document.txt", [](CLI::App& app) {
            auto o = std::make_shared<DetectOptions>();
            addFlag(app, "--json", o->json, "one array with an object {\"file\", \"code\", \"name\"} per file");
            addFiles(app, "FILE", o->files, "the files to name");
            return [o] { return runDetect(*o); };
          }};
}
