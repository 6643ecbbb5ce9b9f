// `kolvari verify` over arbitrary input: the first byte chooses the CMS path (even) or the PDF path (odd),
// the rest is the file. Whatever the input, the report holds a check per signature, and, with no trust
// anchor given, no signature passes; the JSON report parses back to as many signatures as were judged.
#include <nlohmann/json.hpp>

#include "fuzz_input.h"
#include "verify/verify_cms.h"
#include "verify/verify_pdf.h"

namespace {

constexpr unsigned char kPdfPath = 0x01;
constexpr char kContent[] = "fuzzed detached content\n";

void checkReports(const std::vector<SignatureReport>& reports) {
  for (const SignatureReport& r : reports) {
    fuzzCheck(!r.checks.empty());
    fuzzCheck(r.indication() != Indication::kTotalPassed);
    fuzzCheck(!r.subIndication().empty());
  }
  const nlohmann::json parsed = nlohmann::json::parse(reportJson(reports), nullptr, false);
  fuzzCheck(!parsed.is_discarded() && parsed["signatures"].size() == reports.size());
  fuzzCheck(!reportText(reports).empty() || reports.empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1 || size > kFuzzMaxInput) return 0;
  static VerifyContext context = [] {
    VerifyContext c;
    std::string error;
    loadTrust(c, error);
    c.now = 1700000000;  // fixed, so that a run replays
    return c;
  }();
  const Bytes file(data + 1, data + size);
  std::vector<SignatureReport> reports;
  if ((data[0] & kPdfPath) != 0) {
    VerifyContext perFile;
    perFile.store.reset(context.store.get());
    X509_STORE_up_ref(context.store.get());
    perFile.now = context.now;
    std::string error;
    if (!verifyPdf(file, perFile, reports, error)) return 0;
  } else {
    const ContentFeed content = [](const ChunkSink& sink) {
      sink(reinterpret_cast<const unsigned char*>(kContent), sizeof kContent - 1);
      return true;
    };
    if (!verifyCms(file, size % 2 == 0 ? &content : nullptr, context, reports)) return 0;
  }
  checkReports(reports);
  return 0;
}
