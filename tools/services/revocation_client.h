// Long-term validation data for a signer certificate: OCSP responses and CRLs read from files or fetched
// over HTTP (the OCSP responder of the certificate's Authority Information Access first, its CRL
// distribution point second), each checked to speak of the signer certificate, and the certificate-values
// and revocation-values attributes made from them and from the chain.
#ifndef KOLVARI_TOOLS_SERVICES_REVOCATION_CLIENT_H
#define KOLVARI_TOOLS_SERVICES_REVOCATION_CLIENT_H

#include <string>
#include <vector>

#include "asn1/cvel_string.h"
#include "services/service_attribute.h"

using Bytes = std::vector<unsigned char>;

struct RevocationOptions {
  std::vector<std::string> ocspResponseFiles;
  std::vector<std::string> crlFiles;
  bool fetch = false;
  bool allowRevoked = false;
  bool allowMissing = false;  // a further certificate that names no responder is left without data
  long timeoutSeconds = 10;

  // Long-term data is added only when one of its sources is named.
  bool requested() const { return fetch || !ocspResponseFiles.empty() || !crlFiles.empty(); }
};

// What a source must speak of: the signer certificate's issuer Name and serialNumber elements, and the
// issuer's public key (the BIT STRING's key octets; empty when the issuer certificate is not at hand).
struct RevocationSubject {
  CvelString issuer;
  CvelString serialNumber;
  Bytes issuerKey;
};

enum class RevocationVerdict { kGood, kRevoked, kNotCovered };

// The subject for a signer certificate, looking for its issuer among certificates.
bool revocationSubject(const Bytes& signerCertificate, const std::vector<Bytes>& certificates,
                       RevocationSubject& out, std::string& error);
// What an OCSP response (OCSPResponse or BasicOCSPResponse) says of the subject; basicResponse receives the
// BasicOCSPResponse a revocation-values attribute keeps. kNotCovered also for a response that is not
// successful or not an OCSP response at all.
RevocationVerdict ocspVerdict(const Bytes& response, const RevocationSubject& subject, Bytes& basicResponse);
// What a CRL says of the subject: kNotCovered when another issuer made it.
RevocationVerdict crlVerdict(const Bytes& crl, const RevocationSubject& subject);
// OCSPRequest for the subject, CertID made with SHA-1 as responders expect.
bool ocspRequest(const RevocationSubject& subject, Bytes& out);
// The http(s) URLs of the certificate's OCSP responders and CRL distribution points.
void serviceUrls(const Bytes& certificate, std::vector<std::string>& ocsp, std::vector<std::string>& crl);

// Gathers the data named by options for the signer certificate and makes the certificate-values attribute
// (the given certificates, the signer's first) and the revocation-values attribute.
bool longTermAttributes(const RevocationOptions& options, const Bytes& signerCertificate,
                        const std::vector<Bytes>& certificates, std::vector<ServiceAttribute>& out,
                        std::string& error);

// As above, and then the data of further certificates (those of a time-stamping authority), always asked of
// the responders or distribution points each names, into the same revocation values. A further certificate
// that names none is an error unless options.allowMissing; its subject is then added to missing.
bool longTermAttributes(const RevocationOptions& options, const Bytes& signerCertificate,
                        const std::vector<Bytes>& further, const std::vector<Bytes>& certificates,
                        std::vector<ServiceAttribute>& out, std::vector<std::string>& missing, std::string& error);

#endif  // KOLVARI_TOOLS_SERVICES_REVOCATION_CLIENT_H
