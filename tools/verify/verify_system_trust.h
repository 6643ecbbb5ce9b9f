// OpenSSL's default trust locations without reading them whole. The default bundle file holds some 140
// certificates, and OpenSSL's file lookup decodes every one of them (keys included) before the first path
// is built; a verification needs one or two of them. The bundle is read once and its certificates indexed
// by subject, undecoded; a path that asks for an issuer decodes only the certificates of that subject.
#ifndef KOLVARI_TOOLS_VERIFY_VERIFY_SYSTEM_TRUST_H
#define KOLVARI_TOOLS_VERIFY_VERIFY_SYSTEM_TRUST_H

#include <memory>
#include <string>
#include <vector>

#include <openssl/x509.h>

#include "verify/verify_crypto.h"

// The DER of each certificate in the PEM blocks of text ("CERTIFICATE" or "X509 CERTIFICATE"); a block that
// does not decode is left out, the others are kept.
std::vector<Bytes> pemCertificates(const std::string& text);

// The subject Name element of a certificate's DER, found by a bounded walk of its TLVs; false when der is
// not a certificate's outline.
bool subjectElementOf(const Bytes& der, const unsigned char*& subject, size_t& n);

// The default locations as X509_STORE_set_default_paths adds them: the bundle file (SSL_CERT_FILE, else
// OpenSSL's default) through an index of its own, certificates decoded through cache on first use; the
// hashed folder and the default store URI as OpenSSL reads them. A bundle that cannot be read adds nothing.
bool addSystemTrust(X509_STORE* store, const std::shared_ptr<CertificateCache>& cache);

#endif  // KOLVARI_TOOLS_VERIFY_VERIFY_SYSTEM_TRUST_H
