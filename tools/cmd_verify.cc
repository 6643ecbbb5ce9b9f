// kolvari verify: judges every signer of a CMS SignedData (DER, PEM or base64) or every signature and
// document time-stamp of a PDF, and prints the report as text or JSON (tools/verify/ holds the checks).
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include <openssl/evp.h>

#include "cli/command_line.h"
#include "cli/validators.h"
#include "commands.h"
#include "io/input_file.h"
#include "io/signature_text.h"
#include "verify/verify_cms.h"
#include "verify/verify_pdf.h"

namespace {

constexpr size_t kMaxSignatureFile = 512u * 1024 * 1024;
constexpr size_t kContentChunk = 64 * 1024;
constexpr long kMaxTimeoutSeconds = 600;

// YYYYMMDDhhmmssZ or YYYY-MM-DDThh:mm:ssZ.
bool parseTime(std::string text, time_t& out) {
  std::string digits;
  for (char c : text) {
    if (c != '-' && c != ':' && c != 'T') digits.push_back(c);
  }
  return timeOfGeneralized(digits, out);
}

// The command line as it is read, before its values become VerifyOptions.
struct VerifyCommandOptions {
  std::string file;
  std::string content;
  std::vector<std::string> trustFiles;
  std::string trustDir;
  bool systemTrust = false;
  std::string at;
  std::string revocation = "embedded";
  std::string timeout;
  bool json = false;
};

// A fault of the command line found after it was read (a trust file that cannot be used), reported as the
// reader reports its own.
int usageFault(const std::string& message) {
  std::fprintf(stderr, "kolvari verify: %s\nsee 'kolvari verify --help'\n", message.c_str());
  return kExitUsage;
}

RevocationMode revocationMode(const std::string& name) {
  if (name == "none") return RevocationMode::kNone;
  return name == "fetch" ? RevocationMode::kFetch : RevocationMode::kEmbedded;
}

ContentFeed fileFeed(const std::string& path) {
  return [path](const ChunkSink& sink) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (f == nullptr) return false;
    Bytes buffer(kContentChunk);
    size_t n = 0;
    while ((n = std::fread(buffer.data(), 1, buffer.size(), f)) > 0) sink(buffer.data(), n);
    const bool ok = std::ferror(f) == 0;
    std::fclose(f);
    return ok;
  };
}

bool isPdf(const Bytes& file) {
  constexpr size_t kHeaderWindow = 1024;
  const std::string head(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(std::min(file.size(), kHeaderWindow)));
  return head.find("%PDF-") != std::string::npos;
}


int runVerify(const VerifyCommandOptions& c) {
  VerifyContext context;
  std::string error;
  context.options.trustFiles = c.trustFiles;
  context.options.trustDir = c.trustDir;
  context.options.systemTrust = c.systemTrust;
  context.options.revocation = revocationMode(c.revocation);
  if (!c.timeout.empty()) context.options.timeoutSeconds = std::atol(c.timeout.c_str());
  if (!c.at.empty()) {
    time_t t = 0;
    parseTime(c.at, t);  // checked when the command line was read
    context.options.at = t;
  }
  context.now = context.options.at ? *context.options.at : std::time(nullptr);
  if (!loadTrust(context, error)) return usageFault(error);
  if (!c.content.empty() && !checkInputFile(c.content, error)) {
    std::fprintf(stderr, "kolvari verify: --content %s\n", error.c_str());
    return kExitUsage;
  }
  Bytes raw;
  if (!readInputFile(c.file, raw, error)) {
    std::fprintf(stderr, "kolvari verify: %s\n", error.c_str());
    return kExitUsage;
  }
  if (raw.size() > kMaxSignatureFile) {
    std::fprintf(stderr, "kolvari verify: %s: larger than a signature file can be\n", c.file.c_str());
    return kExitUsage;
  }
  std::vector<SignatureReport> reports;
  if (isPdf(raw)) {
    if (!verifyPdf(raw, context, reports, error)) {
      std::fprintf(stderr, "kolvari verify: %s: %s\n", c.file.c_str(), error.c_str());
      return kExitUsage;
    }
  } else {
    Bytes der;
    const ContentFeed content = fileFeed(c.content);
    if (!signatureBytes(raw, der) || !verifyCms(der, c.content.empty() ? nullptr : &content, context, reports)) {
      std::fprintf(stderr, "kolvari verify: %s is not a CMS SignedData or a PDF that can be read\n", c.file.c_str());
      return kExitUsage;
    }
  }
  std::fputs((c.json ? reportJson(reports) : reportText(reports)).c_str(), stdout);
  if (!c.json && reports.empty()) std::printf("no signatures\n");
  bool allPassed = !reports.empty();
  for (const SignatureReport& r : reports) allPassed = allPassed && r.indication() == Indication::kTotalPassed;
  return allPassed ? kExitOk : kExitFailure;
}

}  // namespace

ToolCommand verifyCommand() {
  return {"verify", "tell whether the signatures of a CMS file or a PDF are valid, and why",
          "Judges every signer of a CMS SignedData (DER, PEM or base64; definite or indefinite length) and every "
          "signature and document time-stamp of a PDF: format, integrity, signer identification, certificate "
          "path, time-stamps and revocation, in that order. Each gets an indication (TOTAL_PASSED, TOTAL_FAILED, "
          "INDETERMINATE) with a sub-indication and one line per check. Exit status 0 when every signature is "
          "TOTAL_PASSED, 1 when any is not, 2 for a wrong command line or a file that cannot be read as a "
          "signature.",
          "kolvari verify --trust ca.pem --content document.txt document.p7s\n"
          "kolvari verify --system-trust --json signed.pdf",
          [](CLI::App& app) {
            auto o = std::make_shared<VerifyCommandOptions>();
            addValue(app, "--content", o->content, "FILE", "the signed file of a detached signature (read as a stream)");
            addList(app, "--trust", o->trustFiles, "CERTS", "trust anchors, PEM or DER (repeatable)");
            addValue(app, "--trust-dir", o->trustDir, "DIR", "every certificate file in DIR is a trust anchor");
            addFlag(app, "--system-trust", o->systemTrust, "trust OpenSSL's default store as well");
            addValue(app, "--at", o->at, "TIME",
                     "the validation time when no time-stamp gives one, YYYYMMDDhhmmssZ or YYYY-MM-DDThh:mm:ssZ "
                     "(default: now)")
                ->check(valueCheck("TIME", [](std::string& v) {
                  time_t t = 0;
                  return parseTime(v, t) ? std::string() : v + ": not a time YYYYMMDDhhmmssZ";
                }));
            addValue(app, "--revocation", o->revocation, "MODE",
                     "none, embedded (default: the responses and CRLs the signature or the PDF carries) or fetch "
                     "(also ask the certificates' responders and distribution points)")
                ->check(CLI::IsMember({"none", "embedded", "fetch"}));
            addValue(app, "--timeout", o->timeout, "SECONDS", "time limit of each fetch (default 10)")
                ->check(timeoutSeconds());
            addFlag(app, "--json", o->json, "the report as one JSON document (schema in README.md)");
            addFile(app, "FILE", o->file, "the CMS signature or the PDF");
            return [o] { return runVerify(*o); };
          }};
}
