#include "pdf/pdf_long_term.h"

#include <algorithm>

#include "pdf/pdf_dss.h"
#include "pdf/pdf_signatures.h"
#include "pdf/pdf_timestamp.h"

namespace {

constexpr char kDocTimeStampSubFilter[] = "/ETSI.RFC3161";
constexpr size_t kByteRangeNumbers = 4;

// Where a signature's signed bytes end: the order in which the updates were appended.
long long signedEnd(const PdfSignatureEntry& e) {
  return e.byteRange.size() == kByteRangeNumbers ? e.byteRange[2] + e.byteRange[3] : -1;
}

std::vector<PdfSignatureEntry> selectEntries(std::vector<PdfSignatureEntry> all, PdfExtendScope scope) {
  std::stable_sort(all.begin(), all.end(),
                   [](const PdfSignatureEntry& a, const PdfSignatureEntry& b) { return signedEnd(a) < signedEnd(b); });
  if (all.empty()) return all;
  size_t first = 0;
  if (scope == PdfExtendScope::kNewest) {
    first = all.size() - 1;
  } else {
    for (size_t i = 0; i < all.size(); ++i) {
      if (all[i].subFilter == kDocTimeStampSubFilter) first = i;
    }
  }
  return std::vector<PdfSignatureEntry>(all.begin() + static_cast<std::ptrdiff_t>(first), all.end());
}

bool gatherEntries(const std::vector<PdfSignatureEntry>& selected, const PdfLongTermRequest& request,
                   std::vector<PdfValidationEntry>& out, std::vector<std::string>& notes, std::string& error) {
  ValidationGatherer gatherer(request.validation);
  if (!gatherer.readFiles(error)) return false;
  for (const PdfSignatureEntry& e : selected) {
    const std::string what = (e.subFilter == kDocTimeStampSubFilter ? "the document time-stamp " : "the signature ") +
                             e.fieldName;
    if (e.cms.empty()) {
      error = what + ": " + e.problem;
      return false;
    }
    std::vector<Bytes> certificates;
    ValidationData data;
    if (!cmsCertificates(e.cms, certificates, error)) {
      error = what + ": " + error;
      return false;
    }
    addIssuers(certificates, request.issuers);
    if (!gatherer.gather(certificates, data, error)) {
      error = what + ": " + error;
      return false;
    }
    out.push_back({e.cms, std::move(data.certificates), std::move(data.ocspResponses), std::move(data.crls)});
  }
  for (const std::string& path : gatherer.unusedFiles()) {
    error = path + " speaks of none of the certificates of the signatures";
    return false;
  }
  for (const std::string& name : gatherer.uncovered()) {
    notes.push_back("no revocation data for " + name + ": it names no OCSP responder and no CRL distribution point");
  }
  return true;
}

}  // namespace

bool readPdfLevel(const std::string& text, PdfLevel& out) {
  static const std::pair<const char*, PdfLevel> kLevels[] = {
      {"B-B", PdfLevel::kB}, {"B-T", PdfLevel::kT}, {"B-LT", PdfLevel::kLT}, {"B-LTA", PdfLevel::kLTA}};
  for (const auto& [name, level] : kLevels) {
    if (text == name) {
      out = level;
      return true;
    }
  }
  return false;
}

bool extendPdfLongTerm(const Bytes& input, const PdfLongTermRequest& request, Bytes& out,
                       std::vector<std::string>& notes, std::string& error) {
  std::vector<PdfSignatureEntry> all;
  if (!listPdfSignatures(input, all, error)) return false;
  const std::vector<PdfSignatureEntry> selected = selectEntries(std::move(all), request.scope);
  if (selected.empty()) {
    error = "the PDF holds no signature and no document time-stamp (timestamp-pdf time-stamps it)";
    return false;
  }
  std::vector<PdfValidationEntry> entries;
  if (!gatherEntries(selected, request, entries, notes, error)) return false;
  Bytes stored;
  if (!addPdfDss(input, entries, stored, error)) return false;
  if (!request.documentTimeStamp) {
    out = std::move(stored);
    return true;
  }
  return timeStampPdf(stored, request.tsa, out, error);
}

bool timeStampPdf(const Bytes& input, const TsaOptions& tsa, Bytes& out, std::string& error) {
  const DigestChoice* digest = findDigest(tsa.digest);
  if (digest == nullptr) {
    error = "unknown time-stamp digest '" + tsa.digest + "'";
    return false;
  }
  const PdfTimeStamper stamp = [&tsa, digest](const Bytes& imprint, Bytes& token, std::string& why) {
    if (requestTimeStampToken(tsa, *digest, imprint, token, why)) return true;
    // Every message names the authority: those of the answer's checks do not say where it came from.
    if (why.find(tsa.url) == std::string::npos) why = "the time-stamp authority " + tsa.url + ": " + why;
    return false;
  };
  return addPdfDocumentTimeStamp(input, *digest, stamp, out, error);
}
