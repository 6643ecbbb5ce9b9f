#include "verify/verify_pdf.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <exception>
#include <functional>

#include "pdf/pdf_dss_reader.h"
#include "pdf/pdf_signatures.h"
#include "verify/verify_cms.h"
#include "verify/verify_revisions.h"

namespace {

constexpr size_t kByteRangeNumbers = 4;
constexpr const char* kEof = "%%EOF";
constexpr const char* kSubFilterTimeStamp = "/ETSI.RFC3161";

// A PDF date "D:YYYYMMDDHHmmSS" with Z or an offset +HH'mm' as YYYY-MM-DDThh:mm:ssZ; empty when it is not one.
std::string pdfTime(const std::string& text) {
  constexpr size_t kDigits = 14;
  constexpr size_t kOffsetLength = 6;  // +HH'mm
  constexpr int kSecondsPerMinute = 60;
  if (text.size() < 2 + kDigits || text.compare(0, 2, "D:") != 0) return "";
  std::string digits = text.substr(2, kDigits) + "Z";
  time_t t = 0;
  if (!std::all_of(digits.begin(), digits.end() - 1, ::isdigit) ||
      !timeOfGeneralized(digits, t)) {
    return "";
  }
  const std::string zone = text.substr(2 + kDigits);
  if (zone.size() >= kOffsetLength && (zone[0] == '+' || zone[0] == '-') && std::isdigit(zone[1]) &&
      std::isdigit(zone[2]) && std::isdigit(zone[4]) && std::isdigit(zone[5])) {
    const int minutes = ((zone[1] - '0') * 10 + (zone[2] - '0')) * kSecondsPerMinute + (zone[4] - '0') * 10 + (zone[5] - '0');
    t -= (zone[0] == '+' ? 1 : -1) * static_cast<time_t>(minutes) * kSecondsPerMinute;
  }
  return isoTime(t);
}

bool isHex(unsigned char c) { return std::isxdigit(c) != 0; }

}  // namespace

bool checkByteRange(const Bytes& file, const std::vector<long long>& r, const std::vector<long long>& ends,
                    size_t& revision, std::string& reason) {
  const long long size = static_cast<long long>(file.size());
  if (r.size() != kByteRangeNumbers || r[0] != 0 || r[1] <= 0 || r[2] <= r[1] + 1 || r[3] < 0 ||
      r[2] > size || r[3] > size - r[2]) {
    reason = "the /ByteRange is not [0 a b c] within the file";
    return false;
  }
  if (file[static_cast<size_t>(r[1])] != '<' || file[static_cast<size_t>(r[2] - 1)] != '>' ||
      !std::all_of(file.begin() + r[1] + 1, file.begin() + r[2] - 1, isHex)) {
    reason = "the bytes the /ByteRange leaves out are not exactly the /Contents hex string";
    return false;
  }
  const auto it = std::find(ends.begin(), ends.end(), r[2] + r[3]);
  if (it == ends.end()) {
    reason = "the /ByteRange does not end where a revision of the file ends";
    return false;
  }
  revision = static_cast<size_t>(it - ends.begin());
  return true;
}

namespace {

// The index of the revision whose end the byte range ends at; ends.size() when none.
size_t revisionOf(const PdfSignatureEntry& e, const std::vector<long long>& ends) {
  if (e.byteRange.size() != kByteRangeNumbers) return ends.size();
  const auto it = std::find(ends.begin(), ends.end(), e.byteRange[2] + e.byteRange[3]);
  return static_cast<size_t>(it - ends.begin());
}

// What each revision after the first signed one holds: another signature or document time-stamp when it
// ends one's byte range, else what its objects change.
std::vector<std::string> laterKinds(const Bytes& file, const std::vector<long long>& ends,
                                    const std::vector<PdfSignatureEntry>& all) {
  size_t first = ends.size();
  for (const PdfSignatureEntry& e : all) first = std::min(first, revisionOf(e, ends));
  std::vector<std::string> kinds = revisionKinds(file, ends, first + 1);
  for (const PdfSignatureEntry& e : all) {
    const size_t revision = revisionOf(e, ends);
    if (revision < kinds.size()) kinds[revision] = e.subFilter == kSubFilterTimeStamp ? "document time-stamp" : "signature";
  }
  return kinds;
}

// The bytes of the hex string in file[from, to), up to its first byte that is not a hex digit.
Bytes hexBytes(const Bytes& file, long long from, long long to) {
  constexpr unsigned kNibble = 4;
  auto value = [](unsigned char c) {
    return static_cast<unsigned>(std::isdigit(c) ? c - '0' : std::tolower(c) - 'a' + 10);
  };
  Bytes out;
  for (size_t i = static_cast<size_t>(from); i + 1 < static_cast<size_t>(to) && isHex(file[i]) && isHex(file[i + 1]);
       i += 2) {
    out.push_back(static_cast<unsigned char>(value(file[i]) << kNibble | value(file[i + 1])));
  }
  return out;
}

// The /VRI entry of a signature, keyed by the SHA-1 of its /Contents with or without the placeholder's
// padding; null when the DSS has none.
const ValidationData* vriEntry(const Bytes& file, const PdfSignatureEntry& e, const DocumentSecurityStore& dss) {
  if (dss.vri.empty()) return nullptr;
  std::vector<std::string> keys;
  if (!e.cms.empty()) keys.push_back(vriKey(e.cms.data(), e.cms.size()));
  const std::vector<long long>& b = e.byteRange;
  if (b.size() == kByteRangeNumbers && b[1] >= 0 && b[2] > b[1] + 1 && b[2] <= static_cast<long long>(file.size())) {
    const Bytes contents = hexBytes(file, b[1] + 1, b[2] - 1);
    keys.push_back(vriKey(contents.data(), contents.size()));
  }
  for (const std::string& key : keys) {
    const auto it = dss.vri.find(key);
    if (it != dss.vri.end()) return &it->second;
  }
  return nullptr;
}

// The certificates, OCSP responses and CRLs that lie beside the signatures, for the context.
void useValidationData(const ValidationData& data, VerifyContext& context) {
  context.extraCertificates.clear();
  for (const Bytes& der : data.certificates) {
    Certificate c = certificateFromDer(der.data(), der.size());
    if (c) context.extraCertificates.push_back(c);
  }
  context.extraOcsp = data.ocsps;
  context.extraCrls = data.crls;
}

// The time of a report's YYYY-MM-DDThh:mm:ssZ time-stamp; 0 when it has none.
time_t timestampOf(const SignatureReport& r) {
  std::string digits;
  for (char c : r.timestamp) {
    if (c != '-' && c != ':' && c != 'T') digits.push_back(c);
  }
  time_t t = 0;
  return !digits.empty() && timeOfGeneralized(digits, t) ? t : 0;
}

SignatureReport judge(const Bytes& file, const PdfSignatureEntry& e, const std::vector<long long>& ends,
                      const std::vector<std::string>& kinds, const VerifyContext& context) {
  SignatureReport r;
  size_t revision = 0;
  std::string reason;
  if (!checkByteRange(file, e.byteRange, ends, revision, reason)) {
    r.field = e.fieldName;
    r.coversWholeFile = false;
    r.add("format", Outcome::kIndeterminate, reason, "FORMAT_FAILURE");
    return r;
  }
  const std::vector<long long>& b = e.byteRange;
  const ContentFeed range = [&file, &b](const ChunkSink& sink) {
    sink(file.data(), static_cast<size_t>(b[1]));
    sink(file.data() + b[2], static_cast<size_t>(b[3]));
    return true;
  };
  std::vector<SignatureReport> found;
  if (e.subFilter == kSubFilterTimeStamp) {
    found.emplace_back();
    if (!verifyTimeStampToken(e.cms, range, context, found.back())) found.clear();
  } else if (!verifyCms(e.cms, &range, context, found)) {
    found.clear();
  }
  if (found.empty()) {
    r.add("format", Outcome::kIndeterminate, "/Contents is not a CMS signature the library decodes", "FORMAT_FAILURE");
  } else {
    r = std::move(found[0]);
    r.checks.front().reason = "the /ByteRange leaves out only /Contents and ends with revision " +
                              std::to_string(revision + 1) + "; " + r.checks.front().reason;
    if (found.size() > 1) {
      r.add("format", Outcome::kIndeterminate, "the CMS has more than one signer", "FORMAT_FAILURE");
    }
  }
  if (e.subFilter != kSubFilterTimeStamp) r.kind = "signature";
  if (r.signingTime.empty()) r.signingTime = pdfTime(e.time);
  r.field = e.fieldName;
  r.coversWholeFile = e.coversWholeFile;
  for (size_t i = revision + 1; i < ends.size(); ++i) {
    r.laterRevisions.push_back(LaterRevision{ends[i], kinds[i]});
  }
  return r;
}

}  // namespace

std::vector<long long> revisionEnds(const Bytes& file) {
  std::vector<long long> ends;
  const size_t markerLength = std::strlen(kEof);
  for (auto it = file.begin(); (it = std::search(it, file.end(), kEof, kEof + markerLength)) != file.end();) {
    it += static_cast<std::ptrdiff_t>(markerLength);
    if (it != file.end() && *it == '\r') ++it;
    if (it != file.end() && *it == '\n') ++it;
    ends.push_back(it - file.begin());
  }
  return ends;
}

bool verifyPdf(const Bytes& file, VerifyContext& context, std::vector<SignatureReport>& out, std::string& error) {
  std::vector<PdfSignatureEntry> entries;
  if (!listPdfSignatures(file, entries, error)) {
    error = "cannot read the PDF: " + error;
    return false;
  }
  DocumentSecurityStore dss;
  std::string ignored;
  readDss(file, dss, ignored);  // a DSS that cannot be read adds nothing; the signatures are judged without it
  const std::vector<long long> ends = revisionEnds(file);
  // Document order: by where each signature's byte range ends.
  std::stable_sort(entries.begin(), entries.end(), [](const PdfSignatureEntry& a, const PdfSignatureEntry& b) {
    const long long ea = a.byteRange.size() == kByteRangeNumbers ? a.byteRange[2] + a.byteRange[3] : 0;
    const long long eb = b.byteRange.size() == kByteRangeNumbers ? b.byteRange[2] + b.byteRange[3] : 0;
    return ea < eb;
  });
  const std::vector<std::string> kinds = laterKinds(file, ends, entries);
  // From the last to the first, so that each document time-stamp that passes is a proof of existence for
  // everything in the revisions before its own.
  std::vector<std::pair<size_t, time_t>> proofs;  // revision, time
  std::vector<SignatureReport> reports(entries.size());
  for (size_t k = entries.size(); k-- > 0;) {
    const size_t revision = revisionOf(entries[k], ends);
    context.proofOfExistence.reset();
    for (const auto& [stampRevision, time] : proofs) {
      if (stampRevision > revision && (!context.proofOfExistence || time < *context.proofOfExistence)) {
        context.proofOfExistence = time;
      }
    }
    const ValidationData* vri = vriEntry(file, entries[k], dss);
    if (vri != nullptr) {
      ValidationData merged = dss.data;
      merged.merge(*vri);
      useValidationData(merged, context);
    } else if (k + 1 == entries.size() || vriEntry(file, entries[k + 1], dss) != nullptr) {
      useValidationData(dss.data, context);
    }
    reports[k] = judge(file, entries[k], ends, kinds, context);
    const time_t stamped = timestampOf(reports[k]);
    if (entries[k].subFilter == kSubFilterTimeStamp && revision < ends.size() && stamped != 0 &&
        reports[k].indication() == Indication::kTotalPassed) {
      proofs.emplace_back(revision, stamped);
    }
  }
  context.proofOfExistence.reset();
  for (SignatureReport& r : reports) out.push_back(std::move(r));
  return true;
}
