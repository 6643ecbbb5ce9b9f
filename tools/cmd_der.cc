// kolvari der: prints the element tree of a DER file as the library's element cursor reads it, one line per
// element, in a layout that can be held against `openssl asn1parse -inform DER -i`:
//   offset:d=depth  hl=header-length l=content-length tag=0x.. prim|cons: NAME
#include <cinttypes>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "asn1/cvel_a1_walk.h"
#include "asn1/cvel_string.h"
#include "cli/command_line.h"
#include "cli/exit_status.h"
#include "command_list.h"
#include "io/input_file.h"

namespace {

constexpr uint32_t kClassMask = 0xC0;
constexpr uint32_t kUniversalClass = 0x00;
constexpr uint32_t kContextClass = 0x80;
constexpr uint32_t kNumberMask = 0x1F;

const char* universalName(uint32_t number) {
  switch (number) {
    case 0: return "EOC";
    case 1: return "BOOLEAN";
    case 2: return "INTEGER";
    case 3: return "BIT STRING";
    case 4: return "OCTET STRING";
    case 5: return "NULL";
    case 6: return "OBJECT";
    case 10: return "ENUMERATED";
    case 12: return "UTF8STRING";
    case 16: return "SEQUENCE";
    case 17: return "SET";
    case 19: return "PRINTABLESTRING";
    case 20: return "T61STRING";
    case 22: return "IA5STRING";
    case 23: return "UTCTIME";
    case 24: return "GENERALIZEDTIME";
    case 26: return "VISIBLESTRING";
    case 28: return "UNIVERSALSTRING";
    case 30: return "BMPSTRING";
    default: return nullptr;
  }
}

std::string tagName(const CvelA1WalkElement& e, uint8_t firstOctet) {
  const uint32_t cls = firstOctet & kClassMask;
  const uint32_t number = firstOctet & kNumberMask;
  if (cls == kUniversalClass && number != kNumberMask) {
    const char* name = universalName(number);
    if (name != nullptr) return name;
  }
  char text[48];
  if (cls == kContextClass && number != kNumberMask) {
    std::snprintf(text, sizeof text, "cont [ %u ]", number);
  } else {
    std::snprintf(text, sizeof text, "tag 0x%X", e.tag);
  }
  return text;
}

int runDer(const std::string& path) {
  std::vector<unsigned char> bytes;
  std::string error;
  if (!readInputFile(path, bytes, error)) {
    std::fprintf(stderr, "kolvari der: %s\n", error.c_str());
    return kExitFailure;
  }
  CvelString der;
  if (der.setView(bytes.data(), bytes.size()) != kCvelOk) {
    std::fprintf(stderr, "kolvari der: %s is too large\n", path.c_str());
    return kExitFailure;
  }
  CvelA1WalkResult result = cvelWalk(der, [&](const CvelA1WalkElement& e) {
    std::printf("%5u:d=%-2u hl=%u l=%4u tag=0x%02X %s: %s%s\n", e.offset, e.depth, e.headerLength, e.contentLength,
                e.tag, e.constructed ? "cons" : "prim", tagName(e, bytes[e.offset]).c_str(),
                e.overruns ? "  (runs past its container)" : "");
    return true;
  });
  if (bytes.empty()) {
    std::fprintf(stderr, "kolvari der: %s is empty\n", path.c_str());
    return kExitFailure;
  }
  if (!result.complete) {
    std::fflush(stdout);
    std::fprintf(stderr,
                 "kolvari der: malformed DER in %s: the element at offset %u (depth %u) runs past its container\n",
                 path.c_str(), result.faultOffset, result.faultDepth);
    return kExitFailure;
  }
  return kExitOk;
}

}  // namespace

ToolCommand derCommand() {
  return {"der", "print the element tree of a DER file",
          "Prints one line per element of a DER file: offset, depth, header length, length and tag, laid out like "
          "`openssl asn1parse -inform DER -i`. A malformed file is shown up to the fault, then exit status 1.",
          "kolvari der document.p7s", [](CLI::App& app) {
            auto path = std::make_shared<std::string>();
            addFile(app, "FILE", *path, "the DER file");
            return [path] { return runDer(*path); };
          }};
}
