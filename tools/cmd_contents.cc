// kolvari inspect: names what a file holds and decodes it with the library: a SignedData (DER, PEM or
// base64), a time-stamp token or response, an OCSP response, a CRL or a certificate. The output is an
// indented tree or, with --json, one object with the same fields; bytes are hex, times YYYYMMDDhhmmssZ.
// A SignedData in a DER file is read through the file input, so that large attached content stays on disk.
#include <cstdio>
#include <string>
#include <vector>

#include "asn1/cvel_a1_context.h"
#include "asn1/cvel_a1_file.h"
#include "asn1/cvel_a1_input.h"
#include "asn1/cvel_a1_stream_cursor.h"
#include "asn1/cvel_data_stream.h"
#include "asn1/cvel_oid.h"
#include "asn1/cvel_string.h"
#include "asn1/cvel_time.h"
#include "cli/command_line.h"
#include "cli/exit_status.h"
#include "cms/cvel_a1_p72.h"
#include "cms/cvel_tsp_response.h"
#include "cms/cvel_tst_info.h"
#include "command_list.h"
#include "contents_tree.h"
#include "inspect/attribute_view.h"
#include "inspect/certificate_view.h"
#include "inspect/json_output.h"
#include "inspect/name_text.h"
#include "inspect/oid_names.h"
#include "io/input_file.h"
#include "pdf/pdf_signatures.h"
#include "services/der_view.h"
#include "x509/cvel_certificate.h"
#include "x509/cvel_crl.h"
#include "x509/cvel_ocsp_response.h"

namespace {

constexpr int32_t kTagInteger = 0x02;
constexpr int32_t kTagOctetString = 0x04;
constexpr int32_t kTagOid = 0x06;
constexpr int32_t kTagEnumerated = 0x0A;
constexpr int32_t kTagSequence = 0x30;
constexpr int32_t kTagSet = 0x31;
constexpr int32_t kTagKeyIdentifier = 0x80;
constexpr uint8_t kFirstByteSequence = 0x30;
// Files read whole (everything but a DER SignedData) must stay below this.
constexpr size_t kMaxInMemory = 64u * 1024 * 1024;
constexpr const char* kOidTstInfo = "1.2.840.113549.1.9.16.1.4";
constexpr const char* kOidCertificateValues = "1.2.840.113549.1.9.16.2.23";

using V = InspectValue;

// {"oid": dotted, "name": known name or null}.
V oidValue(const CvelString& der) {
  V v = V::object();
  const std::string dotted = dottedText(der);
  v.set("oid", dotted.empty() ? V() : V::text(dotted));
  const char* name = oidName(dotted);
  v.set("name", name == nullptr ? V() : V::text(name));
  return v;
}

// The children of an element's content, each as a copy of the whole child element.
std::vector<CvelString> children(const CvelString& s, const CvelA1Context& parent) {
  std::vector<CvelString> out;
  CvelA1Context c;
  c.enterElementOf(parent);
  while (c.next(s) >= 0) {
    out.emplace_back();
    if (c.getElement(s, out.back()) != kCvelOk) out.pop_back();
  }
  return out;
}

// Content of the first element of der when it has the tag; empty otherwise.
CvelString contentOf(const CvelString& der, int32_t tag) {
  CvelString out;
  CvelA1Context c;
  if (c.next(der) != tag || c.getContent(der, out) != kCvelOk) out.release();
  return out;
}

V hexOrNull(const CvelString& s) { return s.isEmpty() ? V() : V::text(s.toHex()); }

// The OID of an AlgorithmIdentifier element.
V algorithmValue(const CvelString& der) {
  CvelA1Context outer;
  if (outer.next(der) != kTagSequence) return V();
  CvelA1Context c;
  c.enterElementOf(outer);
  CvelString oid;
  if (c.next(der) != kTagOid || c.getElement(der, oid) != kCvelOk) return V();
  return oidValue(oid);
}

V timeValue(const CvelTime& time) {
  CvelString text;
  if (!time.isValid() || time.toText(text) != kCvelOk) return V();
  return V::text(std::string(text.c_str(), text.length()));
}

// A time element (UTCTime or GeneralizedTime) as text.
V timeElementValue(const CvelString& der) {
  if (der.isEmpty()) return V();
  CvelTime time;
  if (time.decode(der, nullptr) != kCvelOk) return V();
  return timeValue(time);
}

// The attributes of a concatenation of Attribute encodings: type, each value's DER as hex, and the one value
// of a well-known attribute decoded.
V attributesValue(const CvelString& attributes) {
  V list = V::array();
  CvelA1Context c;
  while (c.next(attributes) == kTagSequence) {
    CvelString attribute;
    if (c.getElement(attributes, attribute) != kCvelOk) break;
    CvelA1Context top;
    top.next(attribute);
    const std::vector<CvelString> parts = children(attribute, top);
    if (parts.empty()) continue;
    V& entry = list.push(oidValue(parts[0]));
    V& values = entry.set("values", V::array());
    V& decoded = entry.set("decoded", V());
    if (parts.size() < 2) continue;
    CvelA1Context set;
    if (set.next(parts[1]) != kTagSet) continue;
    const std::vector<CvelString> elements = children(parts[1], set);
    for (const CvelString& value : elements) values.push(V::text(value.toHex()));
    if (elements.size() == 1) decoded = decodedAttribute(dottedText(parts[0]), elements[0]);
  }
  return list;
}

// The signer identifier: issuer name and serial, or a subject key identifier.
V sidValue(const CvelString& sid) {
  V v = V::object();
  CvelA1Context c;
  const int32_t tag = c.next(sid);
  if (tag == kTagKeyIdentifier) {
    CvelString id;
    if (c.getContent(sid, id) != kCvelOk) id.release();
    v.set("subjectKeyIdentifier", V::text(id.toHex()));
    return v;
  }
  if (tag != kTagSequence) return V();
  const std::vector<CvelString> parts = children(sid, c);
  if (parts.size() != 2) return V();
  v.set("issuer", V::text(listedName(parts[0])));
  v.set("serialNumber", V::text(contentOf(parts[1], kTagInteger).toHex()));
  return v;
}

void fillToken(V& v, const CvelTSTInfo& t) {
  v.set("version", V::number(t.version()));
  v.set("policy", V::text(dottedText(t.policy())));
  v.set("hashAlgorithm", algorithmValue(t.hashAlgorithm()));
  CvelString hashed;
  CvelA1Context c;
  if (c.next(t.hashedMessage()) >= 0 && c.getContent(t.hashedMessage(), hashed) != kCvelOk) hashed.release();
  v.set("hashedMessage", V::text(hashed.toHex()));
  v.set("serialNumber", V::text(contentOf(t.serialNumber(), kTagInteger).toHex()));
  v.set("genTime", timeValue(t.genTime()));
  if (t.accuracyPresent()) {
    V& accuracy = v.set("accuracy", V::object());
    accuracy.set("seconds", t.seconds() < 0 ? V() : V::number(t.seconds()));
    accuracy.set("millis", t.millis() < 0 ? V() : V::number(t.millis()));
    accuracy.set("micros", t.micros() < 0 ? V() : V::number(t.micros()));
  } else {
    v.set("accuracy", V());
  }
  v.set("ordering", V::boolean(t.ordering()));
  v.set("nonce", hexOrNull(t.nonce()));
  v.set("tsa", hexOrNull(t.tsa().encoded()));
}

V certificatesValue(const CvelCertificateList& list) {
  V out = V::array();
  for (uint32_t i = 0; i < list.size(); ++i) {
    std::shared_ptr<CvelCertificate> c = list.get(i);
    if (!c) continue;
    V& entry = out.push(V::object());
    entry.set("subject", V::text(listedName(c->subject())));
    entry.set("serialNumber", V::text(contentOf(c->serialNumber(), kTagInteger).toHex()));
  }
  return out;
}

bool ocspValue(const CvelString& der, V& out);
bool crlValue(const CvelString& der, V& out);

// Each CRL with its issuer and each OCSP response with its status, decoded as a file of its own would be;
// a value that does not decode shows as null.
V revocationValue(const CvelP7SignerInfo& s) {
  if (s.revocationValuesResult() == 0) return V();
  V v = V::object();
  const CvelEtsRevocationValues& r = s.revocationValues();
  V& crls = v.set("crls", V::array());
  for (uint32_t i = 0; i < r.crlValues().size(); ++i) {
    CvelEtsRevocationValues::CvelEtsTriple* triple = nullptr;
    V crl;
    if (r.crlValues().get(i, triple) == kCvelOk && triple != nullptr && !crlValue(triple->element(), crl)) crl = V();
    crls.push(std::move(crl));
  }
  V& responses = v.set("ocspResponses", V::array());
  for (uint32_t i = 0; i < r.ocspValues().size(); ++i) {
    CvelOCSPResponse* response = nullptr;
    V ocsp;
    if (r.ocspValues().get(i, response) == kCvelOk && response != nullptr && !ocspValue(response->encoded(), ocsp)) {
      ocsp = V();
    }
    responses.push(std::move(ocsp));
  }
  v.set("others", V::number(r.otherValues().size()));
  return v;
}

// Whether the token's imprint is the hash of the signature value, by the token's own hash algorithm; null
// when that algorithm is not known here.
V imprintMatches(const CvelTSTInfo& t, const CvelString& signatureValue) {
  const EVP_MD* md = digestOfAlgorithm(t.hashAlgorithm());
  Bytes expected;
  CvelString hashed;
  if (md == nullptr || !digestWith(md, signatureValue.data(), signatureValue.length(), expected)) return V();
  return V::boolean(contentOf(t.hashedMessage(), kTagOctetString, hashed) &&
                    hashed.equals(expected.data(), static_cast<uint32_t>(expected.size())));
}

// CertificateValues ::= SEQUENCE OF Certificate, from the certificate-values attributes among attributes.
V certificateValues(const CvelString& attributes) {
  V list = V::array();
  CvelA1Context c;
  while (c.next(attributes) == kTagSequence) {
    CvelString attribute;
    std::vector<CvelString> parts;
    std::vector<CvelString> values;
    if (c.getElement(attributes, attribute) != kCvelOk || !childrenOf(attribute, kTagSequence, parts) ||
        parts.size() != 2 || dottedText(parts[0]) != kOidCertificateValues ||
        !childrenOf(parts[1], kTagSet, values)) {
      continue;
    }
    for (const CvelString& value : values) {
      std::vector<CvelString> certificates;
      if (!childrenOf(value, kTagSequence, certificates)) continue;
      for (const CvelString& der : certificates) {
        CvelCertificate certificate;
        if (certificate.parse(der.data(), der.length()) != kCvelOk) {
          list.push(V());
          continue;
        }
        V& entry = list.push(V::object());
        entry.set("subject", V::text(listedName(certificate.subject())));
        entry.set("serialNumber", V::text(contentOf(certificate.serialNumber(), kTagInteger).toHex()));
      }
    }
  }
  return list;
}

V signerValue(const CvelP7SignerInfo& s) {
  V v = V::object();
  v.set("version", V::number(s.version().value()));
  v.set("sid", sidValue(s.signerIdentifier()));
  v.set("digestAlgorithm", algorithmValue(s.digestAlgorithm()));
  v.set("signatureAlgorithm", algorithmValue(s.signatureAlgorithm()));
  v.set("signedAttributes", attributesValue(s.signedAttributes()));
  v.set("unsignedAttributes", attributesValue(s.unsignedAttributes()));
  v.set("signatureLength", V::number(s.signatureValue().length()));
  V& tokens = v.set("timeStampTokens", V::array());
  for (uint32_t i = 0; i < s.timeStamps().size(); ++i) {
    CvelTSPResponse* response = nullptr;
    if (s.timeStamps().get(i, response) != kCvelOk || response == nullptr) continue;
    V& token = tokens.push(V::object());
    token.set("signed", V::boolean(response->fromSignedAttributes()));
    fillToken(token, response->token());
    token.set("imprintMatches", imprintMatches(response->token(), s.signatureValue()));
  }
  v.set("certificateValues", certificateValues(s.unsignedAttributes()));
  v.set("revocationValues", revocationValue(s));
  return v;
}

V signedDataValue(const CvelA1P72& p) {
  V v = V::object();
  v.set("type", V::text("signedData"));
  v.set("version", V::number(p.version().value()));
  V& digests = v.set("digestAlgorithms", V::array());
  const CvelString& set = p.digestAlgorithms();
  CvelA1Context c;
  while (c.next(set) == kTagSequence) {
    CvelString algorithm;
    if (c.getElement(set, algorithm) != kCvelOk) break;
    digests.push(algorithmValue(algorithm));
  }
  const CvelP71& content = p.contentInfo();
  v.set("encapContentType", oidValue(content.contentType()));
  const char* mode = content.contentMode() == CvelP71::kContentInMemory   ? "attached"
                     : content.contentMode() == CvelP71::kContentTooLarge ? "large"
                                                                          : "detached";
  v.set("contentMode", V::text(mode));
  v.set("contentLength",
        content.contentMode() == CvelP71::kNoContent ? V() : V::number(content.contentLength()));
  v.set("certificates", certificatesValue(p.certificates()));
  v.set("crlCount", V::number(p.crls().size()));
  V& signers = v.set("signerInfos", V::array());
  for (uint32_t i = 0; i < p.signerInfos().size(); ++i) {
    CvelP7SignerInfo* s = nullptr;
    if (p.signerInfos().get(i, s) == kCvelOk && s != nullptr) signers.push(signerValue(*s));
  }
  return v;
}

bool tokenValue(const CvelString& der, V& out) {
  CvelTSTInfo token;
  if (token.encoded().assign(der) != kCvelOk || token.decode() != kCvelOk) return false;
  out = V::object();
  out.set("type", V::text("timeStampToken"));
  fillToken(out, token);
  out.set("certificates", certificatesValue(token.signedData().certificates()));
  return true;
}

// TimeStampResp ::= SEQUENCE { status PKIStatusInfo, timeStampToken ContentInfo OPTIONAL }.
bool timeStampResponseValue(const CvelString& der, V& out) {
  CvelA1Context outer;
  if (outer.next(der) != kTagSequence) return false;
  const std::vector<CvelString> parts = children(der, outer);
  if (parts.empty() || parts.size() > 2) return false;
  CvelA1Context info;
  if (info.next(parts[0]) != kTagSequence) return false;
  const std::vector<CvelString> status = children(parts[0], info);
  if (status.empty()) return false;
  const CvelString value = contentOf(status[0], kTagInteger);
  if (value.length() != 1) return false;
  V token;
  if (parts.size() == 2 && !tokenValue(parts[1], token)) return false;
  out = V::object();
  out.set("type", V::text("timeStampResponse"));
  out.set("status", V::number(value.data()[0]));
  out.set("token", std::move(token));
  return true;
}

const char* certStatusName(uint32_t tag) {
  switch (tag) {
    case CvelOCSPResponse::kStatusGood:
    case CvelOCSPResponse::kStatusGoodConstructed: return "good";
    case CvelOCSPResponse::kStatusRevoked:
    case CvelOCSPResponse::kStatusRevokedConstructed: return "revoked";
    default: return "unknown";
  }
}

// CertID ::= SEQUENCE { hashAlgorithm, issuerNameHash, issuerKeyHash, serialNumber CertificateSerialNumber }:
// the serial number's hex, or empty.
std::string certIdSerial(const CvelString& certId) {
  constexpr size_t kCertIdFields = 4;
  CvelA1Context outer;
  if (outer.next(certId) != kTagSequence) return "";
  const std::vector<CvelString> fields = children(certId, outer);
  if (fields.size() != kCertIdFields) return "";
  return contentOf(fields[kCertIdFields - 1], kTagInteger).toHex();
}

bool ocspValue(const CvelString& der, V& out) {
  CvelOCSPResponse r;
  if (r.parse(der.data(), der.length()) != kCvelOk) return false;
  out = V::object();
  out.set("type", V::text("ocspResponse"));
  out.set("responseStatus", V::number(r.status()));
  if (r.status() != CvelOCSPResponse::kSuccessful) return true;
  out.set("responseType", r.responseType().isEmpty() ? V() : oidValue(r.responseType()));
  out.set("producedAt", timeElementValue(r.producedAt()));
  if (r.responderByName()) {
    out.set("responderName", V::text(listedName(r.responderId())));
  } else {
    CvelString hash = contentOf(r.responderId(), kTagOctetString);
    out.set("responderKeyHash", V::text(hash.toHex()));
  }
  const bool revoked = r.certStatusTag() == CvelOCSPResponse::kStatusRevoked ||
                       r.certStatusTag() == CvelOCSPResponse::kStatusRevokedConstructed;
  out.set("certStatus", V::text(certStatusName(r.certStatusTag())));
  const std::string serial = certIdSerial(r.certId());
  out.set("serialNumber", serial.empty() ? V() : V::text(serial));
  out.set("thisUpdate", timeElementValue(r.thisUpdate()));
  out.set("nextUpdate", timeElementValue(r.nextUpdate()));
  out.set("revocationTime", revoked ? timeValue(r.revocationTime()) : V());
  out.set("revocationReason", revoked ? V::number(r.revocationReason()) : V());
  out.set("certificates", V::number(r.certificates().size()));
  return true;
}

bool crlValue(const CvelString& der, V& out) {
  CvelCRL crl;
  if (crl.parse(der.data(), der.length()) != kCvelOk) return false;
  out = V::object();
  out.set("type", V::text("crl"));
  out.set("issuer", V::text(listedName(crl.issuer())));
  out.set("thisUpdate", timeValue(crl.thisUpdate()));
  out.set("nextUpdate", timeValue(crl.nextUpdate()));
  size_t entries = 0;
  CvelA1Context list;
  if (list.next(crl.revokedCertificates()) == kTagSequence) {
    entries = children(crl.revokedCertificates(), list).size();
  }
  out.set("entries", V::number(static_cast<int64_t>(entries)));
  return true;
}

int base64Digit(unsigned char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == '/') return 63;
  return -1;
}

// PEM (the body between its BEGIN and END lines) or bare base64 to bytes; false for anything else.
bool fromBase64(const std::vector<unsigned char>& text, CvelString& out) {
  std::string body(text.begin(), text.end());
  const size_t begin = body.find("-----BEGIN");
  if (begin != std::string::npos) {
    const size_t start = body.find('\n', begin);
    const size_t end = body.find("-----END", begin + 1);
    if (start == std::string::npos || end == std::string::npos || end < start) return false;
    body = body.substr(start + 1, end - start - 1);
  }
  std::vector<unsigned char> bytes;
  uint32_t bits = 0;
  int count = 0;
  bool padding = false;
  for (const char ch : body) {
    const auto c = static_cast<unsigned char>(ch);
    if (c == ' ' || c == '\t' || c == '\r' || c == '\n') continue;
    if (c == '=') {
      padding = true;
      continue;
    }
    const int d = base64Digit(c);
    if (d < 0 || padding) return false;
    bits = (bits << 6) | static_cast<uint32_t>(d);
    count += 6;
    if (count >= 8) {
      count -= 8;
      bytes.push_back(static_cast<unsigned char>(bits >> count));
    }
  }
  return !bytes.empty() && out.assign(bytes.data(), static_cast<uint32_t>(bytes.size())) == kCvelOk;
}

bool signedDataValue(CvelA1Input& in, V& out) {
  CvelA1P72 p72;
  CvelA1StreamCursor cursor;
  if (p72.decode(in, cursor) != kCvelOk || p72.contentInfo().contentType().isEmpty()) return false;
  out = signedDataValue(p72);
  return true;
}

// Decodes DER held in memory by its first elements: a ContentInfo, a time-stamp or OCSP response, then a
// certificate, a CRL or a bare BasicOCSPResponse, whichever parses.
bool memoryValue(const CvelString& der, V& out, CvelCertificate& certificate, bool& isCertificate) {
  CvelA1Context outer;
  if (outer.next(der) != kTagSequence) return false;
  CvelA1Context c;
  c.enterElementOf(outer);
  const int32_t first = c.next(der);
  if (first == kTagOid) {
    CvelString oid;
    if (c.getElement(der, oid) != kCvelOk || kindOf(oid) != kOidSignedData) return false;
    CvelA1P72 p72;
    CvelA1InputString in(der, 0, der.length());
    CvelA1StreamCursor cursor;
    if (p72.decode(in, cursor) != kCvelOk || p72.contentInfo().contentType().isEmpty()) return false;
    if (dottedText(p72.contentInfo().contentType()) == kOidTstInfo) return tokenValue(der, out);
    out = signedDataValue(p72);
    return true;
  }
  if (first == kTagEnumerated) return ocspValue(der, out);
  if (timeStampResponseValue(der, out)) return true;
  if (certificate.parse(der.data(), der.length()) == kCvelOk) {
    isCertificate = true;
    return true;
  }
  return crlValue(der, out) || ocspValue(der, out);
}

// A certificate as a PDF's document security store lists it: names, serial number and validity.
V certificateSummary(const CvelCertificate& c) {
  V v = V::object();
  v.set("subject", V::text(listedName(c.subject())));
  v.set("issuer", V::text(listedName(c.issuer())));
  v.set("serialNumber", V::text(contentOf(c.serialNumber(), kTagInteger).toHex()));
  v.set("notBefore", timeValue(c.notBefore()));
  v.set("notAfter", timeValue(c.notAfter()));
  return v;
}

// An item of a document security store decoded as its list holds it; label names it in a /VRI entry's list
// (a certificate by subject, an OCSP response by the serial number it answers for, a CRL by issuer).
bool dssItemValue(PdfDssList list, const Bytes& bytes, V& out, std::string& label) {
  CvelString der;
  if (der.assign(bytes.data(), static_cast<uint32_t>(bytes.size())) != kCvelOk) return false;
  if (list == PdfDssList::kCertificates) {
    CvelCertificate c;
    if (c.parse(der.data(), der.length()) != kCvelOk) return false;
    out = certificateSummary(c);
    label = listedName(c.subject());
    return true;
  }
  if (list == PdfDssList::kCrls) {
    CvelCRL crl;
    if (!crlValue(der, out) || crl.parse(der.data(), der.length()) != kCvelOk) return false;
    label = listedName(crl.issuer());
    return true;
  }
  CvelOCSPResponse r;
  if (!ocspValue(der, out) || r.parse(der.data(), der.length()) != kCvelOk) return false;
  label = "serial " + certIdSerial(r.certId());
  return true;
}

std::string render(const V& v, bool json) {
  std::string out;
  if (json) {
    out = jsonDocument(v.toJson());
  } else {
    v.printText(out, 0);
  }
  return out;
}

}  // namespace

namespace {

struct InspectOptions {
  std::string path;
  bool json = false;
};

int runInspect(const InspectOptions& o) {
  const std::string& path = o.path;
  const bool json = o.json;
  std::string error;
  if (!checkInputFile(path, error)) {
    std::fprintf(stderr, "kolvari inspect: %s\n", error.c_str());
    return kExitFailure;
  }

  uint32_t type = kCvelContentUnknown;
  unsigned char firstByte = 0;
  uint32_t size = 0;
  {
    CvelDataStream stream;
    uint32_t got = 0;
    if (stream.open(path.c_str(), CvelDataStream::kRead) != kCvelOk || stream.size(&size) != kCvelOk ||
        stream.detectType(&type) != kCvelOk ||
        stream.seek(0, CvelDataStream::kFromStart) != kCvelOk || stream.read(&firstByte, 1, &got) != kCvelOk ||
        got != 1) {
      std::fprintf(stderr, "kolvari inspect: cannot read %s\n", path.c_str());
      return kExitFailure;
    }
  }

  if (type == kCvelContentPdf) {
    return inspectPdf(path, json, [](const Bytes& der, V& out) {
      CvelCertificate unused;
      bool isCertificate = false;
      CvelString cms;
      return cms.assign(der.data(), static_cast<uint32_t>(der.size())) == kCvelOk &&
             memoryValue(cms, out, unused, isCertificate) && !isCertificate;
    }, dssItemValue);
  }
  V value;
  CvelCertificate certificate;
  bool isCertificate = false;
  bool decoded = false;
  const bool signedData = type == kCvelContentPkcs7SignedData || type == kCvelContentDetachedSignedData;
  if (signedData && firstByte == kFirstByteSequence) {
    // Through the file: attached content beyond the in-memory limit is left where it is.
    CvelA1File file;
    decoded = file.open(path.c_str()) == kCvelOk && signedDataValue(file.input(), value);
  } else {
    if (size > kMaxInMemory) {
      std::fprintf(stderr, "kolvari inspect: %s is too large for its content type (detected as %s)\n",
                   path.c_str(), cvelContentTypeName(type));
      return kExitUsage;
    }
    std::vector<unsigned char> bytes;
    if (!readWholeFile(path, bytes)) {
      std::fprintf(stderr, "kolvari inspect: cannot read %s\n", path.c_str());
      return kExitFailure;
    }
    CvelString der;
    const bool binary = !bytes.empty() && bytes[0] == kFirstByteSequence;
    if (binary ? der.assign(bytes.data(), static_cast<uint32_t>(bytes.size())) == kCvelOk
               : fromBase64(bytes, der)) {
      decoded = memoryValue(der, value, certificate, isCertificate);
    }
  }
  if (!decoded) {
    std::fprintf(stderr, "kolvari inspect: %s is not a signature, time stamp, OCSP response, CRL or certificate "
                 "that the library can decode (detected as %s)\n", path.c_str(), cvelContentTypeName(type));
    return kExitUsage;
  }
  if (isCertificate) {
    if (json) {
      std::fputs(jsonDocument(Json{{"type", "certificate"}, {"certificate", certificateJson(certificate)}}).c_str(),
                 stdout);
    } else {
      std::printf("type: certificate\n");
      printCertificate(certificate, false);
    }
    return kExitOk;
  }
  std::fputs(render(value, json).c_str(), stdout);
  return kExitOk;
}

}  // namespace

ToolCommand inspectCommand() {
  return {"inspect", "decode a signature, time stamp, OCSP response, CRL or certificate",
          "Finds out what FILE holds (SignedData, time-stamp token or response, OCSP response, CRL, certificate, "
          "or a PDF with signatures) and prints it decoded by the library as an indented tree. A file of another "
          "type: exit status 2.",
          "kolvari inspect document.p7s", [](CLI::App& app) {
            auto o = std::make_shared<InspectOptions>();
            addFlag(app, "--json", o->json, "the same fields as one JSON object (schema in README.md)");
            addFile(app, "FILE", o->path, "the file to decode");
            return [o] { return runInspect(*o); };
          }};
}
