#include "verify/verify_file.h"

#include <algorithm>
#include <string_view>

#include "io/input_file.h"
#include "io/signature_text.h"
#include "verify/verify_cms.h"
#include "verify/verify_pdf.h"

namespace {

constexpr size_t kMaxSignatureFile = 512u * 1024 * 1024;
constexpr unsigned char kFirstByteSequence = 0x30;
constexpr size_t kPdfHeaderWindow = 1024;

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
  c.paths = run.paths;
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
  // DER (or BER) is judged where it lies; only PEM or base64 text is decoded into a copy.
  const bool binary = !raw.empty() && raw[0] == kFirstByteSequence;
  Bytes decoded;
  if ((!binary && !signatureBytes(raw, decoded)) || !verifyCms(binary ? raw : decoded, content, run, report.signatures)) {
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
