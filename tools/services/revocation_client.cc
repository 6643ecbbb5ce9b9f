#include "services/revocation_client.h"

#include <algorithm>
#include <memory>
#include <new>

#include <openssl/evp.h>

#include "asn1/cvel_a1_context.h"
#include "asn1/cvel_a1_der_writer.h"
#include "asn1/cvel_der.h"
#include "host_crypto.h"
#include "inspect/name_text.h"
#include "io/input_file.h"
#include "services/der_view.h"
#include "services/http_client.h"
#include "x509/cvel_certificate.h"
#include "x509/cvel_crl.h"
#include "x509/cvel_ocsp_response.h"

namespace {

constexpr char kOcspRequestType[] = "application/ocsp-request";
// Whole OBJECT IDENTIFIER elements: authorityInfoAccess 1.3.6.1.5.5.7.1.1, id-ad-ocsp 1.3.6.1.5.5.7.48.1,
// cRLDistributionPoints 2.5.29.31, sha1 1.3.14.3.2.26.
constexpr unsigned char kDerOidAuthorityInfoAccess[] = {0x06, 0x08, 0x2B, 0x06, 0x01, 0x05, 0x05, 0x07, 0x01, 0x01};
constexpr unsigned char kDerOidAccessOcsp[] = {0x06, 0x08, 0x2B, 0x06, 0x01, 0x05, 0x05, 0x07, 0x30, 0x01};
constexpr unsigned char kDerOidCrlDistributionPoints[] = {0x06, 0x03, 0x55, 0x1D, 0x1F};
constexpr unsigned char kDerOidSha1[] = {0x06, 0x05, 0x2B, 0x0E, 0x03, 0x02, 0x1A};
// GeneralName uniformResourceIdentifier [6] IA5String.
constexpr int32_t kTagUri = 0x86;
constexpr size_t kMaxFileSize = 16u * 1024 * 1024;
constexpr char kSignerRole[] = "signer certificate";

CvelString viewOf(const unsigned char* bytes, size_t n) {
  CvelString s;
  if (s.setView(bytes, n) != kCvelOk) s.release();
  return s;
}

// The content of the index-th extension with this OID (the octets inside its OCTET STRING); false when the
// certificate has none.
bool extensionContent(const CvelCertificate& certificate, const CvelString& oid, CvelString& out) {
  CvelString value;
  return certificate.getExtension(oid, value, nullptr, 0) == kCvelOk && contentOf(value, kTagOctetString, out);
}

void keepHttpUri(const CvelString& generalName, std::vector<std::string>& urls) {
  CvelString uri;
  if (!contentOf(generalName, kTagUri, uri)) return;
  const std::string text(reinterpret_cast<const char*>(uri.data()), uri.length());
  if (isHttpUrl(text)) urls.push_back(text);
}

// The key octets of a SubjectPublicKeyInfo's BIT STRING (after its unused-bits octet).
bool publicKeyOctets(const CvelCertificate& certificate, Bytes& out) {
  std::vector<CvelString> parts;
  CvelString bits;
  if (!childrenOf(certificate.subjectPublicKeyInfo(), kTagSequence, parts) || parts.size() != 2 ||
      !contentOf(parts[1], kTagBitString, bits) || bits.isEmpty()) {
    return false;
  }
  out.assign(bits.data() + 1, bits.data() + bits.length());
  return true;
}

// CertID ::= SEQUENCE { hashAlgorithm AlgorithmIdentifier, issuerNameHash OCTET STRING,
//                       issuerKeyHash OCTET STRING, serialNumber CertificateSerialNumber }
bool certIdNames(const CvelString& certId, const RevocationSubject& subject) {
  std::vector<CvelString> parts;
  if (!childrenOf(certId, kTagSequence, parts) || parts.size() != 4 || !parts[3].equals(subject.serialNumber)) {
    return false;
  }
  const EVP_MD* md = digestOfAlgorithm(parts[0]);
  CvelString nameHash;
  CvelString keyHash;
  Bytes expected;
  if (!contentOf(parts[1], kTagOctetString, nameHash) || !contentOf(parts[2], kTagOctetString, keyHash) ||
      !digestWith(md, subject.issuer.data(), subject.issuer.length(), expected) ||
      !nameHash.equals(expected.data(), static_cast<uint32_t>(expected.size()))) {
    return false;
  }
  // Without the issuer certificate the key hash cannot be checked; name and serial have to do.
  if (subject.issuerKey.empty()) return true;
  return digestWith(md, subject.issuerKey.data(), subject.issuerKey.size(), expected) &&
         keyHash.equals(expected.data(), static_cast<uint32_t>(expected.size()));
}

// revokedCertificates ::= SEQUENCE OF SEQUENCE { userCertificate CertificateSerialNumber, revocationDate
// Time, crlEntryExtensions Extensions OPTIONAL }
bool listsSerial(const CvelString& revokedCertificates, const CvelString& serialNumber) {
  std::vector<CvelString> entries;
  if (revokedCertificates.isEmpty() || !childrenOf(revokedCertificates, kTagSequence, entries)) return false;
  for (const CvelString& entry : entries) {
    std::vector<CvelString> fields;
    if (childrenOf(entry, kTagSequence, fields) && !fields.empty() && fields[0].equals(serialNumber)) return true;
  }
  return false;
}

// The gathered data, as the attributes keep it.
struct Evidence {
  std::vector<Bytes> basicResponses;
  std::vector<Bytes> crls;
};

// Accepts one source's verdict: kept when good (or revoked and allowed), an error message otherwise.
bool accept(RevocationVerdict verdict, const std::string& source, const std::string& role,
            const RevocationOptions& options, std::string& error) {
  if (verdict == RevocationVerdict::kNotCovered) {
    error = source + " does not cover the " + role;
    return false;
  }
  if (verdict == RevocationVerdict::kRevoked && !options.allowRevoked) {
    error = source + " says the " + role + " is revoked (--allow-revoked signs all the same)";
    return false;
  }
  return true;
}

bool readFiles(const RevocationOptions& options, const RevocationSubject& subject, Evidence& evidence,
               std::string& error) {
  for (const std::string& path : options.ocspResponseFiles) {
    Bytes response;
    Bytes basic;
    if (!readWholeFile(path, response) || response.size() > kMaxFileSize) {
      error = "cannot read " + path;
      return false;
    }
    if (!accept(ocspVerdict(response, subject, basic), "the OCSP response " + path, kSignerRole, options, error)) {
      return false;
    }
    evidence.basicResponses.push_back(basic);
  }
  for (const std::string& path : options.crlFiles) {
    std::vector<Bytes> crls;
    if (!readCrls(path, crls, error)) return false;
    for (const Bytes& crl : crls) {
      if (!accept(crlVerdict(crl, subject), "the CRL " + path, kSignerRole, options, error)) return false;
      evidence.crls.push_back(crl);
    }
  }
  return true;
}

// Asks the certificate's OCSP responders, then its CRL distribution points, until one source covers it.
// A source that says revoked ends the search: another source cannot make that good.
bool fetchEvidence(const RevocationOptions& options, const Bytes& signerCertificate,
                   const RevocationSubject& subject, const std::string& role, Evidence& evidence,
                   std::string& error) {
  std::vector<std::string> ocspUrls;
  std::vector<std::string> crlUrls;
  serviceUrls(signerCertificate, ocspUrls, crlUrls);
  if (ocspUrls.empty() && crlUrls.empty()) {
    error = "the " + role + " names no OCSP responder and no CRL distribution point";
    return false;
  }
  std::string reasons;
  auto failed = [&](const std::string& why) { reasons += (reasons.empty() ? "" : "; ") + why; };
  for (const std::string& url : ocspUrls) {
    HttpExchange exchange;
    exchange.url = url;
    exchange.timeoutSeconds = options.timeoutSeconds;
    exchange.contentType = kOcspRequestType;
    Bytes response;
    Bytes basic;
    std::string why;
    if (!ocspRequest(subject, exchange.body)) {
      failed("no OCSP request without the issuer certificate (give it with --chain)");
      break;
    }
    if (!httpExchange(exchange, response, why)) {
      failed("OCSP responder: " + why);
      continue;
    }
    const RevocationVerdict verdict = ocspVerdict(response, subject, basic);
    if (verdict == RevocationVerdict::kNotCovered) {
      failed("the OCSP response from " + url + " does not cover the " + role);
      continue;
    }
    if (!accept(verdict, "the OCSP response from " + url, role, options, error)) return false;
    evidence.basicResponses.push_back(basic);
    return true;
  }
  for (const std::string& url : crlUrls) {
    HttpExchange exchange;
    exchange.url = url;
    exchange.timeoutSeconds = options.timeoutSeconds;
    Bytes crl;
    std::string why;
    if (!httpExchange(exchange, crl, why)) {
      failed("CRL distribution point: " + why);
      continue;
    }
    const RevocationVerdict verdict = crlVerdict(crl, subject);
    if (verdict == RevocationVerdict::kNotCovered) {
      failed("the CRL from " + url + " does not cover the " + role);
      continue;
    }
    if (!accept(verdict, "the CRL from " + url, role, options, error)) return false;
    evidence.crls.push_back(crl);
    return true;
  }
  error = "no revocation data for the " + role + ": " + reasons;
  return false;
}

// The data of each further certificate, asked of the services it names. One that names none is an error,
// unless options.allowMissing: its subject is then noted in missing.
bool furtherEvidence(const RevocationOptions& options, const std::vector<Bytes>& further,
                     const std::vector<Bytes>& certificates, Evidence& evidence, std::vector<std::string>& missing,
                     std::string& error) {
  for (const Bytes& certificate : further) {
    CvelCertificate c;
    RevocationSubject subject;
    std::vector<std::string> ocsp;
    std::vector<std::string> crl;
    if (c.parse(certificate.data(), static_cast<uint32_t>(certificate.size())) != kCvelOk ||
        !revocationSubject(certificate, certificates, subject, error)) {
      error = "cannot read a certificate of the time-stamp tokens";
      return false;
    }
    const std::string role = "certificate " + rfc4514Name(c.subject());
    serviceUrls(certificate, ocsp, crl);
    if (ocsp.empty() && crl.empty() && options.allowMissing) {
      missing.push_back(rfc4514Name(c.subject()));
      continue;
    }
    if (!fetchEvidence(options, certificate, subject, role, evidence, error)) {
      if (ocsp.empty() && crl.empty()) error += " (--allow-missing-revocation goes on without)";
      return false;
    }
  }
  return true;
}

// The value of id-aa-ets-revocationValues, written by the library's revocation-values encoder.
bool revocationValuesValue(const Evidence& evidence, Bytes& out) {
  CvelEtsRevocationValues values;
  for (const Bytes& crl : evidence.crls) {
    const CvelString der = viewOf(crl.data(), crl.size());
    CvelA1Context c;
    std::unique_ptr<CvelEtsRevocationValues::CvelEtsTriple> triple(new (std::nothrow)
                                                                         CvelEtsRevocationValues::CvelEtsTriple());
    if (triple == nullptr || c.next(der) != kTagSequence || triple->assign(der, c) != kCvelOk) return false;
    if (values.crlValues().add(triple.release()) != kCvelOk) return false;
  }
  for (const Bytes& basic : evidence.basicResponses) {
    std::unique_ptr<CvelOCSPResponse> response(new (std::nothrow) CvelOCSPResponse());
    if (response == nullptr || response->parse(basic.data(), static_cast<uint32_t>(basic.size())) != kCvelOk) {
      return false;
    }
    if (values.ocspValues().add(response.release()) != kCvelOk) return false;
  }
  // The attribute form is SEQUENCE { type, SET { value } }: the host hands the library the value alone.
  CvelString attribute;
  std::vector<CvelString> parts;
  std::vector<CvelString> set;
  if (values.encode(attribute, CvelEtsRevocationValues::kModeAttribute) != kCvelOk ||
      !childrenOf(attribute, kTagSequence, parts) || parts.size() != 2 || !childrenOf(parts[1], kTagSet, set) ||
      set.size() != 1) {
    return false;
  }
  out = bytesOf(set[0]);
  return true;
}

// CertificateValues ::= SEQUENCE OF Certificate
bool certificateValuesValue(const std::vector<Bytes>& certificates, Bytes& out) {
  return cvelEncodeDer(out, [&certificates](CvelDerWriter& w) {
           w.element(kTagSequence, [&] {
             for (const Bytes& c : certificates) w.bytes(c.data(), c.size());
           });
         }) == kCvelOk;
}

}  // namespace

bool revocationSubject(const Bytes& signerCertificate, const std::vector<Bytes>& certificates,
                       RevocationSubject& out, std::string& error) {
  CvelCertificate signer;
  if (signer.parse(signerCertificate.data(), static_cast<uint32_t>(signerCertificate.size())) != kCvelOk ||
      out.issuer.assign(signer.issuer()) != kCvelOk || out.serialNumber.assign(signer.serialNumber()) != kCvelOk) {
    error = "cannot read the signer certificate";
    return false;
  }
  out.issuerKey.clear();
  for (const Bytes& der : certificates) {
    CvelCertificate candidate;
    if (candidate.parse(der.data(), static_cast<uint32_t>(der.size())) == kCvelOk &&
        candidate.subject().equals(signer.issuer()) && publicKeyOctets(candidate, out.issuerKey)) {
      break;
    }
  }
  return true;
}

RevocationVerdict ocspVerdict(const Bytes& response, const RevocationSubject& subject, Bytes& basicResponse) {
  CvelOCSPResponse r;
  if (r.parse(response.data(), static_cast<uint32_t>(response.size())) != kCvelOk ||
      r.status() != CvelOCSPResponse::kSuccessful || r.basicResponse().isEmpty() ||
      !certIdNames(r.certId(), subject)) {
    return RevocationVerdict::kNotCovered;
  }
  basicResponse = bytesOf(r.basicResponse());
  switch (r.certStatusTag()) {
    case CvelOCSPResponse::kStatusGood:
    case CvelOCSPResponse::kStatusGoodConstructed: return RevocationVerdict::kGood;
    case CvelOCSPResponse::kStatusRevoked:
    case CvelOCSPResponse::kStatusRevokedConstructed: return RevocationVerdict::kRevoked;
    default: return RevocationVerdict::kNotCovered;  // "unknown": the responder does not know the certificate
  }
}

RevocationVerdict crlVerdict(const Bytes& crl, const RevocationSubject& subject) {
  CvelCRL list;
  if (list.parse(crl.data(), static_cast<uint32_t>(crl.size())) != kCvelOk || !list.issuer().equals(subject.issuer)) {
    return RevocationVerdict::kNotCovered;
  }
  return listsSerial(list.revokedCertificates(), subject.serialNumber) ? RevocationVerdict::kRevoked
                                                                        : RevocationVerdict::kGood;
}

bool ocspRequest(const RevocationSubject& subject, Bytes& out) {
  Bytes nameHash;
  Bytes keyHash;
  if (subject.issuerKey.empty() ||
      !digestWith(EVP_sha1(), subject.issuer.data(), subject.issuer.length(), nameHash) ||
      !digestWith(EVP_sha1(), subject.issuerKey.data(), subject.issuerKey.size(), keyHash)) {
    return false;
  }
  // OCSPRequest ::= SEQUENCE { tbsRequest TBSRequest }; TBSRequest ::= SEQUENCE { requestList SEQUENCE OF
  // Request }; Request ::= SEQUENCE { reqCert CertID }
  auto certId = [&](CvelDerWriter& w) {
    w.element(kTagSequence, [&] {
      w.element(kTagSequence, [&] {
        w.bytes(kDerOidSha1, sizeof kDerOidSha1);
        w.bytes(kDerNull, sizeof kDerNull);
      });
      w.element(kTagOctetString, nameHash.data(), nameHash.size());
      w.element(kTagOctetString, keyHash.data(), keyHash.size());
      w.bytes(subject.serialNumber);
    });
  };
  return cvelEncodeDer(out, [&](CvelDerWriter& w) {
           w.element(kTagSequence, [&] {
             w.element(kTagSequence, [&] {
               w.element(kTagSequence, [&] { w.element(kTagSequence, [&] { certId(w); }); });
             });
           });
         }) == kCvelOk;
}

void serviceUrls(const Bytes& certificate, std::vector<std::string>& ocsp, std::vector<std::string>& crl) {
  ocsp.clear();
  crl.clear();
  CvelCertificate c;
  if (c.parse(certificate.data(), static_cast<uint32_t>(certificate.size())) != kCvelOk) return;
  // AuthorityInfoAccessSyntax ::= SEQUENCE OF AccessDescription;
  // AccessDescription ::= SEQUENCE { accessMethod OBJECT IDENTIFIER, accessLocation GeneralName }
  CvelString access;
  std::vector<CvelString> descriptions;
  if (extensionContent(c, viewOf(kDerOidAuthorityInfoAccess, sizeof kDerOidAuthorityInfoAccess), access) &&
      childrenOf(access, kTagSequence, descriptions)) {
    const CvelString method = viewOf(kDerOidAccessOcsp, sizeof kDerOidAccessOcsp);
    for (const CvelString& d : descriptions) {
      std::vector<CvelString> parts;
      if (childrenOf(d, kTagSequence, parts) && parts.size() == 2 && parts[0].equals(method)) {
        keepHttpUri(parts[1], ocsp);
      }
    }
  }
  // CRLDistributionPoints ::= SEQUENCE OF DistributionPoint; DistributionPoint ::= SEQUENCE {
  //   distributionPoint [0] DistributionPointName OPTIONAL, ... }; DistributionPointName ::= CHOICE {
  //   fullName [0] GeneralNames, ... }
  CvelString points;
  std::vector<CvelString> list;
  if (!extensionContent(c, viewOf(kDerOidCrlDistributionPoints, sizeof kDerOidCrlDistributionPoints), points) ||
      !childrenOf(points, kTagSequence, list)) {
    return;
  }
  for (const CvelString& point : list) {
    std::vector<CvelString> fields;
    std::vector<CvelString> name;
    std::vector<CvelString> names;
    if (childrenOf(point, kTagSequence, fields) && !fields.empty() && childrenOf(fields[0], kTagContext0, name) &&
        name.size() == 1 && childrenOf(name[0], kTagContext0, names)) {
      for (const CvelString& n : names) keepHttpUri(n, crl);
    }
  }
}

bool longTermAttributes(const RevocationOptions& options, const Bytes& signerCertificate,
                        const std::vector<Bytes>& certificates, std::vector<ServiceAttribute>& out,
                        std::string& error) {
  std::vector<std::string> missing;
  return longTermAttributes(options, signerCertificate, {}, certificates, out, missing, error);
}

bool longTermAttributes(const RevocationOptions& options, const Bytes& signerCertificate,
                        const std::vector<Bytes>& further, const std::vector<Bytes>& certificates,
                        std::vector<ServiceAttribute>& out, std::vector<std::string>& missing, std::string& error) {
  RevocationSubject subject;
  Evidence evidence;
  if (!revocationSubject(signerCertificate, certificates, subject, error) ||
      !readFiles(options, subject, evidence, error)) {
    return false;
  }
  if (options.fetch && !fetchEvidence(options, signerCertificate, subject, kSignerRole, evidence, error)) {
    return false;
  }
  if (!furtherEvidence(options, further, certificates, evidence, missing, error)) return false;
  std::vector<Bytes> chain{signerCertificate};
  for (const Bytes& c : certificates) {
    if (std::find(chain.begin(), chain.end(), c) == chain.end()) chain.push_back(c);
  }
  ServiceAttribute values{kOidCertificateValuesAttribute, {}};
  ServiceAttribute revocation{kOidRevocationValuesAttribute, {}};
  if (!certificateValuesValue(chain, values.value) || !revocationValuesValue(evidence, revocation.value)) {
    error = "cannot encode the long-term validation attributes";
    return false;
  }
  out.push_back(std::move(values));
  out.push_back(std::move(revocation));
  return true;
}
