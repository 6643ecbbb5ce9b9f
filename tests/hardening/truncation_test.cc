// Every real sample of the test data damaged three ways (cut short; one element's length octets made hostile;
// one element cut short inside outer elements whose lengths are lowered to match), handed to every decoder of
// its kind, which must return one of the library's result codes. Each input lies in a buffer of exactly its
// size, so AddressSanitizer reports any read past its end. The elements are found by a DER reader of this
// file's own, not by the library's cursors.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <set>
#include <sstream>
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
using Codes = std::vector<CvelResult>;

enum Kind : uint32_t {
  kCertificate = 1, kCrl = 2, kOcspResponse = 4, kBasicOcspResponse = 8, kContentInfo = 16, kToken = 32,
  kSignerInfos = 64, kSignerInfo = 128, kAnyKind = 0xFFFFFFFFu
};

// A file under tests/data (PEM and .ors base64 decoded, unless asText), or the element at path inside it (child
// indices, -1 for the last child; the DER inside an OCTET STRING counts as its child).
struct Sample {
  std::string file;
  uint32_t kinds;
  std::vector<int> path = {};
  bool asText = false;
  bool readWhole = true;  // false for the attribute certificate of a later form, which the parser declines whole
};

std::vector<Sample> samples() {
  std::vector<Sample> list = {{"asn1crypto/9999-years-rsa-cert.pem", kCertificate, {}, true},
                              {"asn1crypto/example-attr-cert.der", kCertificate, {}, false, false}};
  const std::pair<uint32_t, std::string> kFiles[] = {
      {kCertificate, "asn1crypto/admin.ch.crt asn1crypto/rfc3739.crt asn1crypto/test-der.crt asn1crypto/test.crt "
                     "asn1crypto/self-signed-repeated-subject-fields.der asn1crypto/test-ec-der.crt "
                     "asn1crypto/test-inter-der.crt asn1crypto/9999-years-rsa-cert.pem x509/ac-v1-base-id.der "
                     "x509/ac-v1-entity-name.der x509/ca-printable.der x509/ee-qc.der x509/unique-ids.der "
                     "x509/v1-self-signed.der signer/signer-ec.der"},
      {kCrl, "asn1crypto/eid2011.crl tsp/crl.der detect/crl.pem"},
      {kContentInfo, "asn1crypto/cms-compressed.der asn1crypto/cms-digested.der asn1crypto/cms-encrypted.der "
                     "asn1crypto/cms-enveloped.der asn1crypto/mozilla-generated-by-openssl.pkcs7.der "
                     "asn1crypto/pkcs7-signed.pem detect/data.p7 detect/digested.p7 detect/env119.der "
                     "detect/env119-originator.der detect/sae116.der"},
      {kOcspResponse, "asn1crypto/ocsp_response ocsp/pyhanko-ocsp.resp.der"},
      // Signed data, each also as its SignerInfos and its first SignerInfo; responses as their basic response.
      {kContentInfo | kSignerInfos, "asn1crypto/cms-signed.der asn1crypto/cms-signed-digested.der detect/detached.p7 "
                                    "asn1crypto/cms-signed-indefinite-length.der asn1crypto/pkcs7-signed.der "
                                    "asn1crypto/smime-signature-generated-by-thunderbird.p7s"},
      {kContentInfo | kToken | kSignerInfos, "detect/timestamp-token.der tsp/plain.tst tsp/millis.tst tsp/full.tst"},
      {kBasicOcspResponse, "asn1crypto/ocsp_response ocsp/pyhanko-ocsp.resp.der"},
      {kToken | kContentInfo, "asn1crypto/tsp_response tsp/plain.tsr"}};
  for (const auto& [kinds, files] : kFiles) {
    std::istringstream names(files);
    for (std::string file; names >> file;) {
      const std::vector<int> path = kinds == kBasicOcspResponse ? std::vector<int>{1, 0, 1, 0}
                                    : kinds == (kToken | kContentInfo) ? std::vector<int>{1} : std::vector<int>{};
      list.push_back({file, kinds & ~kSignerInfos, path});
      if ((kinds & kSignerInfos) != 0)
        list.insert(list.end(), {{file, kSignerInfos, {1, 0, -1}}, {file, kSignerInfo, {1, 0, -1, 0}}});
    }
  }
  // OpenSSL's OCSP test set: 36 responses (base64) and the certificates that come with them, less the nine
  // WKIC_ND and WSNIC issuers.
  for (const auto& entry : std::filesystem::directory_iterator(testutil::dataPath("ocsp/openssl"))) {
    const std::string name = "ocsp/openssl/" + entry.path().filename().string();
    if (entry.path().extension() == ".ors") list.push_back({name, kOcspResponse});
    if (entry.path().extension() == ".pem" && name.find("/WSNIC") == std::string::npos &&
        name.find("/WKIC_ND") == std::string::npos) {
      list.push_back({name, kCertificate});
    }
  }
  return list;
}

// ---- An independent DER reader: where every element and its length octets lie ----

struct Tlv {
  size_t start, lengthAt, lengthSize, contentAt, end;
  int parent, depth;
};

constexpr int kMaxReadDepth = 64;

size_t readTlv(const Bytes& b, size_t at, size_t limit, int parent, std::vector<Tlv>& out);

// Elements filling [p, limit) exactly, or up to an end-of-contents pair: where they end, or 0 with out as it was.
size_t readRun(const Bytes& b, size_t p, size_t limit, int parent, bool untilEoc, std::vector<Tlv>& out) {
  const size_t mark = out.size();
  while (untilEoc ? !(limit - p >= 2 && b[p] == 0 && b[p + 1] == 0) : p < limit) {
    if ((p = readTlv(b, p, limit, parent, out)) == 0) return out.resize(mark), 0;
  }
  return untilEoc ? p + 2 : p;
}

// One element and what it holds: where it ends, or 0 (no element ends at 0). High tag numbers do not occur in
// the samples and are refused; an indefinite length is taken for constructed elements only.
size_t readTlv(const Bytes& b, size_t at, size_t limit, int parent, std::vector<Tlv>& out) {
  const int depth = parent < 0 ? 0 : out[static_cast<size_t>(parent)].depth + 1;
  if (depth > kMaxReadDepth || limit - at < 2 || (b[at] & 0x1F) == 0x1F) return 0;
  Tlv t{at, at + 1, 1, 0, 0, parent, depth};
  const uint8_t l = b[at + 1];
  size_t i = at + 2, length = l;
  if (l > 0x80) {
    if ((l & 0x7F) > 4 || limit - i < (l & 0x7F)) return 0;
    for (length = 0; t.lengthSize <= (l & 0x7Fu); ++t.lengthSize) length = (length << 8) | b[i++];
  }
  t.contentAt = i;
  const int index = static_cast<int>(out.size());
  out.push_back(t);
  const bool constructed = (b[at] & 0x20) != 0;
  if (l != 0x80 && length > limit - i) return 0;
  const size_t end = l != 0x80 ? i + length : constructed ? readRun(b, i, limit, index, true, out) : 0;
  if (end == 0 || (l != 0x80 && constructed && readRun(b, i, end, index, false, out) == 0)) return 0;
  if (b[at] == 0x04 && length != 0) readRun(b, i, end, index, false, out);  // OCTET STRING holding DER
  if (b[at] == 0x03 && length > 1 && b[i] == 0) readRun(b, i + 1, end, index, false, out);  // BIT STRING too
  return out[static_cast<size_t>(index)].end = end;
}

// Every element of a DER image in encoding order; empty when the image is not one well-formed element.
std::vector<Tlv> elementsOf(const Bytes& b) {
  std::vector<Tlv> out;
  if (readTlv(b, 0, b.size(), -1, out) == 0) out.clear();
  return out;
}

Bytes loadSample(const Sample& sample) {
  const Bytes raw = testutil::readFile(testutil::dataPath(sample.file));
  std::string text(raw.begin(), raw.end());
  const size_t begin = text.find('\n', text.find("-----BEGIN")), end = text.find("-----END");
  if (!sample.asText && begin < end && end != std::string::npos) text = text.substr(begin, end - begin);
  Bytes der = raw;
  if (text.size() != raw.size() || sample.file.ends_with(".ors")) {  // base64 (a wrong decode fails elementsOf)
    CvelString source, decoded;
    if (source.assign(text.data(), static_cast<uint32_t>(text.size())) == kCvelOk) decoded.base64Decode(source);
    der = testutil::toBytes(decoded);
  }
  const std::vector<Tlv> all = elementsOf(der);
  int current = 0;
  for (int step : sample.path) {  // down to the element at path
    std::vector<int> children;
    for (size_t k = 0; k < all.size(); ++k)
      if (all[k].parent == current) children.push_back(static_cast<int>(k));
    if (step >= static_cast<int>(children.size())) return {};
    current = children[step < 0 ? children.size() - 1 : static_cast<size_t>(step)];
  }
  if (sample.path.empty() || all.empty()) return sample.path.empty() ? der : Bytes();
  const Tlv& e = all[static_cast<size_t>(current)];
  return Bytes(der.begin() + static_cast<std::ptrdiff_t>(e.start), der.begin() + static_cast<std::ptrdiff_t>(e.end));
}

// ---- The decoders ----

struct In {
  const uint8_t* p;
  uint32_t n;
  Bytes bytes() const { return Bytes(p, p + n); }
  void view(CvelString& s) const { ASSERT_EQ(s.setView(p, n), kCvelOk); }
};

// A copy in a buffer of exactly its size, with DER headers (tags outermost first) put around it.
std::unique_ptr<uint8_t[]> exact(Bytes b, uint32_t& n, std::initializer_list<uint8_t> tags = {}) {
  for (auto tag = std::rbegin(tags); tag != std::rend(tags); ++tag) {
    Bytes h;
    for (size_t v = b.size(); v != 0 && b.size() >= 0x80; v >>= 8) h.insert(h.begin(), static_cast<uint8_t>(v));
    h.insert(h.begin(), {*tag, static_cast<uint8_t>(b.size() < 0x80 ? b.size() : 0x80 | h.size())});
    b.insert(b.begin(), h.begin(), h.end());
  }
  std::unique_ptr<uint8_t[]> copy(new uint8_t[b.size()]);
  std::copy(b.begin(), b.end(), copy.get());
  n = static_cast<uint32_t>(b.size());
  return copy;
}

// T::decode(in, cursor) on the first element (a signedData finds its own, and is encoded again).
template <typename T, bool kFirst = true>
void decodeFirst(In in, Codes& codes) {
  CvelString image, out;
  in.view(image);
  CvelA1InputString input(image, 0, image.length());
  CvelA1StreamCursor cursor;
  T object;
  const CvelResult next = kFirst ? cursor.next(input) : kCvelOk;
  codes.push_back(next == kCvelOk ? object.decode(input, cursor) : next);
  if constexpr (!kFirst) {
    if (codes.back() == kCvelOk) codes.push_back(object.encode(out, false));
  }
}

// The object's encoded() a view of the input, then read.
template <typename T, CvelResult (T::*kRead)()>
void readEncoded(In in, Codes& codes) {
  T object;
  in.view(object.encoded());
  codes.push_back((object.*kRead)());
}

// RevocationValues { [0] or [1] { the sample } } (a CRL or a BasicOCSPResponse).
template <uint8_t kListTag>
void revocationValues(In in, Codes& codes) {
  uint32_t n = 0;
  const auto der = exact(in.bytes(), n, {0x30, kListTag, 0x30});
  CvelString view;
  In{der.get(), n}.view(view);
  codes.push_back(CvelEtsRevocationValues().decode(view));
}

struct Decoder {
  const char* name;
  uint32_t kinds;
  uint32_t wholeKinds;  // the kinds whose whole samples it must read (its first code) with success
  void (*decode)(In in, Codes& codes);
};

const Decoder kDecoders[] = {
    {"CvelCertificate::parse", kCertificate, kCertificate, [](In in, Codes& codes) {
       CvelCertificate certificate;
       CvelString out;
       in.view(certificate.encoded());
       codes.insert(codes.end(), {certificate.parse(), certificate.getIssuerSerial(out), certificate.getIssuer(out)});
     }},
    {"ZARV_SetSignerCertificate", kCertificate, 0, [](In in, Codes& codes) {
       SignerInfoRecord* h = nullptr;
       ASSERT_EQ(ZARV_CreateSignerInfo(&h), ZARV_OK);
       codes.push_back(ZARV_SetSignerCertificate(h, in.bytes(), Bytes(32, 0x22), "2.16.840.1.101.3.4.2.1"));
       ZARV_ReleaseSignerInfo(h);
     }},
    {"CvelCRL::parse", kCrl, kCrl, [](In in, Codes& codes) { codes.push_back(CvelCRL().parse(in.p, in.n)); }},
    {"CvelEtsRevocationValues::decode (crlVals)", kCrl, 0, revocationValues<0xA0>},
    {"CvelEtsRevocationValues::decode (ocspVals)", kBasicOcspResponse, 0, revocationValues<0xA1>},
    {"CvelOCSPResponse::parse", kOcspResponse | kBasicOcspResponse, kOcspResponse | kBasicOcspResponse,
     [](In in, Codes& codes) { codes.push_back(CvelOCSPResponse().parse(in.p, in.n)); }},
    {"CvelA1P72::decode", kContentInfo | kToken, 0, decodeFirst<CvelA1P72, false>},
    {"CvelP71::decode", kContentInfo | kToken, 0, decodeFirst<CvelP71>},
    {"CvelTSTInfo::decode", kToken, kToken, readEncoded<CvelTSTInfo, &CvelTSTInfo::decode>},
    {"CvelTSTInfo::decodeFrom", kToken, 0, [](In in, Codes& codes) {
       uint32_t n = 0;
       const auto set = exact(in.bytes(), n, {0x31});
       CvelString parentString;
       In{set.get(), n}.view(parentString);
       CvelA1Context parent;
       parent.next(parentString);
       codes.push_back(CvelTSTInfo().decodeFrom(parent, parentString));
     }},
    {"CvelP7SignerInfos::decode", kSignerInfos, kSignerInfos, decodeFirst<CvelP7SignerInfos>},
    {"CvelP7SignerInfo::decode", kSignerInfo | kSignerInfos, kSignerInfo, decodeFirst<CvelP7SignerInfo>},
    // The one container call that decodes what it is given; the others keep their bytes unread.
    {"ZARV_SetVersion", kAnyKind, 0, [](In in, Codes& codes) {
       P72Container* h = nullptr;
       ASSERT_EQ(ZARV_CreateP72Container(&h), ZARV_OK);
       codes.insert(codes.end(), {ZARV_SetVersion(h, in.bytes()), ZARV_CloseP72Container(h)});
     }},
    {"CvelDataStream::detectType", kAnyKind, 0, [](In in, Codes& codes) {
       CvelString image;
       uint32_t type = 0;
       in.view(image);
       codes.push_back(CvelDataStream(&image).detectType(&type));
     }},
};

// ---- The damaged inputs ----

// Samples up to this size are cut at every length; larger ones (a 1.2 MB CRL) near the start, the end and
// the boundaries of some elements. At most kMaxMutated elements of a sample, evenly spread, are damaged inside.
constexpr size_t kEveryLengthUpTo = 8192;
constexpr size_t kEdge = 128;
constexpr size_t kMaxBoundaryElements = 48;
constexpr size_t kMaxMutated = 200;
constexpr size_t kMaxMutatedOfLarge = 64;

std::vector<size_t> spread(size_t total, size_t most) {
  std::vector<size_t> picks;
  for (size_t k = 0; k < total; k += total <= most ? 1 : (total + most - 1) / most) picks.push_back(k);
  return picks;
}

std::vector<size_t> mutated(const Bytes& b, const std::vector<Tlv>& all) {
  return spread(all.size(), b.size() <= kEveryLengthUpTo ? kMaxMutated : kMaxMutatedOfLarge);
}

bool indefinite(const Bytes& b, const Tlv& e) { return e.lengthSize == 1 && b[e.lengthAt] == 0x80; }

using Emit = std::function<void(const Bytes& damaged, const std::string& what)>;

void cutShort(const Bytes& b, const std::vector<Tlv>& all, const Emit& emit) {
  std::set<size_t> cuts;
  const size_t n = b.size();
  for (size_t k = 0; k < n; ++k)
    if (n <= kEveryLengthUpTo || k < kEdge || n - k <= kEdge) cuts.insert(k);
  for (size_t k : n <= kEveryLengthUpTo ? std::vector<size_t>() : spread(all.size(), kMaxBoundaryElements)) {
    for (size_t at : {all[k].start, all[k].contentAt, all[k].end}) {
      for (size_t near = at > 2 ? at - 2 : 0; near <= at + 2 && near < n; ++near) cuts.insert(near);
    }
  }
  for (size_t cut : cuts) emit(Bytes(b.begin(), b.begin() + static_cast<std::ptrdiff_t>(cut)),
                               "cut at " + std::to_string(cut));
}

void hostileLengths(const Bytes& b, const std::vector<Tlv>& all, const Emit& emit) {
  for (size_t k : mutated(b, all)) {
    const auto at = b.begin() + static_cast<std::ptrdiff_t>(all[k].lengthAt);
    for (const Bytes& length : {Bytes{0x80}, Bytes{0x84, 0xFF, 0xFF, 0xFF, 0xFF}, Bytes{0x85}}) {
      Bytes damaged(b.begin(), at);
      damaged.insert(damaged.end(), length.begin(), length.end());
      damaged.insert(damaged.end(), at + static_cast<std::ptrdiff_t>(all[k].lengthSize), b.end());
      emit(damaged, "length at " + std::to_string(all[k].lengthAt) + " set to " + testutil::toHex(length));
    }
  }
}

// The content of one element cut to keep octets, its length and those of the (definite) elements around it
// lowered to match, each written in as many octets as before: the decoders meet the short element deep inside.
void cutInside(const Bytes& b, const std::vector<Tlv>& all, const Emit& emit) {
  for (size_t k : mutated(b, all)) {
    const Tlv& e = all[k];
    const size_t length = e.end - e.contentAt;
    for (size_t keep : std::set<size_t>{0, 1, length / 2, length - 1}) {
      if (indefinite(b, e) || keep >= length) continue;
      Bytes out(b);
      for (const Tlv& t : all) {  // e itself and every definite element around it
        if (&t != &e && (t.start >= e.start || t.end < e.end || indefinite(b, t))) continue;
        const size_t value = t.end - t.contentAt - (length - keep);
        for (size_t i = 0; i < t.lengthSize - (t.lengthSize == 1 ? 0 : 1); ++i)
          out[t.lengthAt + t.lengthSize - 1 - i] = static_cast<uint8_t>(value >> (8 * i));
      }
      out.erase(out.begin() + static_cast<std::ptrdiff_t>(e.contentAt + keep),
                out.begin() + static_cast<std::ptrdiff_t>(e.end));
      emit(out, "element at " + std::to_string(e.start) + " cut to " + std::to_string(keep) + " octets");
    }
  }
}

struct Damage {
  const char* name;
  void (*apply)(const Bytes& b, const std::vector<Tlv>& all, const Emit& emit);
};

class TruncationSweep : public ::testing::TestWithParam<Damage> {};

// Whole samples read with success where a decoder reads them in full: the damaged copies reach deep.
TEST_P(TruncationSweep, EveryDecoderReturnsADocumentedCode) {
  const std::set<CvelResult> kDocumented = {0, kCvelOk, kCvelErrBadParameter, kCvelErrNoMemory, kCvelErrMalformed,
                                            kCvelErrIncomplete, kCvelErrNullData, kCvelErrEndOfData};
  size_t cases = 0;
  for (const Sample& sample : samples()) {
    SCOPED_TRACE(sample.file);
    const Bytes b = loadSample(sample);
    ASSERT_FALSE(b.empty());
    const std::vector<Tlv> all = sample.asText ? std::vector<Tlv>() : elementsOf(b);
    ASSERT_TRUE(sample.asText || !all.empty());
    GetParam().apply(b, all, [&](const Bytes& damaged, const std::string& what) {
      ++cases;
      uint32_t n = 0;
      const auto input = exact(damaged, n);
      for (const Decoder& d : kDecoders) {
        Codes codes;
        if ((d.kinds & sample.kinds) != 0) d.decode(In{input.get(), n}, codes);
        for (CvelResult r : codes) EXPECT_EQ(kDocumented.count(r), 1u) << what << ": " << d.name << " gave " << r;
      }
    });
    for (const Decoder& d : kDecoders) {
      Codes codes;
      uint32_t n = 0;
      const auto whole = exact(b, n);
      if ((d.wholeKinds & sample.kinds) == 0 || !sample.readWhole) continue;
      d.decode(In{whole.get(), n}, codes);
      ASSERT_FALSE(codes.empty());
      EXPECT_EQ(codes.front(), kCvelOk) << d.name;
    }
  }
  RecordProperty("cases", static_cast<int>(cases));
}

INSTANTIATE_TEST_SUITE_P(Damage, TruncationSweep,
                         ::testing::Values(Damage{"CutShort", cutShort}, Damage{"HostileLengths", hostileLengths},
                                           Damage{"CutInside", cutInside}),
                         [](const ::testing::TestParamInfo<Damage>& info) { return std::string(info.param.name); });

}  // namespace
