#include "verify/verify_pdf.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <exception>
#include <functional>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>

#include "pdf/pdf_signatures.h"
#include "verify/verify_cms.h"

namespace {

constexpr size_t kByteRangeNumbers = 4;
// DSS entries read per list.
constexpr size_t kMaxDssEntries = 1024;
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

bool contains(const Bytes& file, long long from, long long to, const char* text) {
  const auto first = file.begin() + from;
  const auto last = file.begin() + to;
  return std::search(first, last, text, text + std::strlen(text)) != last;
}

// What a later revision holds, read from its uncompressed object text; a revision that ends another
// signature's byte range is that signature.
std::string revisionKind(const Bytes& file, long long from, long long to, const std::vector<PdfSignatureEntry>& all) {
  for (const PdfSignatureEntry& e : all) {
    if (e.byteRange.size() == kByteRangeNumbers && e.byteRange[2] + e.byteRange[3] == to) {
      return e.subFilter == kSubFilterTimeStamp ? "document time-stamp" : "signature";
    }
  }
  if (contains(file, from, to, "/DSS")) return "DSS";
  if (contains(file, from, to, "/Annot")) return "annotations";
  if (contains(file, from, to, "/FT")) return "form filling";
  return "other";
}

Bytes streamBytes(QPDFObjectHandle stream) {
  if (!stream.isStream()) return {};
  std::shared_ptr<Buffer> data = stream.getStreamData();
  return Bytes(data->getBuffer(), data->getBuffer() + data->getSize());
}

// The certificates, OCSP responses and CRLs of the document security store.
void readDss(const Bytes& file, VerifyContext& context) {
  try {
    QPDF pdf;
    pdf.setSuppressWarnings(true);
    pdf.processMemoryFile("input", reinterpret_cast<const char*>(file.data()), file.size());
    QPDFObjectHandle dss = pdf.getRoot().getKey("/DSS");
    if (!dss.isDictionary()) return;
    auto each = [&dss](const char* key, const std::function<void(const Bytes&)>& use) {
      QPDFObjectHandle list = dss.getKey(key);
      if (!list.isArray()) return;
      for (int i = 0; i < list.getArrayNItems() && static_cast<size_t>(i) < kMaxDssEntries; ++i) {
        use(streamBytes(list.getArrayItem(i)));
      }
    };
    each("/Certs", [&context](const Bytes& der) {
      Certificate c = certificateFromDer(der.data(), der.size());
      if (c) context.extraCertificates.push_back(c);
    });
    each("/OCSPs", [&context](const Bytes& der) { context.extraOcsp.push_back(der); });
    each("/CRLs", [&context](const Bytes& der) { context.extraCrls.push_back(der); });
  } catch (const std::exception&) {
    // A DSS that cannot be read adds nothing; the signatures are judged without it.
  }
}

SignatureReport judge(const Bytes& file, const PdfSignatureEntry& e, const std::vector<long long>& ends,
                      const std::vector<PdfSignatureEntry>& all, const VerifyContext& context) {
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
    r.laterRevisions.push_back(LaterRevision{ends[i], revisionKind(file, ends[i - 1], ends[i], all)});
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
  readDss(file, context);
  const std::vector<long long> ends = revisionEnds(file);
  // Document order: by where each signature's byte range ends.
  std::stable_sort(entries.begin(), entries.end(), [](const PdfSignatureEntry& a, const PdfSignatureEntry& b) {
    const long long ea = a.byteRange.size() == kByteRangeNumbers ? a.byteRange[2] + a.byteRange[3] : 0;
    const long long eb = b.byteRange.size() == kByteRangeNumbers ? b.byteRange[2] + b.byteRange[3] : 0;
    return ea < eb;
  });
  for (const PdfSignatureEntry& e : entries) out.push_back(judge(file, e, ends, entries, context));
  return true;
}
