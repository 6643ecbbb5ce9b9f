// kolvari cert: parses a certificate file (DER, PEM or bare base64) as the library does and prints its parts,
// as text or, with --json, as one JSON object whose byte fields are the hex of whole DER elements (the
// printing is in inspect/certificate_view.cc).
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "cli/command_line.h"
#include "cli/exit_status.h"
#include "command_list.h"
#include "inspect/certificate_view.h"
#include "io/input_file.h"
#include "x509/cvel_certificate.h"

namespace {

struct CertOptions {
  std::string path;
  bool json = false;
};

int runCert(const CertOptions& o) {
  const std::string& path = o.path;
  std::vector<unsigned char> bytes;
  std::string error;
  if (!readInputFile(path, bytes, error)) {
    std::fprintf(stderr, "kolvari cert: %s\n", error.c_str());
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
  printCertificate(certificate, o.json);
  return kExitOk;
}

}  // namespace

ToolCommand certCommand() {
  return {"cert", "parse a certificate (DER, PEM or base64) and print its parts",
          "Parses a certificate in DER, PEM or bare base64 with the library and prints its parts. A file that is "
          "not a certificate the library parses: exit status 2.",
          "kolvari cert --json signer.pem", [](CLI::App& app) {
            auto o = std::make_shared<CertOptions>();
            addFlag(app, "--json", o->json,
                    "one object with the DER of each part in hex, the times, the name attributes, the extensions");
            addFile(app, "FILE", o->path, "the certificate");
            return [o] { return runCert(*o); };
          }};
}
