// Every real sample of the test data, cut short at every length and, separately, with the length octets of one
// element at a time made hostile (indefinite, four octets of FF, a five-octet length), is handed to every
// decoder that accepts its kind. Each decoder must come back with one of the library's result codes. Every
// input lies in a buffer of exactly its size, so AddressSanitizer reports any read past its end.
//
// The elements are found by a small reader of this file's own that knows only the DER rules, not by the
// library's cursors; it also looks inside OCTET STRING and BIT STRING contents that hold DER.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "asn1/cvel_a1_context.h"
#include "asn1/cvel_a1_input.h"
#include "asn1/cvel_a1_stream_cursor.h"
#include "asn1/cvel_data_stream.h"
#include "asn1/cvel_result.h"
#include "asn1/cvel_string.h"
#include "cms/cvel_a1_p72.h"
#include "cms/cvel_p71.h"
#include "cms/cvel_p7_signer_info.h"
#include "cms/cvel_tst_info.h"
#include "kolvari/zarv.h"
#include "support/test_util.h"
#include "x509/cvel_certificate.h"
#include "x509/cvel_crl.h"
#include "x509/cvel_ocsp_response.h"

namespace {

using testutil::Bytes;

// ---- What a sample is, and which decoders take it ----

enum Kind : uint32_t {
  kCertificate = 1u << 0,
  kCrl = 1u << 1,
  kOcspResponse = 1u << 2,
  kBasicOcspResponse = 1u << 3,
  kContentInfo = 1u << 4,
  kToken = 1u << 5,
  kSignerInfos = 1u << 6,
  kSignerInfo = 1u << 7,
};
constexpr uint32_t kAnyKind = 0xFFFFFFFFu;

enum class Encoding { kDer, kPem, kBase64, kText };

// One sample: a file (under tests/data) as read, or the element at path inside it (child indices, -1 for the
// last child; the DER inside an OCTET STRING counts as its child).
struct Sample {
  std::string file;
  Encoding encoding;
  uint32_t kinds;
  std::vector<int> path;
  // False for the one sample the certificate parser declines whole (an attribute certificate of a later form).
  bool readWhole = true;
};

// Where the parts of a signed data, a response and a time-stamp response lie.
const std::vector<int> kSignerInfosPath = {1, 0, -1};
const std::vector<int> kFirstSignerInfoPath = {1, 0, -1, 0};
const std::vector<int> kBasicResponsePath = {1, 0, 1, 0};
const std::vector<int> kTimeStampTokenPath = {1};

std::vector<Sample> samples() {
  std::vector<Sample> list = {
      {"asn1crypto/admin.ch.crt", Encoding::kDer, kCertificate, {}},
      {"asn1crypto/example-attr-cert.der", Encoding::kDer, kCertificate, {}, false},
      {"asn1crypto/rfc3739.crt", Encoding::kDer, kCertificate, {}},
      {"asn1crypto/self-signed-repeated-subject-fields.der", Encoding::kDer, kCertificate, {}},
      {"asn1crypto/test-der.crt", Encoding::kDer, kCertificate, {}},
      {"asn1crypto/test-ec-der.crt", Encoding::kDer, kCertificate, {}},
      {"asn1crypto/test-inter-der.crt", Encoding::kDer, kCertificate, {}},
      {"asn1crypto/test.crt", Encoding::kPem, kCertificate, {}},
      {"asn1crypto/9999-years-rsa-cert.pem", Encoding::kPem, kCertificate, {}},
      {"asn1crypto/9999-years-rsa-cert.pem", Encoding::kText, kCertificate, {}},
      {"x509/ac-v1-base-id.der", Encoding::kDer, kCertificate, {}},
      {"x509/ac-v1-entity-name.der", Encoding::kDer, kCertificate, {}},
      {"x509/ca-printable.der", Encoding::kDer, kCertificate, {}},
      {"x509/ee-qc.der", Encoding::kDer, kCertificate, {}},
      {"x509/unique-ids.der", Encoding::kDer, kCertificate, {}},
      {"x509/v1-self-signed.der", Encoding::kDer, kCertificate, {}},
      {"signer/signer-ec.der", Encoding::kDer, kCertificate, {}},

      {"asn1crypto/eid2011.crl", Encoding::kDer, kCrl, {}},
      {"tsp/crl.der", Encoding::kDer, kCrl, {}},
      {"detect/crl.pem", Encoding::kPem, kCrl, {}},

      {"asn1crypto/ocsp_response", Encoding::kDer, kOcspResponse, {}},
      {"asn1crypto/ocsp_response", Encoding::kDer, kBasicOcspResponse, kBasicResponsePath},
      {"ocsp/pyhanko-ocsp.resp.der", Encoding::kDer, kOcspResponse, {}},
      {"ocsp/pyhanko-ocsp.resp.der", Encoding::kDer, kBasicOcspResponse, kBasicResponsePath},

      {"asn1crypto/cms-compressed.der", Encoding::kDer, kContentInfo, {}},
      {"asn1crypto/cms-digested.der", Encoding::kDer, kContentInfo, {}},
      {"asn1crypto/cms-encrypted.der", Encoding::kDer, kContentInfo, {}},
      {"asn1crypto/cms-enveloped.der", Encoding::kDer, kContentInfo, {}},
      {"asn1crypto/mozilla-generated-by-openssl.pkcs7.der", Encoding::kDer, kContentInfo, {}},
      {"asn1crypto/pkcs7-signed.pem", Encoding::kPem, kContentInfo, {}},
      {"detect/data.p7", Encoding::kDer, kContentInfo, {}},
      {"detect/digested.p7", Encoding::kDer, kContentInfo, {}},
      {"detect/env119.der", Encoding::kDer, kContentInfo, {}},
      {"detect/env119-originator.der", Encoding::kDer, kContentInfo, {}},
      {"detect/sae116.der", Encoding::kDer, kContentInfo, {}},

      {"asn1crypto/tsp_response", Encoding::kDer, kToken | kContentInfo, kTimeStampTokenPath},
      {"tsp/plain.tsr", Encoding::kDer, kToken | kContentInfo, kTimeStampTokenPath},
  };
  // Signed data: the whole message, its SignerInfos and its first SignerInfo.
  const std::vector<std::pair<const char*, uint32_t>> signedData = {
      {"asn1crypto/cms-signed.der", kContentInfo},
      {"asn1crypto/cms-signed-digested.der", kContentInfo},
      {"asn1crypto/cms-signed-indefinite-length.der", kContentInfo},
      {"asn1crypto/pkcs7-signed.der", kContentInfo},
      {"asn1crypto/smime-signature-generated-by-thunderbird.p7s", kContentInfo},
      {"detect/detached.p7", kContentInfo},
      {"detect/timestamp-token.der", kContentInfo | kToken},
      {"tsp/plain.tst", kContentInfo | kToken},
      {"tsp/millis.tst", kContentInfo | kToken},
      {"tsp/full.tst", kContentInfo | kToken},
  };
  for (const auto& [file, kinds] : signedData) {
    list.push_back({file, Encoding::kDer, kinds, {}});
    list.push_back({file, Encoding::kDer, kSignerInfos, kSignerInfosPath});
    list.push_back({file, Encoding::kDer, kSignerInfo, kFirstSignerInfoPath});
  }
  // OpenSSL's OCSP test set: 36 responses (base64) and the certificates that come with them.
  for (const char* prefix : {"D", "ISDOSC_D", "ISOP_D", "ISOP_ND", "ND", "WIKH_D", "WIKH_ND", "WINH_D", "WINH_ND",
                             "WKDOSC_D", "WRID_D", "WRID_ND"}) {
    for (const char* n : {"1", "2", "3"}) {
      const std::string file = std::string("ocsp/openssl/") + prefix + n + ".ors";
      list.push_back({file, Encoding::kBase64, kOcspResponse, {}});
    }
  }
  for (const char* pem : {"D1_Cert_EE", "D1_Issuer_ICA", "D2_Cert_ICA", "D2_Issuer_Root", "D3_Cert_EE",
                          "D3_Issuer_Root", "ISIC_D1_Issuer_ICA", "ISIC_D2_Issuer_Root", "ISIC_D3_Issuer_Root",
                          "ISIC_ND1_Issuer_ICA", "ISIC_ND2_Issuer_Root", "ISIC_ND3_Issuer_Root", "ND1_Cert_EE",
                          "ND1_Issuer_ICA", "ND2_Cert_ICA", "ND2_Issuer_Root", "ND3_Cert_EE", "ND3_Issuer_Root",
                          "R2", "WKIC_D1_Issuer_ICA", "WKIC_D2_Issuer_Root", "WKIC_D3_Issuer_Root"}) {
    const std::string file = std::string("ocsp/openssl/") + pem + ".pem";
    list.push_back({file, Encoding::kPem, kCertificate, {}});
  }
  return list;
}

// ---- An independent DER reader: where every element and its length octets lie ----

struct Tlv {
  size_t start;
  size_t lengthAt;
  size_t lengthSize;
  size_t contentAt;
  size_t end;
  int depth;
};

constexpr int kMaxReadDepth = 64;
constexpr uint8_t kOctetString = 0x04;
constexpr uint8_t kBitString = 0x03;

bool readTlv(const Bytes& b, size_t at, size_t limit, int depth, std::vector<Tlv>& out, size_t& end);

// Elements filling [from, limit) exactly; false (out unchanged) when they do not.
bool readAll(const Bytes& b, size_t from, size_t limit, int depth, std::vector<Tlv>& out) {
  std::vector<Tlv> found;
  for (size_t p = from; p < limit;) {
    size_t childEnd = 0;
    if (!readTlv(b, p, limit, depth, found, childEnd)) return false;
    p = childEnd;
  }
  out.insert(out.end(), found.begin(), found.end());
  return true;
}

bool readTlv(const Bytes& b, size_t at, size_t limit, int depth, std::vector<Tlv>& out, size_t& end) {
  if (depth > kMaxReadDepth || at >= limit) return false;
  size_t i = at;
  const uint8_t first = b[i++];
  if ((first & 0x1F) == 0x1F) {
    do {
      if (i >= limit) return false;
    } while ((b[i++] & 0x80) != 0);
  }
  if (i >= limit) return false;
  Tlv t{at, i, 1, 0, 0, depth};
  const uint8_t l = b[i++];
  const bool indefinite = l == 0x80;
  size_t length = l;
  if (!indefinite && (l & 0x80) != 0) {
    const size_t count = l & 0x7F;
    if (count > 4 || limit - i < count) return false;
    length = 0;
    for (size_t k = 0; k < count; ++k) length = (length << 8) | b[i++];
    t.lengthSize = 1 + count;
  }
  t.contentAt = i;
  const size_t index = out.size();
  out.push_back(t);
  const bool constructed = (first & 0x20) != 0;
  if (indefinite) {
    if (!constructed) return false;
    size_t p = i;
    while (!(limit - p >= 2 && b[p] == 0 && b[p + 1] == 0)) {
      size_t childEnd = 0;
      if (!readTlv(b, p, limit, depth + 1, out, childEnd)) return false;
      p = childEnd;
    }
    end = p + 2;
  } else {
    if (length > limit - i) return false;
    end = i + length;
    if (constructed) {
      if (!readAll(b, i, end, depth + 1, out)) return false;
    } else if (first == kOctetString && length != 0) {
      readAll(b, i, end, depth + 1, out);
    } else if (first == kBitString && length > 1 && b[i] == 0) {
      readAll(b, i + 1, end, depth + 1, out);
    }
  }
  out[index].end = end;
  return true;
}

// Every element of a DER image in encoding order; empty when the image is not one well-formed element.
std::vector<Tlv> elementsOf(const Bytes& b) {
  std::vector<Tlv> out;
  size_t end = 0;
  if (!readTlv(b, 0, b.size(), 0, out, end)) out.clear();
  return out;
}

// The element at path (see Sample); false when there is none.
bool elementAt(const Bytes& b, const std::vector<int>& path, Bytes& out) {
  const std::vector<Tlv> all = elementsOf(b);
  if (all.empty()) return false;
  size_t current = 0;
  for (int step : path) {
    std::vector<size_t> children;
    for (size_t k = current + 1; k < all.size() && all[k].depth > all[current].depth; ++k) {
      if (all[k].depth == all[current].depth + 1) children.push_back(k);
    }
    if (children.empty()) return false;
    const size_t pick = step < 0 ? children.size() - 1 : static_cast<size_t>(step);
    if (pick >= children.size()) return false;
    current = children[pick];
  }
  out.assign(b.begin() + static_cast<std::ptrdiff_t>(all[current].start),
             b.begin() + static_cast<std::ptrdiff_t>(all[current].end));
  return true;
}

// ---- Reading the sample files ----

Bytes fromBase64(const std::string& text) {
  static const std::string kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  Bytes out;
  uint32_t bits = 0;
  int count = 0;
  for (char c : text) {
    const size_t v = kAlphabet.find(c);
    if (v == std::string::npos) continue;
    bits = (bits << 6) | static_cast<uint32_t>(v);
    count += 6;
    if (count >= 8) {
      count -= 8;
      out.push_back(static_cast<unsigned char>(bits >> count));
    }
  }
  return out;
}

Bytes loadSample(const Sample& sample) {
  const Bytes raw = testutil::readFile(testutil::dataPath(sample.file));
  std::string text(raw.begin(), raw.end());
  Bytes der = raw;
  if (sample.encoding == Encoding::kBase64) der = fromBase64(text);
  if (sample.encoding == Encoding::kPem) {
    const size_t begin = text.find('\n', text.find("-----BEGIN"));
    const size_t end = text.find("-----END");
    if (begin == std::string::npos || end == std::string::npos || end < begin) return {};
    der = fromBase64(text.substr(begin, end - begin));
  }
  if (sample.path.empty()) return der;
  Bytes element;
  return elementAt(der, sample.path, element) ? element : Bytes();
}

// ---- The decoders ----

using Codes = std::vector<CvelResult>;

// Every value a decoder may give: the library's codes, and the 0 several decoders return for "not this".
bool documented(CvelResult r) {
  static const std::set<CvelResult> kDocumented = {0,
                                                   kCvelOk,
                                                   kCvelErrBadParameter,
                                                   kCvelErrNoMemory,
                                                   kCvelErrMalformed,
                                                   kCvelErrIncomplete,
                                                   kCvelErrNullData,
                                                   kCvelErrEndOfData};
  return kDocumented.count(r) != 0;
}

void viewOf(const uint8_t* p, uint32_t n, CvelString& view) { ASSERT_EQ(view.setView(p, n), kCvelOk); }

// A copy of p with DER headers (tags outermost first) put around it, lengths definite, in an exact buffer.
std::unique_ptr<uint8_t[]> wrapped(const uint8_t* p, uint32_t n, const std::vector<uint8_t>& tags, uint32_t& size) {
  Bytes out(p, p + n);
  for (auto tag = tags.rbegin(); tag != tags.rend(); ++tag) {
    Bytes header = {*tag};
    const size_t length = out.size();
    if (length < 0x80) {
      header.push_back(static_cast<uint8_t>(length));
    } else {
      Bytes octets;
      for (size_t v = length; v != 0; v >>= 8) octets.insert(octets.begin(), static_cast<uint8_t>(v));
      header.push_back(static_cast<uint8_t>(0x80 | octets.size()));
      header.insert(header.end(), octets.begin(), octets.end());
    }
    out.insert(out.begin(), header.begin(), header.end());
  }
  size = static_cast<uint32_t>(out.size());
  std::unique_ptr<uint8_t[]> exact(new uint8_t[size]);
  std::memcpy(exact.get(), out.data(), size);
  return exact;
}

void certificateParse(const uint8_t* p, uint32_t n, Codes& codes) {
  CvelCertificate certificate;
  viewOf(p, n, certificate.encoded());
  codes.push_back(certificate.parse());
  CvelString out;
  codes.push_back(certificate.getIssuerSerial(out));
  codes.push_back(certificate.getIssuer(out));
}

// The parse alone, for the whole samples.
void certificateParseOnly(const uint8_t* p, uint32_t n, Codes& codes) {
  CvelCertificate certificate;
  viewOf(p, n, certificate.encoded());
  codes.push_back(certificate.parse());
}

void signerCertificate(const uint8_t* p, uint32_t n, Codes& codes) {
  SignerInfoRecord* h = nullptr;
  ASSERT_EQ(ZARV_CreateSignerInfo(&h), ZARV_OK);
  codes.push_back(ZARV_SetSignerCertificate(h, Bytes(p, p + n), Bytes(32, 0x22), "2.16.840.1.101.3.4.2.1"));
  ZARV_ReleaseSignerInfo(h);
}

void crlParse(const uint8_t* p, uint32_t n, Codes& codes) {
  CvelCRL crl;
  codes.push_back(crl.parse(p, n));
}

void ocspParse(const uint8_t* p, uint32_t n, Codes& codes) {
  CvelOCSPResponse response;
  viewOf(p, n, response.encoded());
  codes.push_back(response.parse());
}

// RevocationValues { [0] or [1] { the sample } }, the sample being a CRL or a BasicOCSPResponse.
void revocationValues(const uint8_t* p, uint32_t n, uint8_t listTag, Codes& codes) {
  uint32_t size = 0;
  const std::unique_ptr<uint8_t[]> der = wrapped(p, n, {0x30, listTag, 0x30}, size);
  CvelString view;
  viewOf(der.get(), size, view);
  CvelEtsRevocationValues values;
  codes.push_back(values.decode(view));
}

void crlValues(const uint8_t* p, uint32_t n, Codes& codes) { revocationValues(p, n, 0xA0, codes); }
void ocspValues(const uint8_t* p, uint32_t n, Codes& codes) { revocationValues(p, n, 0xA1, codes); }

void revocationValuesAlone(const uint8_t* p, uint32_t n, Codes& codes) {
  CvelString view;
  viewOf(p, n, view);
  CvelEtsRevocationValues values;
  codes.push_back(values.decode(view));
}

void p72Decode(const uint8_t* p, uint32_t n, Codes& codes) {
  CvelString image;
  viewOf(p, n, image);
  CvelA1InputString in(image, 0, image.length());
  CvelA1StreamCursor cursor;
  CvelA1P72 p72;
  codes.push_back(p72.decode(in, cursor));
  if (codes.back() != kCvelOk) return;
  CvelString out;
  codes.push_back(p72.encode(out, false));
}

// T::decode(in, cursor) on the first element.
template <typename T>
void decodeFirst(const uint8_t* p, uint32_t n, Codes& codes) {
  CvelString image;
  viewOf(p, n, image);
  CvelA1InputString in(image, 0, image.length());
  CvelA1StreamCursor cursor;
  codes.push_back(cursor.next(in));
  if (codes.back() != kCvelOk) return;
  T object;
  codes.push_back(object.decode(in, cursor));
}

void tokenDecode(const uint8_t* p, uint32_t n, Codes& codes) {
  CvelTSTInfo token;
  viewOf(p, n, token.encoded());
  codes.push_back(token.decode());
}

void tokenDecodeFrom(const uint8_t* p, uint32_t n, Codes& codes) {
  uint32_t size = 0;
  const std::unique_ptr<uint8_t[]> set = wrapped(p, n, {0x31}, size);
  CvelString parentString;
  viewOf(set.get(), size, parentString);
  CvelA1Context parent;
  parent.next(parentString);
  CvelTSTInfo token;
  codes.push_back(token.decodeFrom(parent, parentString));
}

// The one container call that decodes what it is given; the others keep their bytes unread.
void containerVersion(const uint8_t* p, uint32_t n, Codes& codes) {
  P72Container* h = nullptr;
  ASSERT_EQ(ZARV_CreateP72Container(&h), ZARV_OK);
  codes.push_back(ZARV_SetVersion(h, Bytes(p, p + n)));
  codes.push_back(ZARV_CloseP72Container(h));
}

void detectType(const uint8_t* p, uint32_t n, Codes& codes) {
  CvelString image;
  viewOf(p, n, image);
  CvelDataStream stream(&image);
  uint32_t type = 0;
  codes.push_back(stream.detectType(&type));
}

constexpr size_t kMaxCursorSteps = 1u << 20;

// The memory cursor into every constructed element, as the decoders go.
void contextWalk(const CvelString& s, CvelA1Context& cursor, bool descend, int depth, size_t& steps) {
  for (int32_t t = descend ? cursor.descend(s) : cursor.next(s); t >= 0 && ++steps < kMaxCursorSteps;
       t = cursor.next(s)) {
    if ((s.data()[cursor.elementOffset()] & 0x20) != 0 && cursor.contentLength() != 0 && depth < kMaxReadDepth) {
      CvelA1Context child;
      child = cursor;
      contextWalk(s, child, true, depth + 1, steps);
    }
  }
}

void cursors(const uint8_t* p, uint32_t n, Codes& codes) {
  CvelString image;
  viewOf(p, n, image);
  CvelA1Context top;
  size_t steps = 0;
  contextWalk(image, top, false, 0, steps);

  CvelA1InputString in(image, 0, image.length());
  CvelA1StreamCursor cursor;
  CvelResult r = cursor.next(in);
  for (steps = 0; r == kCvelOk && steps < kMaxCursorSteps; ++steps) {
    const uint32_t behind = cursor.position();
    if ((cursor.tag() & 0x20) != 0 && cursor.contentLength() != 0) {
      r = cursor.descend(in);
      if (r == kCvelOk) continue;
      codes.push_back(r);
    }
    cursor.setPosition(behind);
    r = cursor.next(in);
  }
  codes.push_back(r);
}

struct Decoder {
  const char* name;
  uint32_t kinds;
  void (*decode)(const uint8_t* p, uint32_t n, Codes& codes);
};

const Decoder kDecoders[] = {
    {"CvelCertificate::parse", kCertificate, certificateParse},
    {"ZARV_SetSignerCertificate", kCertificate, signerCertificate},
    {"CvelCRL::parse", kCrl, crlParse},
    {"CvelEtsRevocationValues::decode (crlVals)", kCrl, crlValues},
    {"CvelEtsRevocationValues::decode (ocspVals)", kBasicOcspResponse, ocspValues},
    {"CvelEtsRevocationValues::decode", kCrl | kOcspResponse | kBasicOcspResponse, revocationValuesAlone},
    {"CvelOCSPResponse::parse", kOcspResponse | kBasicOcspResponse, ocspParse},
    {"CvelA1P72::decode", kContentInfo | kToken, p72Decode},
    {"CvelP71::decode", kContentInfo | kToken, decodeFirst<CvelP71>},
    {"CvelTSTInfo::decode", kToken, tokenDecode},
    {"CvelTSTInfo::decodeFrom", kToken, tokenDecodeFrom},
    {"CvelP7SignerInfos::decode", kSignerInfos, decodeFirst<CvelP7SignerInfos>},
    {"CvelP7SignerInfo::decode", kSignerInfo | kSignerInfos, decodeFirst<CvelP7SignerInfo>},
    {"ZARV_SetVersion", kAnyKind, containerVersion},
    {"CvelDataStream::detectType", kAnyKind, detectType},
    {"DER cursors", kAnyKind, cursors},
};

// ---- The damaged inputs ----

// Samples up to this size are cut at every length; larger ones near the start, the end and the boundaries of
// a bounded number of their elements, so that a 1.2 MB CRL does not cost a quadratic sweep.
constexpr size_t kEveryLengthUpTo = 8192;
constexpr size_t kEdge = 128;
constexpr size_t kMaxBoundaryElements = 48;
// At most this many elements of one sample get hostile length octets (evenly spread over all of them); fewer
// in the samples that are not cut at every length.
constexpr size_t kMaxMutatedElements = 200;
constexpr size_t kMaxMutatedElementsOfLarge = 64;

std::vector<size_t> spread(size_t total, size_t most) {
  std::vector<size_t> picks;
  const size_t step = total <= most ? 1 : (total + most - 1) / most;
  for (size_t k = 0; k < total; k += step) picks.push_back(k);
  return picks;
}

std::vector<size_t> cutLengths(const Bytes& b, const std::vector<Tlv>& elements) {
  std::set<size_t> cuts;
  const size_t n = b.size();
  if (n <= kEveryLengthUpTo) {
    for (size_t k = 0; k < n; ++k) cuts.insert(k);
    return {cuts.begin(), cuts.end()};
  }
  for (size_t k = 0; k < kEdge; ++k) {
    cuts.insert(k);
    cuts.insert(n - 1 - k);
  }
  for (size_t k : spread(elements.size(), kMaxBoundaryElements)) {
    for (size_t at : {elements[k].start, elements[k].contentAt, elements[k].end}) {
      for (size_t near = at > 2 ? at - 2 : 0; near <= at + 2 && near < n; ++near) cuts.insert(near);
    }
  }
  return {cuts.begin(), cuts.end()};
}

bool indefinite(const Bytes& b, const Tlv& e) { return e.lengthSize == 1 && b[e.lengthAt] == 0x80; }

// The image with the content of element k cut to keep octets, the lengths of k and of every element around it
// lowered to match, each written in as many octets as before: the outer elements stay whole and the decoders
// meet the short element deep inside.
Bytes cutInside(const Bytes& b, const std::vector<Tlv>& all, size_t k, size_t keep) {
  const Tlv& e = all[k];
  const size_t removed = (e.end - e.contentAt) - keep;
  Bytes out(b);
  const auto rewrite = [&out](const Tlv& t, size_t length) {
    if (t.lengthSize == 1) {
      out[t.lengthAt] = static_cast<uint8_t>(length);
      return;
    }
    for (size_t i = 0; i + 1 < t.lengthSize; ++i) {
      out[t.lengthAt + t.lengthSize - 1 - i] = static_cast<uint8_t>(length >> (8 * i));
    }
  };
  rewrite(e, keep);
  for (const Tlv& around : all) {
    if (around.start < e.start && around.end >= e.end && !indefinite(b, around)) {
      rewrite(around, around.end - around.contentAt - removed);
    }
  }
  out.erase(out.begin() + static_cast<std::ptrdiff_t>(e.contentAt + keep),
            out.begin() + static_cast<std::ptrdiff_t>(e.end));
  return out;
}

const std::vector<Bytes> kHostileLengths = {{0x80}, {0x84, 0xFF, 0xFF, 0xFF, 0xFF}, {0x85}};

struct Sweep {
  uint32_t kinds;
  std::string label;
  std::vector<std::string> faults;
  size_t cases = 0;

  void run(const uint8_t* bytes, size_t n, const std::string& what) {
    ++cases;
    std::unique_ptr<uint8_t[]> exact(new uint8_t[n]);
    if (n != 0) std::memcpy(exact.get(), bytes, n);
    Codes codes;
    for (const Decoder& d : kDecoders) {
      if ((d.kinds & kinds) == 0) continue;
      codes.clear();
      d.decode(exact.get(), static_cast<uint32_t>(n), codes);
      for (CvelResult r : codes) {
        if (!documented(r) && faults.size() < 20) {
          faults.push_back(label + " " + what + ": " + d.name + " gave 0x" + testutil::toHex(Bytes{
              static_cast<uint8_t>(r >> 24), static_cast<uint8_t>(r >> 16), static_cast<uint8_t>(r >> 8),
              static_cast<uint8_t>(r)}));
        }
      }
    }
  }
};

std::string labelOf(const Sample& s) {
  std::string label = s.file;
  if (s.encoding == Encoding::kText) label += " (as text)";
  if (!s.path.empty()) {
    label += " at";
    for (int step : s.path) label += " " + std::to_string(step);
  }
  return label;
}

// Whole samples decode with success where a decoder of their kind reads them in full: the table is right, and
// the damaged copies reach deep into the decoders rather than failing at the first byte.
TEST(Truncation, EverySampleIsWhatTheTableSaysItIs) {
  const std::vector<std::pair<uint32_t, void (*)(const uint8_t*, uint32_t, Codes&)>> kWhole = {
      {kCertificate, certificateParseOnly}, {kCrl, crlParse},        {kOcspResponse, ocspParse},
      {kBasicOcspResponse, ocspParse},  {kToken, tokenDecode},   {kSignerInfos, decodeFirst<CvelP7SignerInfos>},
      {kSignerInfo, decodeFirst<CvelP7SignerInfo>},
  };
  for (const Sample& sample : samples()) {
    SCOPED_TRACE(labelOf(sample));
    const Bytes b = loadSample(sample);
    ASSERT_FALSE(b.empty());
    if (sample.encoding != Encoding::kText) {
      EXPECT_FALSE(elementsOf(b).empty());
    }
    for (const auto& [kind, decode] : kWhole) {
      if ((sample.kinds & kind) == 0 || !sample.readWhole) continue;
      Codes codes;
      decode(b.data(), static_cast<uint32_t>(b.size()), codes);
      ASSERT_FALSE(codes.empty());
      EXPECT_EQ(codes.back(), kCvelOk);
    }
  }
}

// The sweeps run per family of samples, so that the test runner can spread them over its jobs.
struct Family {
  const char* name;
  uint32_t kinds;
};

void PrintTo(const Family& family, std::ostream* os) { *os << family.name; }

class TruncationSweep : public ::testing::TestWithParam<Family> {
 protected:
  std::vector<Sample> familySamples() const {
    std::vector<Sample> all = samples();
    std::vector<Sample> mine;
    for (const Sample& s : all) {
      if ((s.kinds & GetParam().kinds) != 0) mine.push_back(s);
    }
    return mine;
  }
};

TEST_P(TruncationSweep, EveryCutReturnsADocumentedCode) {
  size_t cases = 0;
  for (const Sample& sample : familySamples()) {
    const Bytes b = loadSample(sample);
    ASSERT_FALSE(b.empty()) << labelOf(sample);
    Sweep sweep{sample.kinds, labelOf(sample), {}, 0};
    for (size_t cut : cutLengths(b, elementsOf(b))) sweep.run(b.data(), cut, "cut at " + std::to_string(cut));
    cases += sweep.cases;
    for (const std::string& fault : sweep.faults) ADD_FAILURE() << fault;
  }
  RecordProperty("cases", static_cast<int>(cases));
}

TEST_P(TruncationSweep, HostileLengthOctetsReturnADocumentedCode) {
  size_t cases = 0;
  for (const Sample& sample : familySamples()) {
    if (sample.encoding == Encoding::kText) continue;
    const Bytes b = loadSample(sample);
    ASSERT_FALSE(b.empty()) << labelOf(sample);
    const std::vector<Tlv> elements = elementsOf(b);
    Sweep sweep{sample.kinds, labelOf(sample), {}, 0};
    const size_t most = b.size() <= kEveryLengthUpTo ? kMaxMutatedElements : kMaxMutatedElementsOfLarge;
    for (size_t k : spread(elements.size(), most)) {
      const Tlv& e = elements[k];
      for (const Bytes& length : kHostileLengths) {
        Bytes damaged(b.begin(), b.begin() + static_cast<std::ptrdiff_t>(e.lengthAt));
        damaged.insert(damaged.end(), length.begin(), length.end());
        damaged.insert(damaged.end(), b.begin() + static_cast<std::ptrdiff_t>(e.lengthAt + e.lengthSize), b.end());
        sweep.run(damaged.data(), damaged.size(),
                  "length at " + std::to_string(e.lengthAt) + " set to " + testutil::toHex(length));
      }
    }
    cases += sweep.cases;
    for (const std::string& fault : sweep.faults) ADD_FAILURE() << fault;
  }
  RecordProperty("cases", static_cast<int>(cases));
}

TEST_P(TruncationSweep, ElementsCutInsideWholeOuterElementsReturnADocumentedCode) {
  size_t cases = 0;
  for (const Sample& sample : familySamples()) {
    if (sample.encoding == Encoding::kText) continue;
    const Bytes b = loadSample(sample);
    ASSERT_FALSE(b.empty()) << labelOf(sample);
    const std::vector<Tlv> elements = elementsOf(b);
    Sweep sweep{sample.kinds, labelOf(sample), {}, 0};
    const size_t most = b.size() <= kEveryLengthUpTo ? kMaxMutatedElements : kMaxMutatedElementsOfLarge;
    for (size_t k : spread(elements.size(), most)) {
      const Tlv& e = elements[k];
      const size_t length = e.end - e.contentAt;
      if (indefinite(b, e) || length == 0) continue;
      for (size_t keep : std::set<size_t>{0, 1, length / 2, length - 1}) {
        if (keep >= length) continue;
        const Bytes damaged = cutInside(b, elements, k, keep);
        sweep.run(damaged.data(), damaged.size(),
                  "element at " + std::to_string(e.start) + " cut to " + std::to_string(keep) + " octets");
      }
    }
    cases += sweep.cases;
    for (const std::string& fault : sweep.faults) ADD_FAILURE() << fault;
  }
  RecordProperty("cases", static_cast<int>(cases));
}

INSTANTIATE_TEST_SUITE_P(Families, TruncationSweep,
                         ::testing::Values(Family{"Certificates", kCertificate},
                                           Family{"Revocation", kCrl | kOcspResponse | kBasicOcspResponse},
                                           Family{"Cms", kContentInfo | kToken | kSignerInfos | kSignerInfo}),
                         [](const ::testing::TestParamInfo<Family>& info) { return std::string(info.param.name); });

}  // namespace
