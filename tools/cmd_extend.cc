// kolvari extend: raises an existing CMS signature, made by anyone, to CAdES level T, LT or LTA
// (signing/cms_extend.h does the work).
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "cli/command_line.h"
#include "cli/exit_status.h"
#include "cli/validators.h"
#include "command_list.h"
#include "io/input_file.h"
#include "io/signature_text.h"
#include "signing/cms_extend.h"
#include "signing/output_file.h"

namespace {

constexpr size_t kMaxSignatureFile = 512u * 1024 * 1024;

struct ExtendOptions {
  std::string level;
  ExtendRequest request;
  std::string input;
  std::string out;
  bool force = false;
};

ExtendLevel levelNamed(const std::string& name) {
  if (name == "T") return ExtendLevel::kT;
  return name == "LT" ? ExtendLevel::kLT : ExtendLevel::kLTA;
}

// Reads, extends and writes; the output appears whole or not at all.
int extendWith(ExtendOptions& o) {
  o.request.level = levelNamed(o.level);
  std::string error;
  Bytes raw;
  Bytes der;
  SignedDataImage image;
  if (!o.request.contentPath.empty() && !checkInputFile(o.request.contentPath, error)) {
    std::fprintf(stderr, "kolvari extend: --content %s\n", error.c_str());
    return kExitUsage;
  }
  if (!readInputFile(o.input, raw, error) || !checkOutput(o.out, o.input, o.force, error)) {
    std::fprintf(stderr, "kolvari extend: %s\n", error.c_str());
    return kExitUsage;
  }
  if (raw.size() > kMaxSignatureFile || !signatureBytes(raw, der) || !readSignedData(der, image, error)) {
    if (error.empty()) error = "not a CMS signature (DER, BER, PEM or base64)";
    std::fprintf(stderr, "kolvari extend: %s: %s\n", o.input.c_str(), error.c_str());
    return kExitUsage;
  }
  if (o.request.level == ExtendLevel::kLTA && !image.attached && o.request.contentPath.empty()) {
    std::fprintf(stderr, "kolvari extend: %s: a detached signature: LTA needs its content, --content FILE\n",
                 o.input.c_str());
    return kExitUsage;
  }
  Bytes extended;
  std::vector<std::string> missing;
  if (!extendSignedData(o.request, image, missing, error) || !writeSignedData(image, extended) ||
      !writeOutputFile(o.out, o.input, extended.data(), extended.size(), o.force, error)) {
    if (error.empty()) error = "cannot encode the extended SignedData";
    std::fprintf(stderr, "kolvari extend: %s: %s\n", o.input.c_str(), error.c_str());
    return kExitFailure;
  }
  for (const std::string& subject : missing) {
    std::fprintf(stderr, "kolvari extend: %s: no revocation data for %s, which names no responder\n",
                 o.input.c_str(), subject.c_str());
  }
  return kExitOk;
}

}  // namespace

ToolCommand extendCommand() {
  return {"extend", "raise a CMS signature made by anyone to CAdES level T, LT or LTA",
          "Adds to every SignerInfo of FILE what the level needs, as unsigned attributes: T a signature "
          "time-stamp over the signature value (unless one is there); LT also the certificate values and the "
          "revocation values of the signer certificate, read from the files given or asked of the responders the "
          "certificate names; LTA also an archive-time-stamp-v3 with its ats-hash-index-v3 over the content, the "
          "signer's fields and everything the signature carries. The signed attributes, the signature value and "
          "every other field of the SignedData keep their bytes. A service that fails is named with its URL and "
          "the signer's certificate, and nothing is written.",
          "kolvari extend --level T --tsa http://tsa.example/ document.p7s --out document-t.p7s\n"
          "kolvari extend --level LTA --tsa http://tsa.example/ --content document.txt document.p7s --out a.p7s",
          [](CLI::App& app) {
            auto o = std::make_shared<ExtendOptions>();
            addValue(app, "--level", o->level, "LEVEL", "T, LT or LTA")
                ->required()
                ->check(CLI::IsMember({"T", "LT", "LTA"}));
            addValue(app, "--content", o->request.contentPath, "FILE",
                     "the signed file of a detached signature (LTA hashes it)");
            addTimeStampOptions(app, o->request.services);
            addRevocationOptions(app, o->request.services);
            addFlag(app, "--allow-missing-revocation", o->request.services.revocation.allowMissing,
                    "go on when a time-stamping authority's certificate names no OCSP responder and no CRL "
                    "distribution point (each is named on standard error)")
                ->group("long-term validation data");
            addValue(app, "--out", o->out, "FILE", "where to write the extended signature (DER)")->required();
            addFlag(app, "--force", o->force, "replace an existing output file (never the input itself)");
            addFile(app, "FILE", o->input, "the signature to extend (DER, BER, PEM or base64)");
            return [o] { return extendWith(*o); };
          }};
}
