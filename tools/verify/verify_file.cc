#include "verify/verify_file.h"

#include <openssl/evp.h>

#include <algorithm>
#include <string_view>

#include "io/input_file.h"
#include "verify/verify_cms.h"
#include "verify/verify_pdf.h"

namespace {

constexpr size_t kMaxSignatureFile = 512u * 1024 * 1024;
constexpr unsigned char kFirstByteSequence = 0x30;
constexpr size_t kBase64Quantum = 4;
constexpr size_t kBase64Octets = 3;
constexpr size_t kPdfHeaderWindow = 1024;

// PEM's body, or the text as it is when it has no PEM armour; false for armour that does not close.
bool pemBody(std::string& text) {
  const size_t begin = text.find("-----BEGIN");
  if (begin == std::string::npos) return true;
  const size_t start = text.find('\n', begin);
  const size_t end = text.find("-----END", begin + 1);
  if (start == std::string::npos || end == std::string::npos || end < start) return false;
  text = text.substr(start + 1, end - start - 1);
  return true;
}

bool isDer(const Bytes& raw) { return !raw.empty() && raw[0] == kFirstByteSequence; }

// PEM or bare base64 decoded to DER. False for text that is neither.
bool decodeText(const Bytes& raw, Bytes& der) {
  std::string text(raw.begin(), raw.end());
  if (!pemBody(text)) return false;
  std::string compact;
  for (char c : text) {
    if (c != ' ' && c != '\t' && c != '\r' && c != '\n') compact.push_back(c);
  }
  if (compact.empty() || compact.size() % kBase64Quantum != 0) return false;
  der.assign(compact.size() / kBase64Quantum * kBase64Octets, 0);
  const int n = EVP_DecodeBlock(der.data(), reinterpret_cast<const unsigned char*>(compact.data()),
                                static_cast<int>(compact.size()));
  if (n < 0) return false;
  size_t padding = 0;
  for (size_t i = compact.size(); i > 0 && compact[i - 1] == '='; --i) ++padding;
  der.resize(static_cast<size_t>(n) - padding);
  return isDer(der);
}

bool isPdf(const Bytes& file) {
  const auto headEnd = file.begin() + static_cast<std::ptrdiff_t>(std::min(file.size(), kPdfHeaderWindow));
  constexpr std::string_view kMarker = "%PDF-";
  return std::search(file.begin(), headEnd, kMarker.begin(), kMarker.end()) != headEnd;
}

}  // namespace

VerifyContext fileContext(const VerifyContext& run) {
  VerifyContext c;
  c.options = run.options;
  if (run.store && X509_STORE_up_ref(run.store.get()) == 1) c.store.reset(run.store.get());
  c.now = run.now;
  c.certificates = run.certificates;
  return c;
}

FileReport verifyFileBytes(const std::string& name, const Bytes& raw, const ContentFeed* content,
                           const VerifyContext& run) {
  FileReport report;
  report.file = name;
  if (raw.size() > kMaxSignatureFile) {
    report.error = name + ": larger than a signature file can be";
    return report;
  }
  if (isPdf(raw)) {
    VerifyContext own = fileContext(run);
    std::string error;
    if (!verifyPdf(raw, own, report.signatures, error)) report.error = name + ": " + error;
    return report;
  }
  Bytes decoded;
  if ((!isDer(raw) && !decodeText(raw, decoded)) ||
      !verifyCms(isDer(raw) ? raw : decoded, content, run, report.signatures)) {
    report.signatures.clear();
    report.error = name + " is not a CMS SignedData or a PDF that can be read";
  }
  return report;
}

FileReport verifyFile(const std::string& path, const ContentFeed* content, const VerifyContext& run) {
  Bytes raw;
  std::string error;
  if (!readInputFile(path, raw, error)) return FileReport{path, error, {}};
  return verifyFileBytes(path, raw, content, run);
}
