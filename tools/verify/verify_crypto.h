// OpenSSL's part of verifying: certificates and keys as owned objects, times, the signature value over the
// data, and the certificate path from a signer to a trust anchor at a given time.
#ifndef KOLVARI_TOOLS_VERIFY_VERIFY_CRYPTO_H
#define KOLVARI_TOOLS_VERIFY_VERIFY_CRYPTO_H

#include <ctime>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include <openssl/evp.h>
#include <openssl/x509.h>

#include "host_crypto.h"

struct X509Deleter {
  void operator()(X509* x) const { X509_free(x); }
};
using Certificate = std::shared_ptr<X509>;

// A certificate from DER; null when OpenSSL does not read it whole.
Certificate certificateFromDer(const unsigned char* der, size_t n);

// The certificates of one run, each parsed once. The signatures of a batch or of one PDF carry the same
// signer, intermediate and anchor certificates again and again, and d2i_X509 decodes the public key through
// OpenSSL's provider decoders, which costs more than verifying a signature. Keyed by the whole DER, so that
// an entry is only ever the same certificate; bounded in entries and bytes, beyond which certificates are
// parsed without being kept. Safe to share between threads.
class CertificateCache {
 public:
  // The certificate of der, from the cache or parsed; null when OpenSSL does not read it whole.
  Certificate get(const unsigned char* der, size_t n);
  size_t size() const;

 private:
  mutable std::mutex mutex_;
  std::map<std::string, Certificate, std::less<>> entries_;
  size_t bytes_ = 0;
};
// The RFC 4514 form of the certificate's subject.
std::string subjectText(X509* certificate);
// YYYY-MM-DDThh:mm:ssZ.
std::string isoTime(time_t t);
// The time an ASN1_TIME holds; false for one that does not convert.
bool timeOf(const ASN1_TIME* time, time_t& out);
// A UTCTime or GeneralizedTime element; false for anything else.
bool timeOfElement(const unsigned char* der, size_t n, time_t& out);

// The time of GeneralizedTime text (YYYYMMDDhhmmssZ); false for text that is not one.
bool timeOfGeneralized(const std::string& text, time_t& out);

// The signed attributes as the signature covers them: the content of the SignerInfo's [0] IMPLICIT field as
// received, under a SET tag and its DER length. The attributes are never re-sorted or re-encoded, so that a
// signer that did not sort them (or sorted them wrongly) is judged by what it signed.
Bytes signedAttributesAsSigned(const unsigned char* content, size_t n);

// Verifies signature over data with key, the algorithm named by the signatureAlgorithm element and, where
// that names none, digestMd: RSA PKCS #1 v1.5, RSASSA-PSS, ECDSA, Ed25519. 1 verified, 0 not, -1 an
// algorithm that is not offered (reason says which).
int verifySignatureValue(EVP_PKEY* key, const Bytes& signatureAlgorithm, const EVP_MD* digestMd,
                         const unsigned char* data, size_t n, const Bytes& signature, std::string& reason);

// What building the path gave: the X509_V_ERR code (X509_V_OK when the path holds) and the chain found.
struct PathResult {
  int error = X509_V_OK;
  std::string errorText;
  std::vector<Certificate> chain;  // the signer first, the trust anchor last
};
// The path from leaf to a trust anchor of store, through untrusted, at time t. Its depth is bounded.
PathResult buildPath(X509_STORE* store, X509* leaf, const std::vector<Certificate>& untrusted, time_t t);

#endif  // KOLVARI_TOOLS_VERIFY_VERIFY_CRYPTO_H
