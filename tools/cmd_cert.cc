// kolvari cert: parses a certificate file (DER, PEM or bare base64) as the library does and prints its parts,
// as text or, with --json, as one JSON object whose byte fields are the hex of whole DER elements (the
// printing is in inspect/certificate_view.cc).
#include <cstdio>
#include <string>
#include <vector>

#include "commands.h"
#include "x509/cvel_certificate.h"

int runCert(const Arguments& args) {
  std::string path;
  bool json = false;
  if (!parseFileAndJson(args, path, json)) {
    std::fprintf(stderr, "usage: kolvari cert FILE [--json]\n");
    return kExitUsage;
  }
  std::vector<unsigned char> bytes;
  if (!readWholeFile(path, bytes)) {
    std::fprintf(stderr, "kolvari cert: cannot read %s\n", path.c_str());
    return kExitFailure;
  }
  if (bytes.size() >= CvelString::kViewCapacity - 1) {
    std::fprintf(stderr, "kolvari cert: %s is too large\n", path.c_str());
    return kExitFailure;
  }
  CvelCertificate certificate;
  if (certificate.parse(bytes.data(), static_cast<uint32_t>(bytes.size())) != kCvelOk) {
    std::fprintf(stderr, "kolvari cert: %s is not a certificate the library can parse\n", path.c_str());
    return kExitUsage;
  }
  printCertificate(certificate, json);
  return kExitOk;
}
