#include "pdf/pdf_signatures.h"

#include <cstdio>
#include <exception>
#include <map>
#include <string>
#include <utility>

#include <openssl/pkcs7.h>
#include <openssl/x509.h>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>

#include "cli/exit_status.h"
#include "io/input_file.h"
#include "pdf/pdf_dss_reader.h"
#include "inspect/ber_element.h"
#include "inspect/json_output.h"

namespace {

constexpr unsigned char kTagSequence = 0x30;
constexpr size_t kByteRangeNumbers = 4;
constexpr int kMaxFieldDepth = 32;

// The length of the CMS at the start of /Contents (a SEQUENCE, BER with indefinite lengths allowed), or 0 when
// bytes do not begin with a whole one. The rest of /Contents is the placeholder's zero padding.
size_t sequenceLength(const std::string& bytes) {
  if (bytes.empty() || static_cast<unsigned char>(bytes[0]) != kTagSequence) return 0;
  return berElementLength(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
}

std::string textOf(QPDFObjectHandle dictionary, const char* key) {
  QPDFObjectHandle v = dictionary.getKey(key);
  if (v.isString()) return v.getUTF8Value();
  return v.isName() ? v.getName() : std::string();
}

PdfSignatureEntry entryOf(const std::string& fieldName, QPDFObjectHandle signature, size_t fileSize) {
  PdfSignatureEntry e;
  e.fieldName = fieldName;
  e.name = textOf(signature, "/Name");
  e.time = textOf(signature, "/M");
  e.subFilter = textOf(signature, "/SubFilter");
  QPDFObjectHandle range = signature.getKey("/ByteRange");
  if (range.isArray()) {
    for (QPDFObjectHandle n : range.getArrayAsVector()) e.byteRange.push_back(n.isInteger() ? n.getIntValue() : -1);
  }
  const std::vector<long long>& r = e.byteRange;
  e.coversWholeFile = r.size() == kByteRangeNumbers && r[0] == 0 && r[1] >= 0 && r[2] > r[1] && r[3] >= 0 &&
                      static_cast<unsigned long long>(r[2]) + static_cast<unsigned long long>(r[3]) == fileSize;
  QPDFObjectHandle contents = signature.getKey("/Contents");
  if (!contents.isString()) {
    e.problem = "the signature dictionary has no /Contents string";
    return e;
  }
  const std::string bytes = contents.getStringValue();
  e.cms.assign(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(sequenceLength(bytes)));
  if (e.cms.empty()) e.problem = "/Contents does not begin with a whole DER or BER SEQUENCE";
  return e;
}

// Walks the field tree with a depth bound: a terminal signature field with a value gives one entry. The
// full name joins the partial names with dots.
void collect(QPDFObjectHandle fields, const std::string& prefix, int depth, size_t fileSize,
             std::vector<PdfSignatureEntry>& out) {
  if (!fields.isArray() || depth > kMaxFieldDepth) return;
  for (QPDFObjectHandle field : fields.getArrayAsVector()) {
    if (!field.isDictionary()) continue;
    const std::string partial = textOf(field, "/T");
    const std::string name = prefix.empty() ? partial : prefix + "." + partial;
    QPDFObjectHandle value = field.getKey("/V");
    if (field.getKey("/FT").isNameAndEquals("/Sig") && value.isDictionary()) {
      out.push_back(entryOf(name, value, fileSize));
    }
    collect(field.getKey("/Kids"), name, depth + 1, fileSize, out);
  }
}

// The first common name of the certificate's subject as UTF-8, whatever string type holds it; else empty.
std::string commonNameUtf8(X509* certificate) {
  X509_NAME* subject = X509_get_subject_name(certificate);
  const int at = X509_NAME_get_index_by_NID(subject, NID_commonName, -1);
  if (at < 0) return "";
  unsigned char* utf8 = nullptr;
  const int n = ASN1_STRING_to_UTF8(&utf8, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, at)));
  std::string name = n > 0 ? std::string(reinterpret_cast<const char*>(utf8), static_cast<size_t>(n)) : "";
  OPENSSL_free(utf8);
  return name;
}

// The signer's common name as the CMS's own certificates give it, else empty.
std::string signerOf(const Bytes& cms) {
  const unsigned char* p = cms.data();
  PKCS7* p7 = d2i_PKCS7(nullptr, &p, static_cast<long>(cms.size()));
  if (p7 == nullptr) return "";
  std::string name;
  STACK_OF(X509)* signers = PKCS7_get0_signers(p7, nullptr, 0);
  if (signers != nullptr && sk_X509_num(signers) > 0) name = commonNameUtf8(sk_X509_value(signers, 0));
  sk_X509_free(signers);
  PKCS7_free(p7);
  return name;
}

// The items of one list of the store, each decoded (null when it does not decode).
InspectValue dssListValue(PdfDssList list, const std::vector<Bytes>& items, const DssItemDecoder& decode) {
  InspectValue out = InspectValue::array();
  for (const Bytes& item : items) {
    InspectValue v;
    std::string label;
    if (!decode(list, item, v, label)) v = InspectValue();
    out.push(std::move(v));
  }
  return out;
}

// The labels of the items a /VRI list names; "undecodable" for an item the library cannot decode.
InspectValue dssLabels(PdfDssList list, const std::vector<Bytes>& items, const DssItemDecoder& decode) {
  InspectValue out = InspectValue::array();
  for (const Bytes& item : items) {
    InspectValue unused;
    std::string label;
    out.push(InspectValue::text(decode(list, item, unused, label) ? label : "undecodable"));
  }
  return out;
}

// The store of the last revision, or null when the file has none; each /VRI entry names the signature field
// whose /Contents its key is the SHA-1 of (null when no field matches).
InspectValue dssValue(const Bytes& file, const std::vector<PdfSignatureEntry>& signatures,
                      const DssItemDecoder& decode) {
  DocumentSecurityStore dss;
  std::string error;
  if (!readDss(file, dss, error) || !dss.present) return InspectValue();
  InspectValue out = InspectValue::object();
  out.set("certificates", dssListValue(PdfDssList::kCertificates, dss.data.certificates, decode));
  out.set("ocspResponses", dssListValue(PdfDssList::kOcsps, dss.data.ocsps, decode));
  out.set("crls", dssListValue(PdfDssList::kCrls, dss.data.crls, decode));
  std::map<std::string, std::string> fieldOfKey;
  for (const PdfSignatureEntry& s : signatures) {
    if (!s.cms.empty()) fieldOfKey.emplace(vriKey(s.cms.data(), s.cms.size()), s.fieldName);
  }
  InspectValue& vri = out.set("vri", InspectValue::array());
  for (const auto& [key, data] : dss.vri) {
    InspectValue& entry = vri.push(InspectValue::object());
    entry.set("key", InspectValue::text(key));
    const auto field = fieldOfKey.find(key);
    entry.set("signature", field == fieldOfKey.end() ? InspectValue() : InspectValue::text(field->second));
    entry.set("certificates", dssLabels(PdfDssList::kCertificates, data.certificates, decode));
    entry.set("ocspResponses", dssLabels(PdfDssList::kOcsps, data.ocsps, decode));
    entry.set("crls", dssLabels(PdfDssList::kCrls, data.crls, decode));
  }
  return out;
}

}  // namespace

bool listPdfSignatures(const Bytes& file, std::vector<PdfSignatureEntry>& out, std::string& error) {
  try {
    QPDF pdf;
    pdf.setSuppressWarnings(true);
    pdf.processMemoryFile("input", reinterpret_cast<const char*>(file.data()), file.size());
    collect(pdf.getRoot().getKey("/AcroForm").getKey("/Fields"), "", 0, file.size(), out);
  } catch (const std::exception& e) {
    error = e.what();
    return false;
  }
  return true;
}

int inspectPdf(const std::string& path, bool json, const CmsDecoder& decodeCms, const DssItemDecoder& decodeDssItem) {
  Bytes file;
  if (!readWholeFile(path, file)) {
    std::fprintf(stderr, "kolvari inspect: cannot read %s\n", path.c_str());
    return kExitFailure;
  }
  std::vector<PdfSignatureEntry> entries;
  std::string error;
  if (!listPdfSignatures(file, entries, error)) {
    std::fprintf(stderr, "kolvari inspect: %s: cannot read the PDF: %s\n", path.c_str(), error.c_str());
    return kExitUsage;
  }
  InspectValue value = InspectValue::object();
  value.set("type", InspectValue::text("PDF"));
  InspectValue& list = value.set("signatures", InspectValue::array());
  bool allDecoded = true;
  for (const PdfSignatureEntry& e : entries) {
    InspectValue& s = list.push(InspectValue::object());
    s.set("field", InspectValue::text(e.fieldName));
    const std::string signer = signerOf(e.cms);
    s.set("signer", signer.empty() ? InspectValue() : InspectValue::text(signer));
    if (!e.name.empty()) s.set("name", InspectValue::text(e.name));
    s.set("time", InspectValue::text(e.time));
    s.set("subFilter", InspectValue::text(e.subFilter));
    InspectValue& range = s.set("byteRange", InspectValue::array());
    for (long long n : e.byteRange) range.push(InspectValue::number(n));
    s.set("coversWholeFile", InspectValue::boolean(e.coversWholeFile));
    InspectValue cms;
    std::string problem = e.problem;
    if (problem.empty() && !decodeCms(e.cms, cms)) {
      problem = "the library cannot decode the CMS in /Contents as a SignedData";
    }
    if (problem.empty() && signer.empty()) problem = "no certificate in the CMS matches its first signer";
    if (!problem.empty()) {
      std::fprintf(stderr, "kolvari inspect: %s: signature field %s: %s\n", path.c_str(), e.fieldName.c_str(),
                   problem.c_str());
    }
    allDecoded = allDecoded && cms.kind() != InspectValue::kNull;
    s.set("cms", cms);
    s.set("problem", problem.empty() ? InspectValue() : InspectValue::text(problem));
  }
  value.set("dss", dssValue(file, entries, decodeDssItem));
  std::string text;
  if (json) {
    text = jsonDocument(value.toJson());
  } else {
    value.printText(text, 0);
  }
  std::fputs(text.c_str(), stdout);
  // A signature whose CMS the library cannot decode is shown as null and fails the run.
  return allDecoded ? kExitOk : kExitFailure;
}
