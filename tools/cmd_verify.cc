// kolvari verify: judges every signer of a CMS SignedData (DER, PEM or base64) or every signature and
// document time-stamp of a PDF, and prints the report as text or JSON (tools/verify/ holds the checks).
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <openssl/evp.h>

#include "commands.h"
#include "verify/verify_cms.h"
#include "verify/verify_pdf.h"

namespace {

constexpr char kUsage[] =
    "usage: kolvari verify [--content FILE] [--trust CERTS]... [--trust-dir DIR] [--system-trust] [--at TIME]\n"
    "                      [--revocation none|embedded|fetch] [--timeout SECONDS] [--json] FILE\n";
constexpr size_t kMaxSignatureFile = 512u * 1024 * 1024;
constexpr size_t kContentChunk = 64 * 1024;
constexpr unsigned char kFirstByteSequence = 0x30;
constexpr long kMaxTimeoutSeconds = 600;

int usage(const std::string& message) {
  std::fprintf(stderr, "kolvari verify: %s\n%s", message.c_str(), kUsage);
  return kExitUsage;
}

// YYYYMMDDhhmmssZ or YYYY-MM-DDThh:mm:ssZ.
bool parseTime(std::string text, time_t& out) {
  std::string digits;
  for (char c : text) {
    if (c != '-' && c != ':' && c != 'T') digits.push_back(c);
  }
  return timeOfGeneralized(digits, out);
}

bool parseOptions(const Arguments& args, VerifyOptions& o, std::string& content, std::string& file, bool& json,
                  std::string& error) {
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    std::string v;
    if (a == "--json") {
      json = true;
    } else if (a == "--system-trust") {
      o.systemTrust = true;
    } else if (a == "--content" || a == "--trust" || a == "--trust-dir" || a == "--at" || a == "--revocation" ||
               a == "--timeout") {
      if (!optionValue(args, i, v)) return (error = a + ": a value must follow"), false;
      time_t t = 0;
      if (a == "--content") content = v;
      if (a == "--trust") o.trustFiles.push_back(v);
      if (a == "--trust-dir") o.trustDir = v;
      if (a == "--at" && !parseTime(v, t)) return (error = "--at " + v + ": not a time YYYYMMDDhhmmssZ"), false;
      if (a == "--at") o.at = t;
      if (a == "--revocation") {
        if (v != "none" && v != "embedded" && v != "fetch") return (error = "--revocation " + v + ": none, embedded or fetch"), false;
        o.revocation = v == "none" ? RevocationMode::kNone : v == "fetch" ? RevocationMode::kFetch : RevocationMode::kEmbedded;
      }
      if (a == "--timeout") {
        o.timeoutSeconds = std::atol(v.c_str());
        if (o.timeoutSeconds <= 0 || o.timeoutSeconds > kMaxTimeoutSeconds) return (error = "--timeout " + v + ": 1 to 600 seconds"), false;
      }
    } else if (!a.empty() && a[0] != '-' && file.empty()) {
      file = a;
    } else {
      return (error = a + ": not an option of verify"), false;
    }
  }
  if (file.empty()) error = "no FILE to verify";
  return !file.empty();
}

// DER as it is; PEM or bare base64 decoded. False for text that is neither.
bool signatureBytes(const Bytes& raw, Bytes& der) {
  if (!raw.empty() && raw[0] == kFirstByteSequence) {
    der = raw;
    return true;
  }
  std::string text(raw.begin(), raw.end());
  const size_t begin = text.find("-----BEGIN");
  if (begin != std::string::npos) {
    const size_t start = text.find('\n', begin);
    const size_t end = text.find("-----END", begin + 1);
    if (start == std::string::npos || end == std::string::npos || end < start) return false;
    text = text.substr(start + 1, end - start - 1);
  }
  std::string compact;
  for (char c : text) {
    if (c != ' ' && c != '\t' && c != '\r' && c != '\n') compact.push_back(c);
  }
  constexpr size_t kQuantum = 4;
  if (compact.empty() || compact.size() % kQuantum != 0) return false;
  der.assign(compact.size() / kQuantum * 3, 0);
  const int n = EVP_DecodeBlock(der.data(), reinterpret_cast<const unsigned char*>(compact.data()),
                                static_cast<int>(compact.size()));
  if (n < 0) return false;
  size_t padding = 0;
  for (size_t i = compact.size(); i > 0 && compact[i - 1] == '='; --i) ++padding;
  der.resize(static_cast<size_t>(n) - padding);
  return !der.empty() && der[0] == kFirstByteSequence;
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

bool canRead(const std::string& path) {
  FILE* f = std::fopen(path.c_str(), "rb");
  if (f != nullptr) std::fclose(f);
  return f != nullptr;
}

bool isPdf(const Bytes& file) {
  constexpr size_t kHeaderWindow = 1024;
  const std::string head(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(std::min(file.size(), kHeaderWindow)));
  return head.find("%PDF-") != std::string::npos;
}

}  // namespace

int runVerify(const Arguments& args) {
  VerifyContext context;
  std::string contentPath;
  std::string path;
  std::string error;
  bool json = false;
  if (!parseOptions(args, context.options, contentPath, path, json, error)) return usage(error);
  context.now = context.options.at ? *context.options.at : std::time(nullptr);
  if (!loadTrust(context, error)) return usage(error);
  if (!contentPath.empty() && !canRead(contentPath)) {
    std::fprintf(stderr, "kolvari verify: cannot read --content %s\n", contentPath.c_str());
    return kExitUsage;
  }
  Bytes raw;
  if (!readWholeFile(path, raw) || raw.size() > kMaxSignatureFile) {
    std::fprintf(stderr, "kolvari verify: cannot read %s\n", path.c_str());
    return kExitUsage;
  }
  std::vector<SignatureReport> reports;
  if (isPdf(raw)) {
    if (!verifyPdf(raw, context, reports, error)) {
      std::fprintf(stderr, "kolvari verify: %s: %s\n", path.c_str(), error.c_str());
      return kExitUsage;
    }
  } else {
    Bytes der;
    const ContentFeed content = fileFeed(contentPath);
    if (!signatureBytes(raw, der) || !verifyCms(der, contentPath.empty() ? nullptr : &content, context, reports)) {
      std::fprintf(stderr, "kolvari verify: %s is not a CMS SignedData or a PDF that can be read\n", path.c_str());
      return kExitUsage;
    }
  }
  std::fputs((json ? reportJson(reports) : reportText(reports)).c_str(), stdout);
  if (!json && reports.empty()) std::printf("no signatures\n");
  bool allPassed = !reports.empty();
  for (const SignatureReport& r : reports) allPassed = allPassed && r.indication() == Indication::kTotalPassed;
  return allPassed ? kExitOk : kExitFailure;
}
