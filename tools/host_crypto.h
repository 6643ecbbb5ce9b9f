// The host's part of signing, done with OpenSSL's libcrypto: reading keys, certificates and CRLs, hashing,
// and signing the data to be signed. The library itself never hashes and never signs.
#ifndef KOLVARI_TOOLS_HOST_CRYPTO_H
#define KOLVARI_TOOLS_HOST_CRYPTO_H

#include <memory>
#include <string>
#include <vector>

#include <openssl/evp.h>

using Bytes = std::vector<unsigned char>;

// A digest the tool offers, with the dotted OIDs the library is given.
struct DigestChoice {
  const char* name;              // "sha256"
  const char* digestOid;         // id-sha256
  const char* rsaSignatureOid;   // sha256WithRSAEncryption
  const char* ecdsaSignatureOid; // ecdsa-with-SHA256
  const EVP_MD* (*md)();
};

// The digest named name, or null.
const DigestChoice* findDigest(const std::string& name);

struct PKeyDeleter {
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
using PrivateKey = std::unique_ptr<EVP_PKEY, PKeyDeleter>;

// Reads a private key (PEM, or DER PKCS #8 / traditional); null with a message in error.
PrivateKey readPrivateKey(const std::string& path, std::string& error);
// The public key of a DER certificate; null when the certificate or its key cannot be read.
PrivateKey certificatePublicKey(const Bytes& certificate);
// Whether signature is key's signature of data with digest (the check of a trial signature).
bool verifyBytes(EVP_PKEY* key, const DigestChoice& digest, const Bytes& data, const Bytes& signature);
// Reads every certificate of a PEM file, or the one certificate of a DER file, as DER.
bool readCertificates(const std::string& path, std::vector<Bytes>& out, std::string& error);
// Reads every CRL of a PEM file, or the one CRL of a DER file, as DER.
bool readCrls(const std::string& path, std::vector<Bytes>& out, std::string& error);

// The digest of bytes.
bool digestBytes(const DigestChoice& digest, const Bytes& data, Bytes& out);

// A run of bytes that stays where it is.
struct ByteSpan {
  const unsigned char* data;
  size_t size;
};
// The digest of several runs taken one after the other, without joining them first.
bool digestSpans(const DigestChoice& digest, const std::vector<ByteSpan>& spans, Bytes& out);
// Signs data with key and digest: PKCS #1 v1.5 for RSA, DER ECDSA-Sig-Value for EC keys.
bool signBytes(EVP_PKEY* key, const DigestChoice& digest, const Bytes& data, Bytes& signature, std::string& error);
// The dotted signature-algorithm OID for the key type and digest; null for a key type that is not offered.
const char* signatureOidFor(EVP_PKEY* key, const DigestChoice& digest);

// PEM text of DER bytes under the given label ("PKCS7").
std::string toPem(const Bytes& der, const char* label);

// The text of OpenSSL's last error, for messages.
std::string opensslError();

#endif  // KOLVARI_TOOLS_HOST_CRYPTO_H
