#include "inspect/attribute_view.h"

#include <vector>

#include "asn1/cvel_der.h"
#include "asn1/cvel_string.h"
#include "asn1/cvel_time.h"
#include "inspect/name_text.h"
#include "inspect/oid_names.h"
#include "services/der_view.h"

namespace {

using V = InspectValue;

constexpr char kOidContentType[] = "1.2.840.113549.1.9.3";
constexpr char kOidMessageDigest[] = "1.2.840.113549.1.9.4";
constexpr char kOidSigningTime[] = "1.2.840.113549.1.9.5";
constexpr char kOidSigningCertificate[] = "1.2.840.113549.1.9.16.2.12";
constexpr char kOidSigningCertificateV2[] = "1.2.840.113549.1.9.16.2.47";
constexpr char kOidSha1[] = "1.3.14.3.2.26";
constexpr char kOidSha256[] = "2.16.840.1.101.3.4.2.1";
constexpr uint8_t kTagDirectoryName = kTagContext4;

V oidObject(const CvelString& oid) {
  const std::string dotted = dottedText(oid);
  if (dotted.empty()) return V();
  V v = V::object();
  v.set("oid", V::text(dotted));
  const char* name = oidName(dotted);
  v.set("name", name == nullptr ? V() : V::text(name));
  return v;
}

V namedOid(const char* dotted) {
  V v = V::object();
  v.set("oid", V::text(dotted));
  v.set("name", V::text(oidName(dotted)));
  return v;
}

bool hasTag(const CvelString& der, uint8_t tag) { return !der.isEmpty() && der.data()[0] == tag; }

V contentTypeValue(const CvelString& value) { return hasTag(value, kTagOid) ? oidObject(value) : V(); }

V messageDigestValue(const CvelString& value) {
  CvelString digest;
  return contentOf(value, kTagOctetString, digest) ? V::text(digest.toHex()) : V();
}

V signingTimeValue(const CvelString& value) {
  CvelTime time;
  CvelString text;
  if (!hasTag(value, kTagUtcTime) && !hasTag(value, kTagGeneralizedTime)) return V();
  if (time.decode(value, nullptr) != kCvelOk || !time.isValid() || time.toText(text) != kCvelOk) return V();
  return V::text(std::string(text.c_str(), text.length()));
}

// IssuerSerial ::= SEQUENCE { issuer GeneralNames, serialNumber CertificateSerialNumber }; the issuer as the
// RFC 4514 string of its first directoryName.
bool issuerSerial(const CvelString& der, V& out) {
  std::vector<CvelString> parts;
  std::vector<CvelString> names;
  CvelString serial;
  if (!childrenOf(der, kTagSequence, parts) || parts.size() != 2 || !childrenOf(parts[0], kTagSequence, names) ||
      !contentOf(parts[1], kTagInteger, serial)) {
    return false;
  }
  std::string issuer;
  for (const CvelString& name : names) {
    std::vector<CvelString> inner;
    if (issuer.empty() && childrenOf(name, kTagDirectoryName, inner) && inner.size() == 1) {
      issuer = rfc4514Name(inner[0]);
    }
  }
  out.set("issuer", issuer.empty() ? V() : V::text(issuer));
  out.set("serialNumber", V::text(serial.toHex()));
  return true;
}

// ESSCertID ::= SEQUENCE { certHash OCTET STRING, issuerSerial IssuerSerial OPTIONAL } (SHA-1), and
// ESSCertIDv2 ::= SEQUENCE { hashAlgorithm AlgorithmIdentifier DEFAULT sha256, certHash OCTET STRING,
// issuerSerial IssuerSerial OPTIONAL }.
bool certIdValue(const CvelString& der, bool v2, V& out) {
  std::vector<CvelString> parts;
  if (!childrenOf(der, kTagSequence, parts) || parts.empty()) return false;
  size_t at = 0;
  out = V::object();
  if (v2 && hasTag(parts[0], kTagSequence)) {
    std::vector<CvelString> algorithm;
    if (!childrenOf(parts[0], kTagSequence, algorithm) || algorithm.empty() || !hasTag(algorithm[0], kTagOid)) {
      return false;
    }
    out.set("hashAlgorithm", oidObject(algorithm[0]));
    ++at;
  } else {
    out.set("hashAlgorithm", namedOid(v2 ? kOidSha256 : kOidSha1));
  }
  CvelString hash;
  if (at >= parts.size() || !contentOf(parts[at], kTagOctetString, hash)) return false;
  out.set("certHash", V::text(hash.toHex()));
  ++at;
  if (at == parts.size()) {
    out.set("issuer", V());
    out.set("serialNumber", V());
    return true;
  }
  return at + 1 == parts.size() && issuerSerial(parts[at], out);
}

// SigningCertificate(V2) ::= SEQUENCE { certs SEQUENCE OF ESSCertID(v2), policies SEQUENCE OF ... OPTIONAL }:
// the identifiers of certs; the policies are not shown.
V signingCertificateValue(const CvelString& value, bool v2) {
  std::vector<CvelString> parts;
  std::vector<CvelString> ids;
  if (!childrenOf(value, kTagSequence, parts) || parts.empty() || parts.size() > 2 ||
      !childrenOf(parts[0], kTagSequence, ids)) {
    return V();
  }
  V list = V::array();
  for (const CvelString& id : ids) {
    V entry;
    if (!certIdValue(id, v2, entry)) return V();
    list.push(std::move(entry));
  }
  return list;
}

}  // namespace

InspectValue decodedAttribute(const std::string& dotted, const CvelString& value) {
  if (dotted == kOidContentType) return contentTypeValue(value);
  if (dotted == kOidMessageDigest) return messageDigestValue(value);
  if (dotted == kOidSigningTime) return signingTimeValue(value);
  if (dotted == kOidSigningCertificate) return signingCertificateValue(value, false);
  if (dotted == kOidSigningCertificateV2) return signingCertificateValue(value, true);
  return V();
}
