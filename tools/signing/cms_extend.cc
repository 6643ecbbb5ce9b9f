#include "signing/cms_extend.h"

#include <algorithm>
#include <memory>

#include "asn1/cvel_a1_header.h"
#include "asn1/cvel_a1_input.h"
#include "asn1/cvel_a1_der_writer.h"
#include "asn1/cvel_a1_stream_cursor.h"
#include "asn1/cvel_der.h"
#include "cms/cvel_p7_signer_info.h"
#include "inspect/name_text.h"
#include "services/der_view.h"
#include "signing/archive_timestamp.h"
#include "signing/content_stream.h"
#include "x509/cvel_certificate.h"

namespace {

constexpr uint8_t kConstructedBit = 0x20;

// One element of a BER image: where it starts, where its content lies and where it ends (after the
// end-of-contents octets of an indefinite length).
struct Element {
  uint32_t tag = 0;
  size_t start = 0;
  size_t contentStart = 0;
  size_t contentEnd = 0;
  size_t end = 0;
};

bool readHeader(const Bytes& b, size_t at, size_t limit, CvelA1Header& h) {
  const CvelA1HeaderRules rules{true, true};
  return at < limit && limit <= b.size() &&
         cvelA1DecodeHeader(b.data() + at, static_cast<uint32_t>(limit - at), rules, h) == CvelA1HeaderStatus::kOk;
}

// The end of the content of an indefinite-length element whose content starts at `at`: the elements are
// skipped header by header, counting the indefinite ones entered, so that no nesting costs stack.
bool indefiniteEnd(const Bytes& b, size_t at, size_t limit, size_t& contentEnd, size_t& end) {
  size_t depth = 1;
  while (depth > 0) {
    CvelA1Header h;
    if (!readHeader(b, at, limit, h)) return false;
    if (h.tag == kTagEndOfContents) {
      at += h.headerLength;
      if (--depth == 0) {
        contentEnd = at - h.headerLength;
        end = at;
      }
    } else if (h.indefinite) {
      ++depth;
      at += h.headerLength;
    } else {
      if (h.length > limit - at - h.headerLength) return false;
      at += h.headerLength + static_cast<size_t>(h.length);
    }
  }
  return true;
}

// The element at `at`, which must end by limit.
bool readElement(const Bytes& b, size_t at, size_t limit, Element& e) {
  CvelA1Header h;
  if (!readHeader(b, at, limit, h) || h.tag == kTagEndOfContents) return false;
  e.tag = h.tag;
  e.start = at;
  e.contentStart = at + h.headerLength;
  if (h.indefinite) return indefiniteEnd(b, e.contentStart, limit, e.contentEnd, e.end);
  if (h.length > limit - e.contentStart) return false;
  e.contentEnd = e.end = e.contentStart + static_cast<size_t>(h.length);
  return true;
}

bool berChildren(const Bytes& b, const Element& parent, std::vector<Element>& out) {
  out.clear();
  for (size_t at = parent.contentStart; at < parent.contentEnd;) {
    out.emplace_back();
    if (!readElement(b, at, parent.contentEnd, out.back())) return false;
    at = out.back().end;
  }
  return true;
}

Bytes bytesIn(const Bytes& b, const Element& e) {
  return Bytes(b.begin() + static_cast<std::ptrdiff_t>(e.start), b.begin() + static_cast<std::ptrdiff_t>(e.end));
}

// The octets of eContent [0] EXPLICIT OCTET STRING: every primitive OCTET STRING inside it, in order, so that
// the pieces of a constructed string (of any nesting) are joined without recursion.
bool contentOctets(const Bytes& b, const Element& explicitContent, Bytes& out) {
  out.clear();
  for (size_t at = explicitContent.contentStart; at < explicitContent.contentEnd;) {
    CvelA1Header h;
    if (!readHeader(b, at, explicitContent.contentEnd, h)) return false;
    const size_t content = at + h.headerLength;
    if (h.tag == kTagEndOfContents || (h.tag & kConstructedBit) != 0) {
      at = content;  // the end-of-contents octets, or the header of a string of pieces
      continue;
    }
    if (h.tag != kTagOctetString || h.length > explicitContent.contentEnd - content) return false;
    out.insert(out.end(), b.begin() + static_cast<std::ptrdiff_t>(content),
               b.begin() + static_cast<std::ptrdiff_t>(content + h.length));
    at = content + static_cast<size_t>(h.length);
  }
  return true;
}

// EncapsulatedContentInfo ::= SEQUENCE { eContentType ContentType, eContent [0] EXPLICIT OCTET STRING OPTIONAL }
bool readEncapsulated(const Bytes& b, const Element& info, SignedDataImage& out) {
  std::vector<Element> parts;
  if (info.tag != kTagSequence || !berChildren(b, info, parts) || parts.empty() || parts.size() > 2 ||
      parts[0].tag != kTagOid) {
    return false;
  }
  out.eContentType = bytesIn(b, parts[0]);
  out.attached = parts.size() == 2;
  return !out.attached || (parts[1].tag == kTagContext0 && contentOctets(b, parts[1], out.content));
}

bool elementsOf(const Bytes& b, const Element& set, std::vector<Bytes>& out) {
  std::vector<Element> items;
  if (!berChildren(b, set, items)) return false;
  for (const Element& e : items) out.push_back(bytesIn(b, e));
  return true;
}

// SignedData ::= SEQUENCE { version, digestAlgorithms SET, encapContentInfo, certificates [0] IMPLICIT
//   OPTIONAL, crls [1] IMPLICIT OPTIONAL, signerInfos SET OF SignerInfo }
bool readSignedDataFields(const Bytes& b, const Element& signedData, SignedDataImage& out, std::string& error) {
  std::vector<Element> fields;
  if (signedData.tag != kTagSequence || !berChildren(b, signedData, fields) || fields.size() < 4 ||
      fields.size() > 6 || fields[0].tag != kTagInteger || fields[1].tag != kTagSet || fields.back().tag != kTagSet) {
    error = "not a SignedData";
    return false;
  }
  if (!readEncapsulated(b, fields[2], out)) {
    error = "the encapsulated content info does not decode";
    return false;
  }
  // certificates [0] and crls [1], each optional, in that order, between the content and the signer infos.
  size_t next = 3;
  if (next + 1 < fields.size() && fields[next].tag == kTagContext0 &&
      elementsOf(b, fields[next], out.certificates)) {
    ++next;
  }
  if (next + 1 < fields.size() && fields[next].tag == kTagContext1 && elementsOf(b, fields[next], out.crls)) {
    ++next;
  }
  if (next + 1 != fields.size()) {
    error = "a field between the encapsulated content and the signer infos is neither certificates nor crls";
    return false;
  }
  for (size_t i = 0; i < next; ++i) out.fields.push_back(bytesIn(b, fields[i]));
  if (!elementsOf(b, fields.back(), out.signerInfos) || out.signerInfos.empty()) {
    error = "the SignedData has no signer infos that decode";
    return false;
  }
  return true;
}

// ---- one SignerInfo ----

// A SignerInfo decoded by the library; true only when it encodes back to the bytes it was read from, so that
// nothing the signature covers, and nothing else, can change but the unsigned attributes added.
bool decodeSignerInfo(const Bytes& der, CvelP7SignerInfo& si) {
  const CvelString whole = copyOf(der);
  CvelA1InputString in(whole, 0, whole.length());
  CvelA1StreamCursor cursor;
  CvelString again;
  return cursor.next(in) == kCvelOk && si.decode(in, cursor) == kCvelOk && si.encode(again) == kCvelOk &&
         again.equals(whole);
}

// sid ::= IssuerAndSerialNumber: the certificate of the SignedData it names.
bool signerCertificate(const CvelP7SignerInfo& si, const std::vector<Bytes>& certificates, Bytes& out,
                       std::string& name) {
  std::vector<CvelString> sid;
  if (!childrenOf(si.signerIdentifier(), kTagSequence, sid) || sid.size() != 2) return false;
  for (const Bytes& der : certificates) {
    CvelCertificate c;
    if (c.parse(der.data(), static_cast<uint32_t>(der.size())) == kCvelOk && c.issuer().equals(sid[0]) &&
        c.serialNumber().equals(sid[1])) {
      out = der;
      name = rfc4514Name(c.subject());
      return true;
    }
  }
  return false;
}

bool hasAttribute(const CvelP7SignerInfo& si, const char* oid) {
  std::vector<CvelString> values;
  return attributeValues(si.unsignedAttributes(), oid, values) && !values.empty();
}

// A service's message names its URL; one that does not say it gets it added.
std::string withUrl(const std::string& why, const std::string& url) {
  return why.find(url) != std::string::npos ? why : why + " (" + url + ")";
}

// What one signer's extension works with.
struct SignerWork {
  const ExtendRequest& request;
  const SignedDataImage& image;
  CvelP7SignerInfo& si;
  Bytes certificate;  // the signer certificate
  std::string name;   // its subject, for messages
  std::vector<std::string>& missing;
};

bool addAttribute(SignerWork& w, const ServiceAttribute& a, std::string& error) {
  if (appendAttribute(w.si.unsignedAttributes(), a.oid.c_str(), a.value)) return true;
  error = "cannot encode the attribute " + a.oid;
  return false;
}

bool addSignatureTimeStamp(SignerWork& w, std::string& error) {
  const TsaOptions& tsa = w.request.services.tsa;
  ServiceAttribute token;
  const Bytes signature = bytesOf(w.si.signatureValue());
  if (!timeStampAttribute(tsa, signature, token, error)) {
    error = withUrl(error, tsa.url);
    return false;
  }
  return addAttribute(w, token, error);
}

// The certificates of every time-stamp token the signer carries, for the certificate values.
void tokenCertificates(const CvelP7SignerInfo& si, std::vector<Bytes>& out) {
  std::vector<CvelString> tokens;
  if (!attributeValues(si.unsignedAttributes(), kOidTimeStampTokenAttribute, tokens)) return;
  for (const CvelString& token : tokens) {
    SignedDataImage image;
    std::string ignored;
    if (readSignedData(bytesOf(token), image, ignored)) out.insert(out.end(), image.certificates.begin(),
                                                                   image.certificates.end());
  }
}

// A certificate whose issuer is its subject: a root, which no revocation data speaks of.
bool selfIssued(const Bytes& der) {
  CvelCertificate c;
  return c.parse(der.data(), static_cast<uint32_t>(der.size())) != kCvelOk || c.subject().equals(c.issuer());
}

// The CAs above signer among certificates, nearest first, up to the root (left out); bounded by the list's
// size, so a loop of issuers ends.
void signerIssuers(const Bytes& signer, const std::vector<Bytes>& certificates, std::vector<Bytes>& out) {
  CvelCertificate current;
  if (current.parse(signer.data(), static_cast<uint32_t>(signer.size())) != kCvelOk) return;
  for (size_t step = 0; step < certificates.size() && !current.subject().equals(current.issuer()); ++step) {
    const Bytes* issuer = nullptr;
    for (const Bytes& c : certificates) {
      CvelCertificate candidate;
      if (candidate.parse(c.data(), static_cast<uint32_t>(c.size())) == kCvelOk &&
          candidate.subject().equals(current.issuer())) {
        issuer = &c;
        break;
      }
    }
    if (issuer == nullptr || selfIssued(*issuer) ||
        std::find(out.begin(), out.end(), *issuer) != out.end() ||
        current.parse(issuer->data(), static_cast<uint32_t>(issuer->size())) != kCvelOk) {
      return;
    }
    out.push_back(*issuer);
  }
}

bool addLongTermValues(SignerWork& w, std::string& error) {
  std::vector<Bytes> certificates;
  for (const Bytes& c : w.image.certificates) {
    if (!c.empty() && c[0] == kTagSequence) certificates.push_back(c);  // X.509 certificates, not other choices
  }
  std::vector<Bytes> tokens;
  tokenCertificates(w.si, tokens);
  // The signer's own chain above it (its CAs but the root), then the time-stamping authority's chain: each
  // certificate but the roots.
  std::vector<Bytes> further;
  signerIssuers(w.certificate, certificates, further);
  for (const Bytes& c : tokens) {
    if (std::find(certificates.begin(), certificates.end(), c) != certificates.end()) continue;
    certificates.push_back(c);
    if (c != w.certificate && !selfIssued(c)) further.push_back(c);
  }
  RevocationOptions revocation = w.request.services.revocation;
  // Without a source named, the responders the certificate names are asked.
  if (!revocation.requested()) revocation.fetch = true;
  std::vector<ServiceAttribute> made;
  if (!longTermAttributes(revocation, w.certificate, further, certificates, made, w.missing, error)) return false;
  for (const ServiceAttribute& a : made) {
    if (!addAttribute(w, a, error)) return false;
  }
  return true;
}

bool contentHash(const ExtendRequest& request, const SignedDataImage& image, const DigestChoice& digest,
                 Bytes& out, std::string& error) {
  if (image.attached) {
    if (digestBytes(digest, image.content, out)) return true;
    error = "cannot hash: " + opensslError();
    return false;
  }
  if (request.contentPath.empty()) {
    error = "a detached signature: name the signed file with --content";
    return false;
  }
  ContentFile file;
  return file.open(request.contentPath, error) && file.digest(digest, out, error);
}

// The token with the hash index as an unsigned attribute of its one signer.
bool indexedToken(const Bytes& token, const Bytes& index, Bytes& out) {
  SignedDataImage image;
  std::string ignored;
  CvelP7SignerInfo si;
  CvelString encoded;
  if (!readSignedData(token, image, ignored) || image.signerInfos.size() != 1 ||
      !decodeSignerInfo(image.signerInfos[0], si) || !appendAttribute(si.unsignedAttributes(), kOidAtsHashIndexV3,
                                                                      index) ||
      si.encode(encoded) != kCvelOk) {
    return false;
  }
  image.signerInfos[0] = bytesOf(encoded);
  return writeSignedData(image, out);
}

bool addArchiveTimeStamp(SignerWork& w, std::string& error) {
  const TsaOptions& tsa = w.request.services.tsa;
  const DigestChoice* digest = findDigest(tsa.digest);
  Bytes hash;
  Bytes index;
  Bytes input;
  if (digest == nullptr || !contentHash(w.request, w.image, *digest, hash, error)) {
    if (error.empty()) error = "unknown time-stamp digest '" + tsa.digest + "'";
    return false;
  }
  CvelString contentType = copyOf(w.image.eContentType);
  if (!atsHashIndex(digest->md(), w.image.certificates, w.image.crls, w.si.unsignedAttributes(), index) ||
      !archiveImprintInput(contentType, hash, w.si, index, input)) {
    error = "cannot compute the archive time-stamp's imprint";
    return false;
  }
  // The authority hashes the input with the time-stamp digest: its imprint is the archive imprint.
  ServiceAttribute token;
  if (!timeStampAttribute(tsa, input, token, error)) {
    error = withUrl(error, tsa.url);
    return false;
  }
  ServiceAttribute archive{kOidArchiveTimeStampV3, {}};
  if (!indexedToken(token.value, index, archive.value)) {
    error = "the time-stamp authority's token cannot carry the hash index";
    return false;
  }
  return addAttribute(w, archive, error);
}

bool extendSigner(SignerWork& w, std::string& error) {
  const ExtendRequest& r = w.request;
  const bool needsStamp = !hasAttribute(w.si, kOidTimeStampTokenAttribute);
  const bool needsValues = r.level != ExtendLevel::kT && !hasAttribute(w.si, kOidCertificateValuesAttribute);
  if ((needsStamp || r.level == ExtendLevel::kLTA) && r.services.tsa.url.empty()) {
    error = "needs a time-stamp: give --tsa URL";
    return false;
  }
  return (!needsStamp || addSignatureTimeStamp(w, error)) && (!needsValues || addLongTermValues(w, error)) &&
         (r.level != ExtendLevel::kLTA || addArchiveTimeStamp(w, error));
}

}  // namespace

bool readSignedData(const Bytes& der, SignedDataImage& out, std::string& error) {
  out = SignedDataImage();
  Element info;
  std::vector<Element> parts;
  std::vector<Element> inner;
  if (!readElement(der, 0, der.size(), info) || info.end != der.size() || info.tag != kTagSequence ||
      !berChildren(der, info, parts) || parts.size() != 2 || parts[1].tag != kTagContext0 ||
      !berChildren(der, parts[1], inner) || inner.size() != 1) {
    error = "not a ContentInfo (DER or BER, one element and nothing after it)";
    return false;
  }
  out.contentType = bytesIn(der, parts[0]);
  if (out.contentType != Bytes(kDerOidSignedData, kDerOidSignedData + sizeof kDerOidSignedData)) {
    error = "the ContentInfo does not hold a SignedData";
    return false;
  }
  return readSignedDataFields(der, inner[0], out, error);
}

bool writeSignedData(const SignedDataImage& image, Bytes& out) {
  return cvelEncodeDer(out, [&image](CvelDerWriter& w) {
    w.element(kTagSequence, [&] {
      w.bytes(image.contentType.data(), image.contentType.size());
      w.element(kTagContext0, [&] {
        w.element(kTagSequence, [&] {
          for (const Bytes& f : image.fields) w.bytes(f.data(), f.size());
          w.element(kTagSet, [&] {
            for (const Bytes& s : image.signerInfos) w.bytes(s.data(), s.size());
          });
        });
      });
    });
  }) == kCvelOk;
}

bool extendSignedData(const ExtendRequest& request, SignedDataImage& image, std::vector<std::string>& missing,
                      std::string& error) {
  for (size_t i = 0; i < image.signerInfos.size(); ++i) {
    const std::string signer = "signer " + std::to_string(i + 1);
    std::unique_ptr<CvelP7SignerInfo> si(new CvelP7SignerInfo());
    if (!decodeSignerInfo(image.signerInfos[i], *si)) {
      error = signer + ": the SignerInfo does not decode to the bytes it was read from (not DER, or a subject key "
                       "identifier as sid)";
      return false;
    }
    SignerWork work{request, image, *si, {}, {}, missing};
    if (!signerCertificate(*si, image.certificates, work.certificate, work.name)) {
      error = signer + ": the SignedData does not carry the certificate its sid names";
      return false;
    }
    CvelString encoded;
    if (!extendSigner(work, error)) {
      error = signer + " (" + work.name + "): " + error;
      return false;
    }
    if (si->encode(encoded) != kCvelOk) {
      error = signer + ": the extended SignerInfo cannot be encoded";
      return false;
    }
    image.signerInfos[i] = bytesOf(encoded);
  }
  return true;
}
